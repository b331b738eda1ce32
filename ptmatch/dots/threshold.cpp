// Otsu's threshold, the local background and the per-row limits.
#include "dots/threshold.h"

namespace ptmatch::detail::dots {

long otsuThreshold(const std::vector<double>& histogram) {
  double total = 0.0;
  double weighted = 0.0;
  long occupied = 0;
  for (std::size_t v = 0; v < histogram.size(); ++v) {
    total += histogram[v];
    weighted += static_cast<double>(v) * histogram[v];
    if (histogram[v] > 0.0) ++occupied;
  }
  if (occupied < 2) return -1;
  double below = 0.0;
  double belowWeighted = 0.0;
  double best = -1.0;
  long bestBin = -1;
  for (std::size_t v = 0; v + 1 < histogram.size(); ++v) {
    below += histogram[v];
    belowWeighted += static_cast<double>(v) * histogram[v];
    const double above = total - below;
    if (below <= 0.0 || above <= 0.0) continue;
    const double meanBelow = belowWeighted / below;
    const double meanAbove = (weighted - belowWeighted) / above;
    const double between = below * above * (meanBelow - meanAbove) * (meanBelow - meanAbove);
    if (between > best) {
      best = between;
      bestBin = static_cast<long>(v);
    }
  }
  return bestBin;
}

long histogramMedian(const std::vector<double>& histogram) {
  double total = 0.0;
  for (const double c : histogram) total += c;
  double seen = 0.0;
  for (std::size_t v = 0; v < histogram.size(); ++v) {
    seen += histogram[v];
    if (seen * 2.0 >= total) return static_cast<long>(v);
  }
  return 0;
}

void LocalBackground::blockRow(double fy, std::vector<double>& out) const {
  // fy: the row in block units measured from the first block centre.
  out.resize(static_cast<std::size_t>(columns_));
  const double clamped = std::min(std::max(fy, 0.0), static_cast<double>(rows_ - 1));
  const long r0 = static_cast<long>(clamped);
  const long r1 = std::min(r0 + 1, rows_ - 1);
  const double t = clamped - static_cast<double>(r0);
  for (long c = 0; c < columns_; ++c) {
    const double a = means_[static_cast<std::size_t>(r0 * columns_ + c)];
    const double b = means_[static_cast<std::size_t>(r1 * columns_ + c)];
    out[static_cast<std::size_t>(c)] = a + (b - a) * t;
  }
}

void LocalBackground::row(long y, std::vector<float>& out) const {
  const double half = 0.5 * static_cast<double>(block_) - 0.5;
  blockRow((static_cast<double>(y) - half) / static_cast<double>(block_), blockRow_);
  const long spans = (width_ + kSpan - 1) / kSpan;
  out.resize(static_cast<std::size_t>(spans));
  for (long s = 0; s < spans; ++s) {
    const long x = std::min(width_ - 1, s * kSpan + kSpan / 2);
    const double fx = std::min(std::max((static_cast<double>(x) - half) / block_, 0.0),
                               static_cast<double>(columns_ - 1));
    const long c0 = static_cast<long>(fx);
    const long c1 = std::min(c0 + 1, columns_ - 1);
    const double t = fx - static_cast<double>(c0);
    const double a = blockRow_[static_cast<std::size_t>(c0)];
    const double b = blockRow_[static_cast<std::size_t>(c1)];
    out[static_cast<std::size_t>(s)] = static_cast<float>(a + (b - a) * t);
  }
}

void Limits::row(long y, RowLimits& out) const {
  const std::size_t spans = static_cast<std::size_t>((width_ + kSpan - 1) / kSpan);
  out.lo.resize(spans);
  out.hi.resize(spans);
  if (!local_) {
    std::fill(out.lo.begin(), out.lo.end(), lo_);
    std::fill(out.hi.begin(), out.hi.end(), hi_);
    return;
  }
  background_.front().row(y, rowBackground_);
  for (std::size_t s = 0; s < spans; ++s) {
    const double b = rowBackground_[s];
    out.lo[s] = dark_ ? static_cast<int>(std::ceil(b - margin_)) : -1;
    out.hi[s] = bright_ ? static_cast<int>(std::floor(b + margin_)) : 1 << 20;
  }
}

}  // namespace ptmatch::detail::dots
