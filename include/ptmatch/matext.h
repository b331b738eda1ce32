// The extended matrix: a dense, resizable matrix of doubles with the two direct solvers
// the least-squares fitters use, Crout LU decomposition with back-substitution and
// Gauss-Jordan elimination with full pivoting.
#pragma once

#include <vector>

#include "mvbase/archive.h"
#include "mvbase/exception.h"
#include "ptmatch/export.h"

/// A rows x cols matrix of doubles stored row by row; value semantics.
///
/// The pivoting of both solvers is part of their results and is kept exactly:
/// - ludcmp scales each row by its largest magnitude and, per column, takes the first row
///   whose scaled magnitude is strictly greatest; the remembered pivot row is not reset
///   between columns, so a column without any non-zero candidate reuses the previous
///   column's pivot row (or row 0), even one above the diagonal; a zero pivot is replaced
///   by 1e-40 instead of failing.
/// - gaussj searches row by row, column by column within a row, and takes the last of equal
///   candidates.
/// Every index is checked: an index outside the matrix fails through mvAssert (module
/// "ptmatch/matext"), the element getter included.
class PTMATCH_API mvMatrixExt {
 public:
  /// An operation that needs a square matrix was given another shape.
  class PTMATCH_API NotSquareMatrix : public mvErrorOf<NotSquareMatrix, mvMathError> {
   public:
    NotSquareMatrix();
  };

  /// The matrix is singular: a zero row in ludcmp, a zero or repeated pivot in gaussj.
  class PTMATCH_API SingularMatrix : public mvErrorOf<SingularMatrix, mvMathError> {
   public:
    SingularMatrix();
  };

  /// An empty matrix: 0 rows, 0 columns, no data.
  mvMatrixExt();
  /// A rows x cols matrix of zeros.
  mvMatrixExt(long rows, long cols);
  /// Copies the sizes and the elements.
  mvMatrixExt(const mvMatrixExt&) = default;
  /// Copies the sizes and the elements.
  mvMatrixExt& operator=(const mvMatrixExt&) = default;
  virtual ~mvMatrixExt();

  /// Sets both sizes and replaces every element by 0; the old contents are discarded.
  /// Negative sizes, or a product that does not fit an int, fail through mvAssert.
  void resize(long rows, long cols);
  /// Number of rows.
  long rows() const { return rows_; }
  /// Number of columns (the row length).
  long cols() const { return cols_; }
  /// True when both sizes are non-zero.
  bool isBound() const { return rows_ != 0 && cols_ != 0; }

  /// The element at row r, column c.
  double element(long r, long c) const;
  /// Stores value at row r, column c.
  void element(long r, long c, double value);
  /// The first element of row r, or null when the matrix holds no data.
  double* pointToRow(long r);
  /// The first element of row r, or null when the matrix holds no data.
  const double* pointToRow(long r) const;
  /// A copy of row r.
  std::vector<double> operator[](long r) const;

  /// LU-decomposes the square matrix in place (Crout, implicit partial pivoting); indx is
  /// resized to n and receives the row exchanged with each row j. Throws NotSquareMatrix,
  /// or SingularMatrix for a row of zeros.
  void ludcmp(std::vector<long>& indx);
  /// Solves A x = b with the matrix as left by ludcmp and its indx; b becomes x. Throws
  /// NotSquareMatrix.
  void lubksb(const std::vector<long>& indx, std::vector<double>& b) const;
  /// Gauss-Jordan elimination with full pivoting: the matrix becomes its inverse and each
  /// column of b the solution for that right-hand side. b must have as many rows as the
  /// matrix. Throws SingularMatrix for a zero pivot or a column pivoted twice.
  void gaussj(mvMatrixExt& b);
  /// Does nothing, by design: the matrix is left exactly as it was, whatever it holds.
  /// It is kept only so that code calling it still builds. To invert a matrix, use
  /// gaussj(), which replaces the matrix by its inverse.
  void invert();

  /// Persists: version 1100, cols (int), rows (int), the elements as a vector of double.
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mvMatrixExt& m);

 private:
  int cols_ = 0;              ///< number of columns
  int rows_ = 0;              ///< number of rows
  std::vector<double> data_;  ///< rows x cols elements, (r, c) at r * cols + c
};

/// Persists a matrix.
PTMATCH_API mvArchive& operator||(mvArchive& ar, mvMatrixExt& m);
