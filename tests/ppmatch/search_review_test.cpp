// How many hypotheses the point-to-point search keeps and refines, counted through the
// interruption checks (one per lattice step, one per fine hypothesis).
//
// The data hold 12 exact copies of a model, 100 apart along x, at grid size 1. The model's
// point-to-point vectors all differ by more than 2 cells, so no two data points of
// different copies, and no two of one copy other than the true ones, give a translation 2
// votes: each copy makes one 3 x 3 plateau of full votes, of which one cell (its first in
// row order) is a peak. With no scale or rotation uncertainty the lattice has one step.
// Every coarse peak fits to scale 1 and rotation 0, so only the first is voted again (the
// others repeat it), and that vote gives the 12 peaks once more: the fine store then holds
// min(12, its capacity) hypotheses.
#include <gtest/gtest.h>

#include <vector>

#include "ppmatch/search_support.h"

using namespace search_test;

namespace {

const Points kTriangle{{0, 0}, {20, 0}, {7, 15}};
const Points kQuadrangle{{0, 0}, {20, 0}, {7, 15}, {25, 22}};

constexpr int kCopies = 12;

Points twelveCopies(const Points& model) {
  Points data;
  for (int k = 0; k < kCopies; ++k) {
    for (const mvVector<2>& p : model) data.push_back(p + mvVector<2>(100.0 * k, 0.0));
  }
  return data;
}

// Runs the model against its twelve copies and returns the number of interruption checks.
long checksOfTwelveCopies(const Points& model, long maxNumResults) {
  mvPointMatcherRunParams params = runParams(degreeRange(-1, 1), mvRange(0, 0), maxNumResults);
  useGridSize(params, 1.0);
  mvPointMatcherResultSet results;
  CheckCounter counter;
  trainedMatcher(model).run(twelveCopies(model), params, results);
  EXPECT_EQ(results.results().size(), static_cast<std::size_t>(maxNumResults));
  for (const mvPointMatcherResult& r : results.results()) EXPECT_DOUBLE_EQ(r.coverage(), 1.0);
  return counter.count();
}

}  // namespace

TEST(SearchCapacity, TheLatticeOfTheseRunsHasOneStep) {
  // Triangle: centre (10, 7.5), radius 12.5, rotation step atan2(2, 12.5) = 9.09 degrees,
  // wider than the 2 degrees asked for. Quadrangle: centre (12.5, 11), radius 16.65, step
  // 6.85 degrees. A scale range of 0 gives one scale. Against a single data point nothing
  // gets the 2 votes of a peak, so the only checks are the lattice's.
  for (const Points& model : {kTriangle, kQuadrangle}) {
    mvPointMatcherRunParams params = runParams(degreeRange(-1, 1), mvRange(0, 0));
    params.minCoverage(0.0);
    useGridSize(params, 1.0);
    mvPointMatcherResultSet results;
    CheckCounter counter;
    trainedMatcher(model).run(Points{{0, 0}}, params, results);
    EXPECT_EQ(counter.count(), 1);
  }
}

TEST(SearchCapacity, AModelOfFewerThan4PointsSearchesAtLeast1000Hypotheses) {
  // 3 model points: the coarse and fine stores hold 1000, not 8 x 1, hypotheses, so all 12
  // copies are verified: 1 lattice step + 12 fine hypotheses.
  EXPECT_EQ(checksOfTwelveCopies(kTriangle, 1), 1 + kCopies);
}

TEST(SearchCapacity, OtherwiseTheStoresHoldEightTimesTheResultsAsked) {
  // 4 model points and 48 data points: the stores hold 8 x maxNumResults hypotheses.
  EXPECT_EQ(checksOfTwelveCopies(kQuadrangle, 1), 1 + 8);
  EXPECT_EQ(checksOfTwelveCopies(kQuadrangle, 2), 1 + kCopies);
}
