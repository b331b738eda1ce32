// One element-wise "near" check for points, matrices, 2-D transforms and parameter lists
// (a perspective transform's h0 ... h7, a fit's parameters):
//
//   EXPECT_TRUE(isNear(tm.a2b(p), mvVector<2>(4, 5), 1e-9));
//   EXPECT_TRUE(isNear(result.modelToDataXform(), truth, 1e-6));
//
// Every element must lie within tolerance of the expected one; a failure lists each element
// that does not, with both values, at the caller's line.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

#include "mvbase/geometry.h"

namespace transform_near {

/// The elements of a value in a fixed order, each with its name.
struct Elements {
  std::vector<std::string> names;
  std::vector<double> values;
};

inline Elements elementsOf(const mvVector<2>& v) { return {{"x", "y"}, {v.x(), v.y()}}; }
inline Elements elementsOf(const mvVector<3>& v) {
  return {{"x", "y", "z"}, {v.x(), v.y(), v.z()}};
}
inline Elements elementsOf(const mvMatrix<2>& m) {
  return {{"a00", "a01", "a10", "a11"},
          {m.element(0, 0), m.element(0, 1), m.element(1, 0), m.element(1, 1)}};
}
/// The matrix row by row, then the translation.
inline Elements elementsOf(const mvXform<2>& t) {
  Elements e = elementsOf(t.matrix());
  e.names.insert(e.names.end(), {"tx", "ty"});
  e.values.insert(e.values.end(), {t.trans().x(), t.trans().y()});
  return e;
}
inline Elements elementsOf(const std::vector<double>& parameters) {
  Elements e;
  for (std::size_t i = 0; i < parameters.size(); ++i)
    e.names.push_back("[" + std::to_string(i) + "]");
  e.values = parameters;
  return e;
}

/// Success when every element of actual lies within tolerance of the same element of
/// expected (a NaN is never near anything).
template <typename T>
::testing::AssertionResult isNear(const T& actual, const T& expected, double tolerance) {
  const Elements a = elementsOf(actual);
  const Elements e = elementsOf(expected);
  if (a.values.size() != e.values.size()) {
    return ::testing::AssertionFailure()
           << a.values.size() << " elements where " << e.values.size() << " are expected";
  }
  std::ostringstream off;
  off.precision(17);
  for (std::size_t i = 0; i < a.values.size(); ++i) {
    if (!(std::fabs(a.values[i] - e.values[i]) <= tolerance)) {
      off << "\n  " << a.names[i] << " is " << a.values[i] << ", expected " << e.values[i];
    }
  }
  if (off.str().empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "not within " << tolerance << ":" << off.str();
}

}  // namespace transform_near
