// Names shared by the grid corresponder's source files.
#pragma once

#include <vector>

#include "mvbase/geometry.h"

namespace ptmatch {
namespace gridcorr {

/// The module named in assertion and unknown-version reports.
constexpr const char* kModule = "ptmatch/gridcorr";
/// The archive version of every record of the grid corresponder.
constexpr unsigned long kArchiveVersion = 1100;

/// Pel values of the work image that training builds.
constexpr unsigned char kEmpty = 0;      ///< an empty pel
constexpr unsigned char kNode = 1;       ///< a model node
constexpr unsigned char kRingProbe = 2;  ///< an empty pel to be probed as 0
constexpr unsigned char kNodeProbe = 3;  ///< a node to be probed as 1
/// The row alignment passed to every image the corresponder makes.
constexpr long kAlignment = 32;

/// Bounding box of a non-empty node list: corners (minX, minY) and (maxX, maxY).
mvRectangle<long> nodeBounds(const std::vector<mvPair<long>>& nodes);

}  // namespace gridcorr
}  // namespace ptmatch
