// The two steps that make a staggered grid an ordinary one and back: before the search,
// the grid vectors become the staggered grid's two diagonals, which span an ordinary grid
// through the same nodes; after it, the nodes found on that diagonal grid are renamed in
// the staggered grid's own axes.
#include <vector>

#include "ptgdmap/internal.h"

namespace ptmatch::detail::ptgdmap {

void setGridVectors(const mvPtToGridMapRunParams& params, GridMapContext& ctx) {
  ctx.xv = params.xv();
  ctx.yv = params.yv();
  if (params.staggered()) {
    // The search runs on the ordinary grid spanned by the staggered grid's diagonals.
    ctx.xv = params.xv() + params.yv();
    ctx.yv = params.yv() - params.xv();
  }
}

void toStaggeredIndices(std::vector<mvPair<long>>& map) {
  for (mvPair<long>& node : map) {
    if (node.x() == mvPtToGridMapResult::kUnassigned) continue;
    node = mvPair<long>(node.x() - node.y(), node.x() + node.y());
  }
}

}  // namespace ptmatch::detail::ptgdmap
