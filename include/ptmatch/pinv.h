// The pseudo-inverse fitter: linear least squares solved incrementally through the
// accumulated normal equations.
#pragma once

#include <vector>

#include "mvbase/archive.h"
#include "ptmatch/export.h"
#include "ptmatch/matext.h"

/// Incremental least-squares fitter of n parameters. The inherited n x n matrix holds the
/// accumulated normal matrix (A^T A); rhs holds A^T y. Observations are added one at a
/// time and fit() solves without disturbing the sums, so more observations may follow.
class PTMATCH_API mvPsuedoInverse : public mvMatrixExt {
 public:
  /// A fitter of n parameters with empty sums.
  explicit mvPsuedoInverse(long n = 0);
  /// Copies the normal matrix and the right-hand side.
  mvPsuedoInverse(const mvPsuedoInverse&) = default;
  /// Copies the normal matrix and the right-hand side.
  mvPsuedoInverse& operator=(const mvPsuedoInverse&) = default;
  ~mvPsuedoInverse() override;

  /// Makes the fitter one of n parameters with empty sums.
  void resize(long n);
  /// Empties the sums, keeping the number of parameters.
  void reset();
  /// Number of parameters.
  long numParams() const { return static_cast<long>(rhs_.size()); }
  /// Adds one observation: the coefficients row (at least n of them, else mvAssert fails)
  /// and the measured value.
  void update(const std::vector<double>& row, double value);
  /// The least-squares parameters, solved by ludcmp and lubksb on copies of the sums.
  /// Throws mvMatrixExt::SingularMatrix when a parameter never had a non-zero coefficient.
  std::vector<double> fit() const;

  /// Persists: version 1100, the matrix part, then rhs as a vector of double.
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPsuedoInverse& p);

 private:
  std::vector<double> rhs_;  ///< accumulated right-hand side A^T y, n elements
};

/// Persists a pseudo-inverse fitter.
PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPsuedoInverse& p);
