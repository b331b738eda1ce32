// The grid space of a point-to-point search: the data, mapped through the inverse start
// pose, scaled by 1 / gridSize and shifted so that their bounding box starts at cell
// (1, 1); the occupancy raster over it; and the window of model-centre offsets to vote on.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "mvbase/geometry.h"
#include "mvbase/image.h"
#include "ppmatch/model.h"
#include "ptmatch/ppmatch.h"

namespace ptmatch {
namespace detail {

/// Cell coordinates are kept well inside long, so that sums of a few of them never
/// overflow; anything farther out lies far off every raster anyway.
constexpr long kCellLimit = std::numeric_limits<long>::max() / 8;

/// Converts a whole-valued double to a cell coordinate, saturating at +-kCellLimit (NaN
/// goes to +kCellLimit, off every raster). Truncates toward zero.
inline long toCell(double v) {
  constexpr double limit = static_cast<double>(kCellLimit);
  if (!(v < limit)) return kCellLimit;  // also NaN
  if (!(v > -limit)) return -kCellLimit;
  return static_cast<long>(v);
}

/// Rounds to the nearest cell, halves away from zero: toCell(std::round(v)), without the
/// library call (the search projects every model point at every lattice step). Below the
/// limit the truncation is exact and so is v minus it; from 2^52 on every double is whole.
inline long roundToCell(double v) {
  constexpr double limit = static_cast<double>(kCellLimit);
  if (!(v < limit) || !(v > -limit)) return toCell(v);  // saturates, as std::round would
  const long whole = static_cast<long>(v);              // toward zero
  const double fraction = v - static_cast<double>(whole);
  if (fraction >= 0.5) return whole + 1;
  if (fraction <= -0.5) return whole - 1;
  return whole;
}

/// Grid size and capture range after automatic resolution.
struct ResolvedSizes {
  double gridSize;
  double captureRange;
};

/// An automatic or non-positive grid size becomes the model's default grid size; an
/// automatic or negative capture range becomes the resolved grid size.
ResolvedSizes resolveGridSizeAndCaptureRange(const mvPointMatcherRunParams& params,
                                             const mv_PointMatcherModel& model);

/// The data in grid space.
struct GridSpace {
  /// The data points under the inverse start pose (the start-pose frame).
  std::vector<mvVector<2>> mapped;
  /// Start-pose frame to grid space.
  mvXform<2> dataToGrid;
  /// 1 where a data point lies within one cell (3 x 3 neighbourhood), else 0; two cells
  /// wider and higher than the data's bounding box.
  mvPelBuffer<unsigned char> occupancy;
};

/// The raster cell of a point of the start-pose frame (coordinates truncated).
inline mvPair<long> dataCell(const mvXform<2>& dataToGrid, const mvVector<2>& p) {
  const mvVector<2> g = dataToGrid * p;
  return mvPair<long>(toCell(g.x()), toCell(g.y()));
}

/// Sets the 3 x 3 block of cells centred on cell to value, clipped to the raster.
template <typename T>
void fillNeighbourhood(mvPelBuffer<T>& raster, const mvPair<long>& cell, T value) {
  const long x0 = cell.x() > 0 ? cell.x() - 1 : 0;
  const long x1 = cell.x() + 1 < raster.width() - 1 ? cell.x() + 1 : raster.width() - 1;
  const long y0 = cell.y() > 0 ? cell.y() - 1 : 0;
  const long y1 = cell.y() + 1 < raster.height() - 1 ? cell.y() + 1 : raster.height() - 1;
  for (long y = y0; y <= y1; ++y) {
    T* row = raster.pointToRow(y);
    for (long x = x0; x <= x1; ++x) row[x] = value;
  }
}

/// Maps the data through the inverse start pose, sets up the grid-space transform and
/// fills the occupancy raster. data must not be empty. Throws mvMathError for a singular
/// start pose and BadParams when the data span more cells than a raster may hold.
GridSpace mapDataToGridSpace(const std::vector<mvVector<2>>& data, const mvXform<2>& startPose,
                             double gridSize);

/// The model-centre offsets to vote on: the translation uncertainty, in cells, intersected
/// with the offsets that keep the model centre within 8 cells of the raster. Returns false
/// (window untouched) when nothing is left.
bool translationWindow(const GridSpace& space, const mv_PointMatcherModel& model,
                       const mvPointMatcherRunParams& params, mvPelRect& window);

/// Model to grid space at one scale and rotation, centred as voted:
/// dataToGrid x C1 x S(scale) x R(rotation) x C2, with C1, C2 the translations by plus
/// and minus the model centre.
mvXform<2> modelToGrid(const mvXform<2>& dataToGrid, const mvVector<2>& center, double scale,
                       const mvDegree& rotation);

/// Projects every model point to its nearest cell; cells is resized to the model size (no
/// allocation once it has that size).
void projectModel(const std::vector<mvVector<2>>& points, const mvXform<2>& modelToGrid,
                  std::vector<mvPair<long>>& cells);

}  // namespace detail
}  // namespace ptmatch
