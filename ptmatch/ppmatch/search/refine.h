// Refinement of the coarse hypotheses into fitted poses with model-to-data maps.
//
// Stage 1 fits each coarse hypothesis by least squares to the data its projected points
// land on, and votes again at the fitted scale and rotation (skipping fits that repeat
// one already voted), which fills the fine store. Stage 2 verifies each fine hypothesis:
// it fits the hypothesis, captures for every model point the nearest data point near its
// fitted cell, refits, completes the map by an exhaustive nearest search for the points
// left unmatched, drops maps already in the run's store, fits once more and enters the
// candidate with its matched weight. Lookups go through grid-space index rasters;
// distances and fits are measured in data space.
#pragma once

#include <vector>

#include "ppmatch/model.h"
#include "ppmatch/search/grid_space.h"
#include "ppmatch/search/search.h"
#include "ppmatch/search/vote.h"

namespace ptmatch {
namespace detail {

/// Runs both stages. data are the caller's data points; baseMinScore is the coarse
/// search's minimum score before the coarse walk raised it; voter holds the occupancy
/// raster, the translation window and the accumulator of the coarse vote. Calls
/// mvAttention::check() once per fine hypothesis.
void refineHypotheses(const std::vector<mvVector<2>>& data, const GridSpace& space,
                      const mv_PointMatcherModel& model, double captureRange, long baseMinScore,
                      long storeCapacity, Voter& voter, HypothesisStore& coarse,
                      CandidateStore& run);

}  // namespace detail
}  // namespace ptmatch
