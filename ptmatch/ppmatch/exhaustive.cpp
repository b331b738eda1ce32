// The exhaustive search of a matcher trained in eExhaustiveMode.
//
// Every one-to-one pairing of the points of the smaller set (side A) with the points of
// the larger set (side B) is tried: each A point is paired with one B point or left
// unpaired, no B point twice. A pairing of at least two points gives a pose by a least
// squares fit; a pose inside the uncertainty ranges around the start pose is scored
// against all data points, and the best results are kept in the result order. Nothing is
// pruned, so the work grows as (size(B) + 1) ^ size(A); the search polls mvAttention every
// kAttentionInterval pairings so that a caller can always interrupt it.
//
// The results stay sorted as they come: a new result goes in after every result it does
// not go before, and the list is cut to maxNumResults. Results equal in coverage and fit
// error may come in any order (the order is not a stable one), and different pairings
// that give the same pose each give a result.
//
// With no data points there is nothing to pair: the run reports no results and its time.
// A start pose that cannot be inverted fails with mvMathError once a pose needs testing.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "mvbase/attention.h"
#include "mvbase/fitter.h"
#include "mvbase/timer.h"
#include "ppmatch/internal.h"
#include "ppmatch/result_order.h"

namespace {

using PointList = std::vector<mvVector<2>>;

// Pairings tried between two polls of mvAttention.
constexpr std::uint32_t kAttentionInterval = 1024;

// Degrees of freedom of the fit: rigid when no scale change is allowed, else similarity.
constexpr int kRigidDof = 3;
constexpr int kSimilarityDof = 4;

// The smaller point set is side A; with equal sizes the model is.
struct Sides {
  const PointList* a;
  const PointList* b;
  bool aIsModel;
};

Sides chooseSides(const PointList& model, const PointList& data) {
  if (data.size() < model.size()) return {&data, &model, false};
  return {&model, &data, true};
}

// The caller's parameters with the grid size and capture range this search uses: the
// model's default grid size when the grid size is automatic or not above 0, and the grid
// size as capture range when that is automatic or below 0. (A grid size of 0 is replaced,
// a capture range of 0 is kept.)
mvPointMatcherRunParams resolveSizes(const mvPointMatcherRunParams& params,
                                     double defaultGridSize) {
  mvPointMatcherRunParams resolved = params;
  if (resolved.autoGridSize() || !(resolved.gridSize() > 0.0)) {
    resolved.gridSize(defaultGridSize);
  }
  if (resolved.autoCaptureRange() || resolved.captureRange() < 0.0) {
    resolved.captureRange(resolved.gridSize());
  }
  return resolved;
}

// Moves the odometer to the next pairing: A point 0 is the fastest digit, each digit runs
// from -1 (unpaired) to sizeB - 1. Returns false once every pairing has been produced.
bool nextPairing(std::vector<long>& assign, long sizeB) {
  for (long& digit : assign) {
    if (++digit < sizeB) return true;
    digit = -1;
  }
  return false;
}

// True when no two A points are paired with the same B point; usedB is all false on entry
// and on return.
bool isOneToOne(const std::vector<long>& assign, std::vector<bool>& usedB) {
  bool duplicate = false;
  for (long b : assign) {
    if (b == -1) continue;
    if (usedB[static_cast<std::size_t>(b)]) duplicate = true;
    usedB[static_cast<std::size_t>(b)] = true;
  }
  for (long b : assign) {
    if (b != -1) usedB[static_cast<std::size_t>(b)] = false;
  }
  return !duplicate;
}

// The paired points, in increasing A order.
void collectPairs(const std::vector<long>& assign, const Sides& sides, PointList& aPoints,
                  PointList& bPoints) {
  aPoints.clear();
  bPoints.clear();
  for (std::size_t i = 0; i < assign.size(); ++i) {
    if (assign[i] == -1) continue;
    aPoints.push_back((*sides.a)[i]);
    bPoints.push_back((*sides.b)[static_cast<std::size_t>(assign[i])]);
  }
}

// Fits the model-to-data pose of the pairs. The fit carries the B points onto the A
// points, so the pose is its inverse when A holds the model. Returns false for a fit that
// fails or is singular.
bool fitPose(const PointList& aPoints, const PointList& bPoints, int dof, bool aIsModel,
             mvXform<2>& pose) {
  try {
    const mvXform<2> fitted = mvLSPointToPointFitter(aPoints, bPoints).fit(dof);
    if (fitted.isSingular()) return false;
    pose = aIsModel ? fitted.inverse() : fitted;
    return true;
  } catch (const mvLSPointToPointFitter::Errors&) {
    return false;
  } catch (const mvMathError&) {
    return false;
  }
}

// The pose of one pairing: none unless it is one to one, pairs at least two points and
// gives a fit that succeeds and is not singular.
bool poseOfPairing(const std::vector<long>& assign, const Sides& sides, int dof,
                   std::vector<bool>& usedB, PointList& aPoints, PointList& bPoints,
                   mvXform<2>& pose) {
  if (!isOneToOne(assign, usedB)) return false;
  collectPairs(assign, sides, aPoints, bPoints);
  if (aPoints.size() < 2) return false;
  return fitPose(aPoints, bPoints, dof, sides.aIsModel, pose);
}

// True when the pose, taken relative to the start pose, lies inside all four uncertainty
// ranges, tested as x, y, rotation, then relative scale change.
bool isWithinUncertainty(const mvXform<2>& pose, const mvPointMatcherRunParams& params) {
  const mvXform<2> delta = pose * params.startPose().inverse();
  return params.xTranslationUncertainty().isWithin(delta.trans().x()) &&
         params.yTranslationUncertainty().isWithin(delta.trans().y()) &&
         params.rotationUncertainty().isWithin(delta.xRot()) &&
         params.scaleUncertainty().isWithin(delta.xScale() - 1.0);
}

// The score of one pose: which data point each model point took, the matched weight and
// the weighted sum of squared distances.
struct PoseScore {
  std::vector<long> modelToDataMap;
  std::int64_t count = 0;
  double sumSq = 0.0;
};

// Greedy in model order: each model point, mapped by the pose, takes the nearest data
// point not yet taken that lies strictly inside the capture range (ties keep the lower
// data index), even when a later model point would lie nearer to it.
void scorePose(const mvXform<2>& pose, const PointList& model, const std::vector<long>& weights,
               const PointList& data, double captureRange2, std::vector<bool>& usedData,
               PoseScore& score) {
  score.modelToDataMap.assign(model.size(), -1);
  std::fill(usedData.begin(), usedData.end(), false);
  score.count = 0;
  score.sumSq = 0.0;
  for (std::size_t i = 0; i < model.size(); ++i) {
    const mvVector<2> mapped = pose * model[i];
    double best = captureRange2;
    long bestIndex = -1;
    for (std::size_t j = 0; j < data.size(); ++j) {
      if (usedData[j]) continue;
      const mvVector<2> d = mapped - data[j];
      const double d2 = d.y() * d.y() + d.x() * d.x();
      if (d2 < best) {
        best = d2;
        bestIndex = static_cast<long>(j);
      }
    }
    if (bestIndex == -1) continue;
    const long w = weights.empty() ? 1 : weights[i];
    score.count += w;
    score.sumSq += best * static_cast<double>(w);
    score.modelToDataMap[i] = bestIndex;
    usedData[static_cast<std::size_t>(bestIndex)] = true;
  }
}

// Result order: greater coverage first, then smaller fit error.
bool goesBefore(double coverageA, double fitErrorA, const mvPointMatcherResult& b) {
  const ptmatch::detail::ResultOrderEntry ea{0, coverageA, fitErrorA};
  const ptmatch::detail::ResultOrderEntry eb{0, b.coverage(), b.fitError()};
  return ptmatch::detail::compareResultOrder(&ea, &eb) < 0;
}

// True when a result of this coverage and fit error has a place in a list of at most
// maxResults: a full list keeps its entries when the new one would sort after all of them.
bool hasPlace(const std::vector<mvPointMatcherResult>& results, std::size_t maxResults,
              double coverage, double fitError) {
  if (results.size() < maxResults) return true;
  return !results.empty() && goesBefore(coverage, fitError, results.back());
}

// Puts the result after every result it does not go before, then cuts the list to
// maxResults.
void insertInResultOrder(std::vector<mvPointMatcherResult>& results, mvPointMatcherResult&& result,
                         std::size_t maxResults) {
  const auto at = std::find_if(results.begin(), results.end(), [&](const auto& r) {
    return goesBefore(result.coverage(), result.fitError(), r);
  });
  results.insert(at, std::move(result));
  if (results.size() > maxResults) results.pop_back();
}

}  // namespace

void mvPointMatcher::Impl::runExhaustive_(const std::vector<mvVector<2>>& dataPoints,
                                          const mvPointMatcherRunParams& params,
                                          mvPointMatcherResultSet& resultSet) const {
  mvTimer timer(false);
  timer.start();

  // A matcher that kept the exhaustive train mode through an assignment from an untrained
  // one has no model points to pair.
  if (!model_) throw mvPointMatcherDefs::NotTrained(L"mvPointMatcher tool is not trained\n");
  const mv_PointMatcherModel& model = *model_;
  const PointList& modelPoints = model.points;
  const Sides sides = chooseSides(modelPoints, dataPoints);

  const mvPointMatcherRunParams resolved = resolveSizes(params, model.defaultGridSize);
  const double captureRange2 = resolved.captureRange() * resolved.captureRange();
  const int dof = resolved.scaleUncertainty() == mvRange(0.0, 0.0) ? kRigidDof : kSimilarityDof;
  const std::size_t maxResults =
      static_cast<std::size_t>(std::max<long>(resolved.maxNumResults(), 0));

  std::vector<mvPointMatcherResult> results;
  const long sizeB = static_cast<long>(sides.b->size());
  std::vector<long> assign(sides.a->size(), -1);
  std::vector<bool> usedB(sides.b->size(), false);
  std::vector<bool> usedData(dataPoints.size(), false);
  PointList aPoints;
  PointList bPoints;
  PoseScore score;
  mvXform<2> pose;

  // The first step of the odometer turns this into the all-unpaired pairing.
  if (!assign.empty()) assign[0] = -2;
  std::uint32_t pairingsTried = 0;
  while (!assign.empty() && nextPairing(assign, sizeB)) {
    if (pairingsTried++ % kAttentionInterval == 0) mvAttention::check();
    if (!poseOfPairing(assign, sides, dof, usedB, aPoints, bPoints, pose)) continue;
    if (!isWithinUncertainty(pose, resolved)) continue;

    scorePose(pose, modelPoints, model.weights, dataPoints, captureRange2, usedData, score);
    // Weights may be zero or negative, so either total can fail.
    if (score.count < 2 || !(score.sumSq >= 0.0)) continue;

    const double count = static_cast<double>(score.count);
    const double coverage = count * 1.0 / static_cast<double>(model.totalWeight);
    const double fitError = std::sqrt(score.sumSq / count);
    if (!hasPlace(results, maxResults, coverage, fitError)) continue;

    mvPointMatcherResult result;
    result.setRunMode_(mvPointMatcherDefs::eExhaustiveMode);
    result.setModelToDataXform_(pose);
    result.setModelToDataMap_(score.modelToDataMap);
    result.setCoverage_(coverage);
    result.setFitError_(fitError);
    insertInResultOrder(results, std::move(result), maxResults);
  }

  resultSet.getResults_() = std::move(results);
  resultSet.setTime_(timer.sec());
}
