// The final steps of the robust grid mapping: the labelling of the lattice's axes, and the
// refinement by a perspective fit over the whole board. Internal to the module.
#pragma once

#include <array>
#include <vector>

#include "ptmatch/tm.h"
#include "robustgrid/context.h"

namespace ptmatch {
namespace robustgrid {

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

/// The refined assignment: per point its node or unassigned, its residual (-1 when
/// unassigned), the fit and the noise level.
struct Refined {
  std::vector<mvPair<long>> nodes;
  std::vector<double> residuals;
  mv2PTm homography;
  double sigma = 0.0;
  long count = 0;
};

/// Refits over the grown nodes (per point, unassigned where none), reassigns every point
/// to its nearest node inside the grown nodes' box, keeps the nearest per node, rejects
/// by the robust noise level, refits; twice. False when a fit fails.
bool refine(const Points& points, const std::vector<mvPair<long>>& grown,
            const mvRobustGridMapParams& params, Refined& out);

/// Shifts the nodes so that the smallest indices are 0 (the first may be 1 in a staggered
/// grid) and refits the homography on them; returns the affine fit.
mvXform<2> normalise(const Points& points, bool staggered, Refined& refined);

/// The matrix of a perspective transform (row by row, last element 1), found from the
/// images of a few grid points.
std::array<double, 9> matrixOf(const mv2PTm& h);

/// True when the homography keeps one orientation over the box of the assigned nodes.
bool unfolded(const Refined& refined);

}  // namespace robustgrid
}  // namespace ptmatch
