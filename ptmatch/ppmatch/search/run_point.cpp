// The point-to-point run of a point-trained matcher: the feasibility test, the widened
// search, and the collection, ordering and truncation of its candidates.
//
// Choices made where the behaviour leaves room:
// - Non-finite data points or a non-finite start pose are refused with BadParams before
//   any work; a singular start pose fails with mvMathError when the search inverts it.
// - An empty data list passes the feasibility test only at coverage 0; the search then has
//   nothing to vote on and the run records its time with no results.
// - A search whose data span more than 2^28 grid cells is refused with BadParams.
// - The stores of a run hold at most 2^20 candidates each (see kMaxStoreCapacity), so a
//   huge maxNumResults costs no more memory than that.
// - A model whose positive weights add up to more than 2^22 is refused with BadParams
//   (see kMaxTotalWeight): the stores keep one bucket per score.

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "mvbase/timer.h"
#include "ppmatch/internal.h"
#include "ppmatch/result_order.h"
#include "ppmatch/search/search.h"
#include "ptmatch/ppmatch.h"

namespace {

using ptmatch::detail::CandidateStore;
using ptmatch::detail::PoseCandidate;

// The store keeps, and the search may propose, this many times the results asked for.
constexpr long kCandidateFactor = 8;
// Least number of hypotheses allowed to a search with fewer than 4 model or data points.
constexpr long kTinySetHypotheses = 1000;
constexpr std::size_t kTinySet = 4;
// The search prunes at this fraction of the caller's coverage.
constexpr double kSearchCoverageFactor = 0.5;

bool isFinite(const mvXform<2>& x) {
  const mvMatrix<2>& m = x.matrix();
  return std::isfinite(m.element(0, 0)) && std::isfinite(m.element(0, 1)) &&
         std::isfinite(m.element(1, 0)) && std::isfinite(m.element(1, 1)) &&
         std::isfinite(x.trans().x()) && std::isfinite(x.trans().y());
}

void rejectNonFiniteInput(const std::vector<mvVector<2>>& data,
                          const mvPointMatcherRunParams& params) {
  for (const mvVector<2>& p : data) {
    if (!std::isfinite(p.x()) || !std::isfinite(p.y())) {
      throw mvPointMatcherDefs::BadParams(L"data points must be finite\n");
    }
  }
  if (!isFinite(params.startPose())) {
    throw mvPointMatcherDefs::BadParams(L"startPose must be finite\n");
  }
}

// Each store of a run keeps one bucket per score, and a score is a matched weight, so the
// stores' memory grows with the model's total weight (8 bytes per unit and store): a
// total past this bound is refused rather than allocated.
constexpr long kMaxTotalWeight = 1L << 22;

void rejectHugeTotalWeight(const mv_PointMatcherModel& model) {
  if (model.totalWeight > kMaxTotalWeight) {
    throw mvPointMatcherDefs::BadParams(
        L"the positive weights must add up to at most 4194304 for a point-to-point run\n");
  }
}

// False when the data cannot reach the caller's coverage whatever the pose: fewer data
// points than the covered share of an unweighted model, or, with no more data than model
// points, the numData largest weights falling short of it.
bool mayReachCoverage(const mv_PointMatcherModel& model, std::size_t numData, double minCoverage) {
  const std::size_t numModel = model.points.size();
  if (model.weights.empty()) {
    return !(static_cast<double>(numData) < minCoverage * static_cast<double>(numModel));
  }
  if (numData > numModel) return true;
  std::vector<long> largest = model.weights;
  const auto front = largest.begin() + static_cast<std::ptrdiff_t>(numData);
  std::partial_sort(largest.begin(), front, largest.end(), std::greater<long>());
  double sum = 0.0;
  for (auto w = largest.begin(); w != front; ++w) {
    if (*w > 0) sum += static_cast<double>(*w);
  }
  return !(sum < minCoverage * static_cast<double>(model.totalWeight));
}

// The most entries any store of a run holds, whatever maxNumResults asks: each store
// allocates its whole capacity up front, so a huge maxNumResults would otherwise allocate
// without bound. Searches stay far below this many candidates; a store that never fills
// never evicts, so the cap changes no result until it is reached.
constexpr long kMaxStoreCapacity = 1L << 20;

// n x kCandidateFactor, capped at kMaxStoreCapacity (and so never overflowing).
long widened(long n) {
  return n > kMaxStoreCapacity / kCandidateFactor ? kMaxStoreCapacity : n * kCandidateFactor;
}

// The caller's parameters with 8 times the results (at least 1000 for tiny point sets) and
// half the coverage.
mvPointMatcherRunParams searchParameters(const mvPointMatcherRunParams& params,
                                         std::size_t numModel, std::size_t numData) {
  mvPointMatcherRunParams search = params;
  long maxResults = widened(params.maxNumResults());
  if ((numModel < kTinySet || numData < kTinySet) && maxResults < kTinySetHypotheses) {
    maxResults = kTinySetHypotheses;
  }
  search.maxNumResults(maxResults);
  search.minCoverage(params.minCoverage() * kSearchCoverageFactor);
  return search;
}

// Root-mean-square distance of the matched pairs under pose; 0 when nothing is matched.
double fitError(const mvXform<2>& pose, const std::vector<mvVector<2>>& modelPoints,
                const std::vector<mvVector<2>>& data, const std::vector<long>& map) {
  double sum = 0.0;
  long count = 0;
  for (std::size_t i = 0; i < map.size(); ++i) {
    if (map[i] < 0) continue;
    const mvVector<2> d = pose * modelPoints[i] - data[static_cast<std::size_t>(map[i])];
    sum += d.x() * d.x() + d.y() * d.y();
    ++count;
  }
  return count == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(count));
}

// A candidate that passed the collection, ready to become a result.
struct CollectedMatch {
  PoseCandidate candidate;
  double coverage;
  double fitError;
};

// Takes the candidates best first down to the caller's coverage, dropping singular poses
// and, unless the rotation range is the full circle, poses whose rotation relative to the
// start pose lies outside it.
std::vector<CollectedMatch> collectMatches(CandidateStore& store, const mv_PointMatcherModel& model,
                                           const std::vector<mvVector<2>>& data,
                                           const mvPointMatcherRunParams& params) {
  const double invTotal =
      model.totalWeight != 0 ? 1.0 / static_cast<double>(model.totalWeight) : 0.0;
  const double threshold = params.minCoverage() * static_cast<double>(model.totalWeight);
  const mvXform<2> startInverse = params.startPose().inverse();
  const mvAngleRange rotations = params.rotationUncertainty();

  std::vector<CollectedMatch> matches;
  PoseCandidate c;
  for (long score = store.first(c); score >= 0; score = store.next(c)) {
    if (static_cast<double>(score) < threshold) break;
    const mvXform<2> relative = startInverse * c.pose;
    if (relative.isSingular()) continue;
    if (rotations.range() != mvRangeDefs::eFull && !rotations.isWithin(relative.rotation())) {
      continue;
    }
    const double error = fitError(c.pose, model.points, data, c.modelToData);
    matches.push_back(CollectedMatch{c, static_cast<double>(score) * invTotal, error});
  }
  return matches;
}

}  // namespace

mvPointMatcherCost mvPointMatcher::estimateCost(const std::vector<mvVector<2>>& dataPoints,
                                                const mvPointMatcherRunParams& params) const {
  if (!isTrained() || trainMode() != mvPointMatcherDefs::ePointToPoint) {
    throw mvPointMatcherDefs::NotTrained(
        L"estimateCost needs a matcher trained from points for point-to-point runs\n");
  }
  rejectNonFiniteInput(dataPoints, params);
  const mv_PointMatcherModel& model = *impl_->model_;
  if (!mayReachCoverage(model, dataPoints.size(), params.minCoverage())) {
    mvPointMatcherCost none;
    none.modelPoints = static_cast<long long>(model.points.size());
    return none;
  }
  return ptmatch::detail::hypothesisSearchCost(
      dataPoints, model, searchParameters(params, model.points.size(), dataPoints.size()));
}

void mvPointMatcher::Impl::runPointToPoint_(const std::vector<mvVector<2>>& dataPoints,
                                            const mvPointMatcherRunParams& params,
                                            mvPointMatcherResultSet& resultSet) const {
  rejectNonFiniteInput(dataPoints, params);
  mvAssert(model_ != nullptr, ptmatch::detail::kPpmatchModule, __LINE__);
  const mv_PointMatcherModel& model = *model_;
  rejectHugeTotalWeight(model);
  if (!mayReachCoverage(model, dataPoints.size(), params.minCoverage())) return;

  mvTimer timer(false);
  timer.start();
  CandidateStore store(model.totalWeight, widened(params.maxNumResults()));
  const mvPointMatcherRunParams searchParams =
      searchParameters(params, model.points.size(), dataPoints.size());
  ptmatch::detail::hypothesisSearch(dataPoints, model, searchParams, store);

  std::vector<mvPointMatcherResult>& results = resultSet.getResults_();
  for (CollectedMatch& match : collectMatches(store, model, dataPoints, params)) {
    mvPointMatcherResult result;
    result.setRunMode_(mvPointMatcherDefs::ePointToPoint);
    result.setModelToDataXform_(match.candidate.pose);
    result.setModelToDataMap_(std::move(match.candidate.modelToData));
    result.setCoverage_(match.coverage);
    result.setFitError_(match.fitError);
    results.push_back(std::move(result));
  }
  ptmatch::detail::orderAndTruncate(results, params.maxNumResults());
  resultSet.setTime_(timer.sec());
}
