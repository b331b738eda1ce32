// Non-inline members of the geometry value types.
#include "mvbase/geometry.h"

#include <cmath>

#include "mvbase/exception.h"

namespace {
constexpr double kTwoPi = 2.0 * mvDegree::kPi;
}  // namespace

// --- mvRange ---

mvRange::mvRange() : start_(0.0), end_(0.0), kind_(mvRangeDefs::eEmpty) {}

mvRange::mvRange(double start, double end)
    : start_(start), end_(end), kind_(start <= end ? mvRangeDefs::eNormal : mvRangeDefs::eEmpty) {}

mvRange::mvRange(double start, double end, mvRangeDefs::Range kind)
    : start_(start), end_(end), kind_(kind) {}

bool mvRange::isWithin(double v) const {
  switch (kind_) {
    case mvRangeDefs::eFull:
      return true;
    case mvRangeDefs::eNormal:
      return start_ <= v && v <= end_;
    default:
      return false;
  }
}

bool mvRange::operator==(const mvRange& o) const {
  return kind_ == o.kind_ && start_ == o.start_ && end_ == o.end_;
}

mvRange mvRange::FullRange() { return mvRange(0.0, 0.0, mvRangeDefs::eFull); }

// --- mvAngleRange ---

mvAngleRange::mvAngleRange() : kind_(mvRangeDefs::eEmpty) {}

mvAngleRange::mvAngleRange(const mvRadian& start, const mvRadian& end, bool /*unused*/)
    : start_(start), end_(end) {
  const double extent = end.toDouble() - start.toDouble();
  if (extent >= kTwoPi) {
    kind_ = mvRangeDefs::eFull;
  } else if (extent >= 0.0) {
    kind_ = mvRangeDefs::eNormal;
  } else {
    kind_ = mvRangeDefs::eEmpty;  // also for a NaN end
  }
}

mvAngleRange::mvAngleRange(const mvRadian& start, const mvRadian& end, mvRangeDefs::Range kind)
    : start_(start), end_(end), kind_(kind) {}

mvRadian mvAngleRange::middle() const { return start_ + length() / 2.0; }

mvRadian mvAngleRange::length() const { return end_ - start_; }

bool mvAngleRange::isWithin(const mvRadian& a) const {
  if (kind_ == mvRangeDefs::eFull) return true;
  if (kind_ != mvRangeDefs::eNormal) return false;
  // Reduce a into [start, start + 2 pi); an angle already inside is left untouched so that
  // the ends themselves compare exactly.
  double fromStart = a.toDouble() - start_.toDouble();
  if (fromStart < 0.0 || fromStart >= kTwoPi) {
    fromStart = std::fmod(fromStart, kTwoPi);
    if (fromStart < 0.0) fromStart += kTwoPi;
    if (fromStart >= kTwoPi) fromStart = 0.0;  // rounding of a value just below 0
  }
  return fromStart <= end_.toDouble() - start_.toDouble();
}

bool mvAngleRange::operator==(const mvAngleRange& o) const {
  return kind_ == o.kind_ && start_ == o.start_ && end_ == o.end_;
}

mvAngleRange mvAngleRange::FullRange() {
  return mvAngleRange(mvRadian(0.0), mvRadian(kTwoPi), mvRangeDefs::eFull);
}

// --- mvXform<2> ---

const mvXform<2> mvXform<2>::I;

mvXform<2>::mvXform(const mvVector<2>& trans, const mvRadian& xRot, const mvRadian& yRot,
                    double xScale, double yScale)
    : m_(xScale * std::cos(xRot.toDouble()), -yScale * std::sin(yRot.toDouble()),
         xScale * std::sin(xRot.toDouble()), yScale * std::cos(yRot.toDouble())),
      t_(trans) {}

mvXform<2> mvXform<2>::inverse() const {
  const double det = m_.determinant();
  if (det == 0.0) throw mvMathError(L"The transform is singular and has no inverse.");
  const mvMatrix<2> inv(m_.element(1, 1) / det, -m_.element(0, 1) / det, -m_.element(1, 0) / det,
                        m_.element(0, 0) / det);
  return mvXform(inv, -(inv * t_));
}

mvRadian mvXform<2>::rotation() const {
  return mvRadian(
      std::atan2(m_.element(1, 0) - m_.element(0, 1), m_.element(0, 0) + m_.element(1, 1)));
}

mvRadian mvXform<2>::xRot() const {
  return mvRadian(std::atan2(m_.element(1, 0), m_.element(0, 0)));
}

mvRadian mvXform<2>::yRot() const {
  return mvRadian(std::atan2(-m_.element(0, 1), m_.element(1, 1)));
}

double mvXform<2>::xScale() const { return std::hypot(m_.element(0, 0), m_.element(1, 0)); }

double mvXform<2>::yScale() const { return std::hypot(m_.element(0, 1), m_.element(1, 1)); }

// --- mvLine ---

double mvLine::distToPoint(const mvVector<2>& p) const {
  const mvVector<2> along = p2_ - p1_;
  const mvVector<2> toPoint = p - p1_;
  const double length = along.len();
  if (length == 0.0) return toPoint.len();
  return std::fabs(along.x() * toPoint.y() - along.y() * toPoint.x()) / length;
}
