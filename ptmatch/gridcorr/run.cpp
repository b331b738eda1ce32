// The grid corresponder's run: the observed nodes are drawn into an image with a border
// of 2 pels, the probe list is placed at every admissible translation, and the best
// translations whose count of agreeing probes reaches the threshold are reported. The scan
// ends promptly with mvAttention::Interrupted (or TimedOut) when asked to.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

#include "gridcorr/internal.h"
#include "mvbase/attention.h"
#include "mvbase/timer.h"
#include "ptmatch/gridcorr.h"

using Defs = mv_PointToGridCorresponderDefs;
using ptmatch::detail::gridcorr::kAlignment;
using ptmatch::detail::gridcorr::kModule;
using ptmatch::detail::gridcorr::kNode;

namespace {

// Width of the empty border drawn around the observed nodes on every side.
constexpr long kBorder = 2;
// The padded image is this much wider and higher than the observed rectangle (whose size
// is a difference of corners): one pel for the corner itself and the two borders.
constexpr long kPadding = 2 * kBorder + 1;

// A single node (or nodes all at one position) spans nothing to look in.
bool spansNothing(const mvPelRect& observed) {
  return observed.width() == 0 && observed.height() == 0;
}

// The observed data must be larger than the pattern in both directions once padded.
bool roomForPattern(const mvPelRect& observed, const mvRectangle<long>& patternRect) {
  return observed.width() + kPadding > patternRect.width() &&
         observed.height() + kPadding > patternRect.height();
}

// A run scans only observed data that spans something and leaves room for the pattern.
bool worthScanning(const mvPelRect& observed, const mvRectangle<long>& patternRect) {
  return !spansNothing(observed) && roomForPattern(observed, patternRect);
}

// The empty image a run draws the observed data into, with the border on every side.
mvPelBuffer<unsigned char> paddedImage(const mvPelRect& observed) {
  return mvPelBuffer<unsigned char>(observed.width() + kPadding, observed.height() + kPadding,
                                    kAlignment);
}

// The reported results as the run fills them.
using Results = std::vector<mv_PointToGridCorresponderResult>;

// The clock of a run: starting it empties the results and sets the time to 0; finishing
// sets the time to the seconds since the start and passes the run's outcome on.
class RunClock {
 public:
  RunClock(Results& results, double& time) : time_(time) {
    results.clear();
    time_ = 0.0;
  }

  bool finish(bool found) {
    time_ = timer_.sec();
    return found;
  }

 private:
  mvTimer timer_;  // started first, as the run begins
  double& time_;
};

// One pointer per row of the padded image, so that probing reads a pel as row pointer
// plus column.
using RowTable = std::unique_ptr<unsigned char*[]>;

// The row table's storage; InsufficientMemory when it cannot be had.
RowTable allocateRowTable(long height) {
  RowTable rows(new (std::nothrow) unsigned char*[static_cast<std::size_t>(height)]);
  if (!rows) throw Defs::InsufficientMemory(L"");
  return rows;
}

// Entry 0 points at row 0; each next entry adds the row stride.
void fillRowTable(mvPelBuffer<unsigned char>& pels, RowTable& rows) {
  rows[0] = pels.pointToRow(0);
  for (long y = 1; y < pels.height(); ++y) rows[y] = rows[y - 1] + pels.rowUpdate();
}

// The positions a scan keeps: a score store, or with capacity 1 a single best candidate
// (score 0, position unset until a higher score comes).
class Candidates {
 public:
  // The store never needs more room than the scan has positions; capping it there
  // changes nothing, since a store that never fills never evicts.
  Candidates(long maxScore, long capacity, long positions) {
    if (capacity != 1) {
      store_ = std::make_unique<mvScoreHashing>(maxScore, std::min(capacity, positions + 1));
    }
  }

  // A position whose score reached the threshold. The store may refuse it (no error); the
  // single best keeps the first position reached among equal scores (smallest y, then
  // smallest x).
  void offer(long score, const mvPair<long>& position) {
    if (store_) {
      store_->add(score, position);
    } else if (score > bestScore_) {
      bestScore_ = score;
      bestPosition_ = position;
    }
  }

  // How many results the run reports: as many as the store holds, or 1 when the single
  // best reached the threshold.
  long resultCount(long threshold) const {
    if (store_) return store_->numResults();
    return bestScore_ >= threshold ? 1 : 0;
  }

  // Calls report(score, position) for the results to fill, best first: the store from
  // its highest score down (newest first within a score) while the score is at least 1,
  // which may leave the tail of the results default-constructed; or the single best.
  template <typename Report>
  void forEachReported(long threshold, Report report) {
    if (!store_) {
      if (bestScore_ >= threshold) report(bestScore_, bestPosition_);
      return;
    }
    if (store_->numResults() < 1) return;
    mvPair<long> position;
    for (long score = store_->first(position); score >= 1; score = store_->next(position)) {
      report(score, position);
    }
  }

 private:
  std::unique_ptr<mvScoreHashing> store_;  // null with capacity 1
  long bestScore_ = 0;
  mvPair<long> bestPosition_;
};

}  // namespace

void mv_PointToGridCorresponder::Impl::checkRunnable_(
    const mv_PointToGridCorresponderRunParams& params) const {
  mvAssert(isTrained(), kModule, __LINE__);
  mvAssert(params.accept() >= 0.0 && params.accept() <= 1.0, kModule, __LINE__);
}

bool mv_PointToGridCorresponder::run(const std::vector<mvPair<long>>& nodes,
                                     const mv_PointToGridCorresponderRunParams& params,
                                     mv_PointToGridCorresponderResultSet& results) const {
  RunClock clock(results.results_, results.time_);
  impl_->checkRunnable_(params);
  if (nodes.empty()) return clock.finish(false);

  const mvRectangle<long> bounds = ptmatch::detail::gridcorr::nodeBounds(nodes);
  const mvPelRect observed(bounds.ul(), mvPair<long>(bounds.width(), bounds.height()));
  if (!worthScanning(observed, impl_->patternRect_)) return clock.finish(false);

  mvPelBuffer<unsigned char> padded = paddedImage(observed);
  const mvPair<long> toPadded = mvPair<long>(kBorder, kBorder) - observed.ul();
  for (const mvPair<long>& node : nodes) {
    const mvPair<long> p = node + toPadded;
    padded.pointToRow(p.y())[p.x()] = kNode;
  }
  return clock.finish(impl_->run_(padded, observed, params, results));
}

bool mv_PointToGridCorresponder::run(const mvPelBuffer_const<unsigned char>& image,
                                     const mv_PointToGridCorresponderRunParams& params,
                                     mv_PointToGridCorresponderResultSet& results) const {
  RunClock clock(results.results_, results.time_);
  impl_->checkRunnable_(params);
  if (image.width() < 1 || image.height() < 1) return clock.finish(false);

  const mvPelRect observed(image.offset(), mvPair<long>(image.width() - 1, image.height() - 1));
  if (!worthScanning(observed, impl_->patternRect_)) return clock.finish(false);

  // Pel values are copied as they are: only pels equal to 1 match node probes.
  mvPelBuffer<unsigned char> padded = paddedImage(observed);
  mvPelBuffer<unsigned char> inner = padded;
  const bool windowed = inner.window(kBorder, kBorder, image.width(), image.height());
  mvAssert(windowed, kModule, __LINE__);
  inner.offset(padded.offset());
  mfPelCopy(image, inner);
  return clock.finish(impl_->run_(padded, observed, params, results));
}

bool mv_PointToGridCorresponder::Impl::run_(const mvPelBuffer<unsigned char>& padded,
                                            const mvPelRect& observedRect,
                                            const mv_PointToGridCorresponderRunParams& params,
                                            mv_PointToGridCorresponderResultSet& results) const {
  // The copy shares the pels and gives writable row pointers, which probing never writes
  // through.
  mvPelBuffer<unsigned char> pels = padded;
  RowTable rows = allocateRowTable(pels.height());

  const long n = static_cast<long>(probes_.size());
  const long threshold = static_cast<long>(params.accept() * static_cast<double>(n));
  const long scanWidth = pels.width() - patternRect_.width();
  const long scanHeight = pels.height() - patternRect_.height();
  // The capacity matters only here, where the score store is made: the early returns of a
  // run with nothing worth scanning come first.
  mvAssert(params.maxNumResults() >= 1, kModule, __LINE__);
  Candidates candidates(n, params.maxNumResults(), scanWidth * scanHeight);

  fillRowTable(pels, rows);
  // The scan is the run's one step; a scan of a large image watches for an interruption
  // or a passed deadline as it goes, row by row.
  mvAttention::check();
  for (long y = 0; y < scanHeight; ++y) {
    mvAttention::pace(scanWidth * n);
    for (long x = 0; x < scanWidth; ++x) {
      const long score = probe_(rows.get(), x, y, threshold);
      if (score >= threshold) candidates.offer(score, mvPair<long>(x, y));
    }
  }
  rows.reset();

  // Turns a scan position in the padded image into the translation from model grid
  // positions to observed grid positions.
  const mvPair<long> offset =
      mvPair<long>(-kBorder, -kBorder) + observedRect.ul() - patternRect_.ul();
  const double scale = 1.0 / static_cast<double>(n);
  Results& out = results.results_;
  out.assign(static_cast<std::size_t>(candidates.resultCount(threshold)),
             mv_PointToGridCorresponderResult());
  std::size_t next = 0;
  candidates.forEachReported(threshold, [&](long score, const mvPair<long>& position) {
    if (next >= out.size()) return;  // the walk gives each entry once; kept for safety
    out[next++] =
        mv_PointToGridCorresponderResult(static_cast<double>(score) * scale, position + offset);
  });
  return !out.empty();
}

// Counts the probes that agree at scan position (x, y). The first n - threshold probes
// (at least one) are read first; when none of them agrees the position is given up at
// once, even though the remaining probes could still have reached the threshold. That
// trade decides which positions are reported at the threshold and is kept as it is.
long mv_PointToGridCorresponder::Impl::probe_(unsigned char** rows, long x, long y,
                                              long threshold) const {
  const long n = static_cast<long>(probes_.size());
  std::uint32_t first = static_cast<std::uint32_t>(n - threshold);
  if (first == 0) first = 1;

  const Probe* probe = probes_.data();
  const Probe* const split = probe + first;
  const Probe* const end = probe + n;
  unsigned char** const top = rows + y;
  long count = 0;
  for (; probe != split; ++probe) {
    if (top[probe->y][x + probe->x] == probe->expected) ++count;
  }
  if (count == 0) return 0;
  for (; probe != end; ++probe) {
    if (top[probe->y][x + probe->x] == probe->expected) ++count;
  }
  return count;
}
