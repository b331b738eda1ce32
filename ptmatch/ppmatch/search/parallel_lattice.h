// The coarse vote on several threads, with the results of one.
//
// Lattice steps are handed out in lattice order to the caller's thread and to workers of
// its own, each with a Voter of its own. A step's vote records the peaks that it would
// offer the coarse store, down to the minimum score in force when the step was handed out:
// a lower bound of the minimum score the step meets in one thread, since that one only
// rises. The caller's thread replays the steps in lattice order: it calls
// mvAttention::check() once per step, raises the minimum score as a vote does when the
// store is full, and offers the step's recorded peaks of at least that score to the store
// in their order. The store ends exactly as if one thread had voted every step.
//
// Workers never call mvAttention::check(), whose poll function and deadline belong to the
// caller's thread; the votes' mvAttention::pace() may take an interruption request on any
// thread, and whatever a worker throws ends the vote on every thread and is rethrown on the
// caller's once all workers have joined.
#pragma once

#include <vector>

#include "ppmatch/model.h"
#include "ppmatch/search/search.h"
#include "ppmatch/search/vote.h"

namespace ptmatch {
namespace detail {

/// A step of the coarse lattice: a scale and a rotation in degrees.
struct LatticeStep {
  double scale;
  double rotation;
};

/// The coarse lattice's steps in the order the vote walks them, scale-major.
std::vector<LatticeStep> coarseLatticeSteps(const mvPointMatcherRunParams& params, double gridSize,
                                            const mv_PointMatcherModel& model);

/// The number of steps of the coarse lattice, counted up to limit (limit when it has more).
std::size_t coarseLatticeStepsUpTo(const mvPointMatcherRunParams& params, double gridSize,
                                   const mv_PointMatcherModel& model, std::size_t limit);

/// The threads worth using for a coarse vote of steps lattice steps when requested are
/// asked for: at most requested, and 1 (no threads started) for lattices so small that
/// starting threads would cost more than it saves.
long coarseVoteThreads(long requested, std::size_t steps);

/// Votes at every step with voter on the caller's thread and threads - 1 more (threads >= 2),
/// each with a Voter like voter made with options; leaves minScore and store exactly as
/// checking for an interruption and calling voter.voteAndCollect step by step would.
void voteStepsInParallel(const std::vector<LatticeStep>& steps, long threads, Voter& voter,
                         const VoteOptions& options, long& minScore, HypothesisStore& store);

}  // namespace detail
}  // namespace ptmatch
