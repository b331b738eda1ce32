// The final steps of the robust grid mapping: the labelling of the lattice's axes, and the
// refinement by a perspective fit over the whole board. Internal to the module.
#pragma once

#include <array>
#include <vector>

#include "ptmatch/tm.h"
#include "robustgrid/internal.h"

namespace ptmatch::detail::robustgrid {

/// The integer map from lattice indices (p, q) to node indices (u, v), and the image steps
/// per unit of u and v at the seed.
struct Labelling {
  long shear[2][2] = {{1, 0}, {0, 1}};  ///< applied first: the straightening of the lattice
  long m[2][2] = {{1, 0}, {0, 1}};      ///< then the staggered rewrite and the turn
  mvVector<2> xv;
  mvVector<2> yv;
  mvPair<long> apply(long p, long q) const {
    const long a = shear[0][0] * p + shear[0][1] * q, b = shear[1][0] * p + shear[1][1] * q;
    return mvPair<long>(m[0][0] * a + m[0][1] * b, m[1][0] * a + m[1][1] * b);
  }
};

/// The labelling whose axes lie closest to the given vectors (or to +x and +y), after the
/// shear of the lattice indices that makes the grown nodes fill their box best (a strongly
/// sheared board may first be grown along a skew pair of lattice vectors).
Labelling chooseLabelling(const Growth& growth, const Lattice& local,
                          const mvRobustGridMapParams& params);

/// A perspective transform from grid to image as a 3 x 3 matrix (row by row) with its
/// inverse, fitted by linearised least squares on normalised coordinates.
class Perspective {
 public:
  /// False when the fit is singular; the transform is then unchanged.
  bool fit(const std::vector<mvVector<2>>& grid, const std::vector<mvVector<2>>& image);
  mvVector<2> map(const mvVector<2>& g) const { return apply_(m_, g); }
  mvVector<2> unmap(const mvVector<2>& x) const { return apply_(inverse_, x); }
  /// The matrix scaled so that its last element is 1.
  std::array<double, 9> matrix() const;

 private:
  static mvVector<2> apply_(const double (&m)[9], const mvVector<2>& p) {
    const double w = m[6] * p.x() + m[7] * p.y() + m[8];
    return mvVector<2>((m[0] * p.x() + m[1] * p.y() + m[2]) / w,
                       (m[3] * p.x() + m[4] * p.y() + m[5]) / w);
  }
  double m_[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  double inverse_[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
};

/// The refined assignment: per point its node or unassigned, its residual (-1 when
/// unassigned), the fit and the noise level.
struct Refined {
  std::vector<mvPair<long>> nodes;
  std::vector<double> residuals;
  Perspective homography;
  double sigma = 0.0;
  long count = 0;
};

/// Refits over the grown nodes (per point, unassigned where none), reassigns every point
/// to its nearest node inside the grown nodes' box, keeps the nearest per node, rejects
/// by the robust noise level, refits; twice. False when a fit fails.
bool refine(const Points& points, const std::vector<mvPair<long>>& grown,
            const mvRobustGridMapParams& params, Refined& out);

/// Shifts the nodes so that the smallest indices are 0 (the first may be 1 in a staggered
/// grid), refits the homography on them (into `homography` as well) and returns the
/// affine fit.
mvXform<2> normalise(const Points& points, bool staggered, Refined& refined, mv2PTm& homography);

/// True when the homography keeps one orientation over the box of the assigned nodes.
bool unfolded(const Refined& refined);

}  // namespace ptmatch::detail::robustgrid
