// Small dense linear systems of the robust grid mapping's fits. Internal to the module.
#pragma once

#include <cmath>
#include <utility>

namespace ptmatch::detail::robustgrid {

/// Solves the n x n system a x = b in place by Gaussian elimination with partial pivoting;
/// false when it is singular.
template <int N>
inline bool solve(double (&a)[N][N], double (&b)[N]) {
  for (int c = 0; c < N; ++c) {
    int pivot = c;
    for (int r = c + 1; r < N; ++r) {
      if (std::fabs(a[r][c]) > std::fabs(a[pivot][c])) pivot = r;
    }
    if (!(std::fabs(a[pivot][c]) > 1e-12)) return false;
    for (int k = 0; k < N; ++k) std::swap(a[c][k], a[pivot][k]);
    std::swap(b[c], b[pivot]);
    for (int r = c + 1; r < N; ++r) {
      const double f = a[r][c] / a[c][c];
      for (int k = c; k < N; ++k) a[r][k] -= f * a[c][k];
      b[r] -= f * b[c];
    }
  }
  for (int c = N - 1; c >= 0; --c) {
    double s = b[c];
    for (int k = c + 1; k < N; ++k) s -= a[c][k] * b[k];
    b[c] = s / a[c][c];
  }
  return true;
}

}  // namespace ptmatch::detail::robustgrid
