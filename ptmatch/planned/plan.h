// The plan of a planned search: what its coarse passes vote with and on which grid, and
// the neighbourhood its fine passes search around a coarse match.
#pragma once

#include <vector>

#include "mvbase/geometry.h"
#include "ptmatch/ppmatch.h"

namespace ptmatch {
namespace detail {
namespace planned {

/// An axis-aligned bounding box.
struct Box {
  double minX, minY, maxX, maxY;
};

/// The bounding box of points (not empty).
Box boxOf(const std::vector<mvVector<2>>& points);

/// Model points the coarse passes vote with at most; a larger model votes with a spread
/// subset of this many.
constexpr std::size_t kCoarseModelPoints = 200;

/// The grid size at which about a third of the occupancy raster's cells are set: each data
/// point sets a 3 x 3 block of cells, so with n points over an area A the occupied share is
/// about 1 - exp(-9 g^2 n / A). dataPoints are in the start-pose frame.
double densityGridSize(const std::vector<mvVector<2>>& dataPoints);

/// Indices of a well-spread subset of count points (all of them when there are no more):
/// the point nearest the centroid first, then each time the point farthest from those
/// chosen (the first in order of equally far ones). Deterministic.
std::vector<std::size_t> spreadSubset(const std::vector<mvVector<2>>& points, std::size_t count);

/// The neighbourhood a fine pass searches about a coarse match, in the terms of the run
/// parameters (relative to the start pose).
struct Neighbourhood {
  /// Model-centre displacement of the match, start-pose frame.
  mvVector<2> offset;
  /// Rotation in degrees and relative scale change of the match.
  double rotation = 0.0;
  double scaleChange = 0.0;
};

/// Where pose puts the model relative to startPose; center is the model's centre.
Neighbourhood neighbourhoodOf(const mvXform<2>& pose, const mvXform<2>& startPose,
                              const mvVector<2>& center);

/// The written run's parameters for a fine pass about n: the user's parameters with narrow
/// ranges (translation +-3 grid cells, rotation and scale +-2 lattice steps of the grid
/// size at the model radius) and automatic sizes, unless the user gave a capture range.
mvPointMatcherRunParams finePassParams(const mvPointMatcherRunParams& user, const Neighbourhood& n,
                                       double gridSize, double modelRadius);

/// Indices of the data points within margin of the box that pose carries the model's
/// bounding box to, in their order.
std::vector<std::size_t> dataNear(const std::vector<mvVector<2>>& dataPoints,
                                  const std::vector<mvVector<2>>& modelPoints,
                                  const mvXform<2>& pose, double margin);

}  // namespace planned
}  // namespace detail
}  // namespace ptmatch
