// The grid command's choices, shared with the demo.
#pragma once

#include <vector>

#include "mvbase/geometry.h"
#include "report.h"

class mvPtToGridMapRunParams;
class mvRobustGridMapParams;

namespace ptmatch::cli {

/// The snap tolerance the tool uses when none is given: 1.25 x the longest vector the
/// mapping links along (xv or yv; for a staggered grid the diagonals xv + yv and yv - xv).
double defaultSnap(const mvVector<2>& xv, const mvVector<2>& yv, bool staggered);

/// Runs mfPtToGridMap and gathers its outcome.
GridReport mapPointsToGrid(const std::vector<mvVector<2>>& points,
                           const mvPtToGridMapRunParams& params);

/// Runs mfRobustGridMap and gathers its outcome.
GridReport robustMapPointsToGrid(const std::vector<mvVector<2>>& points,
                                 const mvRobustGridMapParams& params);

}  // namespace ptmatch::cli
