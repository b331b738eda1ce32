// The scatter vote: the same accumulator as the reference vote (every model point adds
// the occupancy raster over its translation window, weighted, modulo 2^16), computed from
// the occupied cells only.
//
// The occupancy raster is fixed for a whole search, so it is taken apart once: into
// disjoint 3 x 3 blocks of occupied cells (an isolated data point makes one), and the rest
// in pieces of at most 4 consecutive cells of a row. At each lattice step every model
// point, for its window,
//   - adds its weight at each block's centre cell into a centre accumulator, and
//   - adds each piece with one 4-lane 16-bit addition into the accumulator;
// then the centre accumulator's 3 x 3 box sums are added to the accumulator, which gives
// every block's nine cells their votes. The box sums cost work in proportion to the
// window, so a search whose points meet few blocks for the window's size adds every
// occupied cell in pieces instead (the raster is cut into pieces both ways; the choice is
// made once, at the search's first vote). Where a model point's window holds fewer cells
// than the point has blocks and pieces (a narrow translation range over a wide raster), it
// adds its window of the raster row by row instead, as the reference does, band of rows by
// band of rows so that the band being summed stays in the first-level cache.
//
// Integer additions commute and 16-bit sums wrap modulo 65536 whichever way they are
// grouped, so the accumulator values are the reference's exactly; so are the peaks, which
// are collected by the same code in the same order.
//
// The accumulators' rows are padded, by 32 cells before and after: blocks and pieces that
// stick out of a window drop their outside addends there, and the dense kernels work in
// whole blocks of 16 cells (reading a private copy of the occupancy raster whose rows end
// in 16 empty cells). Only the rows a step touched are summed, scanned for peaks and
// cleared: the accumulator's by the next step (before it adds anything, or by its box sums,
// which set the rows they cover instead of adding to them when nothing else was added), so
// that a step's values can still be read after it. Nothing is allocated per step.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ppmatch/search/peaks.h"
#include "ppmatch/search/search.h"
#include "ppmatch/search/vote_kernels.h"

namespace ptmatch {
namespace detail {

/// Items of an occupancy raster in row order, each a run of 1 to 4 cells of one row (or
/// the centre of a 3 x 3 block), with the items of any range of rows at hand.
class RowItems {
 public:
  /// An item: key = row x keyStride + column, its cell's index in an accumulator of that
  /// row stride for a window starting at raster cell (0, 0); columnLength = column x 8 +
  /// length.
  struct Item {
    std::int32_t key;
    std::uint32_t columnLength;
  };

  explicit RowItems(long rows);
  /// Appends an item to row, which must not be before the last item's row.
  void push(long row, long column, long length, long keyStride);
  /// Ends the building; no item may be pushed afterwards.
  void finish();

  /// Items of rows first..last, in row order.
  const Item* begin(long first) const { return items_.data() + rowStart_[first]; }
  const Item* end(long last) const { return items_.data() + rowStart_[last + 1]; }
  /// First row at or after row that holds an item; the number of rows when none does.
  long nextOccupied(long row) const { return next_[row]; }
  /// Last row at or before row that holds an item; -1 when none does.
  long previousOccupied(long row) const { return previous_[row]; }

 private:
  std::vector<Item> items_;
  std::vector<std::uint32_t> rowStart_;
  std::vector<std::int32_t> next_;
  std::vector<std::int32_t> previous_;
  long lastRow_ = 0;
};

/// The scatter vote over one occupancy raster and translation window, with its
/// accumulators.
class ScatterVoter {
 public:
  /// The dense loops run on kernels (see vote_kernels.h).
  ScatterVoter(const mvPelBuffer_const<unsigned char>& occupancy, const mvPelRect& window,
               VoteKernels kernels);

  /// Makes room for the votes of up to points model points, so that voting allocates nothing.
  void reserve(std::size_t points) { points_.reserve(points); }

  /// Clears what the previous vote touched and votes: each projected model point q adds
  /// its weight (1 when weights is empty) for every occupied raster cell window origin + q
  /// + (u, v) into accumulator cell (u, v), modulo 2^16.
  void vote(const std::vector<mvPair<long>>& projected, const std::vector<std::int16_t>& weights);

  /// Inserts the peaks of the last vote into store, exactly as the reference's
  /// collectPeaks does from the same accumulator values.
  void collectPeaks(long minScore, double scale, const mvDegree& rotation,
                    HypothesisStore& store) const;
  /// Records the same peaks in list instead, in the same order.
  void collectPeaks(long minScore, double scale, const mvDegree& rotation, PeakList& list) const;

  /// Accumulator cell (u, v) of the last vote, 0 <= u <= window width, 0 <= v <= window
  /// height.
  std::int16_t at(long u, long v) const;

 private:
  // Where one model point's window lies on the raster: raster cell (x0, y0) is under
  // accumulator cell (0, 0); raster rows yLo..yHi and columns xLo..xHi are in the window.
  struct Reach {
    long x0, y0, yLo, yHi, xLo, xHi;
  };
  // Rows first..last of a raster layer or of an accumulator; empty when first > last.
  struct RowSpan {
    long first, last;
    bool empty() const { return first > last; }
    // Grows the span to take in rows from..to.
    void cover(long from, long to) {
      first = std::min(first, from);
      last = std::max(last, to);
    }
  };
  // A point of the vote at hand: its window, its weight, and the raster rows of each
  // layer that its window covers, both ends holding items.
  struct PointVote {
    Reach reach;
    std::uint16_t weight;
    RowSpan occupied, centres, residue, pieces;
    long centreCount, residueCount, pieceCount;
  };

  template <typename Store>
  void collectPeaksInto(long minScore, double scale, const mvDegree& rotation, Store& store) const;
  void takeApart(const mvPelBuffer_const<unsigned char>& occupancy);
  bool reach(const mvPair<long>& cell, Reach& r) const;
  RowSpan rowsOf(const RowItems& items, long yLo, long yHi) const;
  static long countOf(const RowItems& items, const RowSpan& rows);
  static long denseCost(const PointVote& p);
  long scatterCost(const PointVote& p, long items) const;
  bool planPoint(const mvPair<long>& cell, std::uint16_t weight, PointVote& p) const;
  bool chooseBoxSums() const;
  void chooseLayers(const std::vector<mvPair<long>>& projected,
                    const std::vector<std::int16_t>& weights);
  static bool fitsPadding(const Reach& r, long before, long after, long width, long rasterWidth);
  void voteCentres(const Reach& r, const RowSpan& rows, std::uint16_t weight);
  void votePieces(const RowItems& items, const Reach& r, const RowSpan& rows, std::uint16_t weight);
  void addRows(const PointVote& d, long first, long last);
  void addDensePointsByBands();
  void addCentreBoxSums();
  void touch(long first, long last);
  void clearStaleRows(long first, long last);
  void beforeAdding();
  long nextCandidateRow(long v, long last, std::int16_t threshold) const;
  std::int16_t* row(long v);
  const std::int16_t* row(long v) const;

  // The occupancy raster's size, and a copy of it whose rows end in empty cells.
  const long rasterWidth_;
  const long rasterHeight_;
  const long occupancyStride_;
  std::vector<unsigned char> occupancy_;
  const mvPelRect window_;
  const VoteKernels kernels_;
  // Accumulator size (window size + 1) and padded row stride (both accumulators).
  const long width_;
  const long height_;
  const long stride_;
  // Whether 32-bit item keys address the accumulators; otherwise every point adds rows.
  const bool keyed_;
  // The occupancy raster taken apart: centres of disjoint 3 x 3 blocks of occupied cells
  // and pieces of the residue outside them; all occupied cells in pieces; and every row
  // that holds an occupied cell (a length-0 item each).
  RowItems centres_;
  RowItems residue_;
  RowItems pieces_;
  RowItems occupiedRows_;
  // The accumulator: height_ rows, cell (u, v) at v x stride_ + padding + u.
  std::vector<std::uint16_t> cells_;
  // The centre accumulator: height_ + 2 rows for v = -1 .. height_, cell (u, v) at
  // (v + 1) x stride_ + padding + u; and three rows of its horizontal 3-sums.
  std::vector<std::uint16_t> centreCells_;
  std::vector<std::uint16_t> rowSums_;
  // The largest value of each accumulator row the box sums wrote last, rows maxRows_.
  std::vector<std::int16_t> rowMax_;
  RowSpan maxRows_{0, -1};
  // Accumulator rows summed together by the dense points.
  const long bandRows_;
  // The points of the vote at hand that add window rows (all points while the layers are
  // chosen).
  std::vector<PointVote> points_;
  // Whether the votes add block centres and box sums (or pieces only), chosen at the first
  // vote with points for the whole search (either way gives the same accumulator).
  enum class Layers { eUnchosen, eBoxSums, ePieces };
  Layers layers_ = Layers::eUnchosen;
  // Accumulator rows the last vote touched, rows the vote before left that are not yet
  // cleared, and centre rows (v) the vote at hand touched. Rows outside these hold zeros.
  RowSpan touchedRows_;
  RowSpan staleRows_;
  // Whether the vote at hand has added anything to the accumulator yet.
  bool added_ = false;
  RowSpan centreRows_;
};

}  // namespace detail
}  // namespace ptmatch
