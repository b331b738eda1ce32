#include "ppmatch/search/scatter_vote.h"

#include <algorithm>
#include <limits>
#include <cstdio>
#include <cstdlib>

#include "ppmatch/search/peaks.h"
#include "ppmatch/search/vote_kernels.h"

namespace ptmatch {
namespace detail {
namespace {

// Cells in a piece at most.
constexpr long kPieceCells = 4;
// Padding of the accumulator rows: before, room for a piece starting up to 4 cells before
// the window; after, for a piece ending past the window and for whole dense blocks.
constexpr long kPadBefore = kPieceCells;
constexpr long kPadAfter = kVoteBlock;

// Relative costs of a model point's two ways to vote: scattering one piece, and adding
// one window row (a fixed part, and a part per block of kVoteBlock cells). Measured with
// bench/vote_bench; either way gives the same accumulator.
constexpr long kPieceCost = 3;
constexpr long kRowCost = 5;
constexpr long kBlockCost = 2;

// Accumulator cells in one band of rows summed by the dense points: 16 KiB, a part of the
// first-level cache.
constexpr long kBandCells = 8192;

// Pieces are addressed with 32-bit keys; an accumulator too large for them is voted row by
// row only (it would take gigabytes anyway).
constexpr long kMaxKeyedCells = std::numeric_limits<std::int32_t>::max();

long blocksOf(long cells) { return (cells + kVoteBlock - 1) / kVoteBlock; }

}  // namespace

OccupiedPieces::OccupiedPieces(const mvPelBuffer_const<unsigned char>& occupancy,
                               long keyStride) {
  const long rows = occupancy.height();
  const long width = occupancy.width();
  rowStart_.reserve(static_cast<std::size_t>(rows) + 1);
  for (long y = 0; y < rows; ++y) {
    rowStart_.push_back(static_cast<std::uint32_t>(pieces_.size()));
    const unsigned char* row = occupancy.pointToRow(y);
    for (long x = 0; x < width;) {
      if (row[x] == 0) {
        ++x;
        continue;
      }
      long end = x;
      while (end < width && row[end] != 0) ++end;
      for (; x < end; x += kPieceCells) {
        const long length = std::min(kPieceCells, end - x);
        pieces_.push_back(Piece{static_cast<std::int32_t>(y * keyStride + x),
                                static_cast<std::uint32_t>(x * 8 + length)});
      }
    }
  }
  rowStart_.push_back(static_cast<std::uint32_t>(pieces_.size()));
  next_.resize(static_cast<std::size_t>(rows));
  previous_.resize(static_cast<std::size_t>(rows));
  long next = rows;
  for (long y = rows - 1; y >= 0; --y) {
    if (rowStart_[y + 1] > rowStart_[y]) next = y;
    next_[y] = static_cast<std::int32_t>(next);
  }
  long previous = -1;
  for (long y = 0; y < rows; ++y) {
    if (rowStart_[y + 1] > rowStart_[y]) previous = y;
    previous_[y] = static_cast<std::int32_t>(previous);
  }
}

ScatterVoter::ScatterVoter(const mvPelBuffer_const<unsigned char>& occupancy,
                           const mvPelRect& window)
    : rasterWidth_(occupancy.width()),
      rasterHeight_(occupancy.height()),
      occupancyStride_(occupancy.width() + kVoteBlock),
      occupancy_(static_cast<std::size_t>(occupancy.height() * occupancyStride_), 0),
      window_(window),
      width_(window.width() + 1),
      height_(window.height() + 1),
      stride_(kPadBefore + width_ + kPadAfter),
      keyed_((std::max(occupancy.height(), height_) + 1) * stride_ + occupancy.width() <=
             kMaxKeyedCells),
      pieces_(occupancy, keyed_ ? stride_ : 0),
      cells_(static_cast<std::size_t>(height_ * stride_), 0),
      bandRows_(std::max(1L, kBandCells / stride_)),
      touchedFirst_(height_),
      touchedLast_(-1) {
  for (long y = 0; y < rasterHeight_; ++y) {
    std::copy(occupancy.pointToRow(y), occupancy.pointToRow(y) + rasterWidth_,
              occupancy_.begin() + y * occupancyStride_);
  }
}

std::int16_t* ScatterVoter::row(long v) {
  return reinterpret_cast<std::int16_t*>(cells_.data() + v * stride_ + kPadBefore);
}

const std::int16_t* ScatterVoter::row(long v) const {
  return reinterpret_cast<const std::int16_t*>(cells_.data() + v * stride_ + kPadBefore);
}

std::int16_t ScatterVoter::at(long u, long v) const { return row(v)[u]; }

void ScatterVoter::clearTouchedRows() {
  if (touchedFirst_ <= touchedLast_) {
    std::fill(cells_.begin() + touchedFirst_ * stride_,
              cells_.begin() + (touchedLast_ + 1) * stride_, std::uint16_t{0});
  }
  touchedFirst_ = height_;
  touchedLast_ = -1;
}

// The raster rows the point's window covers, trimmed to rows that hold occupied cells;
// false when it covers none of them, or no raster column.
bool ScatterVoter::reach(const mvPair<long>& cell, Reach& r) const {
  r.x0 = window_.x() + cell.x();
  r.y0 = window_.y() + cell.y();
  const long xLo = std::max(0L, r.x0);
  const long xHi = std::min(rasterWidth_ - 1, r.x0 + width_ - 1);
  const long yLo = std::max(0L, r.y0);
  const long yHi = std::min(rasterHeight_ - 1, r.y0 + height_ - 1);
  if (xLo > xHi || yLo > yHi) return false;
  r.first = pieces_.nextOccupied(yLo);
  r.last = pieces_.previousOccupied(yHi);
  return r.first <= r.last;
}

// The first accumulator column over the raster, and the number of such columns.
long ScatterVoter::firstColumn(const Reach& r) const { return std::max(0L, -r.x0); }

long ScatterVoter::columns(const Reach& r) const {
  return std::min(width_ - 1, rasterWidth_ - 1 - r.x0) - firstColumn(r) + 1;
}

bool ScatterVoter::cheaperToScatter(const Reach& r) const {
  if (!keyed_) return false;
  const long pieces = static_cast<long>(pieces_.end(r.last) - pieces_.begin(r.first));
  const long rows = r.last - r.first + 1;
  return pieces * kPieceCost <= rows * (kRowCost + blocksOf(columns(r)) * kBlockCost);
}

// True when every piece of the raster, shifted by the point's window, starts no more than
// kPadBefore cells before the window and ends within the padding after it: then pieces
// need no test, those outside the window only add to the padding.
bool ScatterVoter::piecesFitPadding(const Reach& r) const {
  return r.x0 <= kPadBefore && rasterWidth_ - 1 - r.x0 <= width_ - 1 + kPadAfter;
}

void ScatterVoter::scatterPoint(const Reach& r, std::uint16_t weight) {
  const PieceAddends addends(weight);
  // A piece's key minus this offset is its first cell in cells_: (row - y0) x stride +
  // kPadBefore + (column - x0).
  const long offset = r.y0 * stride_ + r.x0 - kPadBefore;
  std::uint16_t* cells = cells_.data();
  const OccupiedPieces::Piece* p = pieces_.begin(r.first);
  const OccupiedPieces::Piece* end = pieces_.end(r.last);
  if (piecesFitPadding(r)) {
    for (; p != end; ++p) addPiece(cells + (p->key - offset), addends, p->columnLength & 7u);
    return;
  }
  // A piece meets the window when its first column u = column - x0 lies in -3 .. width - 1.
  const auto lastStart = static_cast<unsigned long>(width_ + kPieceCells - 2);
  for (; p != end; ++p) {
    const long u = static_cast<long>(p->columnLength >> 3) - r.x0;
    if (static_cast<unsigned long>(u + kPieceCells - 1) > lastStart) continue;
    addPiece(cells + (p->key - offset), addends, p->columnLength & 7u);
  }
}

// Adds the point's window rows that fall in accumulator rows first..last.
void ScatterVoter::addRows(const Reach& r, std::uint16_t weight, long first, long last) {
  const long v0 = std::max(first, r.first - r.y0);
  const long v1 = std::min(last, r.last - r.y0);
  if (v0 > v1) return;
  const long u = firstColumn(r);
  WindowRows w;
  w.acc = reinterpret_cast<std::uint16_t*>(row(v0)) + u;
  w.accStride = stride_;
  w.occupancy = occupancy_.data() + (r.y0 + v0) * occupancyStride_ + r.x0 + u;
  w.occupancyStride = occupancyStride_;
  w.rows = v1 - v0 + 1;
  w.blocks = blocksOf(columns(r));
  addWindowRows(w, weight);
}

void ScatterVoter::addDensePointsByBands() {
  long first = height_;
  long last = -1;
  for (const DensePoint& d : dense_) {
    first = std::min(first, d.reach.first - d.reach.y0);
    last = std::max(last, d.reach.last - d.reach.y0);
  }
  for (long band = first; band <= last; band += bandRows_) {
    const long bandLast = std::min(last, band + bandRows_ - 1);
    for (const DensePoint& d : dense_) addRows(d.reach, d.weight, band, bandLast);
  }
}

void ScatterVoter::vote(const std::vector<mvPair<long>>& projected,
                        const std::vector<std::int16_t>& weights) {
  clearTouchedRows();
  dense_.clear();
  for (std::size_t i = 0; i < projected.size(); ++i) {
    const std::uint16_t weight =
        weights.empty() ? std::uint16_t{1} : static_cast<std::uint16_t>(weights[i]);
    if (weight == 0) continue;  // adds nothing
    Reach r;
    if (!reach(projected[i], r)) continue;
    touchedFirst_ = std::min(touchedFirst_, r.first - r.y0);
    touchedLast_ = std::max(touchedLast_, r.last - r.y0);
    static const char* force = getenv("PTFORCE");
    if (force ? force[0] == 's' : cheaperToScatter(r)) {
      scatterPoint(r, weight);
    } else {
      dense_.push_back(DensePoint{r, weight});
    }
  }
  if (!dense_.empty()) addDensePointsByBands();
}

void ScatterVoter::collectPeaks(long minScore, double scale, const mvDegree& rotation,
                                HypothesisStore& store) const {
  auto rowAt = [this](long v) { return row(v); };
  if (minScore <= 0) {
    // Untouched cells (0) could be peaks too: scan everything, as the reference does.
    collectPeakRows(
        rowAt, [](const std::int16_t*) { return true; }, width_, height_, 0, height_ - 1,
        minScore, window_, scale, rotation, store);
    return;
  }
  if (minScore > std::numeric_limits<std::int16_t>::max()) return;  // no 16-bit value reaches it
  // Rows the vote did not touch hold only zeros, below minScore. The row test reads whole
  // blocks, into the padding, whose stray addends can only make it answer true needlessly.
  const auto threshold = static_cast<std::int16_t>(minScore - 1);
  const long blocks = blocksOf(width_);
  collectPeakRows(
      rowAt, [&](const std::int16_t* r) { return rowExceeds(r, blocks, threshold); }, width_,
      height_, touchedFirst_, touchedLast_, minScore, window_, scale, rotation, store);
}

}  // namespace detail
}  // namespace ptmatch
