// Names shared by the robust grid mapper's source files: the working parts of one
// mapping (the bucket index over the points, the lattice found in the data, the node table
// of the growth) and the steps that use them.
#pragma once

#include <cstddef>
#include <vector>

#include "mvbase/geometry.h"
#include "ptmatch/robustgrid.h"

namespace ptmatch::detail::robustgrid {

using Points = std::vector<mvVector<2>>;

/// "No point" and "no node".
constexpr long kNone = -1;

/// Points in square buckets, for nearest-point searches.
class PointIndex {
 public:
  explicit PointIndex(const Points& points);

  /// The k nearest other points of point i (fewer when there are fewer), nearest first.
  void nearest(long i, long k, std::vector<long>& out) const;
  /// The nearest point to x within radius whose taken flag is 0 (all when taken is null),
  /// or kNone; ties go to the lower index.
  long nearestFree(const mvVector<2>& x, double radius, const std::vector<char>* taken) const;
  const Points& points() const { return points_; }

 private:
  long bucketOf_(double v, double origin, long count) const;

  const Points& points_;
  mvVector<2> origin_;
  double cell_ = 1.0;
  long columns_ = 1;
  long rows_ = 1;
  std::vector<long> start_;  ///< first entry of each bucket in order_, columns_ * rows_ + 1
  std::vector<long> order_;  ///< point indices by bucket, ascending within a bucket
};

/// Two lattice vectors: node (p, q) lies near origin + p a + q b. For a staggered grid
/// these are xv + yv and xv - yv.
struct Lattice {
  mvVector<2> a;
  mvVector<2> b;
};

/// The lattice vectors from the neighbour vectors of the points; false when none stand out.
bool estimateLattice(const PointIndex& index, const mvRobustGridMapParams& params,
                     Lattice& lattice);

/// The growth's start: a point and the lattice vectors measured around it.
struct Seed {
  long point = kNone;
  Lattice local;
};

/// The best supported point; false when no point has neighbours along both vectors.
bool findSeed(const PointIndex& index, const Lattice& lattice, Seed& seed);

/// The node indices a table covers: p0..p1 by q0..q1.
struct NodeBounds {
  long p0 = 0, p1 = 0, q0 = 0, q1 = 0;
};

/// Node indices (p, q) of the lattice in a dense table over given bounds.
class NodeTable {
 public:
  explicit NodeTable(const NodeBounds& bounds);
  bool inside(long p, long q) const { return p >= b_.p0 && p <= b_.p1 && q >= b_.q0 && q <= b_.q1; }
  /// The point at (p, q), or kNone (also outside the table).
  long at(long p, long q) const { return inside(p, q) ? cells_[slot_(p, q)] : kNone; }
  void set(long p, long q, long point) { cells_[slot_(p, q)] = point; }
  /// The support and gap a node was last visited with (-1 support: never), inside only.
  long triedSupport(long p, long q) const { return triedSupport_[slot_(p, q)]; }
  long triedGap(long p, long q) const { return triedGap_[slot_(p, q)]; }
  void tried(long p, long q, long support, long gap) {
    triedSupport_[slot_(p, q)] = support;
    triedGap_[slot_(p, q)] = gap;
  }
  /// Assigned nodes among the 8 around (p, q).
  long support(long p, long q) const;

 private:
  std::size_t slot_(long p, long q) const {
    return static_cast<std::size_t>((q - b_.q0) * side_ + (p - b_.p0));
  }
  NodeBounds b_;
  long side_;
  std::vector<long> cells_;
  std::vector<long> triedSupport_;
  std::vector<long> triedGap_;
};

/// The grown assignment: per point its node (p, q) or none, per node its point.
struct Growth {
  explicit Growth(const NodeBounds& bounds, std::size_t numPoints)
      : nodes(bounds), nodeP(numPoints, 0), nodeQ(numPoints, 0), taken(numPoints, 0) {}
  NodeTable nodes;
  std::vector<long> nodeP;
  std::vector<long> nodeQ;
  std::vector<char> taken;  ///< 1 for a point with a node
  long count = 0;
};

/// A prediction of a node's position and the local pitch there.
struct Prediction {
  mvVector<2> position;
  double pitch = 0.0;
};

/// Predicts node (p, q) from the assigned nodes around it: an affine fit with 3 not on a
/// line, refined by a perspective fit when there are enough of them and the affine fit
/// leaves residuals above the noise level `sigma` (0 when not known yet); else the seed's
/// vectors from the nearest. False when no assigned node is near.
bool predictNode(const Growth& growth, const Points& points, const Lattice& fallback, long p,
                 long q, double sigma, Prediction& out);

/// Grows the assignment from the seed over the lattice.
void grow(const PointIndex& index, const Seed& seed, Growth& growth);

/// Table bounds that cover the points in lattice indices from the seed, with room for the
/// pitch to shrink under perspective.
NodeBounds tableBounds(const Points& points, const Seed& seed);

}  // namespace ptmatch::detail::robustgrid
