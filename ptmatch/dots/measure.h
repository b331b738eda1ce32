// Measuring a dot from the grey values around its mask: the local background plane from a
// ring of pels, the centroid of what rises above it, the mask's shape.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "dots/components.h"
#include "dots/threshold.h"
#include "mvbase/image.h"
#include "ptmatch/dots.h"

/// Fills the fields of an mvDot (the detector's own access to the record).
class mvDotBuilder_ {
 public:
  explicit mvDotBuilder_(mvDot& dot) : dot_(dot) {}
  void centre(double x, double y) {
    dot_.x_ = x;
    dot_.y_ = y;
  }
  void area(double a) { dot_.area_ = a; }
  void contrast(double c) { dot_.contrast_ = c; }
  void box(const mvPelRect& r) { dot_.box_ = r; }
  void border(bool b) { dot_.touchesBorder_ = b; }
  void bright(bool b) { dot_.bright_ = b; }
  /// Moments, axes, angle and roundness from the central second moments.
  void shape(double mxx, double myy, double mxy);

 private:
  mvDot& dot_;
};

namespace ptmatch::detail::dots {

/// A dot's peak must exceed this many times the RMS noise of the ring around it.
constexpr double kLeastSignificance = 4.0;

/// Bit of the mask that marks the pels of the dot being measured.
constexpr std::uint8_t kOwnPel = 0x80;

/// How far the measuring windows reach beyond the mask's box.
struct Margins {
  long inner;  ///< the centroid's window: the box grown by this many pels
  long ring;   ///< the background ring's width beyond the inner window
};

/// The margins for a dot of the given mask area.
inline Margins marginsFor(double area) {
  // Measured on rendered dots of 5 to 40 pels with blur up to 2 pels: a margin of 2 pels
  // plus a tenth of the dot's size holds the blurred edge while keeping out most of the
  // background's noise (a fixed 1, 2 or 3 pels, or a box instead of the ellipse, did worse).
  const long inner = 2 + static_cast<long>(std::ceil(0.1 * std::sqrt(area)));
  return Margins{inner, 3};
}

/// Plane a + b u + c v of the background, in coordinates relative to a reference pel.
struct Plane {
  double noise = 0.0;  ///< RMS residual of the ring's pels
  double a = 0.0;
  double b = 0.0;
  double c = 0.0;
  double at(double u, double v) const { return a + b * u + c * v; }
};

/// Least-squares plane through sums of a ring's pels; a level plane at their mean when the
/// pels do not pin a slope down.
struct PlaneSums {
  double n = 0, su = 0, sv = 0, suu = 0, suv = 0, svv = 0, sg = 0, sug = 0, svg = 0, sgg = 0;
  void add(double u, double v, double g) {
    n += 1.0;
    su += u;
    sv += v;
    suu += u * u;
    suv += u * v;
    svv += v * v;
    sg += g;
    sug += u * g;
    svg += v * g;
    sgg += g * g;
  }
  Plane solve() const;
  /// Root mean square of the pels' residuals from the plane.
  double residual(const Plane& p) const {
    const double rss = sgg - p.a * sg - p.b * sug - p.c * svg;
    return rss > 0.0 && n > 3.0 ? std::sqrt(rss / (n - 3.0)) : 0.0;
  }
};

/// The centroid's window: the ellipse of the mask's second moments grown by the inner
/// margin, in coordinates relative to the reference pel.
struct Window {
  double cu = 0.0, cv = 0.0;  ///< centre
  double ex = 1.0, ey = 0.0;  ///< unit vector of the major axis
  double inverseMajor2 = 0.0, inverseMinor2 = 0.0;
  bool holds(double u, double v) const {
    const double du = u - cu, dv = v - cv;
    const double p = du * ex + dv * ey, q = -du * ey + dv * ex;
    return p * p * inverseMajor2 + q * q * inverseMinor2 <= 1.0;
  }
};

/// The dot measurer: one per image, reused for every dot.
template <typename T>
class DotMeasurer {
 public:
  DotMeasurer(const mvPelBuffer_const<T>& image, std::vector<std::uint8_t>& mask)
      : image_(image), mask_(mask), width_(image.width()), height_(image.height()) {}

  /// Measures the component; false when it cannot be measured as a dot (no background
  /// around it, nothing above the background).
  bool measure(const Blob& blob, mvDot& dot);

 private:
  /// True when pel (x, y) is another dot's or touches one (its blurred edge).
  bool nearOtherDot(long x, long y) const {
    if (!crowded_) return false;
    for (long ny = std::max(0L, y - 1); ny <= std::min(height_ - 1, y + 1); ++ny) {
      for (long nx = std::max(0L, x - 1); nx <= std::min(width_ - 1, x + 1); ++nx) {
        const std::uint8_t m = mask_[static_cast<std::size_t>(ny * width_ + nx)];
        if (m != kBackground && (m & kOwnPel) == 0) return true;
      }
    }
    return false;
  }
  std::uint8_t& maskAt(long x, long y) { return mask_[static_cast<std::size_t>(y * width_ + x)]; }
  /// Whether mask pels of other components lie in the box [x0, x1] x [y0, y1].
  bool othersIn(const Blob& blob, long x0, long y0, long x1, long y1) const;
  bool isOwn(std::uint8_t m) const { return crowded_ ? (m & kOwnPel) != 0 : m != kBackground; }
  void markOwn(const Blob& blob);
  void unmarkOwn(const Blob& blob);
  bool fitBackground(const Blob& blob, const Margins& m, Plane& plane);
  Window windowAround(const Blob& blob, const Margins& m) const;
  bool centroid(const Blob& blob, const Margins& m, const Plane& plane, double sign, mvDot& dot);

  const mvPelBuffer_const<T>& image_;
  std::vector<std::uint8_t>& mask_;
  long width_;
  long height_;
  bool crowded_ = false;  ///< other components near the dot: own pels are marked
  double refX_ = 0.0;
  double refY_ = 0.0;
  std::vector<std::size_t> stack_;
};

template <typename T>
void DotMeasurer<T>::markOwn(const Blob& blob) {
  const std::uint8_t cls = static_cast<std::uint8_t>(blob.cls);
  stack_.clear();
  maskAt(blob.seedX, blob.seedY) |= kOwnPel;
  stack_.push_back(static_cast<std::size_t>(blob.seedY * width_ + blob.seedX));
  while (!stack_.empty()) {
    const std::size_t at = stack_.back();
    stack_.pop_back();
    const long x = static_cast<long>(at % static_cast<std::size_t>(width_));
    const long y = static_cast<long>(at / static_cast<std::size_t>(width_));
    for (long ny = std::max(0L, y - 1); ny <= std::min(height_ - 1, y + 1); ++ny) {
      for (long nx = std::max(0L, x - 1); nx <= std::min(width_ - 1, x + 1); ++nx) {
        std::uint8_t& m = maskAt(nx, ny);
        if (m != cls) continue;
        m |= kOwnPel;
        stack_.push_back(static_cast<std::size_t>(ny * width_ + nx));
      }
    }
  }
}

template <typename T>
bool DotMeasurer<T>::othersIn(const Blob& blob, long x0, long y0, long x1, long y1) const {
  double count = 0.0;
  for (long y = std::max(0L, y0); y <= std::min(height_ - 1, y1); ++y) {
    const std::uint8_t* mask = &mask_[static_cast<std::size_t>(y * width_)];
    for (long x = std::max(0L, x0); x <= std::min(width_ - 1, x1); ++x) {
      count += mask[x] != kBackground ? 1.0 : 0.0;
    }
  }
  return count > blob.n;
}

template <typename T>
void DotMeasurer<T>::unmarkOwn(const Blob& blob) {
  for (long y = blob.y0; y <= blob.y1; ++y) {
    std::uint8_t* mask = &mask_[static_cast<std::size_t>(y * width_)];
    for (long x = blob.x0; x <= blob.x1; ++x)
      mask[x] = static_cast<std::uint8_t>(mask[x] & ~kOwnPel);
  }
}

template <typename T>
bool DotMeasurer<T>::fitBackground(const Blob& blob, const Margins& m, Plane& plane) {
  const long ix0 = blob.x0 - m.inner, ix1 = blob.x1 + m.inner;
  const long iy0 = blob.y0 - m.inner, iy1 = blob.y1 + m.inner;
  const long ox0 = std::max(0L, ix0 - m.ring), ox1 = std::min(width_ - 1, ix1 + m.ring);
  const long oy0 = std::max(0L, iy0 - m.ring), oy1 = std::min(height_ - 1, iy1 + m.ring);
  PlaneSums sums;
  double ringPels = 0.0;
  for (long y = oy0; y <= oy1; ++y) {
    const T* pels = image_.pointToRow(y);
    const std::uint8_t* mask = &mask_[static_cast<std::size_t>(y * width_)];
    const bool insideRows = y >= iy0 && y <= iy1;
    for (long x = ox0; x <= ox1; ++x) {
      if (insideRows && x >= ix0 && x <= ix1) {
        x = ix1;  // skip the inner window
        continue;
      }
      ringPels += 1.0;
      if (mask[x] != kBackground || nearOtherDot(x, y)) continue;
      sums.add(static_cast<double>(x) - refX_, static_cast<double>(y) - refY_,
               static_cast<double>(pels[x]));
    }
  }
  // A dot lies on background: a third of the ring around it at least must be free of other
  // dots (this
  // also drops the shapes that a threshold cuts out of noise alone, which crowd each other).
  if (sums.n < 8.0 || 3.0 * sums.n < ringPels) return false;
  plane = sums.solve();
  plane.noise = sums.residual(plane);
  return true;
}

template <typename T>
bool DotMeasurer<T>::centroid(const Blob& blob, const Margins& m, const Plane& plane, double sign,
                              mvDot& dot) {
  const long x0 = std::max(0L, blob.x0 - m.inner), x1 = std::min(width_ - 1, blob.x1 + m.inner);
  const long y0 = std::max(0L, blob.y0 - m.inner), y1 = std::min(height_ - 1, blob.y1 + m.inner);
  const Window window = windowAround(blob, m);
  double sw = 0.0, swu = 0.0, swv = 0.0, peak = 0.0;
  for (long y = y0; y <= y1; ++y) {
    const T* pels = image_.pointToRow(y);
    const std::uint8_t* mask = &mask_[static_cast<std::size_t>(y * width_)];
    const double v = static_cast<double>(y) - refY_;
    for (long x = x0; x <= x1; ++x) {
      const std::uint8_t mk = mask[x];
      const bool own = isOwn(mk);
      if (!own && mk != kBackground) continue;  // another dot's pel
      const double u = static_cast<double>(x) - refX_;
      double w = sign * (static_cast<double>(pels[x]) - plane.at(u, v));
      if (own) {
        peak = std::max(peak, w);
      } else if (!window.holds(u, v) || nearOtherDot(x, y)) {
        continue;
      }
      if (w < 0.0) w = 0.0;
      sw += w;
      swu += w * u;
      swv += w * v;
    }
  }
  // A dot must stand out of the background's noise (this drops the blobs that a threshold
  // cuts out of noise alone).
  if (!(sw > 0.0) || !(peak > kLeastSignificance * plane.noise)) return false;
  mvDotBuilder_ build(dot);
  build.centre(refX_ + swu / sw, refY_ + swv / sw);
  build.contrast(peak);
  return true;
}

template <typename T>
Window DotMeasurer<T>::windowAround(const Blob& blob, const Margins& m) const {
  Window w;
  const double mx = blob.sx / blob.n, my = blob.sy / blob.n;
  w.cu = mx - refX_;
  w.cv = my - refY_;
  const double mxx = blob.sxx / blob.n - mx * mx + 1.0 / 12.0;
  const double myy = blob.syy / blob.n - my * my + 1.0 / 12.0;
  const double mxy = blob.sxy / blob.n - mx * my;
  const double mean = 0.5 * (mxx + myy);
  const double spread = std::sqrt(0.25 * (mxx - myy) * (mxx - myy) + mxy * mxy);
  const double major = 2.0 * std::sqrt(mean + spread) + static_cast<double>(m.inner);
  const double minor = 2.0 * std::sqrt(std::max(0.0, mean - spread)) + static_cast<double>(m.inner);
  const double angle = 0.5 * std::atan2(2.0 * mxy, mxx - myy);
  w.ex = std::cos(angle);
  w.ey = std::sin(angle);
  w.inverseMajor2 = 1.0 / (major * major);
  w.inverseMinor2 = 1.0 / (minor * minor);
  return w;
}

template <typename T>
bool DotMeasurer<T>::measure(const Blob& blob, mvDot& dot) {
  refX_ = 0.5 * static_cast<double>(blob.x0 + blob.x1);
  refY_ = 0.5 * static_cast<double>(blob.y0 + blob.y1);
  const Margins margins = marginsFor(blob.n);
  // The box of the ring, one pel wider for the blurred edges of other dots.
  const long reach = margins.inner + margins.ring + 1;
  crowded_ = othersIn(blob, blob.x0 - reach, blob.y0 - reach, blob.x1 + reach, blob.y1 + reach);
  if (crowded_) markOwn(blob);
  Plane plane;
  const bool bright = blob.cls == kBrightPel;
  const bool ok = fitBackground(blob, margins, plane) &&
                  centroid(blob, margins, plane, bright ? 1.0 : -1.0, dot);
  if (crowded_) unmarkOwn(blob);
  if (!ok) return false;
  mvDotBuilder_ build(dot);
  build.area(blob.n);
  build.box(mvPelRect(blob.x0, blob.y0, blob.x1 - blob.x0 + 1, blob.y1 - blob.y0 + 1));
  build.border(blob.x0 == 0 || blob.y0 == 0 || blob.x1 == width_ - 1 || blob.y1 == height_ - 1);
  build.bright(bright);
  const double mx = blob.sx / blob.n, my = blob.sy / blob.n;
  // Pels are unit squares: each adds 1/12 to the variance along x and along y.
  build.shape(blob.sxx / blob.n - mx * mx + 1.0 / 12.0, blob.syy / blob.n - my * my + 1.0 / 12.0,
              blob.sxy / blob.n - mx * my);
  return true;
}

}  // namespace ptmatch::detail::dots
