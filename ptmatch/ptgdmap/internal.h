// Names shared by the grid mapper's source files: the working context of one
// point-to-grid mapping (the grid description after the staggered rewrite, the tolerances
// derived from it, the bucket grid over the points and one record per point with its
// neighbour links; created on entry, dropped on every exit) and the steps that use it.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "mvbase/geometry.h"
#include "ptmatch/ptgdmap.h"

namespace ptmatch::detail::ptgdmap {

/// Module name in assertion and version reports.
constexpr const char* kGridMapModule = "ptmatch/ptgdmap";
/// Pi for the degree conversions of the mapping.
constexpr double kGridMapPi = 3.141592653589793;
/// End of a bucket list, and "no record".
constexpr long kNoRecord = -1;
/// Most neighbour links of one record.
constexpr long kMaxLinks = 4;
/// Bins of the direction histogram, one per whole degree.
constexpr long kDirectionBins = 360;

/// A one-directional link from a record to a neighbour at an accepted distance.
struct GridMapLink {
  double direction = 0.0;      ///< degrees from the record's point to the neighbour's, [0, 360)
  double distance2 = 0.0;      ///< squared distance to the neighbour
  bool used = false;           ///< followed by the neighbour score
  long neighbour = kNoRecord;  ///< the neighbour's record (its input index)
};

/// One input point in the bucket grid.
struct GridMapRecord {
  long column = 0;               ///< bucket column
  long row = 0;                  ///< bucket row
  mvVector<2> point;             ///< the point
  long index = 0;                ///< index in the input list
  long numLinks = 0;             ///< links filled, at most kMaxLinks
  GridMapLink links[kMaxLinks];  ///< neighbour links in the order found
  bool visited = false;          ///< reached by the neighbour scores
  long score = 0;                ///< neighbour score
  long next = kNoRecord;         ///< next record of the same bucket (older input)
};

/// Everything one call works on. Records are stored by input index; bucket lists run
/// newest (highest index) first.
struct GridMapContext {
  mvVector<2> xv;              ///< first grid vector (the first diagonal when staggered)
  mvVector<2> yv;              ///< second grid vector (the second diagonal when staggered)
  double snap = 0.0;           ///< snap tolerance s, also the bucket size
  mvRange sizeTol;             ///< accepted relative pitch lengths
  mvAngleRange angleTol;       ///< accepted grid rotations
  double alphaX = 0.0;         ///< direction of xv in degrees; the estimated rotation is added
  double alphaY = 0.0;         ///< direction of yv in degrees; the estimated rotation is added
  double longestPitch = 0.0;   ///< the longer of |xv| and |yv|
  double tau = 0.0;            ///< angular snap tolerance in degrees
  double tauComplement = 0.0;  ///< 360 - tau
  long columns = 0;            ///< bucket columns
  long rows = 0;               ///< bucket rows
  /// Head record of each occupied bucket, by key row x columns + column; the grid keeps
  /// only the buckets that hold a point, so its memory grows with the points alone.
  std::unordered_map<long, long> heads;
  std::vector<long> occupied;          ///< keys of the occupied buckets, ascending (row by row)
  std::vector<GridMapRecord> records;  ///< one per input point, by input index
  std::vector<long> histogram;         ///< link directions, one bin per whole degree

  /// Key of bucket (column, row), which must lie inside the grid.
  long key(long column, long row) const { return row * columns + column; }
  /// Head record of bucket (column, row), which must lie inside the grid; kNoRecord for
  /// an empty bucket.
  long head(long column, long row) const {
    const auto found = heads.find(key(column, row));
    return found == heads.end() ? kNoRecord : found->second;
  }
  /// True when (column, row) lies inside the bucket grid.
  bool inside(long column, long row) const {
    return column >= 0 && column < columns && row >= 0 && row < rows;
  }
  /// Calls visit(record index) for every record, bucket row by row, column by column,
  /// each bucket from its list head.
  template <typename Visit>
  void forEachRecordInBucketOrder(Visit visit) {
    for (long k : occupied) {
      for (long i = heads.at(k); i != kNoRecord; i = records[static_cast<std::size_t>(i)].next) {
        visit(i);
      }
    }
  }
  GridMapRecord& record(long i) { return records[static_cast<std::size_t>(i)]; }
  const GridMapRecord& record(long i) const { return records[static_cast<std::size_t>(i)]; }
};

/// Rejects non-finite points and unusable parameters with BadInput.
void checkGridMapInput(const std::vector<mvVector<2>>& points,
                       const mvPtToGridMapRunParams& params);

/// The caller's grid vectors, rewritten to the two diagonals when staggered
/// (staggered.cpp).
void setGridVectors(const mvPtToGridMapRunParams& params, GridMapContext& ctx);

/// Rewrites assigned nodes (u, v) of the diagonal grid as (u - v, u + v), the indices in
/// the staggered grid's own axes; unassigned entries keep their marker (staggered.cpp).
void toStaggeredIndices(std::vector<mvPair<long>>& map);

/// Derives the tolerances and directions and fills the bucket grid with one record per
/// point. Returns false (context left without buckets) when no positive snap size can be
/// derived. Throws BadInput when the bucket grid would be too large.
bool buildBuckets(const std::vector<mvVector<2>>& points, const mvPtToGridMapRunParams& params,
                  GridMapContext& ctx);

/// Links every record to at most 4 neighbours at accepted distances and fills the
/// direction histogram.
void linkNeighbours(GridMapContext& ctx);

/// Estimates the grid's rotation in degrees from the direction histogram and adds it to
/// both axis directions.
double estimateRotation(GridMapContext& ctx);

/// Scores every record by its chain of forward links; returns the seed record, or
/// kNoRecord when no score is above 0.
long chooseSeed(GridMapContext& ctx);

/// Grows the assignment from the seed with the rotation theta (degrees): the initial
/// estimate, a trial pass and the pass that writes map. Returns the assigned count.
long growFromSeed(GridMapContext& ctx, long seed, double thetaDegrees,
                  std::vector<mvPair<long>>& map);

}  // namespace ptmatch::detail::ptgdmap
