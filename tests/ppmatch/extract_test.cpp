// The exported point-extraction entry point does nothing, whatever it is given.
#include <gtest/gtest.h>

#include <vector>

#include "ptmatch/ppmatch.h"

TEST(ExtractPoints, ReturnsNormallyForAnUntrainedMatcherAndAnEmptyResult) {
  const mvPointMatcher matcher;
  const std::vector<mvVector<2>> none;
  EXPECT_NO_THROW(
      mfExtractPointsFromPointMatcherResults(matcher, none, mvPointMatcherResult(), none, none));
}

TEST(ExtractPoints, LeavesTheTrailingListsUnchanged) {
  mvPointMatcher matcher;
  const std::vector<mvVector<2>> model = {{0, 0}, {10, 0}, {0, 10}};
  matcher.train(model, mvPointMatcherDefs::eExhaustiveMode);
  const std::vector<mvVector<2>> data = {{10, 5}, {20, 5}, {10, 15}};
  const std::vector<mvVector<2>> modelOut = {{1, 2}};
  const std::vector<mvVector<2>> dataOut = {{3, 4}, {5, 6}};
  mvPointMatcherResultSet results;
  matcher.run(data, mvPointMatcherRunParams(), results);
  const mvPointMatcherResult result =
      results.results().empty() ? mvPointMatcherResult() : results.results().front();

  EXPECT_NO_THROW(mfExtractPointsFromPointMatcherResults(matcher, data, result, modelOut, dataOut));
  EXPECT_EQ(modelOut, (std::vector<mvVector<2>>{{1, 2}}));
  EXPECT_EQ(dataOut, (std::vector<mvVector<2>>{{3, 4}, {5, 6}}));
  EXPECT_EQ(data.size(), 3u);
  EXPECT_EQ(matcher.modelPoints(), model);
}
