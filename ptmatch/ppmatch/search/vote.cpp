#include "ppmatch/search/vote.h"

#include <algorithm>
#include <cmath>

#include "ppmatch/search/grid_space.h"

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

// The accumulator holds signed 16-bit pels; it is summed through its unsigned view so that
// the wrap-around at 16 bits is plain modular arithmetic.
std::uint16_t* unsignedRow(mvPelBuffer<std::int16_t>& accumulator, long y) {
  return reinterpret_cast<std::uint16_t*>(accumulator.pointToRow(y));
}

// Adds one occupancy row to one accumulator row. Contiguous, so the compiler vectorises it.
void addRow(std::uint16_t* acc, const unsigned char* occupancy, long count) {
  for (long i = 0; i < count; ++i) acc[i] = static_cast<std::uint16_t>(acc[i] + occupancy[i]);
}

// Adds weight x occupancy (occupancy is 0 or 1) to one accumulator row, modulo 2^16: the
// net effect of adding or subtracting the row |weight| times.
void addWeightedRow(std::uint16_t* acc, const unsigned char* occupancy, long count,
                    std::uint16_t weight) {
  for (long i = 0; i < count; ++i) {
    acc[i] = static_cast<std::uint16_t>(acc[i] + occupancy[i] * weight);
  }
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
                      mvPelBuffer<std::int16_t>& accumulator) {
  mfPelClear(accumulator);
  const long lastU = accumulator.width() - 1;
  const long lastV = accumulator.height() - 1;
  for (std::size_t i = 0; i < projected.size(); ++i) {
    const long weight = weights.empty() ? 1 : weights[i];
    if (weight == 0) continue;
    // Raster cell under accumulator cell (0, 0) for this point, and the clipped span.
    const long x0 = window.x() + projected[i].x();
    const long y0 = window.y() + projected[i].y();
    const long uLo = std::max(0L, -x0);
    const long uHi = std::min(lastU, occupancy.width() - 1 - x0);
    const long vLo = std::max(0L, -y0);
    const long vHi = std::min(lastV, occupancy.height() - 1 - y0);
    if (uLo > uHi || vLo > vHi) continue;
    const long count = uHi - uLo + 1;
    for (long v = vLo; v <= vHi; ++v) {
      std::uint16_t* acc = unsignedRow(accumulator, v) + uLo;
      const unsigned char* occ = occupancy.pointToRow(y0 + v) + x0 + uLo;
      if (weight == 1) {
        addRow(acc, occ, count);
      } else {
        addWeightedRow(acc, occ, count, wrapToUint16(weight));
      }
    }
  }
}

void collectPeaks(const mvPelBuffer_const<std::int16_t>& accumulator, long minScore,
                  const mvPelRect& window, double scale, const mvDegree& rotation,
                  HypothesisStore& store) {
  const long width = accumulator.width();
  const long height = accumulator.height();
  if (store.maxResults() < 2 || width < 2 || height < 2) return;
  for (long v = 0; v < height; ++v) {
    const std::int16_t* up = v > 0 ? accumulator.pointToRow(v - 1) : nullptr;
    const std::int16_t* row = accumulator.pointToRow(v);
    const std::int16_t* down = v + 1 < height ? accumulator.pointToRow(v + 1) : nullptr;
    for (long u = 0; u < width; ++u) {
      const long value = row[u];
      if (value < minScore) continue;
      const bool hasLeft = u > 0;
      const bool hasRight = u + 1 < width;
      // Strictly above the neighbours that come earlier in row order (and lower-left)...
      if (hasLeft && !(value > row[u - 1])) continue;
      if (up != nullptr && hasLeft && !(value > up[u - 1])) continue;
      if (up != nullptr && !(value > up[u])) continue;
      if (down != nullptr && hasLeft && !(value > down[u - 1])) continue;
      // ...and at least equal to the others.
      if (hasRight && !(value >= row[u + 1])) continue;
      if (up != nullptr && hasRight && !(value >= up[u + 1])) continue;
      if (down != nullptr && !(value >= down[u])) continue;
      if (down != nullptr && hasRight && !(value >= down[u + 1])) continue;
      CellHypothesis peak;
      peak.offset = mvPair<long>(window.x() + u, window.y() + v);
      peak.scale = scale;
      peak.rotation = rotation;
      store.add(value, peak);
    }
  }
}

Voter::Voter(const std::vector<mvVector<2>>& modelPoints, const mvXform<2>& dataToGrid,
             const mvVector<2>& modelCenter, const mvPelBuffer_const<unsigned char>& occupancy,
             const mvPelRect& window, std::vector<std::int16_t> weights)
    : modelPoints(modelPoints),
      dataToGrid(dataToGrid),
      modelCenter(modelCenter),
      occupancy(occupancy),
      window(window),
      weights(std::move(weights)),
      accumulator(window.width() + 1, window.height() + 1) {
  projected.reserve(modelPoints.size());
}

void Voter::voteAndCollect(double scale, const mvDegree& rotation, long& minScore,
                           HypothesisStore& store) {
  projectModel(modelPoints, modelToGrid(dataToGrid, modelCenter, scale, rotation), projected);
  if (store.numResults() == store.maxResults()) minScore = store.lowestScore() + 1;
  voteTranslations(occupancy, window, projected, weights, accumulator);
  collectPeaks(accumulator, minScore, window, scale, rotation, store);
}

}  // namespace detail
}  // namespace ptmatch
