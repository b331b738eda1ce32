// Robust point-to-grid mapping: assigns measured 2-D points to the nodes of a regular,
// optionally staggered dot grid seen under perspective, with holes, missing rows, clutter
// and noise, and fits the transforms from node indices to point coordinates.
//
// How it works, in short.
// - Pitch. The two lattice vectors come from the nearest neighbours of every point: the
//   directions of the neighbour vectors vote in a histogram of angles modulo a half turn,
//   the two strongest peaks (at least 25 degrees apart) give the axes, and the most common
//   neighbour length along each axis gives its pitch; when half of the two vectors' sum
//   and difference (or half of one vector) are as well supported by the points, the finer
//   steps replace them. Given pitch vectors only bound the
//   accepted lengths (0.6 to 1.6 of theirs) and say which axis is which; the rotation is
//   always taken from the data, so any rotation is found.
// - Seed. Every point is scored by how many of its eight lattice neighbours (one step along
//   each axis and the four diagonals) lie where the lattice vectors put them; the best
//   scored point (ties: the smaller residual, then the lower input index) is node (0, 0) of
//   the growth.
// - Growth. Nodes are visited best supported first. Each node's position is predicted from
//   the assigned nodes around it: an affine fit, refined by a perspective fit when at least
//   10 are near and the affine fit leaves residuals above the noise, so the pitch may
//   change strongly across the board.
//   The unassigned point nearest the prediction is taken when it lies inside the gate: 0.3
//   of the local pitch at first, then 4.5 robust noise levels once 20 nodes are assigned
//   (the robust noise level per axis is the median distance of the residuals over
//   sqrt(2 ln 2), the median of a 2-D normal error's length in its sigmas). Growth
//   steps straight on over up to two empty nodes, so holes and missing rows are crossed.
// - Refinement. A perspective transform is fitted to all assigned nodes; every point is
//   moved to its nearest node under it, each node keeps the nearest of its points, points
//   farther than rejectSigmas robust noise levels (never nearer than 0.05 and never farther
//   than 0.5 of the distance between neighbouring nodes there) are left unassigned, and
//   the transform is refitted. This runs twice.
// - Checks. The mapping fails (valid() false, failure() and reason() say why, the map has
//   every point unassigned) rather than report indices it cannot stand behind: too few
//   points, no pitch, no seed, too few assigned nodes, or a refinement that moves many of
//   the grown points to other nodes (a sign that growth slipped a row).
//
// What the indices mean. The first index grows along xv and the second along yv. With
// given vectors the estimated axes are turned and mirrored (a quarter turn at a time) to lie
// closest to them; without, the first axis lies closest to the +x direction and the second
// to +y. The indices are then shifted so that the smallest first and second index of the
// assigned nodes are 0 (in a staggered grid the first may be 1, to keep every node's index
// sum even). Unlike mfPtToGridMap, whose origin is wherever its growth started, the origin
// does not depend on the seed.
//
// Staggered grids. As for mfPtToGridMap, xv and yv are the vectors of the staggered grid's
// own axes (half the spacing of the dots within a row, and the row step), and only nodes
// with an even index sum carry dots. Without given vectors the two shortest lattice vectors
// are taken to be xv + yv and xv - yv.
//
// The call is deterministic (the same points in the same order give the same result) and
// checks mvAttention once per growth step.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "mvbase/exception.h"
#include "mvbase/geometry.h"
#include "ptmatch/export.h"
#include "ptmatch/tm.h"

/// The robust grid mapping's errors and failure reasons.
class PTMATCH_API mvRobustGridMapDefs {
 public:
  /// Why a mapping failed; eNone for a valid one.
  enum Failure {
    eNone = 0,      ///< the mapping succeeded
    eTooFewPoints,  ///< fewer points than the smallest grid accepted
    eNoPitch,       ///< no lattice vectors could be found among the neighbours
    eNoSeed,        ///< no point has enough neighbours where the lattice puts them
    eTooFewNodes,   ///< fewer nodes assigned than minNodes
    eInconsistent   ///< the final fit disagrees with the grown indices
  };

  /// Input or parameters that the mapping cannot work with: a non-finite point or vector,
  /// parallel or half-given pitch vectors, a reject level or node minimum out of range.
  class PTMATCH_API BadInput : public mvErrorOf<BadInput, mvExceptionWithString> {
   public:
    /// The library's message for the failure.
    explicit BadInput(const std::wstring& message = L"The robust grid mapping input is bad.");
  };
};

/// What the caller knows of the grid. The setters validate and throw
/// mvRobustGridMapDefs::BadInput, leaving the record unchanged.
class PTMATCH_API mvRobustGridMapParams {
 public:
  /// xv and yv: nominal vectors from a node to its neighbour along the first and second
  /// axis, both null to estimate them. rejectSigmas: a point farther from its node than
  /// this many robust noise levels is left unassigned (above 0; 6 by default). minNodes:
  /// the fewest assigned nodes of a valid mapping (at least 4; 6 by default).
  mvRobustGridMapParams(const mvVector<2>& xv = mvVector<2>(),
                        const mvVector<2>& yv = mvVector<2>(), bool staggered = false,
                        double rejectSigmas = 6.0, long minNodes = 6);

  /// Nominal vector from a node to its neighbour along the first axis; null when the
  /// vectors are estimated.
  const mvVector<2>& xv() const { return xv_; }
  /// Nominal vector along the second axis; null when the vectors are estimated.
  const mvVector<2>& yv() const { return yv_; }
  /// True for a staggered grid: only nodes with an even index sum carry dots.
  bool staggered() const { return staggered_; }
  /// The rejection level, in robust noise levels.
  double rejectSigmas() const { return rejectSigmas_; }
  /// The fewest assigned nodes of a valid mapping.
  long minNodes() const { return minNodes_; }
  /// True when both pitch vectors are given.
  bool hasVectors() const { return !xv_.isNull(); }

  /// Both null, or both finite, non-null and not parallel.
  void vectors(const mvVector<2>& xv, const mvVector<2>& yv);
  /// Any value; true for a staggered grid.
  void staggered(bool v) { staggered_ = v; }
  /// Finite and above 0.
  void rejectSigmas(double v);
  /// At least 4.
  void minNodes(long v);

 private:
  mvVector<2> xv_;       ///< nominal vector along the first axis, or null
  mvVector<2> yv_;       ///< nominal vector along the second axis, or null
  bool staggered_;       ///< only nodes with an even index sum carry dots
  double rejectSigmas_;  ///< rejection level in robust noise levels
  long minNodes_;        ///< fewest assigned nodes of a valid mapping
};

/// The outcome of mfRobustGridMap.
class PTMATCH_API mvRobustGridMapResult {
 public:
  /// Not valid (failure eTooFewPoints, reason "not run"), time 0.0, identity transforms,
  /// empty map and residuals.
  mvRobustGridMapResult();

  /// The marker of a point without a node, in both coordinates (as mvPtToGridMapResult's).
  static constexpr long kUnassigned = 0x7fffffff;

  /// True when the mapping succeeded.
  bool valid() const { return failure_ == mvRobustGridMapDefs::eNone; }
  /// Why it failed, or eNone.
  mvRobustGridMapDefs::Failure failure() const { return failure_; }
  /// A sentence saying why it failed, or "ok".
  const std::string& reason() const { return reason_; }
  /// Seconds spent by the call that filled this result.
  double time() const { return time_; }
  /// Per input point, in input order, its node (first, second index), or
  /// (kUnassigned, kUnassigned).
  const std::vector<mvPair<long>>& map() const { return map_; }
  /// Per input point its distance from its node's position under homography(), or -1 for
  /// an unassigned point.
  const std::vector<double>& residuals() const { return residuals_; }
  /// The least-squares affine transform from node indices to point coordinates.
  const mvXform<2>& grid2point() const { return grid2point_; }
  /// The perspective transform from node indices (plane a) to point coordinates (plane b).
  const mv2PTm& homography() const { return homography_; }
  /// The same transform as a 3 x 3 matrix, row by row, its last element 1: a node (u, v)
  /// lies at ((m0 u + m1 v + m2) / w, (m3 u + m4 v + m5) / w), w = m6 u + m7 v + 1.
  const std::array<double, 9>& homographyMatrix() const { return matrix_; }
  /// The lattice vector along the first index found in the data (at the seed).
  const mvVector<2>& xv() const { return xv_; }
  /// The lattice vector along the second index found in the data (at the seed).
  const mvVector<2>& yv() const { return yv_; }
  /// The robust noise level (per axis) of the assigned points, in point units.
  double sigma() const { return sigma_; }
  /// Assigned points (each on its own node).
  long count() const { return count_; }
  /// Points left without a node.
  long numUnassigned() const { return static_cast<long>(map_.size()) - count_; }

  friend PTMATCH_API long mfRobustGridMap(const std::vector<mvVector<2>>& points,
                                          const mvRobustGridMapParams& params,
                                          mvRobustGridMapResult& result);

 private:
  mvRobustGridMapDefs::Failure failure_;  ///< why it failed, or eNone
  std::string reason_;                    ///< the failure in words
  double time_;                           ///< seconds spent by the call
  std::vector<mvPair<long>> map_;         ///< node of each input point
  std::vector<double> residuals_;         ///< residual of each input point, -1 unassigned
  mvXform<2> grid2point_;                 ///< affine: node indices to points
  mv2PTm homography_;                     ///< perspective: node indices to points
  std::array<double, 9> matrix_;          ///< homography_ as a matrix
  mvVector<2> xv_;                        ///< lattice vector along the first index
  mvVector<2> yv_;                        ///< lattice vector along the second index
  double sigma_;                          ///< robust noise level per axis
  long count_;                            ///< assigned points
};

/// Assigns the points to the nodes of the grid described by params (see the file
/// comment), fits the grid-to-point transforms and returns the number of assigned points
/// (0 when the mapping fails; result.failure() says why). Every point gets a map entry.
/// Throws mvRobustGridMapDefs::BadInput for a non-finite point, before any work;
/// mvAttention::Interrupted passes through. The result's time is set on every exit.
PTMATCH_API long mfRobustGridMap(const std::vector<mvVector<2>>& points,
                                 const mvRobustGridMapParams& params,
                                 mvRobustGridMapResult& result);
