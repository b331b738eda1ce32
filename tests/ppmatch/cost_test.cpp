// The size of a point-to-point run known before it starts: lattice steps, translation
// window cells and model points, counted by hand on a small case.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "ppmatch/search_support.h"

using namespace search_test;

namespace {

// A diamond of radius 60 about its centre (60, 30); the data are the same four points.
// At grid size 5 the data map to cells (p - (0, 0)) / 5 + 1: the centre to (13, 7), the
// occupancy raster is 24 + 1 + 2 = 27 cells wide and 12 + 1 + 2 = 15 high.
const Points kDiamond{{0, 30}, {120, 30}, {60, 0}, {60, 60}};

mvPointMatcherRunParams diamondParams(const mvAngleRange& rotation, const mvRange& x,
                                      const mvRange& y) {
  mvPointMatcherRunParams params = runParams(rotation, mvRange(0, 0));
  useGridSize(params, 5.0);
  params.xTranslationUncertainty(x);
  params.yTranslationUncertainty(y);
  return params;
}

mvPointMatcherCost diamondCost(const mvAngleRange& rotation, const mvRange& x, const mvRange& y) {
  return trainedMatcher(kDiamond).estimateCost(kDiamond, diamondParams(rotation, x, y));
}

}  // namespace

TEST(RunCost, SmallCaseCountedByHand) {
  // x and y within +-10 units, 2 cells: offsets -2 ... 2 on each axis, 5 x 5 cells; one
  // rotation and one scale; four model points.
  const mvPointMatcherCost cost =
      diamondCost(degreeRange(0, 0), mvRange(-10, 10), mvRange(-10, 10));
  EXPECT_EQ(cost.latticeSteps, 1);
  EXPECT_EQ(cost.windowCells, 25);
  EXPECT_EQ(cost.modelPoints, 4);
  EXPECT_DOUBLE_EQ(cost.gridSize, 5.0);
  EXPECT_DOUBLE_EQ(cost.work(), 100.0);
}

TEST(RunCost, FullTranslationIsTheRasterAndEightCellsAround) {
  // x: floor(0 - 13) - 8 = -21 ... ceil(27 - 13) + 8 = 22, 44 offsets; y: floor(0 - 7) - 8
  // = -15 ... ceil(15 - 7) + 8 = 16, 32 offsets.
  const mvPointMatcherCost cost =
      diamondCost(degreeRange(0, 0), mvRange::FullRange(), mvRange::FullRange());
  EXPECT_EQ(cost.windowCells, 44 * 32);
}

TEST(RunCost, AWiderWindowCostsProportionallyMore) {
  const mvPointMatcherCost narrow =
      diamondCost(degreeRange(0, 0), mvRange(-10, 10), mvRange(-10, 10));
  // +-20 units along x: offsets -4 ... 4, 9 x 5 cells.
  const mvPointMatcherCost wide =
      diamondCost(degreeRange(0, 0), mvRange(-20, 20), mvRange(-10, 10));
  EXPECT_EQ(wide.windowCells, 45);
  EXPECT_DOUBLE_EQ(wide.work() / narrow.work(), 45.0 / 25.0);
}

TEST(RunCost, MoreLatticeStepsCostProportionallyMore) {
  // Rotation step atan2(2 x 5, 60) = 9.4623 degrees: [10, 40] gives 5 rotations; the full
  // circle 41 (40 when the accumulated walk drops the last by rounding).
  const mvPointMatcherCost one = diamondCost(degreeRange(0, 0), mvRange(-10, 10), mvRange(-10, 10));
  const mvPointMatcherCost five =
      diamondCost(degreeRange(10, 40), mvRange(-10, 10), mvRange(-10, 10));
  const mvPointMatcherCost full =
      diamondCost(mvAngleRange::FullRange(), mvRange(-10, 10), mvRange(-10, 10));
  EXPECT_EQ(five.latticeSteps, 5);
  EXPECT_TRUE(full.latticeSteps == 41 || full.latticeSteps == 40) << full.latticeSteps;
  EXPECT_DOUBLE_EQ(five.work(), 5.0 * one.work());
  EXPECT_DOUBLE_EQ(full.work(), static_cast<double>(full.latticeSteps) * one.work());
}

TEST(RunCost, EstimateCountsTheStepsTheRunChecks) {
  // The run checks for an interruption once per lattice step; with one data point no two
  // model points share a block, so nothing is refined and the counts agree.
  mvPointMatcherRunParams params =
      diamondParams(mvAngleRange::FullRange(), mvRange::FullRange(), mvRange::FullRange());
  params.minCoverage(0.0);
  const mvPointMatcher matcher = trainedMatcher(kDiamond);
  const mvPointMatcherCost cost = matcher.estimateCost(Points{{0, 0}}, params);
  mvPointMatcherResultSet results;
  CheckCounter counter;
  matcher.run(Points{{0, 0}}, params, results);
  EXPECT_EQ(cost.latticeSteps, counter.count());
}

TEST(RunCost, SmallerGridSizeCostsMore) {
  mvPointMatcherRunParams coarse =
      diamondParams(mvAngleRange::FullRange(), mvRange::FullRange(), mvRange::FullRange());
  mvPointMatcherRunParams fine = coarse;
  useGridSize(fine, 1.0);
  const mvPointMatcher matcher = trainedMatcher(kDiamond);
  EXPECT_GT(matcher.estimateCost(kDiamond, fine).work(),
            20.0 * matcher.estimateCost(kDiamond, coarse).work());
}

TEST(RunCost, HopelessOrEmptyRunsCostNothing) {
  const mvPointMatcher matcher = trainedMatcher(kDiamond);
  mvPointMatcherRunParams params = runParams(degreeRange(0, 0), mvRange(0, 0));
  params.minCoverage(1.0);
  // Two data points cannot cover four model points.
  EXPECT_DOUBLE_EQ(matcher.estimateCost(Points{{0, 0}, {5, 5}}, params).work(), 0.0);
  params.minCoverage(0.0);
  EXPECT_DOUBLE_EQ(matcher.estimateCost(Points{}, params).work(), 0.0);
}

TEST(RunCost, RefusesWhatTheRunRefuses) {
  mvPointMatcher untrained;
  EXPECT_THROW(untrained.estimateCost(kDiamond, mvPointMatcherRunParams()),
               mvPointMatcherDefs::NotTrained);
  mvPointMatcher exhaustive;
  exhaustive.train(kDiamond, mvPointMatcherDefs::eExhaustiveMode);
  EXPECT_THROW(exhaustive.estimateCost(kDiamond, mvPointMatcherRunParams()),
               mvPointMatcherDefs::NotTrained);
  const mvPointMatcher matcher = trainedMatcher(kDiamond);
  mvPointMatcherRunParams tiny = runParams(degreeRange(0, 0), mvRange(0, 0));
  useGridSize(tiny, 1e-6);
  EXPECT_THROW(matcher.estimateCost(kDiamond, tiny), mvPointMatcherDefs::BadParams);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(matcher.estimateCost(Points{{nan, 0}}, tiny), mvPointMatcherDefs::BadParams);
}
