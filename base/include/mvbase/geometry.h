// Geometry value types: vectors, integer pairs, angles, ranges, 2x2 matrices,
// 2-D affine transforms, lines and rectangles. All are plain values.
#pragma once

#include <cmath>
#include <cstddef>

#include "mvbase/export.h"

/// Fixed-size vector of doubles; only 2 and 3 dimensions exist.
template <int N>
class mvVector;

/// Pair of whole numbers: a pixel position, an image size or an offset.
template <typename T>
class mvPair {
 public:
  mvPair() : x_(), y_() {}
  /** @name Values and operators */
  ///@{
  /// From the coordinates; the coordinates (read and set), componentwise sums and differences, and
  /// equality of both.
  mvPair(T x, T y) : x_(x), y_(y) {}
  T x() const { return x_; }
  T y() const { return y_; }
  void x(T v) { x_ = v; }
  void y(T v) { y_ = v; }
  mvPair operator+(const mvPair& o) const { return mvPair(x_ + o.x_, y_ + o.y_); }
  mvPair operator-(const mvPair& o) const { return mvPair(x_ - o.x_, y_ - o.y_); }
  bool operator==(const mvPair& o) const { return x_ == o.x_ && y_ == o.y_; }
  bool operator!=(const mvPair& o) const { return !(*this == o); }
  ///@}

 private:
  T x_;
  T y_;
};

/// A 2-D point or displacement.
template <>
class mvVector<2> {
 public:
  constexpr mvVector() : x_(0.0), y_(0.0) {}
  /** @name Values and operators */
  ///@{
  /// From the coordinates; the coordinates (read and set), componentwise arithmetic and exact
  /// equality.
  constexpr mvVector(double x, double y) : x_(x), y_(y) {}
  /// Converts integer pixel coordinates to a point.
  explicit mvVector(const mvPair<long>& p)
      : x_(static_cast<double>(p.x())), y_(static_cast<double>(p.y())) {}
  double x() const { return x_; }
  double y() const { return y_; }
  void x(double v) { x_ = v; }
  void y(double v) { y_ = v; }
  mvVector operator+(const mvVector& o) const { return mvVector(x_ + o.x_, y_ + o.y_); }
  mvVector operator-(const mvVector& o) const { return mvVector(x_ - o.x_, y_ - o.y_); }
  mvVector operator-() const { return mvVector(-x_, -y_); }
  mvVector operator*(double s) const { return mvVector(x_ * s, y_ * s); }
  mvVector operator/(double s) const { return mvVector(x_ / s, y_ / s); }
  mvVector& operator+=(const mvVector& o) {
    x_ += o.x_;
    y_ += o.y_;
    return *this;
  }
  mvVector& operator-=(const mvVector& o) {
    x_ -= o.x_;
    y_ -= o.y_;
    return *this;
  }
  bool operator==(const mvVector& o) const { return x_ == o.x_ && y_ == o.y_; }
  bool operator!=(const mvVector& o) const { return !(*this == o); }
  ///@}
  /// Euclidean length.
  double len() const { return std::sqrt(x_ * x_ + y_ * y_); }
  /// True when both components are zero.
  bool isNull() const { return x_ == 0.0 && y_ == 0.0; }
  /// Direction, that of atan2(y, x).
  class mvRadian angle() const;

 private:
  double x_;
  double y_;
};

/// A 3-D point.
template <>
class mvVector<3> {
 public:
  mvVector() : x_(0.0), y_(0.0), z_(0.0) {}
  /** @name Values and operators */
  ///@{
  /// From the coordinates; the coordinates (read and set), componentwise sums and differences,
  /// exact equality and the Euclidean length.
  mvVector(double x, double y, double z) : x_(x), y_(y), z_(z) {}
  double x() const { return x_; }
  double y() const { return y_; }
  double z() const { return z_; }
  void x(double v) { x_ = v; }
  void y(double v) { y_ = v; }
  void z(double v) { z_ = v; }
  mvVector operator+(const mvVector& o) const { return mvVector(x_ + o.x_, y_ + o.y_, z_ + o.z_); }
  mvVector operator-(const mvVector& o) const { return mvVector(x_ - o.x_, y_ - o.y_, z_ - o.z_); }
  bool operator==(const mvVector& o) const { return x_ == o.x_ && y_ == o.y_ && z_ == o.z_; }
  bool operator!=(const mvVector& o) const { return !(*this == o); }
  double len() const { return std::sqrt(x_ * x_ + y_ * y_ + z_ * z_); }
  ///@}

 private:
  double x_;
  double y_;
  double z_;
};

class mvDegree;

/// An angle in radians.
class mvRadian {
 public:
  mvRadian() : v_(0.0) {}
  /** @name Values and operators */
  ///@{
  /// From a value in radians or from degrees; the value, arithmetic and comparisons of the values.
  explicit mvRadian(double v) : v_(v) {}
  inline mvRadian(const mvDegree& d);  // NOLINT: converts implicitly, as angles do
  double toDouble() const { return v_; }
  mvRadian operator/(double s) const { return mvRadian(v_ / s); }
  mvRadian operator*(double s) const { return mvRadian(v_ * s); }
  mvRadian operator+(const mvRadian& o) const { return mvRadian(v_ + o.v_); }
  mvRadian operator-(const mvRadian& o) const { return mvRadian(v_ - o.v_); }
  mvRadian operator-() const { return mvRadian(-v_); }
  bool operator==(const mvRadian& o) const { return v_ == o.v_; }
  bool operator!=(const mvRadian& o) const { return v_ != o.v_; }
  bool operator<(const mvRadian& o) const { return v_ < o.v_; }
  ///@}

 private:
  double v_;
};

/// An angle in degrees.
class mvDegree {
 public:
  mvDegree() : v_(0.0) {}
  /** @name Values and operators */
  ///@{
  /// From a value in degrees or from radians; the value and its equality.
  explicit mvDegree(double v) : v_(v) {}
  mvDegree(const mvRadian& r) : v_(r.toDouble() * (180.0 / kPi)) {}  // NOLINT
  double toDouble() const { return v_; }
  bool operator==(const mvDegree& o) const { return v_ == o.v_; }
  bool operator!=(const mvDegree& o) const { return v_ != o.v_; }
  ///@}

  /// Pi as used by the degree-radian conversions.
  static constexpr double kPi = 3.141592653589793;

 private:
  double v_;
};

inline mvRadian::mvRadian(const mvDegree& d) : v_(d.toDouble() * (mvDegree::kPi / 180.0)) {}

inline mvRadian mvVector<2>::angle() const { return mvRadian(std::atan2(y_, x_)); }

/// Kinds of a range.
class mvRangeDefs {
 public:
  /// eNormal: a bounded interval; eEmpty: holds nothing; eFull: holds everything.
  enum Range { eNormal = 0, eEmpty = 1, eFull = 2 };
};

/// An interval of doubles with a kind. Default-constructed it is empty.
class MVBASE_API mvRange {
 public:
  mvRange();
  /// eNormal when start <= end, else eEmpty.
  mvRange(double start, double end);
  /// A range of the given kind, whatever start and end hold.
  mvRange(double start, double end, mvRangeDefs::Range kind);
  /** @name Values and operators */
  ///@{
  /// The ends, the length (end - start) and the middle.
  double start() const { return start_; }
  double end() const { return end_; }
  double length() const { return end_ - start_; }
  double middle() const { return start_ + (end_ - start_) / 2.0; }
  ///@}
  /// True inside an eNormal range (ends included), always for eFull, never for eEmpty.
  bool isWithin(double v) const;
  /// The kind: eNormal, eEmpty or eFull.
  mvRangeDefs::Range range() const { return kind_; }
  /// Equal when kind, start and end all are.
  bool operator==(const mvRange& o) const;
  /// Not operator==.
  bool operator!=(const mvRange& o) const { return !(*this == o); }
  /// The range that holds every value.
  static mvRange FullRange();

 private:
  double start_;
  double end_;
  mvRangeDefs::Range kind_;
};

/// An interval of angles with a kind. Default-constructed it is empty.
class MVBASE_API mvAngleRange {
 public:
  mvAngleRange();
  /// eNormal when start <= end, eFull when end - start >= 2 pi, else eEmpty. The flag is
  /// accepted for compatibility and has no effect.
  mvAngleRange(const mvRadian& start, const mvRadian& end, bool unused = false);
  /// A range of the given kind, whatever start and end hold.
  mvAngleRange(const mvRadian& start, const mvRadian& end, mvRangeDefs::Range kind);
  /** @name Values and operators */
  ///@{
  /// The ends.
  mvRadian start() const { return start_; }
  mvRadian end() const { return end_; }
  ///@}
  /// Start plus half the length.
  mvRadian middle() const;
  /// End minus start.
  mvRadian length() const;
  /// Reduces a into [start, start + 2 pi) and tests it against end (eNormal); always true
  /// for eFull and false for eEmpty.
  bool isWithin(const mvRadian& a) const;
  /// The kind: eNormal, eEmpty or eFull.
  mvRangeDefs::Range range() const { return kind_; }
  /// Equal when kind, start and end all are.
  bool operator==(const mvAngleRange& o) const;
  /// Not operator==.
  bool operator!=(const mvAngleRange& o) const { return !(*this == o); }
  /// The range that holds every angle.
  static mvAngleRange FullRange();

 private:
  mvRadian start_;
  mvRadian end_;
  mvRangeDefs::Range kind_;
};

/// Square matrix of doubles; only 2x2 exists.
template <int N>
class mvMatrix;

/// A 2x2 matrix, built from its elements in row order.
template <>
class mvMatrix<2> {
 public:
  constexpr mvMatrix() : a_{1.0, 0.0, 0.0, 1.0} {}
  /// From the elements in row order.
  constexpr mvMatrix(double a00, double a01, double a10, double a11) : a_{a00, a01, a10, a11} {}
  /// Element at row, column, both counted from 0 (no range check beyond 0..1).
  double element(long row, long col) const { return a_[(row & 1) * 2 + (col & 1)]; }
  /// Sets the element at row, column.
  void element(long row, long col, double v) { a_[(row & 1) * 2 + (col & 1)] = v; }
  /// a00 a11 - a01 a10.
  double determinant() const { return a_[0] * a_[3] - a_[1] * a_[2]; }
  /// The matrix product.
  mvMatrix operator*(const mvMatrix& o) const {
    return mvMatrix(a_[0] * o.a_[0] + a_[1] * o.a_[2], a_[0] * o.a_[1] + a_[1] * o.a_[3],
                    a_[2] * o.a_[0] + a_[3] * o.a_[2], a_[2] * o.a_[1] + a_[3] * o.a_[3]);
  }
  /// Maps a vector.
  mvVector<2> operator*(const mvVector<2>& p) const {
    return mvVector<2>(a_[0] * p.x() + a_[1] * p.y(), a_[2] * p.x() + a_[3] * p.y());
  }
  /// Exact equality of the elements.
  bool operator==(const mvMatrix& o) const {
    return a_[0] == o.a_[0] && a_[1] == o.a_[1] && a_[2] == o.a_[2] && a_[3] == o.a_[3];
  }
  /// Not operator==.
  bool operator!=(const mvMatrix& o) const { return !(*this == o); }

 private:
  double a_[4];
};

/// Affine transform; only 2-D exists.
template <int N>
class mvXform;

/// A 2-D affine transform p -> matrix * p + trans.
template <>
class MVBASE_API mvXform<2> {
 public:
  /// The identity.
  constexpr mvXform() = default;
  /// From the linear part and the translation.
  mvXform(const mvMatrix<2>& m, const mvVector<2>& t) : m_(m), t_(t) {}
  /// First matrix column xScale (cos xRot, sin xRot), second yScale (-sin yRot, cos yRot),
  /// then translated by trans.
  mvXform(const mvVector<2>& trans, const mvRadian& xRot, const mvRadian& yRot, double xScale,
          double yScale);
  /** @name Values and operators */
  ///@{
  /// The linear part and the translation, read and set.
  const mvMatrix<2>& matrix() const { return m_; }
  void matrix(const mvMatrix<2>& m) { m_ = m; }
  const mvVector<2>& trans() const { return t_; }
  void trans(const mvVector<2>& t) { t_ = t; }
  ///@}
  /// Composition: (A * B)(p) = A(B(p)).
  mvXform operator*(const mvXform& o) const { return mvXform(m_ * o.m_, m_ * o.t_ + t_); }
  /// Maps a point.
  mvVector<2> operator*(const mvVector<2>& p) const { return m_ * p + t_; }
  /// The inverse; throws mvMathError when the transform is singular.
  mvXform inverse() const;
  /// True exactly when the determinant of the linear part is 0.
  bool isSingular() const { return m_.determinant() == 0.0; }
  /// Angle of the nearest rotation, atan2(a10 - a01, a00 + a11).
  mvRadian rotation() const;
  /// Angle of the image of the unit x axis.
  mvRadian xRot() const;
  /// Angle of the image of the unit y axis, less 90 degrees.
  mvRadian yRot() const;
  /// Length of the image of the unit x axis.
  double xScale() const;
  /// Length of the image of the unit y axis.
  double yScale() const;
  /** @name Values and operators */
  ///@{
  /// Exact equality of the linear part and the translation, and its negation.
  bool operator==(const mvXform& o) const { return m_ == o.m_ && t_ == o.t_; }
  bool operator!=(const mvXform& o) const { return !(*this == o); }
  ///@}

  /// The identity transform.
  static const mvXform I;

 private:
  mvMatrix<2> m_;
  mvVector<2> t_;
};

/// An infinite 2-D line through two points.
class MVBASE_API mvLine {
 public:
  mvLine() = default;
  /// The line through p1 and p2.
  mvLine(const mvVector<2>& p1, const mvVector<2>& p2) : p1_(p1), p2_(p2) {}
  /** @name Values and operators */
  ///@{
  /// The two points.
  const mvVector<2>& p1() const { return p1_; }
  const mvVector<2>& p2() const { return p2_; }
  ///@}
  /// Unsigned perpendicular distance from p to the line; the distance to p1 when the two
  /// points coincide.
  double distToPoint(const mvVector<2>& p) const;

 private:
  mvVector<2> p1_;
  mvVector<2> p2_;
};

/// Axis-aligned rectangle from an upper-left and a lower-right corner.
template <typename T>
class mvRectangle;

/// Rectangle of whole-number corners.
template <>
class mvRectangle<long> {
 public:
  mvRectangle() = default;
  /** @name Values and operators */
  ///@{
  /// From the corners; the corners (read and set), the width lr.x - ul.x, the height lr.y - ul.y
  /// and equality of the corners.
  mvRectangle(const mvPair<long>& ul, const mvPair<long>& lr) : ul_(ul), lr_(lr) {}
  const mvPair<long>& ul() const { return ul_; }
  const mvPair<long>& lr() const { return lr_; }
  void ul(const mvPair<long>& p) { ul_ = p; }
  void lr(const mvPair<long>& p) { lr_ = p; }
  long width() const { return lr_.x() - ul_.x(); }
  long height() const { return lr_.y() - ul_.y(); }
  bool operator==(const mvRectangle& o) const { return ul_ == o.ul_ && lr_ == o.lr_; }
  bool operator!=(const mvRectangle& o) const { return !(*this == o); }
  ///@}

 private:
  mvPair<long> ul_;
  mvPair<long> lr_;
};

/// Rectangle of real corners; built from an origin, a width and a height.
template <>
class mvRectangle<double> {
 public:
  mvRectangle() = default;
  /// Origin (x, y), width w, height h.
  mvRectangle(double x, double y, double w, double h) : ul_(x, y), lr_(x + w, y + h) {}
  /** @name Values and operators */
  ///@{
  /// From the corners; the corners, the width lr.x - ul.x, the height lr.y - ul.y and equality of
  /// the corners.
  mvRectangle(const mvVector<2>& ul, const mvVector<2>& lr) : ul_(ul), lr_(lr) {}
  const mvVector<2>& ul() const { return ul_; }
  const mvVector<2>& lr() const { return lr_; }
  double width() const { return lr_.x() - ul_.x(); }
  double height() const { return lr_.y() - ul_.y(); }
  bool operator==(const mvRectangle& o) const { return ul_ == o.ul_ && lr_ == o.lr_; }
  bool operator!=(const mvRectangle& o) const { return !(*this == o); }
  ///@}

 private:
  mvVector<2> ul_;
  mvVector<2> lr_;
};

/// True when a and b differ by no more than epsilon.
inline bool mfRealEq(double a, double b, double epsilon) { return std::fabs(a - b) <= epsilon; }

/// Rounds to the nearest whole number, halves away from zero. The argument must be finite
/// and within the range of long.
inline long iRound(double v) { return static_cast<long>(std::lround(v)); }
