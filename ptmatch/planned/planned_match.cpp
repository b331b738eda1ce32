// The planned search: coarse passes on a grid planned from the data, fine passes of the
// written run about each coarse match, and the fallback to finer plans and at last to the
// written run itself.

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "mvbase/threads.h"
#include "mvbase/timer.h"
#include "planned/hypotheses.h"
#include "planned/plan.h"
#include "planned/result_writer.h"
#include "ppmatch/result_order.h"
#include "ptmatch/planned.h"

namespace {

using ptmatch::detail::ResultWriter;
namespace planned = ptmatch::detail::planned;

// Searches of less work than this (mvPointMatcherCost units, about a millisecond) run the written
// run at once.
constexpr double kCheapWork = 1e7;
// A coarse plan is worth it only on a grid at least this many times the model's own.
constexpr double kFinestCoarseFactor = 2.0;
// The first coarse grid is at least this many times the model's own (the model's smallest
// point spacing: the model's own grid is a quarter of it).
constexpr double kModelSpacings = 4.0;
// Models of at least this many points start with the shape pass.
constexpr std::size_t kShapeLeastPoints = 8;
// Share of the covered model points a shape hypothesis must bring near data points to be
// searched by a fine pass (weights aside).
constexpr double kShapeSupportShare = 0.5;
// Coarse passes keep matches down to this share of the caller's coverage.
constexpr double kCoarseCoverageShare = 0.8;
// Coarse matches kept per result asked for, and at least.
constexpr long kCoarsePerResult = 4;
constexpr long kLeastCoarseMatches = 8;
// Fine passes per result asked for, plus this many.
constexpr long kFinePassesPerResult = 2;
constexpr long kExtraFinePasses = 2;
// Data within this many model grid sizes of a coarse match's footprint (beyond its capture
// range) take part in its fine pass.
constexpr double kCropCells = 8.0;

// What every pass of one search shares.
struct Search {
  Search(const mvPointMatcher& m, const std::vector<mvVector<2>>& d,
         const mvPointMatcherRunParams& p)
      : matcher(m), data(d), params(p) {}

  const mvPointMatcher& matcher;
  const std::vector<mvVector<2>>& data;
  const mvPointMatcherRunParams& params;
  // The model's own grid size and the capture range the written run would use.
  double gridSize = 0.0;
  double captureRange = 0.0;
  mvVector<2> center;
  double radius = 0.0;
  // The data points that set the written run's grid origin (lowest x and lowest y in the
  // start-pose frame); every fine pass keeps them, so that it votes on the same cells.
  std::size_t lowestX = 0;
  std::size_t lowestY = 0;
  // The matcher the coarse passes vote with: the caller's, or one of a spread subset.
  std::unique_ptr<mvPointMatcher> coarseMatcher;
};

// What the results of one search have found so far.
struct Findings {
  std::vector<mvPointMatcherResult> results;
  // Fine passes that found a new match: distinct instances of the model. A fine pass may
  // also report weaker matches beside its best one (a shifted copy of a regular model);
  // those are kept but do not count, so that asking for two results looks for two
  // instances.
  long instances = 0;
  // The neighbourhoods searched by fine passes, none searched twice.
  std::vector<planned::Neighbourhood> searched;
};

void measureModel(Search& s) {
  const std::vector<mvVector<2>>& points = s.matcher.modelPoints();
  const planned::Box box = planned::boxOf(points);
  s.center = mvVector<2>((box.minX + box.maxX) / 2.0, (box.minY + box.maxY) / 2.0);
  for (const mvVector<2>& p : points) {
    const mvVector<2> d = p - s.center;
    s.radius = std::max(s.radius, std::sqrt(d.x() * d.x() + d.y() * d.y()));
  }
}

// The matcher of the coarse passes: a large model votes with a spread subset.
const mvPointMatcher& coarseMatcherOf(Search& s, mvPlannedMatchReport& report) {
  const std::vector<mvVector<2>>& points = s.matcher.modelPoints();
  report.coarseModelPoints = static_cast<long>(points.size());
  if (points.size() <= planned::kCoarseModelPoints) return s.matcher;
  if (!s.coarseMatcher) {
    const std::vector<std::size_t> subset =
        planned::spreadSubset(points, planned::kCoarseModelPoints);
    const std::vector<long> weights = s.matcher.weights();
    const bool weighted =
        std::any_of(weights.begin(), weights.end(), [](long w) { return w != 1; });
    std::vector<mvVector<2>> subsetPoints;
    std::vector<long> subsetWeights;
    for (std::size_t i : subset) {
      subsetPoints.push_back(points[i]);
      subsetWeights.push_back(weights[i]);
    }
    s.coarseMatcher = std::make_unique<mvPointMatcher>();
    if (weighted) {
      s.coarseMatcher->train(subsetPoints, subsetWeights, mvPointMatcherDefs::eAutoDetect);
    } else {
      s.coarseMatcher->train(subsetPoints, mvPointMatcherDefs::eAutoDetect);
    }
  }
  report.coarseModelPoints = static_cast<long>(planned::kCoarseModelPoints);
  return *s.coarseMatcher;
}

// The coarse pass on a grid of gridSize: the written run over the caller's ranges, keeping
// its matches of at least a share of the caller's coverage.
std::vector<mvPointMatcherResult> coarsePass(Search& s, double gridSize,
                                             mvPlannedMatchReport& report) {
  mvPointMatcherRunParams coarse = s.params;
  coarse.autoGridSize(false);
  coarse.gridSize(gridSize);
  coarse.autoCaptureRange(false);
  coarse.captureRange(s.captureRange);
  coarse.minCoverage(s.params.minCoverage() * kCoarseCoverageShare);
  coarse.maxNumResults(std::max(kLeastCoarseMatches, s.params.maxNumResults() * kCoarsePerResult));
  mvPointMatcherResultSet found;
  coarseMatcherOf(s, report).run(s.data, coarse, found);
  return found.results();
}

bool sameMap(const mvPointMatcherResult& a, const mvPointMatcherResult& b) {
  return a.modelToDataMap() == b.modelToDataMap();
}

// True when the result's rotation relative to the start pose lies in the caller's range,
// as the written run requires of its own results.
bool withinRotationRange(const mvPointMatcherResult& r, const mvPointMatcherRunParams& params) {
  const mvAngleRange rotations = params.rotationUncertainty();
  if (rotations.range() == mvRangeDefs::eFull) return true;
  const mvXform<2> relative = params.startPose().inverse() * r.modelToDataXform();
  return rotations.isWithin(relative.rotation());
}

// Adds the data points that set the written run's grid origin to near (kept in order).
void keepGridAnchor(const Search& s, std::vector<std::size_t>& near) {
  for (std::size_t j : {s.lowestX, s.lowestY}) {
    const auto at = std::lower_bound(near.begin(), near.end(), j);
    if (at == near.end() || *at != j) near.insert(at, j);
  }
}

// The fine pass about one coarse match: the written run over a narrow neighbourhood of its
// pose, on the data near it; its results join found (maps in the caller's data indices,
// results found before kept).
void finePass(const Search& s, const mvXform<2>& pose, const planned::Neighbourhood& n,
              Findings& found) {
  const mvPointMatcherRunParams fine = planned::finePassParams(s.params, n, s.gridSize, s.radius);
  const double margin = kCropCells * s.gridSize + s.captureRange;
  std::vector<std::size_t> near = planned::dataNear(s.data, s.matcher.modelPoints(), pose, margin);
  keepGridAnchor(s, near);
  std::vector<mvVector<2>> nearData;
  nearData.reserve(near.size());
  for (std::size_t j : near) nearData.push_back(s.data[j]);

  mvPointMatcherResultSet local;
  s.matcher.run(nearData, fine, local);
  bool best = true;
  for (const mvPointMatcherResult& r : local.results()) {
    mvPointMatcherResult result = r;
    std::vector<long> map = r.modelToDataMap();
    for (long& j : map) {
      if (j >= 0) j = static_cast<long>(near[static_cast<std::size_t>(j)]);
    }
    ResultWriter::setMap(result, std::move(map));
    if (!withinRotationRange(result, s.params)) continue;
    const bool known =
        std::any_of(found.results.begin(), found.results.end(),
                    [&](const mvPointMatcherResult& f) { return sameMap(f, result); });
    if (known) continue;
    found.results.push_back(std::move(result));
    if (best) ++found.instances;
    best = false;
  }
}

// True when n lies within a neighbourhood already searched.
bool alreadySearched(const Search& s, const planned::Neighbourhood& n, const Findings& found) {
  for (const planned::Neighbourhood& m : found.searched) {
    const mvVector<2> shift = n.offset - m.offset;
    double turn = std::fabs(n.rotation - m.rotation);
    turn = std::min(turn, 360.0 - turn);
    if (std::fabs(shift.x()) <= s.gridSize && std::fabs(shift.y()) <= s.gridSize &&
        turn * s.radius * 3.141592653589793 / 180.0 <= s.gridSize &&
        std::fabs(n.scaleChange - m.scaleChange) * s.radius <= s.gridSize) {
      return true;
    }
  }
  return false;
}

// A fine pass about pose, unless its neighbourhood was searched already.
void searchAbout(const Search& s, const mvXform<2>& pose, Findings& found,
                 mvPlannedMatchReport& report) {
  const planned::Neighbourhood n = planned::neighbourhoodOf(pose, s.params.startPose(), s.center);
  if (alreadySearched(s, n, found)) return;
  found.searched.push_back(n);
  finePass(s, pose, n, found);
  ++report.finePasses;
}

// Fine passes a plan may spend: a few per result asked for.
long finePassesPerPlan(const Search& s) {
  return s.params.maxNumResults() * kFinePassesPerResult + kExtraFinePasses;
}

// One plan: the coarse pass on gridSize and the fine passes about its best matches.
void planPass(Search& s, double gridSize, Findings& found, mvPlannedMatchReport& report) {
  report.coarseGridSizes.push_back(gridSize);
  const std::vector<mvPointMatcherResult> coarse = coarsePass(s, gridSize, report);
  const long passes = report.finePasses + finePassesPerPlan(s);
  for (const mvPointMatcherResult& c : coarse) {
    if (report.finePasses >= passes) break;
    searchAbout(s, c.modelToDataXform(), found, report);
  }
}

// The shape pass: fine passes about the poses that local point shapes agree on.
void shapePass(Search& s, Findings& found, mvPlannedMatchReport& report) {
  const std::vector<planned::PoseHypothesis> hypotheses =
      planned::shapeHypotheses(s.matcher.modelPoints(), s.data, s.params, s.captureRange,
                               static_cast<std::size_t>(finePassesPerPlan(s)));
  // A hypothesis bringing fewer model points near data than this cannot reach the coverage.
  const double leastSupport = kShapeSupportShare * s.params.minCoverage() *
                              static_cast<double>(s.matcher.modelPoints().size());
  for (const planned::PoseHypothesis& h : hypotheses) {
    if (static_cast<double>(h.support) >= leastSupport) searchAbout(s, h.pose, found, report);
  }
}

// The coarse grid sizes to try, coarsest first; empty when the written run should run at
// once.
std::vector<double> planLadder(const Search& s, const std::vector<mvVector<2>>& mapped) {
  std::vector<double> ladder;
  const double first = std::max(planned::densityGridSize(mapped), kModelSpacings * s.gridSize);
  for (double g = first; g >= kFinestCoarseFactor * s.gridSize; g /= 2.0) {
    ladder.push_back(g);
  }
  return ladder;
}

// The data in the start-pose frame, and the points that set the written run's grid origin.
std::vector<mvVector<2>> mapToStartFrame(Search& s) {
  std::vector<mvVector<2>> mapped;
  mapped.reserve(s.data.size());
  const mvXform<2> startInverse = s.params.startPose().inverse();
  for (const mvVector<2>& p : s.data) mapped.push_back(startInverse * p);
  for (std::size_t j = 1; j < mapped.size(); ++j) {
    if (mapped[j].x() < mapped[s.lowestX].x()) s.lowestX = j;
    if (mapped[j].y() < mapped[s.lowestY].y()) s.lowestY = j;
  }
  return mapped;
}

void writtenRun(const Search& s, mvPointMatcherResultSet& resultSet, mvPlannedMatchReport& report) {
  report.usedWrittenRun = true;
  s.matcher.run(s.data, s.params, resultSet);
}

}  // namespace

void mfPlannedMatch(const mvPointMatcher& matcher, const std::vector<mvVector<2>>& dataPoints,
                    const mvPointMatcherRunParams& params, mvPointMatcherResultSet& resultSet,
                    mvPlannedMatchReport* reportOut) {
  mvTimer timer;
  ResultWriter::results(resultSet).clear();
  mvPlannedMatchReport report;
  report.threads = mvThreads::forMachine();
  const mvThreads::Scope threads(report.threads);
  Search s(matcher, dataPoints, params);

  const bool planable = matcher.isTrained() &&
                        matcher.trainMode() == mvPointMatcherDefs::ePointToPoint &&
                        params.autoGridSize() && dataPoints.size() >= 2;
  const mvPointMatcherCost cost =
      planable ? matcher.estimateCost(dataPoints, params) : mvPointMatcherCost();
  std::vector<double> ladder;
  if (planable && cost.work() >= kCheapWork) {
    s.gridSize = cost.gridSize;
    s.captureRange = params.autoCaptureRange() ? cost.gridSize : params.captureRange();
    measureModel(s);
    ladder = planLadder(s, mapToStartFrame(s));
  }

  Findings found;
  if (!ladder.empty() && s.matcher.modelPoints().size() >= kShapeLeastPoints) {
    shapePass(s, found, report);
  }
  for (double g : ladder) {
    if (found.instances >= params.maxNumResults()) break;
    planPass(s, g, found, report);
  }
  if (!ladder.empty() && found.instances >= params.maxNumResults()) {
    ptmatch::detail::orderAndTruncate(found.results, params.maxNumResults());
    ResultWriter::results(resultSet) = std::move(found.results);
  } else {
    writtenRun(s, resultSet, report);
  }
  ResultWriter::setTime(resultSet, timer.sec());
  if (reportOut != nullptr) *reportOut = std::move(report);
}
