// The point-to-point run and its coarse search: feasibility, result collection and
// ordering, the scale and rotation lattices, the translation window, the peak rule and the
// quantised weights.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "common/expect_throw.h"
#include "ppmatch/search_support.h"

using namespace search_test;

namespace {

// An irregular triangle: no rotation maps it onto itself.
const Points kTriangle{{0, 0}, {20, 0}, {7, 15}};

// Five irregular points, at least 20 apart.
const Points kFive{{0, 0}, {40, 5}, {15, 35}, {55, 40}, {30, 70}};

// Ten points on a 20-unit lattice.
Points tenPoints() {
  Points p;
  for (int i = 0; i < 10; ++i) p.push_back(mvVector<2>(20.0 * (i % 4), 20.0 * (i / 4) + i));
  return p;
}

}  // namespace

// --- The run ---

TEST(PointRun, UntrainedMatcherThrowsNotTrainedAndLeavesNoResults) {
  mvPointMatcher matcher;
  mvPointMatcherResultSet results;
  trainedMatcher(kFive).run(kFive, mvPointMatcherRunParams(), results);
  ASSERT_FALSE(results.results().empty());
  EXPECT_THROW(matcher.run(kFive, mvPointMatcherRunParams(), results),
               mvPointMatcherDefs::NotTrained);
  EXPECT_TRUE(results.results().empty());
}

TEST(PointRun, TooFewDataPointsReturnNothingAndKeepTheTime) {
  const Points model = tenPoints();
  const mvPointMatcher matcher = trainedMatcher(model);
  mvPointMatcherResultSet results;
  matcher.run(model, mvPointMatcherRunParams(), results);
  ASSERT_FALSE(results.results().empty());
  const double time = results.time();

  // 4 data points < 0.5 x 10 model points.
  const Points four(model.begin(), model.begin() + 4);
  matcher.run(four, mvPointMatcherRunParams(), results);
  EXPECT_TRUE(results.results().empty());
  EXPECT_EQ(results.time(), time);
}

TEST(PointRun, WeightsOutOfReachOfTheDataReturnNothing) {
  // Two data points can bring at most the weights 10 + 1 = 11 of a total of 14.
  const mvPointMatcher matcher = trainedMatcher(kFive, {10, 1, 1, 1, 1});
  const Points two(kFive.begin(), kFive.begin() + 2);
  mvPointMatcherRunParams params;
  mvPointMatcherResultSet results;

  params.minCoverage(0.8);  // needs 11.2
  matcher.run(two, params, results);
  EXPECT_TRUE(results.results().empty());
  EXPECT_EQ(results.time(), 0.0) << "the early exit sets no time";

  params.minCoverage(0.75);  // needs 10.5: the search runs and times itself
  matcher.run(two, params, results);
  EXPECT_GT(results.time(), 0.0);
}

TEST(PointRun, MaxNumResultsOneKeepsTheHigherCoverage) {
  // Copy A complete at indices 0..4; copy B far to the right without its last point.
  Points data = kFive;
  for (int i = 0; i < 4; ++i) data.push_back(kFive[i] + mvVector<2>(300, 0));
  const mvPointMatcher matcher = trainedMatcher(kFive);
  mvPointMatcherResultSet results;

  matcher.run(data, runParams(degreeRange(-5, 5), mvRange(0, 0), 1), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, 1, 2, 3, 4}));

  matcher.run(data, runParams(degreeRange(-5, 5), mvRange(0, 0), 2), results);
  ASSERT_EQ(results.results().size(), 2u);
  EXPECT_DOUBLE_EQ(results.results()[1].coverage(), 0.8);
  EXPECT_EQ(results.results()[1].modelToDataMap(), (std::vector<long>{5, 6, 7, 8, -1}));
}

TEST(PointRun, AtEqualCoverageTheSmallerFitErrorWins) {
  // Copy A noisy at indices 0..4, copy B exact at 5..9.
  Points data;
  for (std::size_t i = 0; i < kFive.size(); ++i) {
    data.push_back(kFive[i] + mvVector<2>(i % 2 == 0 ? 0.4 : -0.4, 0.3));
  }
  for (const mvVector<2>& p : kFive) data.push_back(p + mvVector<2>(300, 0));
  mvPointMatcherResultSet results;
  trainedMatcher(kFive).run(data, runParams(degreeRange(-5, 5), mvRange(0, 0), 1), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{5, 6, 7, 8, 9}));
  EXPECT_NEAR(results.results()[0].fitError(), 0.0, 1e-9);
}

TEST(PointRun, CoverageIsMatchedShareAndFitErrorTheRmsOfTheMatchedPairs) {
  const mvXform<2> pose = similarity(12, -7, 3);
  Points data = transformed(pose, kFive);
  data[1] = data[1] + mvVector<2>(0.5, 0.0);
  data.pop_back();  // model point 4 has no partner
  mvPointMatcherResultSet results;
  trainedMatcher(kFive).run(data, runParams(degreeRange(-5, 5), mvRange(0, 0)), results);
  ASSERT_EQ(results.results().size(), 1u);
  const mvPointMatcherResult& r = results.results()[0];
  EXPECT_DOUBLE_EQ(r.coverage(), 4.0 / 5.0);
  ASSERT_EQ(r.modelToDataMap(), (std::vector<long>{0, 1, 2, 3, -1}));
  double sum = 0.0;
  for (int i = 0; i < 4; ++i) {
    const mvVector<2> d = r.modelToDataXform() * kFive[i] - data[i];
    sum += d.x() * d.x() + d.y() * d.y();
  }
  EXPECT_DOUBLE_EQ(r.fitError(), std::sqrt(sum / 4.0));
  EXPECT_GT(r.fitError(), 0.05);
}

TEST(PointRun, PoseOutsideARestrictedRotationRangeIsNeverReported) {
  // Grid size 5.5 and radius 53.85 make a rotation step of 11.54 degrees, so ranges of +-10
  // and +-11 degrees search the same lattice {-11.54, 0, 11.54}.
  const Points model{{0, 50}, {100, 50}, {50, 0}, {30, 100}, {70, 20}};
  const mvXform<2> pose = similarity(20, 10, 10.5);
  const Points data = transformed(pose, model);
  const mvPointMatcher matcher = trainedMatcher(model);

  mvPointMatcherRunParams wide = runParams(degreeRange(-11, 11), mvRange(0, 0), 5);
  useGridSize(wide, 5.5);
  mvPointMatcherResultSet results;
  matcher.run(data, wide, results);
  ASSERT_FALSE(results.results().empty());
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
  EXPECT_NEAR(degreesOf(results.results()[0].modelToDataXform()), 10.5, 1e-6);

  mvPointMatcherRunParams narrow = wide;
  narrow.rotationUncertainty(degreeRange(-10, 10));
  matcher.run(data, narrow, results);
  for (const mvPointMatcherResult& r : results.results()) {
    EXPECT_LE(std::fabs(degreesOf(r.modelToDataXform())), 10.0);
  }
}

TEST(PointRun, ResultPoseIsAbsoluteUnderAStartPose) {
  const mvXform<2> start = similarity(100, 50, 30);
  const mvXform<2> truth = start * similarity(3, -2, 0);
  mvPointMatcherRunParams params = runParams(degreeRange(-5, 5), mvRange(0, 0));
  params.startPose(start);
  params.xTranslationUncertainty(mvRange(-10, 10));
  params.yTranslationUncertainty(mvRange(-10, 10));
  mvPointMatcherResultSet results;
  trainedMatcher(kFive).run(transformed(truth, kFive), params, results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_LT(largestDisplacement(results.results()[0].modelToDataXform(), truth, kFive), 1e-6);
}

// --- Bad input ---

TEST(PointRun, NonFiniteDataPointIsRefused) {
  Points data = kFive;
  data[2] = mvVector<2>(std::numeric_limits<double>::quiet_NaN(), 1.0);
  mvPointMatcherResultSet results;
  EXPECT_THROW(trainedMatcher(kFive).run(data, mvPointMatcherRunParams(), results),
               mvPointMatcherDefs::BadParams);
}

TEST(PointRun, NonFiniteStartPoseIsRefused) {
  mvPointMatcherRunParams params;
  params.startPose(similarity(std::numeric_limits<double>::infinity(), 0, 0));
  mvPointMatcherResultSet results;
  EXPECT_THROW(trainedMatcher(kFive).run(kFive, params, results), mvPointMatcherDefs::BadParams);
}

TEST(PointRun, SingularStartPoseFailsAsAMathError) {
  mvPointMatcherRunParams params;
  params.startPose(mvXform<2>(mvMatrix<2>(1, 2, 2, 4), mvVector<2>()));
  mvPointMatcherResultSet results;
  EXPECT_THROW(trainedMatcher(kFive).run(kFive, params, results), mvMathError);
}

TEST(PointRun, EmptyDataGiveNoResults) {
  const mvPointMatcher matcher = trainedMatcher(kFive);
  mvPointMatcherRunParams params;
  mvPointMatcherResultSet results;
  matcher.run(Points(), params, results);
  EXPECT_TRUE(results.results().empty());
  params.minCoverage(0.0);
  matcher.run(Points(), params, results);
  EXPECT_TRUE(results.results().empty());
}

TEST(PointRun, DataSpanningTooManyGridCellsAreRefused) {
  mvPointMatcherRunParams params;
  useGridSize(params, 0.001);
  Points data = kFive;
  data.push_back(mvVector<2>(1e6, 1e6));
  mvPointMatcherResultSet results;
  EXPECT_THROW(trainedMatcher(kFive).run(data, params, results), mvPointMatcherDefs::BadParams);
}

// --- The lattices, counted through the interruption checks ---
//
// Model: a diamond of radius 60 whose points lie 12 cells apart at grid size 5; one data
// point. No two model points fit one occupied 3 x 3 block, so no translation gets the 2
// votes a peak needs: the search checks exactly once per lattice step and refines nothing.

namespace {

const Points kDiamond{{0, 30}, {120, 30}, {60, 0}, {60, 60}};

long latticeSteps(const mvAngleRange& rotation, const mvRange& scale) {
  mvPointMatcherRunParams params = runParams(rotation, scale);
  params.minCoverage(0.0);
  useGridSize(params, 5.0);
  mvPointMatcherResultSet results;
  CheckCounter counter;
  trainedMatcher(kDiamond).run(Points{{0, 0}}, params, results);
  EXPECT_TRUE(results.results().empty());
  return counter.count();
}

}  // namespace

TEST(CoarseLattice, ZeroScaleAndRotationUncertaintySearchOneStep) {
  EXPECT_EQ(latticeSteps(degreeRange(0, 0), mvRange(0, 0)), 1);
}

TEST(CoarseLattice, ScalesStepByOneAndAHalfCellsAtTheRadius) {
  // Step 1.5 x 5 / 60 = 0.125. [0.8, 1.2]: n = trunc(0.4 / 0.125 + 1) / 2 = 2, so the five
  // scales 0.75 ... 1.25 about the middle 1.0.
  EXPECT_EQ(latticeSteps(degreeRange(0, 0), mvRange(-0.2, 0.2)), 5);
  // [0.9, 1.1]: n = trunc(2.6) / 2 = 1: 0.875, 1, 1.125.
  EXPECT_EQ(latticeSteps(degreeRange(0, 0), mvRange(-0.1, 0.1)), 3);
  // [1.0, 1.05] is narrower than a step: its middle alone.
  EXPECT_EQ(latticeSteps(degreeRange(0, 0), mvRange(0.0, 0.05)), 1);
}

TEST(CoarseLattice, FullRotationScansOneStepBeyondHalfACircleEachSide) {
  // Step atan2(2 x 5, 60) in degrees (pi taken as 3.1415926) = 9.4623; k = trunc(180 /
  // 9.4623) + 1 = 20, so -20 ... +20 steps: 41 rotations, unless the accumulated walk
  // overshoots the last one by rounding.
  const double step = std::atan2(10.0, 60.0) * 180.0 / 3.1415926;
  ASSERT_NEAR(step, 9.4623, 1e-4);
  const long expected = latticeCount(-20 * step, 20 * step, step);
  EXPECT_TRUE(expected == 41 || expected == 40);
  EXPECT_EQ(latticeSteps(mvAngleRange::FullRange(), mvRange(0, 0)), expected);
}

TEST(CoarseLattice, RotationRangeScansKStepsAboutItsMiddle) {
  // [10, 40] degrees: half 15, k = trunc(15 / 9.4623) + 1 = 2: five rotations about 25.
  const double step = std::atan2(10.0, 60.0) * 180.0 / 3.1415926;
  const double mid = mvDegree(degreeRange(10, 40).middle()).toDouble();
  ASSERT_NEAR(mid, 25.0, 1e-12);
  const long expected = latticeCount(mid - 2 * step, mid + 2 * step, step);
  EXPECT_TRUE(expected == 5 || expected == 4);
  EXPECT_EQ(latticeSteps(degreeRange(10, 40), mvRange(0, 0)), expected);
}

// --- The translation window ---

TEST(TranslationWindow, UncertaintyBeyondTheDataYieldsNoSearchAndNoResults) {
  mvPointMatcherRunParams params = runParams(degreeRange(-5, 5), mvRange(0, 0));
  params.xTranslationUncertainty(mvRange(1000, 2000));
  mvPointMatcherResultSet results;
  CheckCounter counter;
  trainedMatcher(kFive).run(kFive, params, results);
  EXPECT_TRUE(results.results().empty());
  EXPECT_EQ(counter.count(), 0) << "the search ends before its lattice";
}

TEST(TranslationWindow, UncertaintyAroundTheDataFindsThePose) {
  mvPointMatcherRunParams params = runParams(degreeRange(-5, 5), mvRange(0, 0));
  params.xTranslationUncertainty(mvRange(290, 310));
  params.yTranslationUncertainty(mvRange(-10, 10));
  mvPointMatcherResultSet results;
  trainedMatcher(kFive).run(transformed(similarity(300, 0, 0), kFive), params, results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
}

// --- The peak rule ---
//
// Every data point of the triangle (moved by (30, 40)) is doubled one grid cell to the
// right (or below). At grid size 1, scale 1 and rotation 0 (the only lattice step), each
// model point's occupied cells form a 4 x 3 (or 3 x 4) block, so the accumulator holds a
// plateau of 3 votes. Only its first cell in row order is a peak; there every model point
// lies on the left (upper) column, which only the first copy's neighbourhood covers, so
// the one match found is the first copy.

namespace {

void expectFirstCopyOnly(const mvVector<2>& doubling) {
  const Points first = transformed(similarity(30, 40, 0), kTriangle);
  Points data = first;
  for (const mvVector<2>& p : first) data.push_back(p + doubling);
  mvPointMatcherRunParams params = runParams(degreeRange(-1, 1), mvRange(0, 0), 5);
  useGridSize(params, 1.0);
  mvPointMatcherResultSet results;
  CheckCounter counter;
  trainedMatcher(kTriangle).run(data, params, results);
  EXPECT_EQ(counter.count(), 2) << "one lattice step, one fine hypothesis";
  const std::vector<mvPointMatcherResult> full = fullMatches(results);
  ASSERT_EQ(full.size(), 1u);
  EXPECT_EQ(full[0].modelToDataMap(), (std::vector<long>{0, 1, 2}));
}

}  // namespace

TEST(PeakRule, OfTwoEqualNeighboursSideBySideTheLeftOneIsThePeak) {
  expectFirstCopyOnly(mvVector<2>(1, 0));
}

TEST(PeakRule, OfTwoEqualNeighboursOneAboveTheOtherTheUpperOneIsThePeak) {
  expectFirstCopyOnly(mvVector<2>(0, 1));
}

// --- Quantised weights ---

TEST(QuantisedWeights, WeightsSummingPast32767AreRescaledAndStillFound) {
  // Unscaled, two matched points would already wrap the 16-bit accumulator.
  const mvXform<2> pose = similarity(40, 25, 2);
  mvPointMatcherResultSet results;
  trainedMatcher(kTriangle, {20000, 20000, 20000})
      .run(transformed(pose, kTriangle), runParams(degreeRange(-5, 5), mvRange(0, 0)), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
  EXPECT_LT(largestDisplacement(results.results()[0].modelToDataXform(), pose, kTriangle), 1e-6);
}

TEST(QuantisedWeights, NegativeSumOf32768HalvesTheWeights) {
  // N = 32768 scales by 16384 / 32768 = 0.5: weight 1 rounds (half away from zero) to 1,
  // leaving 3 positive votes. One more, N = 32769, rounds them to 0: fewer than 2 positive
  // votes is an assertion failure of line 1394.
  const Points model{{0, 0}, {20, 0}, {7, 15}, {30, 20}};
  const Points data =
      transformed(similarity(5, 5, 0), {{0, 0}, {20, 0}, {7, 15}, {60, 60}, {-40, 0}});
  mvPointMatcherResultSet results;
  EXPECT_NO_THROW(
      trainedMatcher(model, {1, 1, 1, -32768}).run(data, mvPointMatcherRunParams(), results));
  EXPECT_THROW_THAT(
      (trainedMatcher(model, {1, 1, 1, -32769}).run(data, mvPointMatcherRunParams(), results)),
      mvAssertionError, [&](const mvAssertionError& e) {
        EXPECT_EQ(e.module(), "ptmatch/ppmatch");
        EXPECT_EQ(e.line(), 1394);
      });
}

TEST(QuantisedWeights, UnscaledNegativeWeightsUpTo32767KeepTheirVotes) {
  // N = 32767 is not rescaled: the three unit weights vote 1 each and the pose is found.
  const Points model{{0, 0}, {20, 0}, {7, 15}, {30, 20}};
  const Points data =
      transformed(similarity(5, 5, 0), {{0, 0}, {20, 0}, {7, 15}, {60, 60}, {-40, 0}});
  mvPointMatcherResultSet results;
  trainedMatcher(model, {1, 1, 1, -32767}).run(data, mvPointMatcherRunParams(), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, 1, 2, -1}));
}

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
using namespace search_test;

namespace {

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
