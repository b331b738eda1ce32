// The point matcher keeps everything it trains out of its public header: the object is one
// pointer to its state. Moving a matcher copies it, so a moved-from matcher keeps its model
// and still runs.
#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "ptmatch/ppmatch.h"

namespace {

using Defs = mvPointMatcherDefs;
using Points = std::vector<mvVector<2>>;

// A scalene triangle and the same triangle moved by (3, 2).
const Points kTriangle{{0, 0}, {10, 0}, {0, 5}};
const Points kMovedTriangle{{3, 2}, {13, 2}, {3, 7}};

TEST(MatcherState, TheObjectIsOnePointerToItsState) {
  EXPECT_EQ(sizeof(mvPointMatcher), sizeof(std::unique_ptr<int>));
}

TEST(MatcherState, MoveConstructionLeavesTheSourceTrained) {
  mvPointMatcher source;
  source.train(kTriangle, Defs::eAutoDetect);
  const mvPointMatcher target(std::move(source));
  EXPECT_EQ(target.modelPoints(), kTriangle);
  EXPECT_TRUE(source.isTrained());
  EXPECT_EQ(source.modelPoints(), kTriangle);
}

TEST(MatcherState, AMovedFromMatcherStillRuns) {
  mvPointMatcher source;
  source.train(kTriangle, Defs::eAutoDetect);
  mvPointMatcher target;
  target = std::move(source);

  for (const mvPointMatcher* matcher : {&source, &target}) {
    mvPointMatcherResultSet results;
    matcher->run(kMovedTriangle, mvPointMatcherRunParams(), results);
    ASSERT_EQ(results.results().size(), 1u);
    const mvPointMatcherResult& best = results.results().front();
    EXPECT_EQ(best.coverage(), 1.0);
    EXPECT_EQ(best.modelToDataMap(), (std::vector<long>{0, 1, 2}));
    EXPECT_NEAR(best.modelToDataXform().trans().x(), 3.0, 1e-9);
    EXPECT_NEAR(best.modelToDataXform().trans().y(), 2.0, 1e-9);
  }
}

}  // namespace
