// Streaming union-find over runs of mask pels.
#include "dots/components.h"

#include <cstring>
#include <utility>

namespace ptmatch::detail::dots {

std::uint32_t RunLabeller::newSlot() {
  std::uint32_t s;
  if (!free_.empty()) {
    s = free_.back();
    free_.pop_back();
  } else {
    s = static_cast<std::uint32_t>(blobs_.size());
    blobs_.emplace_back();
    parent_.push_back(s);
    lastRow_.push_back(0);
    live_.push_back(0);
  }
  blobs_[s] = Blob();
  parent_[s] = s;
  used_.push_back(s);
  return s;
}

std::uint32_t RunLabeller::find(std::uint32_t s) {
  std::uint32_t root = s;
  while (parent_[root] != root) root = parent_[root];
  while (parent_[s] != root) {
    const std::uint32_t next = parent_[s];
    parent_[s] = root;
    s = next;
  }
  return root;
}

std::uint32_t RunLabeller::unite(std::uint32_t a, std::uint32_t b) {
  a = find(a);
  b = find(b);
  if (a == b) return a;
  if (b < a) std::swap(a, b);
  Blob& into = blobs_[a];
  const Blob& from = blobs_[b];
  into.n += from.n;
  into.sx += from.sx;
  into.sy += from.sy;
  into.sxx += from.sxx;
  into.syy += from.syy;
  into.sxy += from.sxy;
  if (from.x0 < into.x0) into.x0 = from.x0;
  if (from.x1 > into.x1) into.x1 = from.x1;
  if (from.y0 < into.y0) {
    into.y0 = from.y0;
    into.seedX = from.seedX;
    into.seedY = from.seedY;
  }
  if (from.y1 > into.y1) into.y1 = from.y1;
  if (lastRow_[b] > lastRow_[a]) lastRow_[a] = lastRow_[b];
  parent_[b] = a;
  return a;
}

void RunLabeller::addRunStats(std::uint32_t root, const Run& run, long y) {
  Blob& b = blobs_[root];
  const double n = static_cast<double>(run.x1 - run.x0 + 1);
  const double a = static_cast<double>(run.x0);
  const double e = static_cast<double>(run.x1);
  const double sx = n * (a + e) / 2.0;
  // Sum of x^2 for x = a..e: S(e) - S(a - 1) with S(k) = k (k + 1) (2k + 1) / 6.
  const double sxx = (e * (e + 1.0) * (2.0 * e + 1.0) - (a - 1.0) * a * (2.0 * a - 1.0)) / 6.0;
  const double fy = static_cast<double>(y);
  if (b.n == 0.0) {
    b.cls = run.cls;
    b.x0 = run.x0;
    b.x1 = run.x1;
    b.y0 = y;
    b.y1 = y;
    b.seedX = run.x0;
    b.seedY = y;
  }
  b.n += n;
  b.sx += sx;
  b.sy += n * fy;
  b.sxx += sxx;
  b.syy += n * fy * fy;
  b.sxy += fy * sx;
  if (run.x0 < b.x0) b.x0 = run.x0;
  if (run.x1 > b.x1) b.x1 = run.x1;
  if (y > b.y1) b.y1 = y;
  lastRow_[root] = y;
}

void RunLabeller::extractRuns(const std::uint8_t* mask, long width) {
  current_.clear();
  long x = 0;
  while (x < width) {
    const int cls = mask[x];
    if (cls == 0) {
      // Most of a row is background: skip it eight pels at a time.
      std::uint64_t word = 0;
      while (x + 8 <= width && (std::memcpy(&word, mask + x, 8), word == 0)) x += 8;
      while (x < width && mask[x] == 0) ++x;
      continue;
    }
    const long start = x;
    while (x < width && mask[x] == cls) ++x;
    current_.push_back(Run{start, x - 1, cls, 0});
  }
}

void RunLabeller::connectRuns(long y) {
  std::size_t j = 0;
  for (Run& run : current_) {
    while (j < previous_.size() && previous_[j].x1 < run.x0 - 1) ++j;
    bool labelled = false;
    for (std::size_t k = j; k < previous_.size() && previous_[k].x0 <= run.x1 + 1; ++k) {
      if (previous_[k].cls != run.cls) continue;
      if (!labelled) {
        run.label = find(previous_[k].label);
        labelled = true;
      } else {
        run.label = unite(run.label, previous_[k].label);
      }
    }
    if (!labelled) run.label = newSlot();
    addRunStats(find(run.label), run, y);
  }
  for (Run& run : current_) run.label = find(run.label);
}

void RunLabeller::closeFinished(long y) {
  for (const Run& run : current_) live_[run.label] = 1;
  std::size_t kept = 0;
  for (const std::uint32_t s : used_) {
    if (live_[s] != 0) {
      live_[s] = 0;
      used_[kept++] = s;
      continue;
    }
    if (parent_[s] == s && lastRow_[s] < y) sink_(blobs_[s]);
    free_.push_back(s);
  }
  used_.resize(kept);
}

void RunLabeller::addRow(const std::uint8_t* mask, long width, long y) {
  extractRuns(mask, width);
  connectRuns(y);
  closeFinished(y);
  std::swap(previous_, current_);
}

void RunLabeller::finish() {
  for (const std::uint32_t s : used_) {
    if (parent_[s] == s) sink_(blobs_[s]);
    free_.push_back(s);
  }
  used_.clear();
  previous_.clear();
}

}  // namespace ptmatch::detail::dots
