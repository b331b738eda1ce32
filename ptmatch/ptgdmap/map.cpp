// mfPtToGridMap: the outline of the mapping, and its last steps (the collinearity test and
// the final grid-to-point fit).
#include <vector>

#include "mvbase/attention.h"
#include "mvbase/fitter.h"
#include "mvbase/timer.h"
#include "ptgdmap/internal.h"
#include "ptmatch/ptgdmap.h"

namespace ptmatch::detail::ptgdmap {
namespace {

/// A later node at least this far from the line through the first two distinct nodes
/// makes the nodes non-collinear.
constexpr double kCollinearDistance = 0.25;

/// True when the nodes, in order, lie on one line: the first node and the first node
/// different from it fix the line; the test ends at the first node 0.25 or more off it.
bool nodesCollinear(const std::vector<mvVector<2>>& nodes) {
  std::size_t i = 1;
  while (i < nodes.size() && nodes[i] == nodes[0]) ++i;
  if (i >= nodes.size()) return true;
  const mvLine line(nodes[0], nodes[i]);
  for (++i; i < nodes.size(); ++i) {
    if (line.distToPoint(nodes[i]) >= kCollinearDistance) return false;
  }
  return true;
}

/// Fits grid2point to the assigned points and their nodes: affine when both grid vectors
/// are given and the nodes are not collinear, similarity otherwise.
mvXform<2> fitGridToPoints(const std::vector<mvVector<2>>& points,
                           const mvPtToGridMapRunParams& params,
                           const std::vector<mvPair<long>>& map) {
  std::vector<mvVector<2>> assignedPoints;
  std::vector<mvVector<2>> nodes;
  for (std::size_t i = 0; i < map.size(); ++i) {
    if (map[i].x() == mvPtToGridMapResult::kUnassigned) continue;
    assignedPoints.push_back(points[i]);
    nodes.push_back(mvVector<2>(map[i]));
  }
  const bool bothAxes = !params.xv().isNull() && !params.yv().isNull();
  const int dof = bothAxes && !nodesCollinear(nodes) ? 6 : 4;
  return mvLSPointToPointFitter(assignedPoints, nodes).fit(dof);
}

/// The mapping after the input checks: returns the assigned count and fills the map, the
/// validity and the transform as far as the run gets.
long mapPoints(const std::vector<mvVector<2>>& points, const mvPtToGridMapRunParams& params,
               std::vector<mvPair<long>>& map, bool& valid, mvXform<2>& grid2point) {
  if (points.empty()) return 0;
  GridMapContext ctx;
  setGridVectors(params, ctx);
  // Without any grid vector there is no pitch to search for.
  if (ctx.xv.isNull() && ctx.yv.isNull()) return 0;
  // One check per step; the steps pace further checks inside.
  mvAttention::check();
  if (!buildBuckets(points, params, ctx)) return 0;
  mvAttention::check();
  linkNeighbours(ctx);
  const double theta = estimateRotation(ctx);
  mvAttention::check();
  const long seed = chooseSeed(ctx);
  if (seed == kNoRecord) return 0;
  mvAttention::check();

  map.assign(points.size(),
             mvPair<long>(mvPtToGridMapResult::kUnassigned, mvPtToGridMapResult::kUnassigned));
  const long count = growFromSeed(ctx, seed, theta, map);
  valid = count >= 3;
  if (valid) {
    if (params.staggered()) toStaggeredIndices(map);
    grid2point = fitGridToPoints(points, params, map);
  }
  return count;
}

}  // namespace
}  // namespace ptmatch::detail::ptgdmap

long mfPtToGridMap(const std::vector<mvVector<2>>& points, const mvPtToGridMapRunParams& params,
                   mvPtToGridMapResult& result) {
  mvTimer timer(false);
  timer.start();
  try {
    result.valid_ = false;
    ptmatch::detail::ptgdmap::checkGridMapInput(points, params);
    const long count = ptmatch::detail::ptgdmap::mapPoints(points, params, result.map_,
                                                           result.valid_, result.grid2point_);
    result.time_ = timer.sec();
    return count;
  } catch (...) {
    result.time_ = timer.sec();
    throw;
  }
}
