// Point-to-grid mapping: assigns measured 2-D points to the nodes of a regular, optionally
// staggered grid whose two pitch vectors are roughly known, and fits the transform from
// node indices to point coordinates.
//
// How the mapping works, in short. The points are dropped into square buckets whose side
// is the snap size s. Every point links to at most 4 neighbours found in its own bucket and
// the 8 buckets around it, at a distance that the size tolerance accepts for one of the two
// pitches. The directions of those links vote for the grid's rotation (within the angle
// tolerance). The point whose chain of forward links (along the rotated first or second
// axis) is longest becomes the seed; a transform started from the seed and one of its
// neighbours is then grown ring by ring of buckets around the seed, each point snapping to
// its nearest node when it lies within s of it, with least-squares refits as the count of
// snapped points passes 3, 5, 8, 13, 21, ... Finally the node indices of all snapped
// points are fitted to the points to give grid2point.
//
// Choosing the snap size (read this before calling). The snap size s does two jobs: it
// is the tolerance of the snapping test, and it is the side of the buckets in which
// neighbours are searched. Neighbours are looked for only in a point's own bucket and the
// 8 around it, so a neighbour is found for certain only when it lies within s along each
// axis, and for some of the points when it lies within 2 s.
// - The default (snapSize 0 or less: 0.2 of the shorter pitch) is not useful: a neighbour
//   one pitch away lies about five buckets off, no point gets a link, there is no seed,
//   and the call returns 0 with valid() false, the map untouched.
// - Every accepted neighbour is found once s is at least the longest accepted neighbour
//   distance (the longer pitch times sizeTol's end, 1.2 by default, plus the noise). But
//   the snapping test then accepts every point within s of a node, and from about 0.71
//   pitch that is every point inside the grid's extent: clutter is assigned to its
//   nearest node (two points may share a node), and nothing pulls a wrong index back,
//   so a scale error of the running fit can settle in (rows or columns merged).
// - In practice s between about 0.8 and 1.0 of the pitch works best: most neighbours still
//   fall into adjacent buckets and the fit stays tight. On 30 x 25 grids rotated up to +-20
//   degrees and scaled 0.8 to 1.2 every dot came back at its node at s = 0.8 ... 1.1 (a few
//   grids failed at 0.7 and from 1.2 on, a quarter at 0.6). With noise of 0.1 pitch, a fifth
//   of the dots missing and clutter of a fifth all at once, about one grid in eight got a
//   wrong scale along one axis at s = 0.9. Remove clutter beforehand, or check the residuals
//   of the assigned points against grid2point afterwards, when that matters.
// The snap size also sets the angular tolerance of the forward links, atan2(s, pitch):
// about 42 degrees at s = 0.9 pitch.
//
// What the indices mean. Node (0, 0) is the point from which the growth transform was
// started (the seed, a followed neighbour or one of its followed neighbours, whichever
// trial fitted best; the seed on a tie), so the index origin depends on the data. The
// first index grows along xv and the second along yv,
// turned by the rotation found within the angle tolerance, so the axes are not swapped or
// reversed as long as the grid's true rotation lies within the tolerance and the tolerance
// is narrower than 45 degrees to either side; a wider one (a full range, say) may find the
// rotation on another axis, and the indices then come out turned by a quarter turn or
// more. In the staggered case the indices are those of the staggered grid's own axes xv
// and yv, every assigned node has an even index sum, and the unknown origin is a shift
// with an even index sum.
//
// Choices of this implementation beyond the behaviour described above:
// - A non-finite point, grid vector or snap size, or an angle tolerance (not of kind
//   eEmpty) with a non-finite end or ends beyond 100 turns, throws
//   mvPtToGridMapDefs::BadInput before any work; result.time() is set first.
// - Two null grid vectors (after the staggered rewrite), or grid vectors too short to
//   give a positive snap size, give a count of 0 and valid() false; nothing else is done.
// - Points spread over more than 2^27 buckets of the snap size throw BadInput instead of
//   allocating the bucket grid.
// - An angle tolerance whose whole degrees (floor of the start to ceil of the end) span
//   fewer than 3 entries is not refined: with two entries the rotation is the second one
//   (the peak search always starts there), with one entry that one, with none 0.
// - Histogram indices that the single wrap by 360 cannot bring into 0..359 (tolerances
//   wider than a turn) are reduced modulo 360.
// - A node whose indices exceed 2^30 in magnitude (a degenerate running transform) fails
//   the snapping test instead of overflowing.
// - The result's time is 0.0 until a call fills it.
#pragma once

#include <string>
#include <vector>

#include "mvbase/archive.h"
#include "mvbase/exception.h"
#include "mvbase/geometry.h"
#include "ptmatch/export.h"

/// The point-to-grid mapping's errors.
class PTMATCH_API mvPtToGridMapDefs {
 public:
  /// Input that the mapping cannot work with: a non-finite point or parameter, or points
  /// spread over too many buckets. Carries no error number (0).
  class PTMATCH_API BadInput : public mvErrorOf<BadInput, mvExceptionWithString> {
   public:
    /// The library's message for the failure.
    explicit BadInput(const std::wstring& message = L"The point-to-grid mapping input is bad.");
  };
};

/// What the caller knows of the grid: its two pitch vectors, whether alternate rows are
/// offset by half a pitch, the snap size, and how much the pitch lengths and the grid's
/// rotation may differ from the given ones. Stores values without validating them.
class PTMATCH_API mvPtToGridMapRunParams {
 public:
  /// xv and yv: expected vectors from a node to its neighbour along the grid's first and
  /// second axis, in point coordinates (a null vector leaves that axis unknown). snapSize:
  /// tolerance of the snapping test and bucket size; 0 or less means 0.2 of the shorter
  /// pitch (see the file comment: that default finds no neighbours). sizeTol: accepted
  /// pitch lengths relative to the given ones; empty means 0.8 to 1.2. angleTol: accepted
  /// grid rotations; empty means -20 to +20 degrees.
  mvPtToGridMapRunParams(const mvVector<2>& xv = mvVector<2>(),
                         const mvVector<2>& yv = mvVector<2>(), bool staggered = false,
                         double snapSize = 0.0, const mvRange& sizeTol = mvRange(),
                         const mvAngleRange& angleTol = mvAngleRange());

  /** @name Fields */
  ///@{
  /// The fields, as the constructor describes them.
  const mvVector<2>& xv() const { return xv_; }
  const mvVector<2>& yv() const { return yv_; }
  bool staggered() const { return staggered_; }
  double snapSize() const { return snapSize_; }
  const mvRange& sizeTol() const { return sizeTol_; }
  const mvAngleRange& angleTol() const { return angleTol_; }
  ///@}

  /** @name Setters */
  ///@{
  /// Setters of the fields; nothing is validated.
  void xv(const mvVector<2>& v) { xv_ = v; }
  void yv(const mvVector<2>& v) { yv_ = v; }
  void staggered(bool v) { staggered_ = v; }
  void snapSize(double v) { snapSize_ = v; }
  void sizeTol(const mvRange& r) { sizeTol_ = r; }
  void angleTol(const mvAngleRange& r) { angleTol_ = r; }
  ///@}

  /// Persists: version 1100, xv, yv, staggered, snapSize, sizeTol, angleTol.
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPtToGridMapRunParams& p);

 private:
  mvVector<2> xv_;         ///< grid vector along the first axis
  mvVector<2> yv_;         ///< grid vector along the second axis
  bool staggered_;         ///< alternate rows offset by half a pitch
  double snapSize_;        ///< snapping tolerance and bucket size; <= 0 for the default
  mvRange sizeTol_;        ///< accepted relative pitch lengths
  mvAngleRange angleTol_;  ///< accepted grid rotations
};

/// The outcome of mfPtToGridMap: whether it succeeded, the seconds it took, the fitted
/// grid-to-point transform and, per input point, the node it was assigned to.
class PTMATCH_API mvPtToGridMapResult {
 public:
  /// Not valid, time 0.0, identity transform, empty map.
  mvPtToGridMapResult();

  /// The marker of a point without a node, in both coordinates (the largest 32-bit value).
  static constexpr long kUnassigned = 0x7fffffff;

  /// True when at least 3 points were assigned and grid2point was fitted.
  bool valid() const { return valid_; }
  /// Seconds spent by the call that filled this result.
  double time() const { return time_; }
  /// From grid coordinates (node indices) to point coordinates.
  const mvXform<2>& grid2point() const { return grid2point_; }
  /// Per input point, in input order, its node (column, row), or (kUnassigned, kUnassigned).
  const std::vector<mvPair<long>>& map() const { return map_; }

  /// Persists: version 1100, valid, time, grid2point, map.
  friend PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPtToGridMapResult& r);
  friend PTMATCH_API long mfPtToGridMap(const std::vector<mvVector<2>>& points,
                                        const mvPtToGridMapRunParams& params,
                                        mvPtToGridMapResult& result);

 private:
  bool valid_;                     ///< the mapping succeeded
  double time_;                    ///< seconds spent by the call
  mvXform<2> grid2point_;          ///< node indices to point coordinates
  std::vector<mvPair<long>> map_;  ///< node of each input point
};

/// Persists the grid-map run parameters.
PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPtToGridMapRunParams& p);
/// Persists a grid-map result.
PTMATCH_API mvArchive& operator||(mvArchive& ar, mvPtToGridMapResult& r);

/// Assigns the points to the nodes of the grid described by params and fits grid2point
/// (see the file comment for the snap size to give). Returns the number of assigned
/// points; result.valid() is true when it is at least 3. Without a seed the map is left as
/// it was; otherwise it gets one entry per point. Throws mvPtToGridMapDefs::BadInput for
/// non-finite input; exceptions of the fitter and the transforms pass through. The
/// result's time is set on every exit.
PTMATCH_API long mfPtToGridMap(const std::vector<mvVector<2>>& points,
                               const mvPtToGridMapRunParams& params, mvPtToGridMapResult& result);
