// An upper bound of a lattice step's votes, cheap enough to skip the steps that cannot
// reach the store.
//
// The occupancy raster is coarsened by a factor f: coarse cell Z is occupied when a fine
// occupied cell lies in coarse cell Z or Z + 1, in x and in y. For a block of f x f
// translations (accumulator cells a f ... a f + f - 1 across, b f ... b f + f - 1 down), a
// model point whose window starts at fine raster cell s meets fine cells that lie in coarse
// cells floor(s / f) + a or one more, across and down; so the coarse vote at (a, b), each
// point adding its positive weight where the coarse raster is occupied, is at least every
// accumulator value of the block. A step whose coarse votes all stay below the minimum
// score in force has no peak to offer: skipping its vote leaves the store as it was.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ppmatch/search/peaks.h"
#include "ppmatch/search/scatter_vote.h"

namespace ptmatch {
namespace detail {

/// The coarse vote over one occupancy raster and translation window. It gives itself up
/// (answers that a step may reach) for stretches of the lattice where it skips too few
/// steps to pay, and for
/// unweighted models of more than 32767 points, whose votes may wrap at 16 bits.
class StepBound {
 public:
  /// weights: the quantised weights of the vote (empty when every point votes 1).
  StepBound(const mvPelBuffer_const<unsigned char>& occupancy, const mvPelRect& window,
            const std::vector<std::int16_t>& weights);

  /// Whether some accumulator value of the vote of the projected points may reach
  /// minScore (false only when none can).
  bool mayReach(const std::vector<mvPair<long>>& projected, long minScore);

 private:
  void coarsen(const mvPelBuffer_const<unsigned char>& occupancy);

  const mvPelRect window_;
  // The coarse raster: cell Z at Z + 1 (cell -1 may be occupied), across and down.
  mvPelBuffer<unsigned char> coarse_;
  // The coarse translation window: blocks 0 ... width_ - 1 across and 0 ... height_ - 1 down.
  const mvPelRect coarseWindow_;
  // Positive parts of the weights (empty when every point votes 1).
  std::vector<std::int16_t> weights_;
  // The coarse vote, the points' cells on the coarse raster, and the peaks of a vote.
  std::unique_ptr<ScatterVoter> votes_;
  std::vector<mvPair<long>> cells_;
  PeakList peaks_;
  // Whether the bound may be used; the steps it was asked about, and how many of the
  // trial steps of the period at hand passed it.
  bool usable_ = true;
  long queries_ = 0;
  long passed_ = 0;
};

}  // namespace detail
}  // namespace ptmatch
