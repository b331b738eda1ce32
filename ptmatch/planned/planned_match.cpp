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
  // The matcher the coarse passes vote with: the caller's, or one of a spread subset.
  std::unique_ptr<mvPointMatcher> coarseMatcher;
};

void measureModel(Search& s) {
  const std::vector<mvVector<2>>& points = s.matcher.modelPoints();
  double minX = points[0].x(), maxX = minX, minY = points[0].y(), maxY = minY;
  for (const mvVector<2>& p : points) {
    minX = std::min(minX, p.x());
    maxX = std::max(maxX, p.x());
    minY = std::min(minY, p.y());
    maxY = std::max(maxY, p.y());
  }
  s.center = mvVector<2>((minX + maxX) / 2.0, (minY + maxY) / 2.0);
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

// Adds to near (kept in order) the data points that set the written run's grid origin: the
// lowest x and the lowest y in the start-pose frame. With them the fine pass votes on the
// written run's own cells.
void keepGridAnchor(const Search& s, std::vector<std::size_t>& near) {
  const mvXform<2> startInverse = s.params.startPose().inverse();
  std::size_t lowX = 0, lowY = 0;
  double minX = 0.0, minY = 0.0;
  for (std::size_t j = 0; j < s.data.size(); ++j) {
    const mvVector<2> p = startInverse * s.data[j];
    if (j == 0 || p.x() < minX) minX = p.x(), lowX = j;
    if (j == 0 || p.y() < minY) minY = p.y(), lowY = j;
  }
  for (std::size_t j : {lowX, lowY}) {
    const auto at = std::lower_bound(near.begin(), near.end(), j);
    if (at == near.end() || *at != j) near.insert(at, j);
  }
}

// The fine pass about one coarse match: the written run over a narrow neighbourhood of its
// pose, on the data near it; its results join found (maps in the caller's data indices,
// results found before kept).
void finePass(const Search& s, const mvXform<2>& pose, std::vector<mvPointMatcherResult>& found) {
  const planned::Neighbourhood n = planned::neighbourhoodOf(pose, s.params.startPose(), s.center);
  const mvPointMatcherRunParams fine = planned::finePassParams(s.params, n, s.gridSize, s.radius);
  const double margin = kCropCells * s.gridSize + s.captureRange;
  std::vector<std::size_t> near = planned::dataNear(s.data, s.matcher.modelPoints(), pose, margin);
  keepGridAnchor(s, near);
  std::vector<mvVector<2>> nearData;
  nearData.reserve(near.size());
  for (std::size_t j : near) nearData.push_back(s.data[j]);

  mvPointMatcherResultSet local;
  s.matcher.run(nearData, fine, local);
  for (const mvPointMatcherResult& r : local.results()) {
    mvPointMatcherResult result = r;
    std::vector<long> map = r.modelToDataMap();
    for (long& j : map) {
      if (j >= 0) j = static_cast<long>(near[static_cast<std::size_t>(j)]);
    }
    ResultWriter::setMap(result, std::move(map));
    if (!withinRotationRange(result, s.params)) continue;
    const bool known = std::any_of(found.begin(), found.end(), [&](const mvPointMatcherResult& f) {
      return sameMap(f, result);
    });
    if (!known) found.push_back(std::move(result));
  }
}

// True when pose lies within the neighbourhood a fine pass about done searched.
bool alreadySearched(const Search& s, const mvXform<2>& pose, const std::vector<mvXform<2>>& done) {
  const planned::Neighbourhood n = planned::neighbourhoodOf(pose, s.params.startPose(), s.center);
  for (const mvXform<2>& d : done) {
    const planned::Neighbourhood m = planned::neighbourhoodOf(d, s.params.startPose(), s.center);
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

// One plan: the coarse pass on gridSize and the fine passes about its best matches.
void planPass(Search& s, double gridSize, std::vector<mvPointMatcherResult>& found,
              mvPlannedMatchReport& report) {
  report.coarseGridSizes.push_back(gridSize);
  const std::vector<mvPointMatcherResult> coarse = coarsePass(s, gridSize, report);
  const long passes = s.params.maxNumResults() * kFinePassesPerResult + kExtraFinePasses;
  std::vector<mvXform<2>> searched;
  for (const mvPointMatcherResult& c : coarse) {
    if (static_cast<long>(searched.size()) >= passes) break;
    if (alreadySearched(s, c.modelToDataXform(), searched)) continue;
    searched.push_back(c.modelToDataXform());
    finePass(s, c.modelToDataXform(), found);
    ++report.finePasses;
  }
}

// The shape pass: fine passes about the poses that local point shapes agree on.
void shapePass(Search& s, std::vector<mvPointMatcherResult>& found, mvPlannedMatchReport& report) {
  const long passes = s.params.maxNumResults() * kFinePassesPerResult + kExtraFinePasses;
  const std::vector<planned::PoseHypothesis> hypotheses = planned::shapeHypotheses(
      s.matcher.modelPoints(), s.data, s.params, s.captureRange, static_cast<std::size_t>(passes));
  // A hypothesis bringing fewer model points near data than this cannot reach the coverage.
  const double leastSupport = kShapeSupportShare * s.params.minCoverage() *
                              static_cast<double>(s.matcher.modelPoints().size());
  std::vector<mvXform<2>> searched;
  for (const planned::PoseHypothesis& h : hypotheses) {
    if (static_cast<double>(h.support) < leastSupport) continue;
    if (alreadySearched(s, h.pose, searched)) continue;
    searched.push_back(h.pose);
    finePass(s, h.pose, found);
    ++report.finePasses;
  }
}

long countReaching(const std::vector<mvPointMatcherResult>& found, double minCoverage) {
  return static_cast<long>(std::count_if(
      found.begin(), found.end(), [&](const auto& r) { return r.coverage() >= minCoverage; }));
}

// The coarse grid sizes to try, coarsest first; empty when the written run should run at
// once.
std::vector<double> planLadder(const Search& s) {
  std::vector<mvVector<2>> mapped;
  mapped.reserve(s.data.size());
  const mvXform<2> startInverse = s.params.startPose().inverse();
  for (const mvVector<2>& p : s.data) mapped.push_back(startInverse * p);
  std::vector<double> ladder;
  const double first = std::max(planned::densityGridSize(mapped), kModelSpacings * s.gridSize);
  for (double g = first; g >= kFinestCoarseFactor * s.gridSize; g /= 2.0) {
    ladder.push_back(g);
  }
  return ladder;
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
    ladder = planLadder(s);
  }

  std::vector<mvPointMatcherResult> found;
  if (!ladder.empty() && s.matcher.modelPoints().size() >= kShapeLeastPoints) {
    shapePass(s, found, report);
  }
  for (double g : ladder) {
    if (countReaching(found, params.minCoverage()) >= params.maxNumResults()) break;
    planPass(s, g, found, report);
  }
  if (!ladder.empty() && countReaching(found, params.minCoverage()) >= params.maxNumResults()) {
    ptmatch::detail::orderAndTruncate(found, params.maxNumResults());
    ResultWriter::results(resultSet) = std::move(found);
  } else {
    writtenRun(s, resultSet, report);
  }
  ResultWriter::setTime(resultSet, timer.sec());
  if (reportOut != nullptr) *reportOut = std::move(report);
}
