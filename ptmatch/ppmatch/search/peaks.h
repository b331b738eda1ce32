// Peak collection over the accumulator of a translation vote, shared by the reference and
// the scatter vote so that both insert the same peaks in the same order.
#pragma once

#include <cstdint>
#include <vector>

#include "mvbase/attention.h"
#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ppmatch/search/search.h"

namespace ptmatch {
namespace detail {

/// A peak of one vote, as it would be offered to a store.
struct RecordedPeak {
  long value;
  CellHypothesis hypothesis;
};

/// Records the peaks one vote offers to a store of the given capacity, in the order they
/// are offered, so that they can be offered to the store itself later.
class PeakList {
 public:
  /// The capacity of the store the peaks are meant for.
  explicit PeakList(long maxResults) : maxResults_(maxResults) {}
  long maxResults() const { return maxResults_; }
  void add(long value, const CellHypothesis& hypothesis) {
    peaks_.push_back(RecordedPeak{value, hypothesis});
  }
  const std::vector<RecordedPeak>& peaks() const { return peaks_; }
  void clear() { peaks_.clear(); }

 private:
  long maxResults_;
  std::vector<RecordedPeak> peaks_;
};

/// Whether cell u of row is a peak of value: strictly greater than its left, upper-left,
/// upper and lower-left neighbours and at least equal to its right, upper-right, lower and
/// lower-right ones; neighbours off the accumulator (up or down null, u at an end) are
/// ignored, so of a plateau the cell that comes first in row order wins.
inline bool isPeak(const std::int16_t* up, const std::int16_t* row, const std::int16_t* down,
                   long u, long width, long value) {
  const bool hasLeft = u > 0;
  const bool hasRight = u + 1 < width;
  if (hasLeft && !(value > row[u - 1])) return false;
  if (up != nullptr && hasLeft && !(value > up[u - 1])) return false;
  if (up != nullptr && !(value > up[u])) return false;
  if (down != nullptr && hasLeft && !(value > down[u - 1])) return false;
  if (hasRight && !(value >= row[u + 1])) return false;
  if (up != nullptr && hasRight && !(value >= up[u + 1])) return false;
  if (down != nullptr && !(value >= down[u])) return false;
  if (down != nullptr && hasRight && !(value >= down[u + 1])) return false;
  return true;
}

/// Inserts the peaks of at least minScore in accumulator rows first..last (in row order)
/// into store (a HypothesisStore, or a PeakList that records them), with offset window origin + (u,
/// v) and the given scale and rotation. rowAt(v) points to cell 0 of row v, for 0 <= v < height;
/// nextRow(v) gives the first row from v on (last + 1 when none) that may hold a value of at least
/// minScore: rows it skips are not scanned. Nothing is collected when the store's capacity is below
/// 2 or the accumulator is smaller than 2 x 2.
template <typename RowAt, typename NextRow, typename Store>
void collectPeakRows(RowAt rowAt, NextRow nextRow, long width, long height, long first, long last,
                     long minScore, const mvPelRect& window, double scale, const mvDegree& rotation,
                     Store& store) {
  if (store.maxResults() < 2 || width < 2 || height < 2) return;
  for (long v = nextRow(first); v <= last; v = nextRow(v + 1)) {
    mvAttention::pace(width);
    const std::int16_t* row = rowAt(v);
    const std::int16_t* up = v > 0 ? rowAt(v - 1) : nullptr;
    const std::int16_t* down = v + 1 < height ? rowAt(v + 1) : nullptr;
    for (long u = 0; u < width; ++u) {
      const long value = row[u];
      if (value < minScore || !isPeak(up, row, down, u, width, value)) continue;
      CellHypothesis peak;
      peak.offset = mvPair<long>(window.x() + u, window.y() + v);
      peak.scale = scale;
      peak.rotation = rotation;
      store.add(value, peak);
    }
  }
}

}  // namespace detail
}  // namespace ptmatch
