#include "ppmatch/search/scatter_vote.h"

#include <algorithm>
#include <limits>

#include "mvbase/attention.h"
#include "ppmatch/search/peaks.h"
#include "ppmatch/search/vote_kernels.h"

namespace ptmatch {
namespace detail {
namespace {

// Cells in a piece at most.
constexpr long kPieceCells = 4;
// Padding cells before and after every accumulator row. Blocks and pieces are added
// without a test when those of the whole raster land within the padding (or the window),
// which with 32 cells holds for every point within about 30 cells of the model centre when
// the translation is free; the dense kernels overrun a row by up to 15 cells.
constexpr long kPad = 32;
static_assert(kPad >= kVoteBlock, "the dense kernels write whole blocks");

// Relative costs of a model point's two ways to vote: scattering one block centre or
// piece, and adding one window row (a fixed part, and a part per block of kVoteBlock
// cells). Measured with bench/vote_bench; either way gives the same accumulator.
constexpr long kItemCost = 3;
constexpr long kRowCost = 5;
constexpr long kBlockCost = 2;
// Relative cost of the box sums, per block of kVoteBlock cells of an accumulator row.
constexpr long kBoxBlockCost = 12;
// Extra cost per row of scattering with a column test (a window narrower than the raster):
// the test's outcome changes twice a row, and the processor guesses wrong there.
constexpr long kTestedRowCost = 40;

// Accumulator cells in one band of rows summed by the dense points: 16 KiB, a part of the
// first-level cache.
constexpr long kBandCells = 8192;

// Items are addressed with 32-bit keys; accumulators too large for them are voted row by
// row only (they would take gigabytes anyway).
constexpr long kMaxKeyedCells = std::numeric_limits<std::int32_t>::max();

long blocksOf(long cells) { return (cells + kVoteBlock - 1) / kVoteBlock; }

// n zeros, written an interval of mvAttention::pace() at a time: the accumulators of a
// huge window take a while to write.
template <typename T>
std::vector<T> pacedZeros(long n) {
  std::vector<T> cells;
  const auto size = static_cast<std::size_t>(std::max(0L, n));
  cells.reserve(size);
  while (cells.size() < size) {
    mvAttention::pace(mvAttention::kPaceInterval);
    cells.resize(
        std::min(size, cells.size() + static_cast<std::size_t>(mvAttention::kPaceInterval)));
  }
  return cells;
}

// Rows of the given stride that make one interval of mvAttention::pace() (at least one).
long pacedRows(long stride) { return std::max(1L, mvAttention::kPaceInterval / stride); }

// A point's weight as a 16-bit addend (1 for unit votes).
std::uint16_t weightOf(const std::vector<std::int16_t>& weights, std::size_t i) {
  return weights.empty() ? std::uint16_t{1} : static_cast<std::uint16_t>(weights[i]);
}

}  // namespace

// --- RowItems ---

RowItems::RowItems(long rows)
    : rowStart_(static_cast<std::size_t>(rows) + 1, 0),
      next_(static_cast<std::size_t>(rows)),
      previous_(static_cast<std::size_t>(rows)) {}

void RowItems::push(long row, long column, long length, long keyStride) {
  // Rows between the last item's row and this one end where this one starts.
  for (long y = lastRow_ + 1; y <= row; ++y)
    rowStart_[y] = static_cast<std::uint32_t>(items_.size());
  lastRow_ = row;
  items_.push_back(Item{static_cast<std::int32_t>(row * keyStride + column),
                        static_cast<std::uint32_t>(column * 8 + length)});
}

void RowItems::finish() {
  const long rows = static_cast<long>(next_.size());
  for (long y = lastRow_ + 1; y <= rows; ++y)
    rowStart_[y] = static_cast<std::uint32_t>(items_.size());
  if (items_.empty()) std::fill(rowStart_.begin(), rowStart_.end(), 0u);
  long next = rows;
  for (long y = rows - 1; y >= 0; --y) {
    mvAttention::pace(1);
    if (rowStart_[y + 1] > rowStart_[y]) next = y;
    next_[y] = static_cast<std::int32_t>(next);
  }
  long previous = -1;
  for (long y = 0; y < rows; ++y) {
    mvAttention::pace(1);
    if (rowStart_[y + 1] > rowStart_[y]) previous = y;
    previous_[y] = static_cast<std::int32_t>(previous);
  }
}

// --- ScatterVoter: set-up ---

ScatterVoter::ScatterVoter(const mvPelBuffer_const<unsigned char>& occupancy,
                           const mvPelRect& window, VoteKernels kernels)
    : rasterWidth_(occupancy.width()),
      rasterHeight_(occupancy.height()),
      occupancyStride_(occupancy.width() + kVoteBlock),
      occupancy_(pacedZeros<unsigned char>(occupancy.height() * occupancyStride_)),
      window_(window),
      kernels_(kernels),
      width_(window.width() + 1),
      height_(window.height() + 1),
      stride_(kPad + width_ + kPad),
      keyed_((std::max(occupancy.height(), height_) + 2) * stride_ + occupancy.width() <=
             kMaxKeyedCells),
      centres_(occupancy.height()),
      residue_(occupancy.height()),
      pieces_(occupancy.height()),
      occupiedRows_(occupancy.height()),
      cells_(pacedZeros<std::uint16_t>(height_ * stride_)),
      centreCells_(pacedZeros<std::uint16_t>(keyed_ ? (height_ + 2) * stride_ : 0)),
      rowSums_(keyed_ ? static_cast<std::size_t>(3 * stride_) : 0, 0),
      rowMax_(static_cast<std::size_t>(height_), 0),
      bandRows_(std::max(1L, kBandCells / stride_)),
      touchedRows_{height_, -1},
      staleRows_{height_, -1},
      centreRows_{height_ + 1, -2} {
  for (long y = 0; y < rasterHeight_; ++y) {
    mvAttention::pace(rasterWidth_);
    std::copy(occupancy.pointToRow(y), occupancy.pointToRow(y) + rasterWidth_,
              occupancy_.begin() + y * occupancyStride_);
  }
  takeApart(occupancy);
}

// Takes the occupied cells apart: in row order, every cell whose whole 3 x 3 block is
// occupied, inside the raster and disjoint from the blocks taken before becomes a block
// centre (an isolated data point gives one); the occupied cells outside the blocks are cut
// into pieces of at most 4 cells along their rows. Any such choice sums to the raster.
void ScatterVoter::takeApart(const mvPelBuffer_const<unsigned char>& occupancy) {
  const long keyStride = keyed_ ? stride_ : 0;
  std::vector<unsigned char> covered = pacedZeros<unsigned char>(rasterWidth_ * rasterHeight_);
  auto isCovered = [&](long x, long y) { return covered[y * rasterWidth_ + x] != 0; };
  auto isOccupied = [&](long x, long y) { return occupancy.pointToRow(y)[x] != 0; };
  for (long y = 1; y + 1 < rasterHeight_; ++y) {
    mvAttention::pace(rasterWidth_);
    for (long x = 1; x + 1 < rasterWidth_; ++x) {
      if (!isOccupied(x, y) || isCovered(x, y)) continue;
      bool free = true;
      for (long dy = -1; free && dy <= 1; ++dy) {
        for (long dx = -1; free && dx <= 1; ++dx) {
          free = isOccupied(x + dx, y + dy) && !isCovered(x + dx, y + dy);
        }
      }
      if (!free) continue;
      centres_.push(y, x, 1, keyStride);
      for (long dy = -1; dy <= 1; ++dy) {
        for (long dx = -1; dx <= 1; ++dx) covered[(y + dy) * rasterWidth_ + x + dx] = 1;
      }
    }
  }
  // Runs of cells for which take(x, y) holds, cut into pieces.
  auto cutRuns = [&](RowItems& items, long y, auto take) {
    for (long x = 0; x < rasterWidth_;) {
      if (!take(x, y)) {
        ++x;
        continue;
      }
      long end = x;
      while (end < rasterWidth_ && take(end, y)) ++end;
      for (long start = x; start < end; start += kPieceCells) {
        items.push(y, start, std::min(kPieceCells, end - start), keyStride);
      }
      x = end;
    }
  };
  for (long y = 0; y < rasterHeight_; ++y) {
    mvAttention::pace(3 * rasterWidth_);
    cutRuns(residue_, y,
            [&](long x, long row) { return isOccupied(x, row) && !isCovered(x, row); });
    cutRuns(pieces_, y, isOccupied);
    const unsigned char* cells = occupancy.pointToRow(y);
    if (std::any_of(cells, cells + rasterWidth_, [](unsigned char c) { return c != 0; })) {
      occupiedRows_.push(y, 0, 0, 0);
    }
  }
  centres_.finish();
  residue_.finish();
  pieces_.finish();
  occupiedRows_.finish();
}

std::int16_t* ScatterVoter::row(long v) {
  return reinterpret_cast<std::int16_t*>(cells_.data() + v * stride_ + kPad);
}

const std::int16_t* ScatterVoter::row(long v) const {
  return reinterpret_cast<const std::int16_t*>(cells_.data() + v * stride_ + kPad);
}

std::int16_t ScatterVoter::at(long u, long v) const { return row(v)[u]; }

// --- ScatterVoter: one point's window ---

// Where the point's window lies on the raster; false when it covers no raster cell.
bool ScatterVoter::reach(const mvPair<long>& cell, Reach& r) const {
  r.x0 = window_.x() + cell.x();
  r.y0 = window_.y() + cell.y();
  r.xLo = std::max(0L, r.x0);
  r.xHi = std::min(rasterWidth_ - 1, r.x0 + width_ - 1);
  r.yLo = std::max(0L, r.y0);
  r.yHi = std::min(rasterHeight_ - 1, r.y0 + height_ - 1);
  return r.xLo <= r.xHi && r.yLo <= r.yHi;
}

// Rows yLo..yHi (clipped to the raster) trimmed to those holding items.
ScatterVoter::RowSpan ScatterVoter::rowsOf(const RowItems& items, long yLo, long yHi) const {
  yLo = std::max(0L, yLo);
  yHi = std::min(rasterHeight_ - 1, yHi);
  if (yLo > yHi) return RowSpan{0, -1};
  return RowSpan{items.nextOccupied(yLo), items.previousOccupied(yHi)};
}

long ScatterVoter::countOf(const RowItems& items, const RowSpan& rows) {
  return rows.empty() ? 0 : static_cast<long>(items.end(rows.last) - items.begin(rows.first));
}

// Where the point's window lies and what it covers of each layer; false when it covers no
// occupied cell's row.
bool ScatterVoter::planPoint(const mvPair<long>& cell, std::uint16_t weight, PointVote& p) const {
  if (!reach(cell, p.reach)) return false;
  const Reach& r = p.reach;
  p.occupied = rowsOf(occupiedRows_, r.yLo, r.yHi);
  if (p.occupied.empty()) return false;
  p.weight = weight;
  p.centres = p.residue = p.pieces = RowSpan{0, -1};
  p.centreCount = p.residueCount = p.pieceCount = 0;
  if (layers_ != Layers::ePieces) {
    // Blocks whose centre lies one row off the window still reach into it.
    p.centres = rowsOf(centres_, r.y0 - 1, r.y0 + height_);
    p.residue = rowsOf(residue_, r.yLo, r.yHi);
    p.centreCount = countOf(centres_, p.centres);
    p.residueCount = countOf(residue_, p.residue);
  }
  if (layers_ != Layers::eBoxSums) {
    p.pieces = rowsOf(pieces_, r.yLo, r.yHi);
    p.pieceCount = countOf(pieces_, p.pieces);
  }
  return true;
}

long ScatterVoter::denseCost(const PointVote& p) {
  const long rows = p.occupied.last - p.occupied.first + 1;
  return rows * (kRowCost + blocksOf(p.reach.xHi - p.reach.xLo + 1) * kBlockCost);
}

long ScatterVoter::scatterCost(const PointVote& p, long items) const {
  const long rows = p.occupied.last - p.occupied.first + 1;
  const bool tested = !fitsPadding(p.reach, kPad, kPad - kPieceCells + 1, width_, rasterWidth_);
  return items * kItemCost + (tested ? rows * kTestedRowCost : 0);
}

// Whether block centres with box sums are less work for the planned points than pieces
// only, each point scattering or adding rows, whichever is less work.
bool ScatterVoter::chooseBoxSums() const {
  long withBoxSums = 0;
  long withPieces = 0;
  long first = height_;
  long last = -1;
  for (const PointVote& p : points_) {
    withBoxSums += std::min(denseCost(p), scatterCost(p, p.centreCount + p.residueCount));
    withPieces += std::min(denseCost(p), scatterCost(p, p.pieceCount));
    if (p.centreCount > 0) {
      first = std::min(first, p.centres.first - p.reach.y0 - 1);
      last = std::max(last, p.centres.last - p.reach.y0 + 1);
    }
  }
  first = std::max(first, 0L);
  last = std::min(last, height_ - 1);
  if (first <= last) withBoxSums += (last - first + 1) * blocksOf(width_) * kBoxBlockCost;
  return withBoxSums < withPieces;
}

// Chooses the layers for the whole search from the points of its first vote.
void ScatterVoter::chooseLayers(const std::vector<mvPair<long>>& projected,
                                const std::vector<std::int16_t>& weights) {
  points_.clear();
  for (std::size_t i = 0; i < projected.size(); ++i) {
    PointVote p;
    const std::uint16_t weight = weightOf(weights, i);
    if (weight != 0 && planPoint(projected[i], weight, p)) points_.push_back(p);
  }
  if (points_.empty()) return;  // choose at a vote that has points
  layers_ = keyed_ && chooseBoxSums() ? Layers::eBoxSums : Layers::ePieces;
  points_.clear();
}

// True when every item of the raster, shifted by the point's window, starts at least
// `before` cells before the window's first column and ends within `after` cells after
// its last: then items need no test, those outside the window add to the padding only.
bool ScatterVoter::fitsPadding(const Reach& r, long before, long after, long width,
                               long rasterWidth) {
  return r.x0 <= before && rasterWidth - 1 - r.x0 <= width - 1 + after;
}

// Adds the weight at the centre cell of every block whose 3 x 3 cells meet the window.
// The centre accumulator has a row and a column more on each side than the window.
void ScatterVoter::voteCentres(const Reach& r, const RowSpan& rows, std::uint16_t weight) {
  if (rows.empty()) return;
  centreRows_.cover(rows.first - r.y0, rows.last - r.y0);
  // A centre's key minus this offset is its index in centreCells_: (row - y0 + 1) x
  // stride + kPad + (column - x0).
  const long offset = (r.y0 - 1) * stride_ + r.x0 - kPad;
  std::uint16_t* cells = centreCells_.data();
  const RowItems::Item* c = centres_.begin(rows.first);
  const RowItems::Item* end = centres_.end(rows.last);
  if (fitsPadding(r, kPad, kPad - 1, width_, rasterWidth_)) {
    for (; c != end; ++c) {
      std::uint16_t& cell = cells[c->key - offset];
      cell = static_cast<std::uint16_t>(cell + weight);
    }
    return;
  }
  // A centre's block meets the window when its column u = column - x0 lies in -1 .. width.
  const auto lastColumn = static_cast<unsigned long>(width_ + 1);
  for (; c != end; ++c) {
    const long u = static_cast<long>(c->columnLength >> 3) - r.x0;
    if (static_cast<unsigned long>(u + 1) > lastColumn) continue;
    std::uint16_t& cell = cells[c->key - offset];
    cell = static_cast<std::uint16_t>(cell + weight);
  }
}

// Adds every piece of items that meets the window with one 4-lane addition.
void ScatterVoter::votePieces(const RowItems& items, const Reach& r, const RowSpan& rows,
                              std::uint16_t weight) {
  if (rows.empty()) return;
  const PieceAddends addends(weight);
  // A piece's key minus this offset is its first cell in cells_: (row - y0) x stride +
  // kPad + (column - x0).
  const long offset = r.y0 * stride_ + r.x0 - kPad;
  std::uint16_t* cells = cells_.data();
  const RowItems::Item* p = items.begin(rows.first);
  const RowItems::Item* end = items.end(rows.last);
  if (fitsPadding(r, kPad, kPad - kPieceCells + 1, width_, rasterWidth_)) {
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
void ScatterVoter::addRows(const PointVote& d, long first, long last) {
  const Reach& r = d.reach;
  const long v0 = std::max(first, d.occupied.first - r.y0);
  const long v1 = std::min(last, d.occupied.last - r.y0);
  if (v0 > v1) return;
  const long u = r.xLo - r.x0;
  WindowRows w;
  w.acc = reinterpret_cast<std::uint16_t*>(row(v0)) + u;
  w.accStride = stride_;
  w.occupancy = occupancy_.data() + (r.y0 + v0) * occupancyStride_ + r.xLo;
  w.occupancyStride = occupancyStride_;
  w.rows = v1 - v0 + 1;
  w.blocks = blocksOf(r.xHi - r.xLo + 1);
  addWindowRows(w, d.weight, kernels_);
}

// --- ScatterVoter: one step ---

void ScatterVoter::addDensePointsByBands() {
  long first = height_;
  long last = -1;
  for (const PointVote& d : points_) {
    first = std::min(first, d.occupied.first - d.reach.y0);
    last = std::max(last, d.occupied.last - d.reach.y0);
  }
  for (long band = first; band <= last; band += bandRows_) {
    const long bandLast = std::min(last, band + bandRows_ - 1);
    for (const PointVote& d : points_) {
      mvAttention::pace((bandLast - band + 1) * width_);
      addRows(d, band, bandLast);
    }
  }
}

// Adds the centre accumulator's 3 x 3 box sums to the accumulator rows they reach, or,
// when nothing else was added in this vote, sets those rows to them (and clears the other
// rows the last vote left); the box sums clear the centre cells again.
void ScatterVoter::addCentreBoxSums() {
  if (centreRows_.empty()) return;
  const long first = std::max(0L, centreRows_.first - 1);
  const long last = std::min(height_ - 1, centreRows_.last + 1);
  const bool assign = !added_;
  if (assign) {
    clearStaleRows(staleRows_.first, std::min(staleRows_.last, first - 1));
    clearStaleRows(std::max(staleRows_.first, last + 1), staleRows_.last);
    staleRows_ = RowSpan{height_, -1};
  }
  touch(first, last);
  BoxSums b;
  b.accStride = stride_;
  b.centreStride = stride_;
  b.scratch = rowSums_.data();
  b.scratchStride = stride_;
  b.blocks = blocksOf(width_);
  b.assign = assign;
  // In chunks of rows, pacing the interruption checks; each chunk takes the horizontal
  // sums of the centre rows around it afresh, so the sums are the same as in one pass.
  const long chunkRows = pacedRows(stride_);
  for (long chunk = first; chunk <= last; chunk += chunkRows) {
    mvAttention::pace(mvAttention::kPaceInterval);
    b.acc = reinterpret_cast<std::uint16_t*>(row(chunk));
    b.centres = centreCells_.data() + (chunk + 1) * stride_ + kPad;
    b.rows = std::min(chunkRows, last - chunk + 1);
    b.rowMax = rowMax_.data() + chunk;
    addBoxSums(b, kernels_);
  }
  maxRows_ = RowSpan{first, last};
  centreRows_ = RowSpan{height_ + 1, -2};
}

void ScatterVoter::touch(long first, long last) { touchedRows_.cover(first, last); }

// The first row from v on (last + 1 when none) with a value above threshold, reading the
// maxima the box sums left where there are some. Values in the padding may stop it at a
// row needlessly, never make it pass one.
long ScatterVoter::nextCandidateRow(long v, long last, std::int16_t threshold) const {
  const long blocks = blocksOf(width_);
  while (v <= last) {
    if (v < maxRows_.first || v > maxRows_.last) {
      const long end = v < maxRows_.first ? std::min(last, maxRows_.first - 1) : last;
      const long chunkEnd = std::min(end, v + pacedRows(stride_) - 1);
      mvAttention::pace(mvAttention::kPaceInterval);
      const long found =
          nextExceedingRow(row(0), stride_, v, chunkEnd, blocks, threshold, kernels_);
      if (found <= chunkEnd) return found;
      v = chunkEnd + 1;
      continue;
    }
    for (; v <= std::min(last, maxRows_.last); ++v) {
      mvAttention::pace(1);
      if (rowMax_[v] > threshold) return v;
    }
  }
  return last + 1;
}

// Zeroes accumulator rows first..last (nothing when first > last).
void ScatterVoter::clearStaleRows(long first, long last) {
  const long chunkRows = pacedRows(stride_);
  for (long chunk = first; chunk <= last; chunk += chunkRows) {
    mvAttention::pace(mvAttention::kPaceInterval);
    const long chunkLast = std::min(last, chunk + chunkRows - 1);
    std::fill(cells_.begin() + chunk * stride_, cells_.begin() + (chunkLast + 1) * stride_,
              std::uint16_t{0});
  }
}

// Before the first addition of a vote: zeroes the rows the last vote left.
void ScatterVoter::beforeAdding() {
  if (added_) return;
  added_ = true;
  clearStaleRows(staleRows_.first, staleRows_.last);
  staleRows_ = RowSpan{height_, -1};
}

void ScatterVoter::vote(const std::vector<mvPair<long>>& projected,
                        const std::vector<std::int16_t>& weights) {
  // The last vote's rows are cleared lazily: before the first addition, or by the box sums.
  staleRows_ = touchedRows_;
  touchedRows_ = RowSpan{height_, -1};
  maxRows_ = RowSpan{0, -1};
  added_ = false;
  if (layers_ == Layers::eUnchosen) chooseLayers(projected, weights);
  const bool boxSums = layers_ == Layers::eBoxSums;
  // Points that add window rows wait in points_ and are summed band by band at the end.
  points_.clear();
  for (std::size_t i = 0; i < projected.size(); ++i) {
    const std::uint16_t weight = weightOf(weights, i);
    if (weight == 0) continue;  // adds nothing
    PointVote p;
    if (!planPoint(projected[i], weight, p)) continue;
    const Reach& r = p.reach;
    const long items = boxSums ? p.centreCount + p.residueCount : p.pieceCount;
    if (!keyed_ || denseCost(p) < scatterCost(p, items)) {
      touch(p.occupied.first - r.y0, p.occupied.last - r.y0);
      points_.push_back(p);
    } else if (boxSums) {
      voteCentres(r, p.centres, weight);
      if (p.residueCount > 0) {
        beforeAdding();
        touch(p.residue.first - r.y0, p.residue.last - r.y0);
        votePieces(residue_, r, p.residue, weight);
      }
    } else if (p.pieceCount > 0) {
      beforeAdding();
      touch(p.pieces.first - r.y0, p.pieces.last - r.y0);
      votePieces(pieces_, r, p.pieces, weight);
    }
  }
  if (!points_.empty()) {
    beforeAdding();
    addDensePointsByBands();
  }
  if (boxSums) addCentreBoxSums();
  // Rows the last vote left and this one did not overwrite.
  clearStaleRows(staleRows_.first, staleRows_.last);
  staleRows_ = RowSpan{height_, -1};
}

template <typename Store>
void ScatterVoter::collectPeaksInto(long minScore, double scale, const mvDegree& rotation,
                                    Store& store) const {
  auto rowAt = [this](long v) { return row(v); };
  if (minScore <= 0) {
    // Untouched cells (0) could be peaks too: scan everything, as the reference does.
    collectPeakRows(
        rowAt, [](long v) { return v; }, width_, height_, 0, height_ - 1, minScore, window_, scale,
        rotation, store);
    return;
  }
  if (minScore > std::numeric_limits<std::int16_t>::max()) return;  // no 16-bit value reaches it
  // Rows the vote did not touch hold only zeros, below minScore. The row test reads whole
  // blocks, into the padding, whose stray addends can only make it stop at a row needlessly.
  const auto threshold = static_cast<std::int16_t>(minScore - 1);
  const long last = touchedRows_.last;
  collectPeakRows(
      rowAt, [&](long v) { return nextCandidateRow(v, last, threshold); }, width_, height_,
      touchedRows_.first, last, minScore, window_, scale, rotation, store);
}

void ScatterVoter::collectPeaks(long minScore, double scale, const mvDegree& rotation,
                                HypothesisStore& store) const {
  collectPeaksInto(minScore, scale, rotation, store);
}

void ScatterVoter::collectPeaks(long minScore, double scale, const mvDegree& rotation,
                                PeakList& list) const {
  collectPeaksInto(minScore, scale, rotation, list);
}

}  // namespace detail
}  // namespace ptmatch
