#include "ppmatch/search/vote.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "mvbase/attention.h"
#include "ppmatch/search/grid_space.h"
#include "ppmatch/search/peaks.h"

namespace ptmatch {
namespace detail {
namespace {

// Line reported when the quantised weights leave fewer than 2 positive votes.
constexpr int kQuantisedVotesLine = 1394;

// Largest positive and negative weight sums that a 16-bit accumulator takes unscaled, and
// the magnitude the larger sum is scaled to otherwise.
constexpr double kMaxPositiveSum = 32767.0;
constexpr double kMaxNegativeSum = 32768.0;
constexpr double kScaledSum = 16384.0;

// Accumulator rows voted together, so that the rows being summed stay in the first-level
// cache while every model point adds to them.
constexpr long kBandRows = 32;

// Unit votes are first counted in 8 bits, which the compiler adds 16 or 32 cells per
// instruction, and then widened into the accumulator. At most 255 points are counted
// between two widenings, so no count wraps and the 16-bit sums are exactly those of adding
// the points one by one.
constexpr std::size_t kMaxCountedPoints = 255;

// The accumulator holds signed 16-bit pels; it is summed through its unsigned view so that
// the wrap-around at 16 bits is plain modular arithmetic.
std::uint16_t* unsignedRow(mvPelBuffer<std::int16_t>& accumulator, long y) {
  return reinterpret_cast<std::uint16_t*>(accumulator.pointToRow(y));
}

// Adds one occupancy row to one row of 8-bit counts. Contiguous, so the compiler
// vectorises it.
void addCountRow(unsigned char* counts, const unsigned char* occupancy, long n) {
  for (long i = 0; i < n; ++i) counts[i] = static_cast<unsigned char>(counts[i] + occupancy[i]);
}

// Adds a row of 8-bit counts to an accumulator row, modulo 2^16.
void widenCountRow(std::uint16_t* acc, const unsigned char* counts, long n) {
  for (long i = 0; i < n; ++i) acc[i] = static_cast<std::uint16_t>(acc[i] + counts[i]);
}

// Adds weight x occupancy (occupancy is 0 or 1) to one accumulator row, modulo 2^16: the
// net effect of adding or subtracting the row |weight| times.
void addWeightedRow(std::uint16_t* acc, const unsigned char* occupancy, long n,
                    std::uint16_t weight) {
  for (long i = 0; i < n; ++i) acc[i] = static_cast<std::uint16_t>(acc[i] + occupancy[i] * weight);
}

// The occupancy cells that one projected point adds within accumulator rows first..last:
// accumulator cell (u, v) takes occupancy cell (x0 + u, y0 + v), for u in uLo..uLo + n - 1
// and v in vLo..vHi. Empty when the point's window misses the raster.
struct VoteSpan {
  long x0, y0, uLo, n, vLo, vHi;
};

bool clipSpan(const mv_PelBuffer& occupancy, const mvPelRect& window, const mvPair<long>& cell,
              long accWidth, long first, long last, VoteSpan& span) {
  span.x0 = window.x() + cell.x();
  span.y0 = window.y() + cell.y();
  span.uLo = std::max(0L, -span.x0);
  const long uHi = std::min(accWidth - 1, occupancy.width() - 1 - span.x0);
  span.vLo = std::max(first, -span.y0);
  span.vHi = std::min(last, occupancy.height() - 1 - span.y0);
  span.n = uHi - span.uLo + 1;
  return span.n > 0 && span.vLo <= span.vHi;
}

// Counts the unit votes of points first..last - 1 into the band's 8-bit rows and widens
// them into the accumulator.
void voteUnitBatch(const mvPelBuffer_const<unsigned char>& occupancy, const mvPelRect& window,
                   const std::vector<mvPair<long>>& projected, std::size_t first, std::size_t last,
                   long bandFirst, long bandLast, mvPelBuffer<std::int16_t>& accumulator,
                   std::vector<unsigned char>& counts) {
  const long width = accumulator.width();
  std::fill(counts.begin(), counts.begin() + (bandLast - bandFirst + 1) * width, 0);
  for (std::size_t i = first; i < last; ++i) {
    VoteSpan s;
    if (!clipSpan(occupancy, window, projected[i], width, bandFirst, bandLast, s)) continue;
    for (long v = s.vLo; v <= s.vHi; ++v) {
      mvAttention::pace(s.n);
      addCountRow(counts.data() + (v - bandFirst) * width + s.uLo,
                  occupancy.pointToRow(s.y0 + v) + s.x0 + s.uLo, s.n);
    }
  }
  for (long v = bandFirst; v <= bandLast; ++v) {
    mvAttention::pace(width);
    widenCountRow(unsignedRow(accumulator, v), counts.data() + (v - bandFirst) * width, width);
  }
}

// Adds every point's unit votes to the band's accumulator rows, 255 points at a time.
void voteUnitBand(const mvPelBuffer_const<unsigned char>& occupancy, const mvPelRect& window,
                  const std::vector<mvPair<long>>& projected, long bandFirst, long bandLast,
                  mvPelBuffer<std::int16_t>& accumulator, std::vector<unsigned char>& counts) {
  for (std::size_t first = 0; first < projected.size(); first += kMaxCountedPoints) {
    const std::size_t last = std::min(first + kMaxCountedPoints, projected.size());
    voteUnitBatch(occupancy, window, projected, first, last, bandFirst, bandLast, accumulator,
                  counts);
  }
}

// Adds each weighted point's votes to the band's accumulator rows.
void voteWeightedBand(const mvPelBuffer_const<unsigned char>& occupancy, const mvPelRect& window,
                      const std::vector<mvPair<long>>& projected,
                      const std::vector<std::int16_t>& weights, long bandFirst, long bandLast,
                      mvPelBuffer<std::int16_t>& accumulator) {
  for (std::size_t i = 0; i < projected.size(); ++i) {
    if (weights[i] == 0) continue;  // adds nothing
    VoteSpan s;
    if (!clipSpan(occupancy, window, projected[i], accumulator.width(), bandFirst, bandLast, s)) {
      continue;
    }
    const std::uint16_t weight = wrapToUint16(weights[i]);
    for (long v = s.vLo; v <= s.vHi; ++v) {
      mvAttention::pace(s.n);
      addWeightedRow(unsignedRow(accumulator, v) + s.uLo,
                     occupancy.pointToRow(s.y0 + v) + s.x0 + s.uLo, s.n, weight);
    }
  }
}

// True when some value of the row reaches minScore; a reduction the compiler vectorises.
bool rowReaches(const std::int16_t* row, long n, long minScore) {
  std::int16_t highest = std::numeric_limits<std::int16_t>::min();
  for (long i = 0; i < n; ++i) highest = std::max(highest, row[i]);
  return highest >= minScore;
}

long truncatedScore(double minCoverage, double votes) {
  return std::max(2L, toCell(std::trunc(minCoverage * votes)));
}

}  // namespace

VoteWeights quantiseWeights(const mv_PointMatcherModel& model, double minCoverage) {
  VoteWeights votes;
  if (model.weights.empty()) {
    votes.minScore = truncatedScore(minCoverage, static_cast<double>(model.points.size()));
    return votes;
  }
  double positive = 0.0;  // P
  double negative = 0.0;  // N
  for (long w : model.weights) {
    if (w >= 1) {
      positive += static_cast<double>(w);
    } else {
      negative -= static_cast<double>(w);
    }
  }
  double factor = 1.0;
  if (positive > kMaxPositiveSum || negative >= kMaxNegativeSum) {
    factor = kScaledSum / std::max(positive, negative);
  }
  long positiveVotes = 0;  // Q
  votes.weights.reserve(model.weights.size());
  for (long w : model.weights) {
    const std::int16_t q = wrapToInt16(iRound(static_cast<double>(w) * factor));
    votes.weights.push_back(q);
    if (q > 0) positiveVotes += q;
  }
  mvAssert(positiveVotes >= 2, kPpmatchModule, kQuantisedVotesLine);
  votes.minScore = truncatedScore(minCoverage, static_cast<double>(positiveVotes));
  return votes;
}

void voteTranslations(const mvPelBuffer_const<unsigned char>& occupancy, const mvPelRect& window,
                      const std::vector<mvPair<long>>& projected,
                      const std::vector<std::int16_t>& weights,
                      mvPelBuffer<std::int16_t>& accumulator, std::vector<unsigned char>& counts) {
  for (long v = 0; v < accumulator.height(); ++v) {
    mvAttention::pace(accumulator.width());
    std::fill(accumulator.pointToRow(v), accumulator.pointToRow(v) + accumulator.width(),
              std::int16_t{0});
  }
  if (weights.empty()) counts.resize(static_cast<std::size_t>(kBandRows * accumulator.width()));
  const long lastV = accumulator.height() - 1;
  for (long band = 0; band <= lastV; band += kBandRows) {
    const long bandLast = std::min(band + kBandRows - 1, lastV);
    if (weights.empty()) {
      voteUnitBand(occupancy, window, projected, band, bandLast, accumulator, counts);
    } else {
      voteWeightedBand(occupancy, window, projected, weights, band, bandLast, accumulator);
    }
  }
}

namespace {

template <typename Store>
void collectPeaksInto(const mvPelBuffer_const<std::int16_t>& accumulator, long minScore,
                      const mvPelRect& window, double scale, const mvDegree& rotation,
                      Store& store) {
  const long width = accumulator.width();
  const long last = accumulator.height() - 1;
  auto rowAt = [&](long v) { return accumulator.pointToRow(v); };
  auto nextRow = [&](long v) {
    while (v <= last && !rowReaches(rowAt(v), width, minScore)) {
      mvAttention::pace(width);
      ++v;
    }
    return v;
  };
  collectPeakRows(rowAt, nextRow, width, accumulator.height(), 0, last, minScore, window, scale,
                  rotation, store);
}

}  // namespace

void collectPeaks(const mvPelBuffer_const<std::int16_t>& accumulator, long minScore,
                  const mvPelRect& window, double scale, const mvDegree& rotation,
                  HypothesisStore& store) {
  collectPeaksInto(accumulator, minScore, window, scale, rotation, store);
}

void collectPeaks(const mvPelBuffer_const<std::int16_t>& accumulator, long minScore,
                  const mvPelRect& window, double scale, const mvDegree& rotation, PeakList& list) {
  collectPeaksInto(accumulator, minScore, window, scale, rotation, list);
}

Voter::Voter(const std::vector<mvVector<2>>& modelPoints, const mvXform<2>& dataToGrid,
             const mvVector<2>& modelCenter, const mvPelBuffer_const<unsigned char>& occupancy,
             const mvPelRect& window, std::vector<std::int16_t> weights, const VoteOptions& options)
    : modelPoints(modelPoints),
      dataToGrid(dataToGrid),
      modelCenter(modelCenter),
      occupancy(occupancy),
      window(window),
      weights(std::move(weights)),
      method(options.method) {
  if (method == VoteMethod::eReference) {
    accumulator = mvPelBuffer<std::int16_t>(window.width() + 1, window.height() + 1);
  } else {
    scatter = std::make_unique<ScatterVoter>(occupancy, window, options.kernels);
    scatter->reserve(modelPoints.size());
  }
  if (options.boundSteps) bound = std::make_unique<StepBound>(occupancy, window, this->weights);
  projected.reserve(modelPoints.size());
}

void Voter::voteAndCollect(double scale, const mvDegree& rotation, long& minScore,
                           HypothesisStore& store) {
  projectModel(modelPoints, modelToGrid(dataToGrid, modelCenter, scale, rotation), projected);
  voteProjected(scale, rotation, minScore, store);
}

void Voter::voteProjected(double scale, const mvDegree& rotation, long& minScore,
                          HypothesisStore& store) {
  if (store.numResults() == store.maxResults()) minScore = store.lowestScore() + 1;
  if (method == VoteMethod::eReference) {
    voteTranslations(occupancy, window, projected, weights, accumulator, counts);
    collectPeaks(accumulator, minScore, window, scale, rotation, store);
  } else {
    scatter->vote(projected, weights);
    scatter->collectPeaks(minScore, scale, rotation, store);
  }
}

void Voter::voteReachable(double scale, const mvDegree& rotation, long& minScore,
                          HypothesisStore& store) {
  projectModel(modelPoints, modelToGrid(dataToGrid, modelCenter, scale, rotation), projected);
  if (store.numResults() == store.maxResults()) minScore = store.lowestScore() + 1;
  if (bound != nullptr && !bound->mayReach(projected, minScore)) return;
  voteProjected(scale, rotation, minScore, store);
}

void Voter::voteAndRecord(double scale, const mvDegree& rotation, long minScore, PeakList& list) {
  list.clear();
  projectModel(modelPoints, modelToGrid(dataToGrid, modelCenter, scale, rotation), projected);
  if (bound != nullptr && !bound->mayReach(projected, minScore)) return;
  if (method == VoteMethod::eReference) {
    voteTranslations(occupancy, window, projected, weights, accumulator, counts);
    collectPeaks(accumulator, minScore, window, scale, rotation, list);
  } else {
    scatter->vote(projected, weights);
    scatter->collectPeaks(minScore, scale, rotation, list);
  }
}

std::int16_t Voter::accumulatorAt(long u, long v) const {
  if (method == VoteMethod::eReference) return accumulator.pointToRow(v)[u];
  return scatter->at(u, v);
}

}  // namespace detail
}  // namespace ptmatch
