// Translation voting: at one scale and rotation, every projected model point adds the
// occupancy raster, shifted by its cell, over the window of model-centre offsets into a
// 16-bit accumulator; the accumulator's peaks become hypotheses.
//
// Two ways compute the accumulator: the reference, which adds the whole window of the
// raster per model point (voteTranslations, collectPeaks), and the scatter vote
// (scatter_vote.h), which adds only the occupied cells and scans only the touched rows.
// They give the same accumulator values, hence the same stores, poses and maps; the
// scatter vote is the default, the reference stays as the yardstick of the differential
// tests and benchmarks, which pick it through VoteOptions.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ppmatch/model.h"
#include "ppmatch/search/peaks.h"
#include "ppmatch/search/scatter_vote.h"
#include "ppmatch/search/search.h"
#include "ppmatch/search/step_bound.h"
#include "ppmatch/search/vote_kernels.h"

namespace ptmatch {
namespace detail {

/// What a point votes with, and the least vote that makes a peak.
struct VoteWeights {
  /// Base minimum score: max(2, trunc(minCoverage x total vote weight)).
  long minScore = 2;
  /// One 16-bit weight per model point; empty when every point votes 1 (unweighted model).
  std::vector<std::int16_t> weights;
};

/// The base minimum score and, for a weighted model, the quantised weights: the weights
/// as they are, or rescaled by 16384 / max(P, N) when P > 32767 or N >= 32768 (P the sum
/// of the weights >= 1, N that of the magnitudes of the weights < 1), so that 16-bit sums
/// stay in range. Fewer than 2 positive quantised votes fail mvAssert (line 1394).
VoteWeights quantiseWeights(const mv_PointMatcherModel& model, double minCoverage);

/// Converts a whole number to 16 bits, wrapping modulo 65536.
inline std::int16_t wrapToInt16(long v) {
  const auto u = static_cast<std::uint16_t>(static_cast<unsigned long>(v));
  return u < 0x8000u ? static_cast<std::int16_t>(u)
                     : static_cast<std::int16_t>(static_cast<long>(u) - 0x10000L);
}

/// Converts a whole number to unsigned 16 bits, wrapping modulo 65536.
inline std::uint16_t wrapToUint16(long v) {
  return static_cast<std::uint16_t>(static_cast<unsigned long>(v));
}

/// Clears the accumulator and adds, for every projected model point q, its weight times
/// the occupancy raster's cells window origin + q ... window far corner + q (clipped to the
/// raster) into the matching accumulator cells; sums wrap at 16 bits. The accumulator is
/// (window width + 1) x (window height + 1). This is the plain raster-against-raster vote,
/// done in contiguous row additions, band of rows by band of rows; counts is scratch space
/// for unit votes (resized as needed).
void voteTranslations(const mvPelBuffer_const<unsigned char>& occupancy, const mvPelRect& window,
                      const std::vector<mvPair<long>>& projected,
                      const std::vector<std::int16_t>& weights,
                      mvPelBuffer<std::int16_t>& accumulator, std::vector<unsigned char>& counts);

/// Inserts the accumulator's peaks of at least minScore into store, in row order, with
/// offset window origin + cell, and the given scale and rotation. A peak is strictly
/// greater than its left, upper-left, upper and lower-left neighbours and at least equal
/// to its right, upper-right, lower and lower-right ones (neighbours off the accumulator
/// are ignored), so a plateau's first cell in row order wins. Nothing is collected when
/// the store's capacity is below 2 or the accumulator is smaller than 2 x 2.
void collectPeaks(const mvPelBuffer_const<std::int16_t>& accumulator, long minScore,
                  const mvPelRect& window, double scale, const mvDegree& rotation,
                  HypothesisStore& store);
/// Records the same peaks in list instead, in the same order.
void collectPeaks(const mvPelBuffer_const<std::int16_t>& accumulator, long minScore,
                  const mvPelRect& window, double scale, const mvDegree& rotation, PeakList& list);

/// How a Voter computes its accumulator.
enum class VoteMethod {
  /// Every model point adds its whole window of the occupancy raster (voteTranslations).
  eReference,
  /// Every model point adds only the occupied cells in its window (ScatterVoter).
  eScatter
};

/// How a search votes. Every choice gives the same results: runs use the defaults, the
/// differential tests and the benchmarks pick the others to compare against them.
struct VoteOptions {
  VoteMethod method = VoteMethod::eScatter;
  /// The scatter vote's kernels.
  VoteKernels kernels = VoteKernels::eBest;
  /// Whether the lattice walks skip the steps whose votes cannot reach the minimum score
  /// (step_bound.h).
  bool boundSteps = true;
};

/// Everything a vote at one scale and rotation needs, with its reusable buffers.
struct Voter {
  Voter(const std::vector<mvVector<2>>& modelPoints, const mvXform<2>& dataToGrid,
        const mvVector<2>& modelCenter, const mvPelBuffer_const<unsigned char>& occupancy,
        const mvPelRect& window, std::vector<std::int16_t> weights, const VoteOptions& options);

  /// Projects the model at scale and rotation and votes with it (voteProjected).
  void voteAndCollect(double scale, const mvDegree& rotation, long& minScore,
                      HypothesisStore& store);

  /// With the cells in projected: raises minScore to the store's lowest score + 1 when the
  /// store is full, votes, and inserts the peaks into store with scale and rotation.
  void voteProjected(double scale, const mvDegree& rotation, long& minScore,
                     HypothesisStore& store);

  /// As voteAndCollect, but skips the vote (after raising minScore) when the step bound
  /// shows that no accumulator value can reach minScore; the store ends the same.
  void voteReachable(double scale, const mvDegree& rotation, long& minScore,
                     HypothesisStore& store);

  /// Projects the model at scale and rotation, votes, and records in list (cleared first)
  /// the peaks of at least minScore that voteAndCollect would offer a store with that
  /// minScore, in the same order. Leaves every store alone, so that several Voters over the
  /// same search may vote different steps at once.
  void voteAndRecord(double scale, const mvDegree& rotation, long minScore, PeakList& list);

  /// Accumulator cell (u, v) of the last vote, 0 <= u <= window width, 0 <= v <= window
  /// height.
  std::int16_t accumulatorAt(long u, long v) const;

  const std::vector<mvVector<2>>& modelPoints;
  const mvXform<2> dataToGrid;
  const mvVector<2> modelCenter;
  const mvPelBuffer_const<unsigned char> occupancy;
  const mvPelRect window;
  /// Quantised weights; empty for an unweighted model.
  const std::vector<std::int16_t> weights;
  /// The method of the options given at construction.
  const VoteMethod method;
  /// Votes per model-centre offset of the window (reference method only).
  mvPelBuffer<std::int16_t> accumulator;
  /// The scatter vote with its accumulator (scatter method only).
  std::unique_ptr<ScatterVoter> scatter;
  /// The step bound of voteReachable and voteAndRecord; null when the options ask for none.
  std::unique_ptr<StepBound> bound;
  /// Cells of the projected model points.
  std::vector<mvPair<long>> projected;
  /// 8-bit vote counts of one band of accumulator rows (reference method only).
  std::vector<unsigned char> counts;
};

}  // namespace detail
}  // namespace ptmatch
