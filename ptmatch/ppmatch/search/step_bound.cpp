#include "ppmatch/search/step_bound.h"

#include <algorithm>
#include <limits>

#include "mvbase/attention.h"
#include "ppmatch/search/vote.h"

namespace ptmatch {
namespace detail {
namespace {

// Fine cells per coarse cell, across and down.
constexpr long kFactor = 2;

// Steps are taken in periods of 256; the bound is left out for the rest of a period when
// more than 3 of 4 of its first 16 steps passed it (in data so dense, or while the store
// is filling, it skips too little to pay for itself).
constexpr long kPeriod = 256;
constexpr long kTrialSteps = 16;

// floor(v / kFactor).
long coarseOf(long v) { return v >= 0 ? v / kFactor : -((-v + kFactor - 1) / kFactor); }

}  // namespace

StepBound::StepBound(const mvPelBuffer_const<unsigned char>& occupancy, const mvPelRect& window,
                     const std::vector<std::int16_t>& weights)
    : window_(window),
      coarseWindow_(0, 0, window.width() / kFactor, window.height() / kFactor),
      peaks_(2) {
  coarsen(occupancy);
  votes_ = std::make_unique<ScatterVoter>(coarse_, coarseWindow_, VoteKernels::eBest);
  long positive = 0;
  for (std::int16_t w : weights) {
    weights_.push_back(std::max<std::int16_t>(0, w));
    positive += weights_.back();
  }
  // Only votes that stay within 16 bits are bounded (every quantised weighted model's do).
  usable_ = positive <= std::numeric_limits<std::int16_t>::max();
}

void StepBound::coarsen(const mvPelBuffer_const<unsigned char>& occupancy) {
  // Coarse cell Z is occupied when coarse cell Z or Z + 1 holds a fine occupied cell; it
  // lies at Z + 1 in the coarse raster.
  coarse_ = mvPelBuffer<unsigned char>((occupancy.width() - 1) / kFactor + 2,
                                       (occupancy.height() - 1) / kFactor + 2);
  for (long y = 0; y < occupancy.height(); ++y) {
    const unsigned char* row = occupancy.pointToRow(y);
    mvAttention::pace(occupancy.width());
    for (long x = 0; x < occupancy.width(); ++x) {
      if (row[x] == 0) continue;
      const long cx = x / kFactor + 1;
      const long cy = y / kFactor + 1;
      for (long dy = 0; dy < 2; ++dy) {
        unsigned char* coarseRow = coarse_.pointToRow(cy - dy);
        coarseRow[cx] = 1;
        coarseRow[cx - 1] = 1;
      }
    }
  }
}

bool StepBound::mayReach(const std::vector<mvPair<long>>& projected, long minScore) {
  // Peaks are only collected from accumulators of at least 2 x 2 cells.
  if (!usable_ || minScore <= 0 || coarseWindow_.width() < 1 || coarseWindow_.height() < 1) {
    return true;
  }
  if (weights_.empty() &&
      projected.size() > static_cast<std::size_t>(std::numeric_limits<std::int16_t>::max())) {
    return true;
  }
  if (minScore > std::numeric_limits<std::int16_t>::max()) return false;
  const long phase = queries_++ % kPeriod;
  if (phase == 0) passed_ = 0;
  if (phase >= kTrialSteps && passed_ * 4 > kTrialSteps * 3) return true;
  votes_->reserve(projected.size());
  // Block (a, b) of a point whose window starts at fine cell s meets coarse cells
  // floor(s / f) + (a, b) and one more: coarse raster cell floor(s / f) + 1 + (a, b).
  cells_.clear();
  for (const mvPair<long>& q : projected) {
    cells_.emplace_back(coarseOf(window_.x() + q.x()) + 1, coarseOf(window_.y() + q.y()) + 1);
  }
  votes_->vote(cells_, weights_);
  // The first of the highest votes in column order is a peak, so some vote reaches
  // minScore exactly when a peak does.
  peaks_.clear();
  votes_->collectPeaks(minScore, 1.0, mvDegree(0.0), peaks_);
  const bool reaches = !peaks_.peaks().empty();
  if (phase < kTrialSteps && reaches) ++passed_;
  return reaches;
}

}  // namespace detail
}  // namespace ptmatch
