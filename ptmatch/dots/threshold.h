// Telling dot pels from the background: Otsu's threshold, the local background of the
// local mode, and the per-row grey limits that the labelling pass compares pels with.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include "mvbase/attention.h"
#include "mvbase/image.h"
#include "ptmatch/dots.h"

namespace ptmatch::detail::dots {

/// Pels per span: the local background is taken as constant along so many pels of a row
/// (it changes over windows of 16 pels and more), and the classification skips spans
/// without dot pels.
constexpr long kSpan = 16;

/// Mask classes of a pel.
constexpr std::uint8_t kBackground = 0;
constexpr std::uint8_t kBrightPel = 1;
constexpr std::uint8_t kDarkPel = 2;

/// The threshold of Otsu's method on a histogram: the bin t whose split into bins <= t
/// and bins > t maximises the between-class variance. -1 when fewer than two bins are
/// occupied (nothing to split).
long otsuThreshold(const std::vector<double>& histogram);
/// The bin that holds the median count.
long histogramMedian(const std::vector<double>& histogram);

/// Rows and columns visited when a histogram is gathered: every pel of small images,
/// every second pel of every second row of large ones.
inline long histogramStep(const mv_PelBuffer& image) {
  return image.width() * image.height() > (1L << 20) ? 2 : 1;
}

/// The mean grey of square blocks, interpolated between block centres: the background of
/// the local mode.
class LocalBackground {
 public:
  template <typename T>
  LocalBackground(const mvPelBuffer_const<T>& image, long window);
  /// Writes the background of row y at the middle pel of each span of kSpan pels.
  void row(long y, std::vector<float>& out) const;

 private:
  /// Background of block row by at every block column.
  void blockRow(double fy, std::vector<double>& out) const;

  long width_;
  long height_;
  long block_;
  long columns_;
  long rows_;
  std::vector<double> means_;
  mutable std::vector<double> blockRow_;
};

template <typename T>
LocalBackground::LocalBackground(const mvPelBuffer_const<T>& image, long window)
    : width_(image.width()), height_(image.height()) {
  if (window <= 0) window = std::max(16L, std::min(width_, height_) / 8);
  block_ = std::max(2L, std::min(window, std::max(width_, height_)));
  columns_ = (width_ + block_ - 1) / block_;
  rows_ = (height_ + block_ - 1) / block_;
  means_.assign(static_cast<std::size_t>(columns_ * rows_), 0.0);
  std::vector<double> counts(means_.size(), 0.0);
  for (long y = 0; y < height_; ++y) {
    if (y % 64 == 0) mvAttention::check();
    const T* pels = image.pointToRow(y);
    double* sums = &means_[static_cast<std::size_t>((y / block_) * columns_)];
    double* n = &counts[static_cast<std::size_t>((y / block_) * columns_)];
    for (long bx = 0; bx < columns_; ++bx) {
      const long end = std::min(width_, (bx + 1) * block_);
      std::uint64_t s = 0;
      for (long x = bx * block_; x < end; ++x) s += pels[x];
      sums[bx] += static_cast<double>(s);
      n[bx] += static_cast<double>(end - bx * block_);
    }
  }
  for (std::size_t i = 0; i < means_.size(); ++i) means_[i] /= counts[i];
}

/// Per-span grey limits of one row: a pel v of span s (pels s kSpan to s kSpan + kSpan - 1)
/// is bright when v > hi[s], dark when v < lo[s].
struct RowLimits {
  std::vector<int> lo;
  std::vector<int> hi;
};

/// The limits of every row: constant for the global modes, following the local
/// background in the local mode.
class Limits {
 public:
  template <typename T>
  Limits(const mvPelBuffer_const<T>& image, const mvDotDetectParams& params);
  /// Fills the limits of the spans of row y.
  void row(long y, RowLimits& out) const;
  /// False when no pel can be a dot pel (a flat image).
  bool any() const { return any_; }
  /// True when every row has the same limits, globalLo() and globalHi().
  bool global() const { return !local_; }
  int globalLo() const { return lo_; }
  int globalHi() const { return hi_; }

 private:
  template <typename T>
  void chooseGlobal(const mvPelBuffer_const<T>& image, const mvDotDetectParams& params);
  template <typename T>
  void chooseLocal(const mvPelBuffer_const<T>& image, const mvDotDetectParams& params);

  long width_ = 0;
  bool any_ = true;
  bool local_ = false;
  bool dark_ = true;
  bool bright_ = true;
  int lo_ = 0;           // global: dark below this
  int hi_ = 0;           // global: bright above this
  double margin_ = 0.0;  // local: distance from the background
  std::vector<LocalBackground> background_;
  mutable std::vector<float> rowBackground_;
};

template <typename T>
Limits::Limits(const mvPelBuffer_const<T>& image, const mvDotDetectParams& params)
    : width_(image.width()) {
  dark_ = params.polarity() != mvDotDefs::eBright;
  bright_ = params.polarity() != mvDotDefs::eDark;
  if (params.threshold() == mvDotDefs::eLocal) {
    chooseLocal(image, params);
  } else {
    chooseGlobal(image, params);
  }
}

/// Histogram of a function of each sampled pel's grey value and its position.
template <typename T, typename F>
std::vector<double> sampledHistogram(const mvPelBuffer_const<T>& image, std::size_t bins, F f) {
  std::vector<double> histogram(bins, 0.0);
  const long step = histogramStep(image);
  for (long y = 0; y < image.height(); y += step) {
    if (y % 64 == 0) mvAttention::check();
    f(y, image.pointToRow(y), step, histogram);
  }
  return histogram;
}

template <typename T>
void Limits::chooseGlobal(const mvPelBuffer_const<T>& image, const mvDotDetectParams& params) {
  const int top = static_cast<int>(std::numeric_limits<T>::max());
  lo_ = -1;
  hi_ = top + 1;
  if (params.threshold() == mvDotDefs::eFixed) {
    if (dark_) lo_ = static_cast<int>(std::ceil(params.fixedThreshold()));
    if (bright_) hi_ = static_cast<int>(std::floor(params.fixedThreshold()));
    return;
  }
  const std::size_t bins = static_cast<std::size_t>(top) + 1;
  const std::vector<double> grey =
      sampledHistogram(image, bins, [&](long, const T* pels, long step, std::vector<double>& h) {
        for (long x = 0; x < image.width(); x += step) h[pels[x]] += 1.0;
      });
  if (dark_ != bright_) {
    // Dots are the minority: split the side of the median away from the background, so
    // that dots of the other polarity do not draw the threshold.
    std::vector<double> side = grey;
    const std::size_t median = static_cast<std::size_t>(histogramMedian(grey));
    for (std::size_t v = 0; v < bins; ++v) {
      if (dark_ ? v > median : v < median) side[v] = 0.0;
    }
    const long t = otsuThreshold(side);
    if (t < 0) {
      any_ = false;
      return;
    }
    if (dark_) lo_ = static_cast<int>(t) + 1;
    if (bright_) hi_ = static_cast<int>(t);
    return;
  }
  // Either polarity: split the distances from the median grey.
  const long median = histogramMedian(grey);
  std::vector<double> distance(bins, 0.0);
  for (std::size_t v = 0; v < bins; ++v) {
    distance[static_cast<std::size_t>(std::labs(static_cast<long>(v) - median))] += grey[v];
  }
  const long t = otsuThreshold(distance);
  if (t < 0) {
    any_ = false;
    return;
  }
  lo_ = static_cast<int>(median - t);
  hi_ = static_cast<int>(median + t);
}

template <typename T>
void Limits::chooseLocal(const mvPelBuffer_const<T>& image, const mvDotDetectParams& params) {
  local_ = true;
  background_.emplace_back(image, params.localWindow());
  const LocalBackground& background = background_.front();
  const std::size_t bins = static_cast<std::size_t>(std::numeric_limits<T>::max()) + 1;
  std::vector<float> b;
  const std::vector<double> distance =
      sampledHistogram(image, bins, [&](long y, const T* pels, long step, std::vector<double>& h) {
        background.row(y, b);
        for (long x = 0; x < image.width(); x += step) {
          double d = static_cast<double>(pels[x]) - b[static_cast<std::size_t>(x / kSpan)];
          if (!bright_) d = -d;
          if (dark_ && bright_) d = std::fabs(d);
          if (d < 0.0) d = 0.0;
          h[static_cast<std::size_t>(d + 0.5)] += 1.0;
        }
      });
  const long t = otsuThreshold(distance);
  if (t < 0) {
    any_ = false;
    return;
  }
  margin_ = static_cast<double>(t) + 0.5;
}

}  // namespace ptmatch::detail::dots
