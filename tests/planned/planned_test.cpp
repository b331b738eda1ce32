// The planned search: it finds what the written run finds, as the written run measures it,
// and goes to the written run wherever it cannot plan.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "common/expect_throw.h"
#include "mvbase/attention.h"
#include "mvbase/threads.h"
#include "planned_scenes.h"
#include "ptmatch/planned.h"

namespace {

using planned_test::makeScene;
using planned_test::rmsFromTruth;
using planned_test::Scene;
using planned_test::SceneSpec;

mvPointMatcher trained(const planned_test::Points& model) {
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
  const Scene s = makeScene(7, SceneSpec{});
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
  SceneSpec spec;
  spec.twoInstances = true;
  const Scene s = makeScene(11, spec);
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet planned;
  mfPlannedMatch(m, s.data, s.params, planned);
  ASSERT_EQ(planned.results().size(), 2u);
  EXPECT_EQ(planned.results()[0].coverage(), 1.0);
  EXPECT_EQ(planned.results()[1].coverage(), 1.0);
  EXPECT_NE(planned.results()[0].modelToDataMap(), planned.results()[1].modelToDataMap());
}

TEST(PlannedMatch, FindsAModelOfHundredsOfPointsWithoutTheWrittenRun) {
  SceneSpec spec;
  spec.modelPoints = 400;
  spec.minSpacing = 12.0;
  spec.modelSide = 500.0;
  spec.dataSide = 1000.0;
  spec.anyRotation = false;
  spec.scaleLo = 0.9;
  spec.scaleHi = 1.1;
  spec.clutter = 0.05;
  spec.missing = 0.05;
  const Scene s = makeScene(3, spec);
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
  const Scene s = makeScene(5, SceneSpec{});
  SceneSpec other;
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
  const Scene s = makeScene(13, SceneSpec{});
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
  const Scene s = makeScene(17, SceneSpec{});
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
  const Scene s = makeScene(19, SceneSpec{});
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
  Scene s = makeScene(23, SceneSpec{});
  s.data.push_back(mvVector<2>(std::nan(""), 1.0));
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet results;
  EXPECT_THROW_MESSAGE(mfPlannedMatch(m, s.data, s.params, results), mvPointMatcherDefs::BadParams,
                       L"data points must be finite\n");
}

TEST(PlannedMatch, EmptyOrSinglePointDataFindsWhatTheWrittenRunFinds) {
  const Scene s = makeScene(29, SceneSpec{});
  const mvPointMatcher m = trained(s.model);
  for (const planned_test::Points& data :
       {planned_test::Points{}, planned_test::Points{mvVector<2>(3.0, 4.0)}}) {
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
  planned_test::Points data;
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
  const Scene s = makeScene(31, SceneSpec{});
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
  const Scene s = makeScene(37, SceneSpec{});
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet results;
  mvAttention::requestInterruption();
  EXPECT_THROW(mfPlannedMatch(m, s.data, s.params, results), mvAttention::Interrupted);
  EXPECT_FALSE(mvAttention::isRequested());
  EXPECT_TRUE(results.results().empty());
}

TEST(PlannedMatch, APassedDeadlineStopsIt) {
  const Scene s = makeScene(41, SceneSpec{});
  const mvPointMatcher m = trained(s.model);
  mvPointMatcherResultSet results;
  const mvAttention::Deadline limit(0.0);
  EXPECT_THROW(mfPlannedMatch(m, s.data, s.params, results), mvAttention::TimedOut);
  EXPECT_TRUE(results.results().empty());
}

}  // namespace
