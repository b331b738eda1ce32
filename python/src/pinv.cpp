// Bindings of the numerics kit: MatrixExt (mvMatrixExt), a resizable matrix with the LU and
// Gauss-Jordan solvers, and PseudoInverse (mvPsuedoInverse), the incremental least-squares
// fitter built on it.
#include <algorithm>
#include <cstdint>
#include <string>

#include "common.h"
#include "ptmatch/matext.h"
#include "ptmatch/pinv.h"

namespace ptmatch_py {
namespace {

using FloatArray = py::array_t<double, py::array::c_style | py::array::forcecast>;

// A numpy array of any number of dimensions as doubles; TypeError for non-numbers.
FloatArray asFloats(const py::handle& obj, const char* what) {
  FloatArray a = FloatArray::ensure(obj);
  if (!a) throw py::type_error(std::string(what) + " must be an array-like of numbers");
  return a;
}

long toIndex(long long v, const char* what) {
  if (v < -2147483647LL - 1 || v > 2147483647LL) {
    throw py::value_error(std::string(what) + " must fit 32 bits");
  }
  return static_cast<long>(v);
}

mvMatrixExt matrixFromArray(const py::object& values) {
  FloatArray a = asFloats(values, "values");
  if (a.ndim() != 2) throw py::value_error("values must be a two-dimensional array");
  mvMatrixExt matrix(static_cast<long>(a.shape(0)), static_cast<long>(a.shape(1)));
  for (py::ssize_t r = 0; r < a.shape(0); ++r) {
    for (py::ssize_t c = 0; c < a.shape(1); ++c) {
      matrix.element(static_cast<long>(r), static_cast<long>(c), a.at(r, c));
    }
  }
  return matrix;
}

py::array_t<double> arrayFromMatrix(const mvMatrixExt& matrix) {
  py::array_t<double> out(std::vector<py::ssize_t>{matrix.rows(), matrix.cols()});
  double* d = out.mutable_data();
  for (long r = 0; r < matrix.rows(); ++r) {
    for (long c = 0; c < matrix.cols(); ++c) d[r * matrix.cols() + c] = matrix.element(r, c);
  }
  return out;
}

py::array_t<double> arrayFromDoubles(const std::vector<double>& values) {
  py::array_t<double> out(static_cast<py::ssize_t>(values.size()));
  std::copy(values.begin(), values.end(), out.mutable_data());
  return out;
}

std::vector<double> doublesFrom(const py::object& values, const char* what) {
  FloatArray a = asFloats(values, what);
  if (a.ndim() != 1) throw py::value_error(std::string(what) + " must be one-dimensional");
  return std::vector<double>(a.data(), a.data() + a.size());
}

void bindMatrixExt(py::module_& m) {
  py::class_<mvMatrixExt> cls(m, "MatrixExt", R"doc(
A dense, resizable matrix of doubles with Crout LU decomposition (ludcmp, lubksb) and
Gauss-Jordan elimination with full pivoting (gaussj) (mvMatrixExt). Every index is
checked: one outside the matrix raises ptmatch.AssertionFailed.

Example:

>>> m = ptmatch.MatrixExt([[2.0, 0.0], [0.0, 4.0]])
>>> m.rows, m.cols, m[1, 1]
(2, 2, 4.0))doc");
  cls.def(py::init<>(), "An empty matrix, 0 x 0.");
  cls.def(py::init([](long long rows, long long cols) {
            return mvMatrixExt(toIndex(rows, "rows"), toIndex(cols, "cols"));
          }),
          py::arg("rows"), py::arg("cols"), "A rows x cols matrix of zeros.");
  cls.def(py::init(&matrixFromArray), py::arg("values"), "A copy of a 2-D array-like.");
  cls.def(
      "resize",
      [](mvMatrixExt& matrix, long long rows, long long cols) {
        matrix.resize(toIndex(rows, "rows"), toIndex(cols, "cols"));
      },
      py::arg("rows"), py::arg("cols"), "Sets both sizes; every element becomes 0 (resize).");
  cls.def_property_readonly("rows", &mvMatrixExt::rows, "Number of rows (rows).");
  cls.def_property_readonly("cols", &mvMatrixExt::cols, "Number of columns (cols).");
  cls.def_property_readonly("is_bound", &mvMatrixExt::isBound,
                            "True when both sizes are non-zero (isBound).");
  cls.def(
      "__getitem__",
      [](const mvMatrixExt& matrix, std::pair<long long, long long> rc) {
        return matrix.element(toIndex(rc.first, "row"), toIndex(rc.second, "column"));
      },
      py::arg("index"), "The element at (row, column) (element).");
  cls.def(
      "__setitem__",
      [](mvMatrixExt& matrix, std::pair<long long, long long> rc, double value) {
        matrix.element(toIndex(rc.first, "row"), toIndex(rc.second, "column"), value);
      },
      py::arg("index"), py::arg("value"), "Stores the element at (row, column) (element).");
  cls.def(
      "row",
      [](const mvMatrixExt& matrix, long long r) {
        return arrayFromDoubles(matrix[toIndex(r, "row")]);
      },
      py::arg("r"), "A copy of row r (operator[]).");
  cls.def("to_array", &arrayFromMatrix, "A copy as a (rows, cols) float array.");
  cls.def(
      "__array__",
      [](const mvMatrixExt& matrix, const py::object& dtype) {
        py::array out = arrayFromMatrix(matrix);
        return dtype.is_none() ? out : py::array(out.attr("astype")(dtype));
      },
      py::arg("dtype") = py::none());
  cls.def(
      "ludcmp",
      [](mvMatrixExt& matrix) {
        std::vector<long> indx;
        matrix.ludcmp(indx);
        return fromLongs(indx);
      },
      "LU-decomposes the square matrix in place and returns the row exchanges (ludcmp); "
      "raises ptmatch.NotSquareMatrix or ptmatch.SingularMatrix.");
  cls.def(
      "lubksb",
      [](const mvMatrixExt& matrix, const py::object& indx, const py::object& b) {
        std::vector<double> x = doublesFrom(b, "b");
        matrix.lubksb(toLongs(indx, "indx"), x);
        return arrayFromDoubles(x);
      },
      py::arg("indx"), py::arg("b"),
      "Solves A x = b with the matrix as ludcmp left it and its row exchanges; returns x "
      "(lubksb).");
  cls.def("gaussj", &mvMatrixExt::gaussj, py::arg("b"),
          "Gauss-Jordan elimination in place: the matrix becomes its inverse and each column "
          "of the MatrixExt b its solution (gaussj); raises ptmatch.SingularMatrix.");
  cls.def("invert", &mvMatrixExt::invert, "Does nothing, as the C++ invert() (kept empty).");
  cls.def("__repr__", [](const mvMatrixExt& matrix) {
    return py::str("MatrixExt({})").format(arrayFromMatrix(matrix).attr("tolist")());
  });
  addCopying<mvMatrixExt>(cls);
  addArchivePickling<mvMatrixExt>(cls);
}

void bindPseudoInverse(py::module_& m) {
  py::class_<mvPsuedoInverse, mvMatrixExt> cls(m, "PseudoInverse", R"doc(
Incremental least-squares fitter of n parameters (mvPsuedoInverse): add observations one at
a time with update(row, value), solve with fit() as often as wanted. The matrix it derives
from holds the accumulated normal matrix A^T A.

Example:

>>> fit = ptmatch.PseudoInverse(2)
>>> for x in (0.0, 1.0, 2.0, 3.0):
...     fit.update((1.0, x), 1.0 + 2.0 * x)
>>> (fit.fit().round(6) + 0.0).tolist()
[1.0, 2.0])doc");
  cls.def(py::init([](long long n) { return mvPsuedoInverse(toIndex(n, "n")); }), py::arg("n") = 0,
          "A fitter of n parameters with empty sums.");
  cls.def(
      "resize", [](mvPsuedoInverse& p, long long n) { p.resize(toIndex(n, "n")); }, py::arg("n"),
      "Makes the fitter one of n parameters with empty sums (resize).");
  cls.def("reset", &mvPsuedoInverse::reset, "Empties the sums, keeping n (reset).");
  cls.def_property_readonly("num_params", &mvPsuedoInverse::numParams,
                            "Number of parameters (numParams).");
  cls.def(
      "update",
      [](mvPsuedoInverse& p, const py::object& row, double value) {
        p.update(doublesFrom(row, "row"), value);
      },
      py::arg("row"), py::arg("value"),
      "Adds one observation: at least n coefficients and the measured value (update).");
  cls.def(
      "fit", [](const mvPsuedoInverse& p) { return arrayFromDoubles(p.fit()); },
      "The least-squares parameters (fit); raises ptmatch.SingularMatrix when a parameter "
      "never had a non-zero coefficient.");
  cls.def("__repr__", [](const mvPsuedoInverse& p) {
    return py::str("PseudoInverse(num_params={})").format(p.numParams());
  });
  addCopying<mvPsuedoInverse>(cls);
  addArchivePickling<mvPsuedoInverse>(cls);
}

}  // namespace

void bindMatrices(py::module_& m) {
  bindMatrixExt(m);
  bindPseudoInverse(m);
}

}  // namespace ptmatch_py
