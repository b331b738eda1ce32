// The coarse search: for every scale and rotation of the lattice, the model is projected
// into grid space and votes for the translations at which its points land on occupied
// cells; the accumulator's peaks are kept in the coarse store and handed to the
// refinement.

#include "mvbase/attention.h"
#include "mvbase/threads.h"
#include "ppmatch/search/grid_space.h"
#include "ppmatch/search/lattice.h"
#include "ppmatch/search/parallel_lattice.h"
#include "ppmatch/search/refine.h"
#include "ppmatch/search/search.h"
#include "ppmatch/search/vote.h"

namespace ptmatch {
namespace detail {
namespace {

// Lattice steps from which on the step bound is worth making.
constexpr std::size_t kBoundedSteps = 64;

// The most lattice steps voted on several threads: their list is made beforehand.
constexpr std::size_t kMostThreadedSteps = std::size_t{1} << 22;

// Votes at every (scale, rotation) of the lattice, scale-major, checking for an
// interruption before each; minScore rises to the coarse store's lowest score + 1 once
// the store is full. On the caller's thread alone unless more threads are asked for
// (mvThreads): those give the same store.
void voteCoarseLattice(Voter& voter, const VoteOptions& vote, const mvPointMatcherRunParams& params,
                       double gridSize, const mv_PointMatcherModel& model, std::size_t countedSteps,
                       long minScore, HypothesisStore& coarse) {
  const long requested = mvThreads::forSynchronous();
  if (requested > 1 && countedSteps <= kMostThreadedSteps) {
    const long threads = coarseVoteThreads(requested, countedSteps);
    if (threads > 1) {
      voteStepsInParallel(coarseLatticeSteps(params, gridSize, model), threads, voter, vote,
                          minScore, coarse);
      return;
    }
  }
  walkLattice(scaleLattice(params.scaleUncertainty(), gridSize, model), [&](double scale) {
    walkLattice(rotationLattice(params.rotationUncertainty(), gridSize, model, scale),
                [&](double rotation) {
                  mvAttention::check();
                  voter.voteReachable(scale, mvDegree(rotation), minScore, coarse);
                });
  });
}

// Steps of the coarse lattice, walked as the vote walks it.
long long latticeSteps(const mvPointMatcherRunParams& params, double gridSize,
                       const mv_PointMatcherModel& model) {
  long long steps = 0;
  walkLattice(scaleLattice(params.scaleUncertainty(), gridSize, model), [&](double scale) {
    walkLattice(rotationLattice(params.rotationUncertainty(), gridSize, model, scale), [&](double) {
      mvAttention::pace(1);
      ++steps;
    });
  });
  return steps;
}

}  // namespace

mvPointMatcherCost hypothesisSearchCost(const std::vector<mvVector<2>>& data,
                                        const mv_PointMatcherModel& model,
                                        const mvPointMatcherRunParams& searchParams) {
  mvPointMatcherCost cost;
  cost.modelPoints = static_cast<long long>(model.points.size());
  const ResolvedSizes sizes = resolveGridSizeAndCaptureRange(searchParams, model);
  cost.gridSize = sizes.gridSize;
  if (data.empty()) return cost;
  const GridSpace space = mapDataToGridSpace(data, searchParams.startPose(), sizes.gridSize);
  mvPelRect window;
  if (!translationWindow(space, model, searchParams, window)) return cost;
  // The window's corners are both offsets voted on.
  cost.windowCells = static_cast<long long>(window.width() + 1) * (window.height() + 1);
  cost.latticeSteps = latticeSteps(searchParams, sizes.gridSize, model);
  return cost;
}

void hypothesisSearch(const std::vector<mvVector<2>>& data, const mv_PointMatcherModel& model,
                      const mvPointMatcherRunParams& searchParams, CandidateStore& store) {
  hypothesisSearch(data, model, searchParams, store, VoteOptions());
}

void hypothesisSearch(const std::vector<mvVector<2>>& data, const mv_PointMatcherModel& model,
                      const mvPointMatcherRunParams& searchParams, CandidateStore& store,
                      const VoteOptions& vote) {
  const ResolvedSizes sizes = resolveGridSizeAndCaptureRange(searchParams, model);
  if (data.empty()) return;  // nothing to vote on
  const GridSpace space = mapDataToGridSpace(data, searchParams.startPose(), sizes.gridSize);
  mvPelRect window;
  if (!translationWindow(space, model, searchParams, window)) return;
  VoteWeights votes = quantiseWeights(model, searchParams.minCoverage());
  const long baseMinScore = votes.minScore;

  // Counted only as far as the choices need (a lattice may be endless in practice).
  const std::size_t counted =
      coarseLatticeStepsUpTo(searchParams, sizes.gridSize, model, kMostThreadedSteps + 1);
  VoteOptions options = vote;
  if (counted < kBoundedSteps) options.boundSteps = false;  // not worth its making
  Voter voter(model.points, space.dataToGrid, model.center, space.occupancy, window,
              std::move(votes.weights), options);
  HypothesisStore coarse(model.totalWeight, searchParams.maxNumResults());
  voteCoarseLattice(voter, options, searchParams, sizes.gridSize, model, counted, baseMinScore,
                    coarse);
  refineHypotheses(data, space, model, sizes.captureRange, baseMinScore,
                   searchParams.maxNumResults(), voter, coarse, store);
}

}  // namespace detail
}  // namespace ptmatch
