// The extended matrix: storage, checked access, Crout LU decomposition with
// back-substitution, Gauss-Jordan elimination and persistence.
#include "ptmatch/matext.h"

#include <climits>
#include <cmath>
#include <cstddef>
#include <typeinfo>
#include <utility>

namespace {

const char* const kModule = "ptmatch/matext";

/// The one archive version of a matrix.
constexpr unsigned long kArchiveVersion = 1100;
/// Line reported by UnknownVersion for a matrix archive of another version; fixed, so that
/// the report stays the same when this file changes.
constexpr int kUnknownVersionLine = 301;

/// Replaces a zero pivot of the LU decomposition, so that a singular column does not stop
/// the decomposition.
constexpr double kTinyPivot = 1.0e-40;

const mv_InstantiatorOf<mvMatrixExt::NotSquareMatrix> kNotSquareInstantiator(
    "mvMatrixExt::NotSquareMatrix");
const mv_InstantiatorOf<mvMatrixExt::SingularMatrix> kSingularInstantiator(
    "mvMatrixExt::SingularMatrix");

}  // namespace

// --- errors ---

mvMatrixExt::NotSquareMatrix::NotSquareMatrix() : mvErrorOf(L"the matrix is not square") {}

mvMatrixExt::SingularMatrix::SingularMatrix() : mvErrorOf(L"the matrix is singular") {}

// --- storage and access ---

mvMatrixExt::mvMatrixExt() = default;

mvMatrixExt::mvMatrixExt(long rows, long cols) { resize(rows, cols); }

mvMatrixExt::~mvMatrixExt() = default;

void mvMatrixExt::resize(long rows, long cols) {
  mvAssert(rows >= 0 && cols >= 0, kModule, __LINE__);
  mvAssert(rows <= INT_MAX && cols <= INT_MAX, kModule, __LINE__);
  mvAssert(cols == 0 || rows <= INT_MAX / cols, kModule, __LINE__);
  // The old contents are discarded, never carried over.
  data_.assign(static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols), 0.0);
  rows_ = static_cast<int>(rows);
  cols_ = static_cast<int>(cols);
}

double mvMatrixExt::element(long r, long c) const {
  mvAssert(r >= 0 && r < rows_ && c >= 0 && c < cols_, kModule, __LINE__);
  return data_[static_cast<std::size_t>(r) * cols_ + c];
}

void mvMatrixExt::element(long r, long c, double value) {
  mvAssert(r >= 0 && r < rows_ && c >= 0 && c < cols_, kModule, __LINE__);
  data_[static_cast<std::size_t>(r) * cols_ + c] = value;
}

double* mvMatrixExt::pointToRow(long r) {
  mvAssert(r >= 0 && r < rows_, kModule, __LINE__);
  if (data_.empty()) return nullptr;
  return data_.data() + static_cast<std::size_t>(r) * cols_;
}

const double* mvMatrixExt::pointToRow(long r) const {
  mvAssert(r >= 0 && r < rows_, kModule, __LINE__);
  if (data_.empty()) return nullptr;
  return data_.data() + static_cast<std::size_t>(r) * cols_;
}

std::vector<double> mvMatrixExt::operator[](long r) const {
  mvAssert(r >= 0 && r < rows_, kModule, __LINE__);
  const auto first = data_.begin() + static_cast<std::ptrdiff_t>(r) * cols_;
  return std::vector<double>(first, first + cols_);
}

void mvMatrixExt::invert() {
  // Deliberately empty: inversion is done by gaussj; this operation leaves the matrix as
  // it was.
}

// --- LU decomposition ---

namespace {

/// Row-major view of a square n x n block, for the solvers' inner loops (T is double or
/// const double).
template <typename T>
class SquareViewOf {
 public:
  SquareViewOf(T* data, long n) : data_(data), n_(n) {}
  T& at(long r, long c) const { return data_[r * n_ + c]; }

 private:
  T* data_;
  long n_;
};
using SquareView = SquareViewOf<double>;
using ConstSquareView = SquareViewOf<const double>;

/// One scale factor per row: 1 over the row's largest magnitude. A row of zeros makes the
/// matrix singular.
std::vector<double> implicitRowScales(const SquareView& a, long n) {
  std::vector<double> scale(static_cast<std::size_t>(n));
  for (long i = 0; i < n; ++i) {
    double big = 0.0;
    for (long j = 0; j < n; ++j) {
      const double magnitude = std::fabs(a.at(i, j));
      if (magnitude > big) big = magnitude;
    }
    if (big == 0.0) throw mvMatrixExt::SingularMatrix();
    scale[i] = 1.0 / big;
  }
  return scale;
}

/// Crout's step for the rows above the diagonal of column j: the elements of U.
void computeUpperColumn(const SquareView& a, long j) {
  for (long i = 0; i < j; ++i) {
    double sum = a.at(i, j);
    for (long k = 0; k < i; ++k) sum -= a.at(i, k) * a.at(k, j);
    a.at(i, j) = sum;
  }
}

/// Crout's step for the rows on and below the diagonal of column j. Returns the row whose
/// scaled magnitude is strictly greatest; when none exceeds 0 the row passed in (the
/// previous column's pivot row) is returned unchanged.
long computeLowerColumnAndPickPivot(const SquareView& a, const std::vector<double>& scale, long n,
                                    long j, long pivotRow) {
  double big = 0.0;
  for (long i = j; i < n; ++i) {
    double sum = a.at(i, j);
    for (long k = 0; k < j; ++k) sum -= a.at(i, k) * a.at(k, j);
    a.at(i, j) = sum;
    const double candidate = scale[i] * std::fabs(sum);
    // Strictly greater: among equal candidates the first row examined wins.
    if (candidate > big) {
      big = candidate;
      pivotRow = i;
    }
  }
  return pivotRow;
}

/// Exchanges rows r1 and r2 over all columns.
void swapRows(const SquareView& a, long n, long r1, long r2) {
  for (long k = 0; k < n; ++k) std::swap(a.at(r1, k), a.at(r2, k));
}

}  // namespace

void mvMatrixExt::ludcmp(std::vector<long>& indx) {
  if (rows_ != cols_) throw NotSquareMatrix();
  const long n = rows_;
  const SquareView a(data_.data(), n);
  std::vector<double> scale = implicitRowScales(a, n);
  indx.assign(static_cast<std::size_t>(n), 0);
  int parity = 1;  // kept as the classic routine does; not returned
  // Set once, before the first column, and not reset per column: a column without a
  // candidate above 0 keeps the previous column's pivot row, even one above the diagonal.
  long pivotRow = 0;
  for (long j = 0; j < n; ++j) {
    computeUpperColumn(a, j);
    pivotRow = computeLowerColumnAndPickPivot(a, scale, n, j, pivotRow);
    if (pivotRow != j) {
      swapRows(a, n, pivotRow, j);
      parity = -parity;
      scale[pivotRow] = scale[j];  // the factor goes with the row that moved
    }
    indx[j] = pivotRow;
    if (a.at(j, j) == 0.0) a.at(j, j) = kTinyPivot;
    if (j != n - 1) {
      const double pivot = a.at(j, j);
      for (long i = j + 1; i < n; ++i) a.at(i, j) /= pivot;
    }
  }
  static_cast<void>(parity);
}

namespace {

/// The forward pass of the substitution: applies the row permutation indx to b and solves
/// with the unit lower triangle. The sums start at the first non-zero element of b,
/// skipping its leading zeros.
void forwardSubstitute(const ConstSquareView& a, long n, const std::vector<long>& indx,
                       std::vector<double>& b) {
  long firstNonZero = -1;
  for (long i = 0; i < n; ++i) {
    const long ip = indx[i];
    double sum = b[ip];
    b[ip] = b[i];
    if (firstNonZero >= 0) {
      for (long j = firstNonZero; j < i; ++j) sum -= a.at(i, j) * b[j];
    } else if (sum != 0.0) {
      firstNonZero = i;
    }
    b[i] = sum;
  }
}

/// The back pass: solves with the upper triangle from the last row upward, dividing by the
/// diagonal.
void backSubstitute(const ConstSquareView& a, long n, std::vector<double>& b) {
  for (long i = n - 1; i >= 0; --i) {
    double sum = b[i];
    for (long j = i + 1; j < n; ++j) sum -= a.at(i, j) * b[j];
    b[i] = sum / a.at(i, i);
  }
}

}  // namespace

void mvMatrixExt::lubksb(const std::vector<long>& indx, std::vector<double>& b) const {
  if (rows_ != cols_) throw NotSquareMatrix();
  const long n = rows_;
  mvAssert(static_cast<long>(indx.size()) == n, kModule, __LINE__);
  mvAssert(static_cast<long>(b.size()) == n, kModule, __LINE__);
  for (long i = 0; i < n; ++i) mvAssert(indx[i] >= 0 && indx[i] < n, kModule, __LINE__);
  const ConstSquareView a(data_.data(), n);
  forwardSubstitute(a, n, indx, b);
  backSubstitute(a, n, b);
}

// --- Gauss-Jordan elimination ---

namespace {

/// Position of the pivot chosen by one pass of the full-pivoting search.
struct Pivot {
  long row = -1;
  long col = -1;
};

/// Searches the rows not yet pivoted, row by row and column by column within a row, for the
/// greatest magnitude among the columns not yet pivoted. Greater-or-equal: among equal
/// candidates the last one examined wins. Meeting a column pivoted twice is singular.
Pivot findFullPivot(const SquareView& a, long n, const std::vector<int>& pivotCount) {
  Pivot pivot;
  double big = 0.0;
  for (long j = 0; j < n; ++j) {
    if (pivotCount[j] == 1) continue;
    for (long k = 0; k < n; ++k) {
      if (pivotCount[k] == 0) {
        const double magnitude = std::fabs(a.at(j, k));
        if (magnitude >= big) {
          big = magnitude;
          pivot.row = j;
          pivot.col = k;
        }
      } else if (pivotCount[k] > 1) {
        throw mvMatrixExt::SingularMatrix();
      }
    }
  }
  // Only a matrix holding not-a-number values leaves no candidate at all.
  if (pivot.row < 0) throw mvMatrixExt::SingularMatrix();
  return pivot;
}

/// Divides the pivot row (and b's row) by the pivot, whose place becomes 1.
void normalisePivotRow(const SquareView& a, long n, mvMatrixExt& b, long p) {
  const double pivotInverse = 1.0 / a.at(p, p);
  a.at(p, p) = 1.0;
  for (long l = 0; l < n; ++l) a.at(p, l) *= pivotInverse;
  for (long l = 0; l < b.cols(); ++l) b.element(p, l, b.element(p, l) * pivotInverse);
}

/// Removes the pivot column from every other row (of the matrix and of b).
void eliminateColumn(const SquareView& a, long n, mvMatrixExt& b, long p) {
  for (long ll = 0; ll < n; ++ll) {
    if (ll == p) continue;
    const double factor = a.at(ll, p);
    a.at(ll, p) = 0.0;
    for (long l = 0; l < n; ++l) a.at(ll, l) -= a.at(p, l) * factor;
    for (long l = 0; l < b.cols(); ++l)
      b.element(ll, l, b.element(ll, l) - b.element(p, l) * factor);
  }
}

/// Moves the pivot onto the diagonal: exchanges rows row and col of the matrix and of b.
void swapOntoDiagonal(const SquareView& a, long n, mvMatrixExt& b, long row, long col) {
  if (row == col) return;
  swapRows(a, n, row, col);
  for (long l = 0; l < b.cols(); ++l) {
    const double t = b.element(row, l);
    b.element(row, l, b.element(col, l));
    b.element(col, l, t);
  }
}

/// Undoes the column interchanges recorded by the passes, last pass first, so that the
/// matrix holds the inverse.
void undoColumnInterchanges(const SquareView& a, long n, const std::vector<long>& swappedRow,
                            const std::vector<long>& swappedCol) {
  for (long l = n - 1; l >= 0; --l) {
    if (swappedRow[l] == swappedCol[l]) continue;
    for (long k = 0; k < n; ++k) std::swap(a.at(k, swappedRow[l]), a.at(k, swappedCol[l]));
  }
}

}  // namespace

void mvMatrixExt::gaussj(mvMatrixExt& b) {
  // Squareness is a precondition here (not a NotSquareMatrix case): the callers give
  // square matrices only.
  mvAssert(rows_ == cols_, kModule, __LINE__);
  mvAssert(b.rows() == rows_, kModule, __LINE__);
  const long n = rows_;
  const SquareView a(data_.data(), n);
  std::vector<int> pivotCount(static_cast<std::size_t>(n), 0);
  std::vector<long> swappedRow(static_cast<std::size_t>(n), 0);
  std::vector<long> swappedCol(static_cast<std::size_t>(n), 0);

  for (long pass = 0; pass < n; ++pass) {
    const Pivot pivot = findFullPivot(a, n, pivotCount);
    ++pivotCount[pivot.col];
    swapOntoDiagonal(a, n, b, pivot.row, pivot.col);
    swappedRow[pass] = pivot.row;
    swappedCol[pass] = pivot.col;
    if (a.at(pivot.col, pivot.col) == 0.0) throw SingularMatrix();
    normalisePivotRow(a, n, b, pivot.col);
    eliminateColumn(a, n, b, pivot.col);
  }
  undoColumnInterchanges(a, n, swappedRow, swappedCol);
}

// --- persistence ---

mvArchive& operator||(mvArchive& ar, mvMatrixExt& m) {
  unsigned long version = kArchiveVersion;
  ar || version;
  if (version != kArchiveVersion) throw mvArchive::UnknownVersion(kModule, kUnknownVersionLine);
  int cols = m.cols_;
  int rows = m.rows_;
  ar || cols;
  ar || rows;
  if (ar.isStoring()) {
    ar || m.data_;
    return ar;
  }
  // Loading: the sizes must agree with the elements; the vector's own loader bounds the
  // count by the bytes left before allocating.
  std::vector<double> data;
  ar || data;
  if (rows < 0 || cols < 0 ||
      data.size() != static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols)) {
    throw mvArchive::BadData(L"the matrix sizes disagree with its elements");
  }
  m.cols_ = cols;
  m.rows_ = rows;
  m.data_ = std::move(data);
  return ar;
}
