// The planned search: the point-to-point run, planned for wide searches and large point
// sets.
//
// mvPointMatcher::run searches every scale, rotation and translation of its ranges on a
// grid a quarter of the model's smallest point spacing wide, so its work grows with the
// fourth power of the range over that spacing: a model that may lie anywhere in the data,
// at any rotation, or a model of thousands of points, takes seconds to minutes. The
// planned search finds the same matches by planning the run from the data:
//
// - Coarse pass. A grid size is chosen from the density of the data (so that about a
//   third of the grid's cells are occupied, where votes still tell a match from chance)
//   and the written run searches the user's ranges on it, with the model's own capture
//   range. A model of more than 200 points votes with a well-spread subset of 200 of them.
// - Fine passes. Each promising coarse match is searched again by the written run with the
//   automatic grid size and capture range, over a narrow neighbourhood of its pose (two
//   rotation and scale steps either side, three grid cells of translation) and over the
//   data near it, with the whole model. So every result is found, verified and measured
//   exactly as the written run finds, verifies and measures its results: same capture and
//   completion passes, same coverage, fit error and map.
// - Fallback. When a plan yields fewer results of at least minCoverage than asked for, a
//   plan of half the grid size follows, and at last the written run itself; so the planned
//   search never reports fewer results than the written run would.
//
// Searches that are cheap anyway (a small model, narrow ranges) run the written run at
// once, as do matchers not trained from points for point-to-point runs and runs whose
// params give a grid size (autoGridSize false): a given grid size is honoured as given.
// A given capture range (autoCaptureRange false) is used by every pass.
//
// The planned search uses mvThreads::forMachine() threads (every core unless a count was
// asked for); results do not depend on the count.
#pragma once

#include <vector>

#include "mvbase/geometry.h"
#include "ptmatch/export.h"
#include "ptmatch/ppmatch.h"

/// What a planned search did, for diagnostics and benchmarks.
struct PTMATCH_API mvPlannedMatchReport {
  /// Grid sizes of the coarse passes, in the order tried; empty when the search went to the
  /// written run at once.
  std::vector<double> coarseGridSizes;
  /// Model points voted in the coarse passes (the whole model, or a spread subset).
  long coarseModelPoints = 0;
  /// Coarse matches searched again by fine passes.
  long finePasses = 0;
  /// True when the written run over the whole ranges produced the results.
  bool usedWrittenRun = false;
  /// Threads the search used.
  long threads = 1;
};

/// Finds the poses that carry the matcher's model onto dataPoints, as matcher.run(
/// dataPoints, params, resultSet) does, planned from the data (see above): fills resultSet
/// best first (greater coverage, then smaller fit error) with at most maxNumResults results
/// of at least minCoverage, each with its pose, model-to-data map, coverage and fit error
/// as the written run defines them, and the seconds the whole search took. Throws what
/// run() throws for the same arguments (NotTrained, BadParams, mvAttention's Interrupted
/// and TimedOut); resultSet is emptied first. report, when given, says what was done.
PTMATCH_API void mfPlannedMatch(const mvPointMatcher& matcher,
                                const std::vector<mvVector<2>>& dataPoints,
                                const mvPointMatcherRunParams& params,
                                mvPointMatcherResultSet& resultSet,
                                mvPlannedMatchReport* report = nullptr);
