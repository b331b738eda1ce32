// The scatter vote: the same accumulator as the reference vote (every model point adds
// the occupancy raster over its translation window), computed from the occupied cells
// only. The occupancy raster is fixed for a whole search, so its runs of occupied cells
// are cut once into pieces of at most 4 cells; at each lattice step every model point
// adds each piece that meets its window with one 4-lane 16-bit addition. Where a model
// point's window holds fewer cells than pieces (a narrow translation range over a wide
// raster), the point adds its window row by row instead, as the reference does, band of
// rows by band of rows so that the band being summed stays in the first-level cache. Integer
// additions commute and 16-bit sums wrap modulo 65536 either way, so the accumulator
// values are the reference's exactly.
//
// The accumulator's rows are padded, by 4 cells before and 16 after: a piece that sticks
// out of the window drops its outside addends there, and the dense kernels work in whole
// blocks of 16 cells (reading a private copy of the occupancy raster whose rows end in 16
// empty cells). Only the rows a step touched are scanned for peaks and cleared again (at
// the start of the next step, so that a step's values can still be read after it).
// Nothing is allocated per step.
#pragma once

#include <cstdint>
#include <vector>

#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ppmatch/search/search.h"

namespace ptmatch {
namespace detail {

/// The occupied cells of an occupancy raster as pieces of 1 to 4 consecutive cells of one
/// row, in row order.
class OccupiedPieces {
 public:
  /// A piece: key = row x keyStride + column (the accumulator index of the piece for a
  /// model point whose window starts at raster cell (0, 0), before padding); columnLength =
  /// column x 8 + length.
  struct Piece {
    std::int32_t key;
    std::uint32_t columnLength;
  };

  /// Cuts every run of occupied cells of the raster into pieces, 4 cells at a time.
  OccupiedPieces(const mvPelBuffer_const<unsigned char>& occupancy, long keyStride);

  long rows() const { return static_cast<long>(rowStart_.size()) - 1; }
  /// Pieces of rows first..last, in row order.
  const Piece* begin(long first) const { return pieces_.data() + rowStart_[first]; }
  const Piece* end(long last) const { return pieces_.data() + rowStart_[last + 1]; }
  /// First row at or after row that holds a piece; rows() when none does.
  long nextOccupied(long row) const { return next_[row]; }
  /// Last row at or before row that holds a piece; -1 when none does.
  long previousOccupied(long row) const { return previous_[row]; }
  std::size_t size() const { return pieces_.size(); }

 private:
  std::vector<Piece> pieces_;
  std::vector<std::uint32_t> rowStart_;
  std::vector<std::int32_t> next_;
  std::vector<std::int32_t> previous_;
};

/// The scatter vote over one occupancy raster and translation window, with its accumulator.
class ScatterVoter {
 public:
  ScatterVoter(const mvPelBuffer_const<unsigned char>& occupancy, const mvPelRect& window);

  /// Makes room for the votes of up to points model points, so that voting allocates nothing.
  void reserve(std::size_t points) { dense_.reserve(points); }

  /// Clears what the previous vote touched and votes: each projected model point q adds
  /// its weight (1 when weights is empty) for every occupied raster cell window origin + q
  /// + (u, v) into accumulator cell (u, v), modulo 2^16.
  void vote(const std::vector<mvPair<long>>& projected, const std::vector<std::int16_t>& weights);

  /// Inserts the peaks of the last vote into store, exactly as the reference's
  /// collectPeaks does from the same accumulator values.
  void collectPeaks(long minScore, double scale, const mvDegree& rotation,
                    HypothesisStore& store) const;

  /// Accumulator cell (u, v) of the last vote, 0 <= u <= window width, 0 <= v <= window
  /// height.
  std::int16_t at(long u, long v) const;

 private:
  // Where one model point's window meets the raster: raster rows first..last (both
  // occupied) and the raster cell under accumulator cell (0, 0).
  struct Reach {
    long first, last, x0, y0;
  };
  // A point that adds its window rows, with its weight.
  struct DensePoint {
    Reach reach;
    std::uint16_t weight;
  };
  bool reach(const mvPair<long>& cell, Reach& r) const;
  long firstColumn(const Reach& r) const;
  long columns(const Reach& r) const;
  bool cheaperToScatter(const Reach& r) const;
  bool piecesFitPadding(const Reach& r) const;
  void scatterPoint(const Reach& r, std::uint16_t weight);
  void addRows(const Reach& r, std::uint16_t weight, long first, long last);
  void addDensePointsByBands();
  void clearTouchedRows();
  std::int16_t* row(long v);
  const std::int16_t* row(long v) const;

  // The occupancy raster's size, and a copy of it whose rows end in kVoteBlock empty cells.
  const long rasterWidth_;
  const long rasterHeight_;
  const long occupancyStride_;
  std::vector<unsigned char> occupancy_;
  const mvPelRect window_;
  // Accumulator size (window size + 1) and padded row stride.
  const long width_;
  const long height_;
  const long stride_;
  // Whether 32-bit piece keys address the accumulator; otherwise every point adds rows.
  const bool keyed_;
  const OccupiedPieces pieces_;
  // The padded accumulator: height_ rows of stride_ cells, cell (u, v) at v x stride_ +
  // kPadBefore + u.
  std::vector<std::uint16_t> cells_;
  // Accumulator rows summed together by the dense points.
  const long bandRows_;
  // The points of the vote at hand that add window rows.
  std::vector<DensePoint> dense_;
  // Accumulator rows the last vote touched (first > last when none).
  long touchedFirst_;
  long touchedLast_;
};

}  // namespace detail
}  // namespace ptmatch
