// mfRobustGridMap: the lattice, the seed, the growth, the labelling, the refinement and the
// checks, in that order, each leaving the result failed with its reason when it cannot go on.
#include <cmath>
#include <string>

#include "mvbase/timer.h"
#include "robustgrid/internal.h"
#include "robustgrid/refine.h"

namespace {

using ptmatch::detail::robustgrid::Points;

/// Grown points that the refinement may move or drop before the growth is distrusted.
constexpr double kMostChanged = 0.1;

void requireFinite(const Points& points) {
  for (const mvVector<2>& p : points) {
    if (!std::isfinite(p.x()) || !std::isfinite(p.y())) {
      throw mvRobustGridMapDefs::BadInput(L"The robust grid map's points must be finite.");
    }
  }
}

/// The grown nodes, labelled, per point (unassigned where none).
std::vector<mvPair<long>> labelledNodes(const ptmatch::detail::robustgrid::Growth& growth,
                                        const ptmatch::detail::robustgrid::Labelling& labelling) {
  std::vector<mvPair<long>> nodes(
      growth.taken.size(),
      mvPair<long>(mvRobustGridMapResult::kUnassigned, mvRobustGridMapResult::kUnassigned));
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    if (growth.taken[i] != 0) nodes[i] = labelling.apply(growth.nodeP[i], growth.nodeQ[i]);
  }
  return nodes;
}

/// How many grown points the refinement moved to another node or dropped.
long changedNodes(const std::vector<mvPair<long>>& grown, const std::vector<mvPair<long>>& now) {
  long changed = 0;
  for (std::size_t i = 0; i < grown.size(); ++i) {
    if (grown[i].x() != mvRobustGridMapResult::kUnassigned &&
        (grown[i].x() != now[i].x() || grown[i].y() != now[i].y())) {
      ++changed;
    }
  }
  return changed;
}

}  // namespace

long mfRobustGridMap(const std::vector<mvVector<2>>& points, const mvRobustGridMapParams& params,
                     mvRobustGridMapResult& result) {
  using namespace ptmatch::detail::robustgrid;
  const mvTimer timer;
  result = mvRobustGridMapResult();
  result.map_.assign(points.size(), mvPair<long>(mvRobustGridMapResult::kUnassigned,
                                                 mvRobustGridMapResult::kUnassigned));
  result.residuals_.assign(points.size(), -1.0);
  const auto fail = [&](mvRobustGridMapDefs::Failure failure, const char* reason) {
    result.failure_ = failure;
    result.reason_ = reason;
    result.time_ = timer.sec();
    return 0L;
  };
  try {
    requireFinite(points);
  } catch (...) {
    result.time_ = timer.sec();
    throw;
  }
  if (static_cast<long>(points.size()) < params.minNodes()) {
    return fail(mvRobustGridMapDefs::eTooFewPoints, "fewer points than minNodes");
  }

  const PointIndex index(points);
  Lattice lattice;
  if (!estimateLattice(index, params, lattice)) {
    return fail(mvRobustGridMapDefs::eNoPitch, "no lattice vectors stand out among the neighbours");
  }
  Seed seed;
  if (!findSeed(index, lattice, seed)) {
    return fail(mvRobustGridMapDefs::eNoSeed, "no point has neighbours along both lattice vectors");
  }
  Growth growth(tableBounds(points, seed), points.size());
  try {
    grow(index, seed, growth);
  } catch (...) {
    result.time_ = timer.sec();
    throw;
  }
  if (growth.count < params.minNodes()) {
    return fail(mvRobustGridMapDefs::eTooFewNodes, "the growth assigned fewer nodes than minNodes");
  }

  const Labelling labelling = chooseLabelling(growth, seed.local, params);
  const std::vector<mvPair<long>> grown = labelledNodes(growth, labelling);
  Refined refined;
  if (!refine(points, grown, params, refined)) {
    return fail(mvRobustGridMapDefs::eInconsistent, "the perspective fit over the board failed");
  }
  if (refined.count < params.minNodes()) {
    return fail(mvRobustGridMapDefs::eTooFewNodes,
                "fewer nodes than minNodes are left after the refinement");
  }
  if (static_cast<double>(changedNodes(grown, refined.nodes)) >
      kMostChanged * static_cast<double>(growth.count)) {
    return fail(mvRobustGridMapDefs::eInconsistent,
                "the fit over the board moves many grown points to other nodes");
  }
  if (!unfolded(refined)) {
    return fail(mvRobustGridMapDefs::eInconsistent, "the fit over the board folds over");
  }

  result.grid2point_ = normalise(points, params.staggered(), refined, result.homography_);
  result.map_ = refined.nodes;
  result.residuals_ = refined.residuals;
  result.matrix_ = refined.homography.matrix();
  result.xv_ = labelling.xv;
  result.yv_ = labelling.yv;
  result.sigma_ = refined.sigma;
  result.count_ = refined.count;
  result.failure_ = mvRobustGridMapDefs::eNone;
  result.reason_ = "ok";
  result.time_ = timer.sec();
  return result.count_;
}
