// The planned search: it finds what the written run finds, as the written run measures it,
// and goes to the written run wherever it cannot plan.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "common/expect_throw.h"
#include "common/search_scenes.h"
#include "mvbase/attention.h"
#include "mvbase/threads.h"
#include "ptmatch/planned.h"

namespace {

using search_scenes::rmsFromTruth;
using search_scenes::Scene;
using search_scenes::SceneRecipe;

// The planned tests' scenes: 20 points at least 24 apart over 200 x 200, in data over
// 500 x 500, any rotation, scale 0.8 to 1.25.
SceneRecipe plannedRecipe() {
  SceneRecipe r;
  r.modelPoints = 20;
  r.minSpacing = 24.0;
  r.dataSide = 500.0;
  return r;
}

Scene makeScene(std::uint32_t seed, const SceneRecipe& recipe) {
  return search_scenes::makeScene(recipe, seed);
}

mvPointMatcher trained(const search_scenes::Points& model) {
  mvPointMatcher m;
  m.train(model, mvPointMatcherDefs::eAutoDetect);
  return m;
}

void expectSameResults(const mvPointMatcherResultSet& a, const mvPointMatcherResultSet& b) {
  ASSERT_EQ(a.results().size(), b.results().size());
  for (std::size_t i = 0; i < a.results().size(); ++i) {
    const mvPointMatcherResult& x = a.results()[i];
    const mvPointMatcherResult& y = b.results()[i];
    EXPECT_EQ(x.modelToDataMap(), y.modelToDataMap()) << "result " << i;
    EXPECT_EQ(x.coverage(), y.coverage()) << "result " << i;
    EXPECT_EQ(x.fitError(), y.fitError()) << "result " << i;
    EXPECT_EQ(x.modelToDataXform().matrix(), y.modelToDataXform().matrix()) << "result " << i;
    EXPECT_EQ(x.modelToDataXform().trans(), y.modelToDataXform().trans()) << "result " << i;
  }
}

TEST(PlannedMatch, FindsAWidelySearchedModelAsTheWrittenRunDoes) {
  const Scene s = makeScene(7, plannedRecipe());
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet planned, written;
  mvPlannedMatchReport report;
  mfPlannedMatch(m, s.data, s.params, planned, &report);
  m.run(s.data, s.params, written);
  ASSERT_EQ(planned.results().size(), 1u);
  ASSERT_EQ(written.results().size(), 1u);
  EXPECT_LT(rmsFromTruth(s, planned.results()[0].modelToDataXform()), 1.0);
  EXPECT_EQ(planned.results()[0].modelToDataMap(), s.truthMap);
  EXPECT_EQ(planned.results()[0].modelToDataMap(), written.results()[0].modelToDataMap());
  EXPECT_EQ(planned.results()[0].coverage(), 1.0);
  EXPECT_FALSE(report.usedWrittenRun);
  EXPECT_GE(report.finePasses, 1);
  EXPECT_GT(planned.time(), 0.0);
}

TEST(PlannedMatch, FindsBothInstancesWhenTwoAreAskedFor) {
  SceneRecipe recipe = plannedRecipe();
  recipe.twoInstances = true;
  recipe.maxResults = 2;
  const Scene s = makeScene(11, recipe);
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet planned;
  mfPlannedMatch(m, s.data, s.params, planned);
  ASSERT_EQ(planned.results().size(), 2u);
  EXPECT_EQ(planned.results()[0].coverage(), 1.0);
  EXPECT_EQ(planned.results()[1].coverage(), 1.0);
  EXPECT_NE(planned.results()[0].modelToDataMap(), planned.results()[1].modelToDataMap());
}

TEST(PlannedMatch, FindsAModelOfHundredsOfPointsWithoutTheWrittenRun) {
  SceneRecipe recipe = plannedRecipe();
  recipe.modelPoints = 400;
  recipe.minSpacing = 12.0;
  recipe.modelSide = 500.0;
  recipe.dataSide = 1000.0;
  recipe.fullRotation = false;
  recipe.scaleLo = 0.9;
  recipe.scaleHi = 1.1;
  recipe.clutter = 0.05;
  recipe.missing = 0.05;
  const Scene s = makeScene(3, recipe);
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet planned;
  mvPlannedMatchReport report;
  mfPlannedMatch(m, s.data, s.params, planned, &report);
  ASSERT_EQ(planned.results().size(), 1u);
  EXPECT_LT(rmsFromTruth(s, planned.results()[0].modelToDataXform()), 1.0);
  EXPECT_FALSE(report.usedWrittenRun);
  EXPECT_TRUE(report.coarseGridSizes.empty());  // the shapes found it
}

TEST(PlannedMatch, AModelThatIsNotThereEndsInTheWrittenRunAndFindsNothing) {
  const Scene s = makeScene(5, plannedRecipe());
  SceneRecipe other = plannedRecipe();
  other.modelPoints = 20;
  const Scene elsewhere = makeScene(99, other);  // another random model
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherRunParams params = s.params;
  params.minCoverage(0.9);
  mvPointMatcherResultSet planned, written;
  mvPlannedMatchReport report;
  mfPlannedMatch(m, elsewhere.data, params, planned, &report);
  m.run(elsewhere.data, params, written);
  EXPECT_TRUE(report.usedWrittenRun);
  expectSameResults(planned, written);
}

TEST(PlannedMatch, AGivenGridSizeRunsTheWrittenRunAsGiven) {
  const Scene s = makeScene(13, plannedRecipe());
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherRunParams params = s.params;
  params.autoGridSize(false);
  params.gridSize(6.0);
  mvPointMatcherResultSet planned, written;
  mvPlannedMatchReport report;
  mfPlannedMatch(m, s.data, params, planned, &report);
  m.run(s.data, params, written);
  EXPECT_TRUE(report.usedWrittenRun);
  EXPECT_TRUE(report.coarseGridSizes.empty());
  expectSameResults(planned, written);
}

TEST(PlannedMatch, ACheapSearchIsTheWrittenRun) {
  const Scene s = makeScene(17, plannedRecipe());
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherRunParams params = s.params;  // narrow everything about the truth
  params.startPose(s.truth);
  params.xTranslationUncertainty(mvRange(-2.0, 2.0));
  params.yTranslationUncertainty(mvRange(-2.0, 2.0));
  params.rotationUncertainty(mvAngleRange(mvDegree(-1.0), mvDegree(1.0), false));
  params.scaleUncertainty(mvRange(0.0, 0.0));
  mvPointMatcherResultSet planned, written;
  mvPlannedMatchReport report;
  mfPlannedMatch(m, s.data, params, planned, &report);
  m.run(s.data, params, written);
  EXPECT_TRUE(report.usedWrittenRun);
  expectSameResults(planned, written);
}

TEST(PlannedMatch, EmptiesTheResultSetAndRefusesAnUntrainedMatcher) {
  const Scene s = makeScene(19, plannedRecipe());
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet results;
  mfPlannedMatch(m, s.data, s.params, results);
  ASSERT_FALSE(results.results().empty());
  const mvPointMatcher untrained;
  EXPECT_THROW_MESSAGE(mfPlannedMatch(untrained, s.data, s.params, results),
                       mvPointMatcherDefs::NotTrained, L"mvPointMatcher tool is not trained\n");
  EXPECT_TRUE(results.results().empty());
}

TEST(PlannedMatch, RefusesNonFiniteDataAsTheWrittenRunDoes) {
  Scene s = makeScene(23, plannedRecipe());
  s.data.push_back(mvVector<2>(std::nan(""), 1.0));
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet results;
  EXPECT_THROW_MESSAGE(mfPlannedMatch(m, s.data, s.params, results), mvPointMatcherDefs::BadParams,
                       L"data points must be finite\n");
}

TEST(PlannedMatch, EmptyOrSinglePointDataFindsWhatTheWrittenRunFinds) {
  const Scene s = makeScene(29, plannedRecipe());
  const mvPointMatcher m = trained(s.model);
  for (const search_scenes::Points& data :
       {search_scenes::Points{}, search_scenes::Points{mvVector<2>(3.0, 4.0)}}) {
    mvPointMatcherRunParams params = s.params;
    params.minCoverage(0.0);
    mvPointMatcherResultSet planned, written;
    mfPlannedMatch(m, data, params, planned);
    m.run(data, params, written);
    expectSameResults(planned, written);
  }
}

TEST(PlannedMatch, APatternTrainedMatcherRunsAsWritten) {
  mvPelBuffer<unsigned char> image(6, 6);
  for (long y = 0; y < 6; ++y) {
    for (long x = 0; x < 6; ++x) image.pointToRow(y)[x] = (x + y) % 2 == 0 ? 255 : 0;
  }
  mvPointMatcher m;
  m.train(image);
  search_scenes::Points data;
  for (long y = 0; y < 6; ++y) {
    for (long x = 0; x < 6; ++x) {
      if ((x + y) % 2 == 0) data.push_back(mvVector<2>(10.0 * x + 3.0, 10.0 * y + 5.0));
    }
  }
  mvPointMatcherRunParams params;
  params.autoCaptureRange(false);
  params.captureRange(12.0);
  params.scaleUncertainty(mvRange(0.0, 10.0));
  mvPointMatcherResultSet planned, written;
  mvPlannedMatchReport report;
  mfPlannedMatch(m, data, params, planned, &report);
  m.run(data, params, written);
  EXPECT_TRUE(report.usedWrittenRun);
  ASSERT_EQ(planned.results().size(), written.results().size());
  for (std::size_t i = 0; i < planned.results().size(); ++i) {
    EXPECT_EQ(planned.results()[i].coverage(), written.results()[i].coverage());
  }
}

TEST(PlannedMatch, UsesTheThreadsAskedForOnTheCallingThread) {
  const Scene s = makeScene(31, plannedRecipe());
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet one, three;
  mvPlannedMatchReport r1, r3;
  {
    const mvThreads::Scope threads(1);
    mfPlannedMatch(m, s.data, s.params, one, &r1);
  }
  {
    const mvThreads::Scope threads(3);
    mfPlannedMatch(m, s.data, s.params, three, &r3);
  }
  EXPECT_EQ(r1.threads, 1);
  EXPECT_EQ(r3.threads, 3);
  expectSameResults(one, three);
}

TEST(PlannedMatch, AnInterruptionStopsIt) {
  const Scene s = makeScene(37, plannedRecipe());
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet results;
  mvAttention::requestInterruption();
  EXPECT_THROW(mfPlannedMatch(m, s.data, s.params, results), mvAttention::Interrupted);
  EXPECT_FALSE(mvAttention::isRequested());
  EXPECT_TRUE(results.results().empty());
}

TEST(PlannedMatch, APassedDeadlineStopsIt) {
  const Scene s = makeScene(41, plannedRecipe());
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet results;
  const mvAttention::Deadline limit(0.0);
  EXPECT_THROW(mfPlannedMatch(m, s.data, s.params, results), mvAttention::TimedOut);
  EXPECT_TRUE(results.results().empty());
}

}  // namespace
