// mfFindDots: classify and label in one pass, then measure the components that may be dots.
#include <algorithm>
#include <cmath>

#include "dots/components.h"
#include "dots/measure.h"
#include "dots/threshold.h"
#include "mvbase/attention.h"
#include "ptmatch/dots.h"

void mvDotBuilder_::shape(double mxx, double myy, double mxy) {
  dot_.mxx_ = mxx;
  dot_.myy_ = myy;
  dot_.mxy_ = mxy;
  const double mean = 0.5 * (mxx + myy);
  const double spread = std::sqrt(0.25 * (mxx - myy) * (mxx - myy) + mxy * mxy);
  const double major = mean + spread;
  const double minor = std::max(0.0, mean - spread);
  dot_.majorAxis_ = 4.0 * std::sqrt(major);
  dot_.minorAxis_ = 4.0 * std::sqrt(minor);
  dot_.roundness_ = major > 0.0 ? std::sqrt(minor / major) : 1.0;
  double angle = 0.5 * std::atan2(2.0 * mxy, mxx - myy);
  if (angle <= -M_PI / 2.0) angle += M_PI;
  dot_.angle_ = angle;
}

namespace ptmatch::detail::dots {

Plane PlaneSums::solve() const {
  Plane p;
  p.a = sg / n;
  // Normal equations of g = a + b u + c v, solved by Cramer's rule.
  const double m[3][3] = {{n, su, sv}, {su, suu, suv}, {sv, suv, svv}};
  const double r[3] = {sg, sug, svg};
  auto det3 = [](const double a[3][3]) {
    return a[0][0] * (a[1][1] * a[2][2] - a[1][2] * a[2][1]) -
           a[0][1] * (a[1][0] * a[2][2] - a[1][2] * a[2][0]) +
           a[0][2] * (a[1][0] * a[2][1] - a[1][1] * a[2][0]);
  };
  const double d = det3(m);
  const double scale = n * suu * svv;
  if (!(std::fabs(d) > 1e-9 * scale) || !(scale > 0.0)) return p;
  double coefficient[3];
  for (int column = 0; column < 3; ++column) {
    double a[3][3];
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) a[i][j] = j == column ? r[i] : m[i][j];
    }
    coefficient[column] = det3(a) / d;
  }
  p.a = coefficient[0];
  p.b = coefficient[1];
  p.c = coefficient[2];
  return p;
}

namespace {

/// Writes the classes of the dot pels of row y into mask (zero beforehand); spans without
/// a dot pel are only read.
template <typename T>
void classifyRow(const T* pels, long width, const Limits& limits, RowLimits& rowLimits, long y,
                 std::uint8_t* mask) {
  if (limits.global()) {
    if (y == 0) limits.row(0, rowLimits);
  } else {
    limits.row(y, rowLimits);
  }
  for (long x0 = 0, s = 0; x0 < width; x0 += kSpan, ++s) {
    const long x1 = std::min(width, x0 + kSpan);
    const int lo = rowLimits.lo[static_cast<std::size_t>(s)];
    const int hi = rowLimits.hi[static_cast<std::size_t>(s)];
    unsigned any = 0;
    for (long x = x0; x < x1; ++x) {
      const int v = pels[x];
      any |= static_cast<unsigned>(v > hi) | static_cast<unsigned>(v < lo);
    }
    if (any == 0) continue;
    for (long x = x0; x < x1; ++x) {
      const int v = pels[x];
      mask[x] = v > hi ? kBrightPel : (v < lo ? kDarkPel : kBackground);
    }
  }
}

/// Whether a finished component's area admits it as a dot.
bool areaAccepted(const Blob& blob, const mvDotDetectParams& params) {
  return blob.n >= params.minArea() && blob.n <= params.maxArea();
}

bool dotAccepted(const mvDot& dot, const mvDotDetectParams& params) {
  if (dot.roundness() < params.minRoundness()) return false;
  if (dot.contrast() < params.minContrast()) return false;
  return !(dot.touchesBorder() && params.dropBorderDots());
}

void sortDots(std::vector<mvDot>& dots) {
  std::sort(dots.begin(), dots.end(), [](const mvDot& a, const mvDot& b) {
    const double ra = std::floor(a.y() + 0.5), rb = std::floor(b.y() + 0.5);
    if (ra != rb) return ra < rb;
    return a.x() < b.x();
  });
}

template <typename T>
std::vector<mvDot> findDots(const mvPelBuffer_const<T>& image, const mvDotDetectParams& params) {
  if (!image.isBound()) throw mvDotDefs::BadInput(L"The dot detector needs an image.");
  std::vector<mvDot> dots;
  const long width = image.width(), height = image.height();
  if (width <= 0 || height <= 0) return dots;
  const Limits limits(image, params);
  if (!limits.any()) return dots;
  // The mask is kept per thread between calls: fresh pages cost more than clearing them.
  thread_local std::vector<std::uint8_t> mask;
  mask.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), kBackground);
  std::vector<Blob> candidates;
  RunLabeller labeller([&](const Blob& blob) {
    if (areaAccepted(blob, params)) candidates.push_back(blob);
  });
  RowLimits rowLimits;
  for (long y = 0; y < height; ++y) {
    if (y % 64 == 0) mvAttention::check();
    std::uint8_t* row = &mask[static_cast<std::size_t>(y * width)];
    classifyRow(image.pointToRow(y), width, limits, rowLimits, y, row);
    labeller.addRow(row, width, y);
  }
  labeller.finish();
  DotMeasurer<T> measurer(image, mask);
  const double ox = static_cast<double>(image.offset().x());
  const double oy = static_cast<double>(image.offset().y());
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (i % 256 == 0) mvAttention::check();
    mvDot dot;
    if (!measurer.measure(candidates[i], dot) || !dotAccepted(dot, params)) continue;
    mvDotBuilder_ build(dot);
    build.centre(dot.x() + ox, dot.y() + oy);
    const mvPelRect& b = dot.box();
    build.box(
        mvPelRect(b.x() + image.offset().x(), b.y() + image.offset().y(), b.width(), b.height()));
    dots.push_back(dot);
  }
  sortDots(dots);
  return dots;
}

}  // namespace
}  // namespace ptmatch::detail::dots

std::vector<mvDot> mfFindDots(const mvPelBuffer_const<unsigned char>& image,
                              const mvDotDetectParams& params) {
  return ptmatch::detail::dots::findDots(image, params);
}

std::vector<mvDot> mfFindDots(const mvPelBuffer_const<unsigned short>& image,
                              const mvDotDetectParams& params) {
  return ptmatch::detail::dots::findDots(image, params);
}
