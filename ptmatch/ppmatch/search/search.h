// The point-to-point hypothesis search: a coarse vote over a lattice of scales and
// rotations, followed by the refinement of its peaks into fitted poses with point maps.
#pragma once

#include <vector>

#include "mvbase/geometry.h"
#include "ppmatch/internal.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/scorehashing.h"

namespace ptmatch {
namespace detail {

/// A hypothesis of the coarse or fine vote: the whole-cell offset of the model centre in
/// grid space, and the scale and rotation it was voted at.
struct CellHypothesis {
  mvPair<long> offset;
  double scale = 1.0;
  mvDegree rotation;
};

/// The coarse and fine hypothesis stores, keyed by votes.
using HypothesisStore = mvBasicScoreHashing<CellHypothesis>;

/// A fitted candidate of a run: the model-to-data pose and the model-to-data map (one
/// entry per model point, -1 when the point is unmatched).
struct PoseCandidate {
  mvXform<2> pose;
  std::vector<long> modelToData;
};

/// The run's candidate store, keyed by matched weight.
using CandidateStore = mvBasicScoreHashing<PoseCandidate>;

struct VoteOptions;

/// Runs the coarse search over the data and refines its peaks; leaves the fitted
/// candidates in store. searchParams are the run's widened parameters. Calls
/// mvAttention::check() once per lattice step and once per fine hypothesis, on the calling
/// thread. Votes the way runs do (the default VoteOptions), on as many threads as
/// mvThreads::forSynchronous() asks for (the candidates are the same for every count).
void hypothesisSearch(const std::vector<mvVector<2>>& data, const mv_PointMatcherModel& model,
                      const mvPointMatcherRunParams& searchParams, CandidateStore& store);

/// The same search, voting as vote says (vote.h): every choice gives the same candidates.
void hypothesisSearch(const std::vector<mvVector<2>>& data, const mv_PointMatcherModel& model,
                      const mvPointMatcherRunParams& searchParams, CandidateStore& store,
                      const VoteOptions& vote);

/// The coarse search's size for the same arguments, from the same set-up (grid space,
/// translation window, lattices) without voting.
mvPointMatcherCost hypothesisSearchCost(const std::vector<mvVector<2>>& data,
                                        const mv_PointMatcherModel& model,
                                        const mvPointMatcherRunParams& searchParams);

}  // namespace detail
}  // namespace ptmatch
