// Conversions between numpy arrays (or anything numpy turns into one) and the library's
// value types. Shapes and element kinds are checked here, so that the library only ever
// sees well-formed vectors: a wrong shape is a ValueError, a wrong kind a TypeError.
#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <string>

#include "common.h"

namespace ptmatch_py {
namespace {

using FloatArray = py::array_t<double, py::array::c_style | py::array::forcecast>;
using IntArray = py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>;

constexpr std::int64_t kLongMin = -2147483647LL - 1;
constexpr std::int64_t kLongMax = 2147483647LL;

std::string shapeText(const py::array& a) {
  std::ostringstream os;
  os << '(';
  for (py::ssize_t i = 0; i < a.ndim(); ++i) os << (i ? ", " : "") << a.shape(i);
  if (a.ndim() == 1) os << ',';
  os << ')';
  return os.str();
}

// Any object as a numpy array of numbers (booleans, integers or reals).
py::array asNumericArray(const py::handle& obj, const char* what) {
  py::array a;
  try {
    a = py::module_::import("numpy").attr("asarray")(obj);
  } catch (py::error_already_set&) {
    throw py::type_error(std::string(what) + " must be an array-like of numbers");
  }
  const char kind = a.dtype().kind();
  if (kind != 'b' && kind != 'i' && kind != 'u' && kind != 'f') {
    throw py::type_error(std::string(what) + " must hold numbers, not dtype " +
                         py::str(a.dtype()).cast<std::string>());
  }
  return a;
}

// An (N, width) array of doubles; an empty sequence is (0, width).
FloatArray asRows(const py::handle& obj, py::ssize_t width, const char* what) {
  py::array a = asNumericArray(obj, what);
  if (a.ndim() == 1 && a.size() == 0) {
    return FloatArray(std::vector<py::ssize_t>{0, width});
  }
  if (a.ndim() != 2 || a.shape(1) != width) {
    throw py::value_error(std::string(what) + " must have shape (N, " + std::to_string(width) +
                          "), not " + shapeText(a));
  }
  return FloatArray::ensure(a);
}

// A flat array of exactly n doubles.
FloatArray asFlat(const py::handle& obj, py::ssize_t n, const char* what) {
  py::array a = asNumericArray(obj, what);
  if (a.ndim() != 1 || a.shape(0) != n) {
    throw py::value_error(std::string(what) + " must have shape (" + std::to_string(n) +
                          ",), not " + shapeText(a));
  }
  return FloatArray::ensure(a);
}

// Whole numbers (integer dtypes, or reals without fraction) as int64, each within 32 bits.
IntArray asWholeNumbers(const py::handle& obj, const char* what) {
  py::array a = asNumericArray(obj, what);
  if (a.dtype().kind() == 'f') {
    FloatArray reals = FloatArray::ensure(a);
    const double* r = reals.data();
    for (py::ssize_t i = 0; i < reals.size(); ++i) {
      if (!std::isfinite(r[i]) || std::floor(r[i]) != r[i]) {
        throw py::type_error(std::string(what) + " must hold whole numbers");
      }
    }
  }
  IntArray whole = IntArray::ensure(a);
  const std::int64_t* w = whole.data();
  for (py::ssize_t i = 0; i < whole.size(); ++i) {
    if (w[i] < kLongMin || w[i] > kLongMax) {
      throw py::value_error(std::string(what) + " must fit 32 bits, not " + std::to_string(w[i]));
    }
  }
  return whole;
}

bool isFull(const py::handle& obj) {
  return py::isinstance<py::str>(obj) && obj.cast<std::string>() == "full";
}

// (start, end) from a length-2 sequence of numbers.
std::pair<double, double> asInterval(const py::handle& obj, const char* what) {
  if (py::isinstance<py::str>(obj)) {
    throw py::value_error(std::string(what) + " must be None, \"full\" or (start, end)");
  }
  FloatArray ends = asFlat(obj, 2, what);
  return {ends.data()[0], ends.data()[1]};
}

}  // namespace

Points2 toPoints2(const py::handle& obj, const char* what) {
  FloatArray a = asRows(obj, 2, what);
  Points2 points;
  points.reserve(static_cast<std::size_t>(a.shape(0)));
  const double* d = a.data();
  for (py::ssize_t i = 0; i < a.shape(0); ++i) points.emplace_back(d[2 * i], d[2 * i + 1]);
  return points;
}

Points3 toPoints3(const py::handle& obj, const char* what) {
  FloatArray a = asRows(obj, 3, what);
  Points3 points;
  points.reserve(static_cast<std::size_t>(a.shape(0)));
  const double* d = a.data();
  for (py::ssize_t i = 0; i < a.shape(0); ++i) {
    points.emplace_back(d[3 * i], d[3 * i + 1], d[3 * i + 2]);
  }
  return points;
}

mvVector<2> toVector2(const py::handle& obj, const char* what) {
  FloatArray a = asFlat(obj, 2, what);
  return mvVector<2>(a.data()[0], a.data()[1]);
}

mvVector<3> toVector3(const py::handle& obj, const char* what) {
  FloatArray a = asFlat(obj, 3, what);
  return mvVector<3>(a.data()[0], a.data()[1], a.data()[2]);
}

py::array_t<double> fromPoints2(const Points2& points) {
  py::array_t<double> out(std::vector<py::ssize_t>{static_cast<py::ssize_t>(points.size()), 2});
  double* d = out.mutable_data();
  for (std::size_t i = 0; i < points.size(); ++i) {
    d[2 * i] = points[i].x();
    d[2 * i + 1] = points[i].y();
  }
  return out;
}

py::array_t<double> fromPoints3(const Points3& points) {
  py::array_t<double> out(std::vector<py::ssize_t>{static_cast<py::ssize_t>(points.size()), 3});
  double* d = out.mutable_data();
  for (std::size_t i = 0; i < points.size(); ++i) {
    d[3 * i] = points[i].x();
    d[3 * i + 1] = points[i].y();
    d[3 * i + 2] = points[i].z();
  }
  return out;
}

py::array_t<double> fromVector2(const mvVector<2>& v) {
  py::array_t<double> out(2);
  out.mutable_data()[0] = v.x();
  out.mutable_data()[1] = v.y();
  return out;
}

py::array_t<double> fromVector3(const mvVector<3>& v) {
  py::array_t<double> out(3);
  out.mutable_data()[0] = v.x();
  out.mutable_data()[1] = v.y();
  out.mutable_data()[2] = v.z();
  return out;
}

mvXform<2> toXform(const py::handle& obj, const char* what) {
  py::array a = asNumericArray(obj, what);
  const bool twoByThree = a.ndim() == 2 && a.shape(0) == 2 && a.shape(1) == 3;
  const bool threeByThree = a.ndim() == 2 && a.shape(0) == 3 && a.shape(1) == 3;
  if (!twoByThree && !threeByThree) {
    throw py::value_error(std::string(what) + " must be a 2x3 (or 3x3 affine) matrix, not " +
                          shapeText(a));
  }
  FloatArray m = FloatArray::ensure(a);
  const double* d = m.data();
  if (threeByThree && !(d[6] == 0.0 && d[7] == 0.0 && d[8] == 1.0)) {
    throw py::value_error(std::string(what) + " as a 3x3 matrix must end with the row 0, 0, 1");
  }
  return mvXform<2>(mvMatrix<2>(d[0], d[1], d[3], d[4]), mvVector<2>(d[2], d[5]));
}

py::array_t<double> fromXform(const mvXform<2>& x) {
  py::array_t<double> out(std::vector<py::ssize_t>{2, 3});
  double* d = out.mutable_data();
  d[0] = x.matrix().element(0, 0);
  d[1] = x.matrix().element(0, 1);
  d[2] = x.trans().x();
  d[3] = x.matrix().element(1, 0);
  d[4] = x.matrix().element(1, 1);
  d[5] = x.trans().y();
  return out;
}

std::vector<long> toLongs(const py::handle& obj, const char* what) {
  IntArray a = asWholeNumbers(obj, what);
  if (a.ndim() != 1) {
    throw py::value_error(std::string(what) + " must be one-dimensional, not " + shapeText(a));
  }
  std::vector<long> values(a.data(), a.data() + a.size());
  return values;
}

py::array_t<std::int64_t> fromLongs(const std::vector<long>& values) {
  py::array_t<std::int64_t> out(static_cast<py::ssize_t>(values.size()));
  std::int64_t* d = out.mutable_data();
  for (std::size_t i = 0; i < values.size(); ++i) d[i] = values[i];
  return out;
}

std::vector<mvPair<long>> toPairs(const py::handle& obj, const char* what) {
  IntArray a = asWholeNumbers(obj, what);
  if (a.ndim() == 1 && a.size() == 0) return {};
  if (a.ndim() != 2 || a.shape(1) != 2) {
    throw py::value_error(std::string(what) + " must have shape (N, 2), not " + shapeText(a));
  }
  std::vector<mvPair<long>> pairs;
  pairs.reserve(static_cast<std::size_t>(a.shape(0)));
  const std::int64_t* d = a.data();
  for (py::ssize_t i = 0; i < a.shape(0); ++i) {
    pairs.emplace_back(static_cast<long>(d[2 * i]), static_cast<long>(d[2 * i + 1]));
  }
  return pairs;
}

py::array_t<std::int64_t> fromPairs(const std::vector<mvPair<long>>& pairs) {
  py::array_t<std::int64_t> out(
      std::vector<py::ssize_t>{static_cast<py::ssize_t>(pairs.size()), 2});
  std::int64_t* d = out.mutable_data();
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    d[2 * i] = pairs[i].x();
    d[2 * i + 1] = pairs[i].y();
  }
  return out;
}

mvPair<long> toPair(const py::handle& obj, const char* what) {
  IntArray a = asWholeNumbers(obj, what);
  if (a.ndim() != 1 || a.shape(0) != 2) {
    throw py::value_error(std::string(what) + " must be (x, y), not of shape " + shapeText(a));
  }
  return mvPair<long>(static_cast<long>(a.data()[0]), static_cast<long>(a.data()[1]));
}

py::tuple fromPair(const mvPair<long>& p) { return py::make_tuple(p.x(), p.y()); }

mvRange toRange(const py::handle& obj, const mvRange& ifNone, const char* what) {
  if (obj.is_none()) return ifNone;
  if (isFull(obj)) return mvRange::FullRange();
  const auto ends = asInterval(obj, what);
  return mvRange(ends.first, ends.second);
}

py::object fromRange(const mvRange& r) {
  switch (r.range()) {
    case mvRangeDefs::eFull:
      return py::str("full");
    case mvRangeDefs::eEmpty:
      return py::none();
    default:
      return py::make_tuple(r.start(), r.end());
  }
}

mvAngleRange toAngleRangeDegrees(const py::handle& obj, const mvAngleRange& ifNone,
                                 const char* what) {
  if (obj.is_none()) return ifNone;
  if (isFull(obj)) return mvAngleRange::FullRange();
  const auto ends = asInterval(obj, what);
  return mvAngleRange(mvRadian(mvDegree(ends.first)), mvRadian(mvDegree(ends.second)));
}

py::object fromAngleRangeDegrees(const mvAngleRange& r) {
  switch (r.range()) {
    case mvRangeDefs::eFull:
      return py::str("full");
    case mvRangeDefs::eEmpty:
      return py::none();
    default:
      return py::make_tuple(mvDegree(r.start()).toDouble(), mvDegree(r.end()).toDouble());
  }
}

mvPelBuffer<unsigned char> toImage(const py::handle& obj, const char* what) {
  py::array a = asNumericArray(obj, what);
  if (a.dtype().kind() == 'f') {
    throw py::type_error(std::string(what) + " must hold whole numbers 0..255 (uint8)");
  }
  if (a.ndim() != 2) {
    throw py::value_error(std::string(what) + " must be two-dimensional (rows are y), not " +
                          shapeText(a));
  }
  IntArray pels = IntArray::ensure(a);
  const std::int64_t* d = pels.data();
  const long height = static_cast<long>(pels.shape(0));
  const long width = static_cast<long>(pels.shape(1));
  for (py::ssize_t i = 0; i < pels.size(); ++i) {
    if (d[i] < 0 || d[i] > 255) {
      throw py::value_error(std::string(what) + " pels must lie in 0..255, not " +
                            std::to_string(d[i]));
    }
  }
  mvPelBuffer<unsigned char> image(width, height);
  for (long y = 0; y < height; ++y) {
    unsigned char* row = image.pointToRow(y);
    for (long x = 0; x < width; ++x) row[x] = static_cast<unsigned char>(d[y * width + x]);
  }
  return image;
}

py::array_t<std::uint8_t> fromImage(const mvPelBuffer_const<unsigned char>& image) {
  const long height = image.isBound() ? image.height() : 0;
  const long width = image.isBound() ? image.width() : 0;
  py::array_t<std::uint8_t> out(std::vector<py::ssize_t>{height, width});
  std::uint8_t* d = out.mutable_data();
  for (long y = 0; y < height; ++y) {
    const unsigned char* row = image.pointToRow(y);
    for (long x = 0; x < width; ++x) d[y * width + x] = row[x];
  }
  return out;
}

py::array_t<std::int64_t> fromLabelImage(const mvPelBuffer_const<long>& image) {
  const long height = image.isBound() ? image.height() : 0;
  const long width = image.isBound() ? image.width() : 0;
  py::array_t<std::int64_t> out(std::vector<py::ssize_t>{height, width});
  std::int64_t* d = out.mutable_data();
  for (long y = 0; y < height; ++y) {
    const long* row = image.pointToRow(y);
    for (long x = 0; x < width; ++x) d[y * width + x] = row[x];
  }
  return out;
}

}  // namespace ptmatch_py
