// The refinement of the point-to-point search: index rasters and their 16-bit limit,
// duplicate maps, weighted scores, symmetric models and interruption.
#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "ppmatch/search_support.h"

using namespace search_test;

namespace {

const Points kFive{{0, 0}, {40, 5}, {15, 35}, {55, 40}, {30, 70}};

std::vector<long> identityMap(long n) {
  std::vector<long> map;
  for (long i = 0; i < n; ++i) map.push_back(i);
  return map;
}

}  // namespace

// --- Index rasters ---

// Copy A of the model at data indices 0..4, filler points stacked on one spot far away,
// then copy B, 200 to the right of A. The translation uncertainty admits B's position only.
namespace {

Points twoCopies(std::size_t copyBIndex) {
  Points data = kFive;
  while (data.size() < copyBIndex) data.push_back(mvVector<2>(100, -100));
  for (const mvVector<2>& p : kFive) data.push_back(p + mvVector<2>(200, 0));
  return data;
}

mvPointMatcherRunParams aroundCopyB() {
  mvPointMatcherRunParams params = runParams(degreeRange(-1, 1), mvRange(0, 0), 5);
  params.xTranslationUncertainty(mvRange(190, 210));
  params.yTranslationUncertainty(mvRange(-10, 10));
  return params;
}

}  // namespace

TEST(IndexRasters, MoreThan65535DataPointsWrapTheIndices) {
  // B sits at indices 65536..65540, so its raster entries wrap to 1..5 and name copy A:
  // the hypotheses voted at B are paired with, fitted to and captured by copy A.
  const Points data = twoCopies(65536);
  mvPointMatcherResultSet results;
  trainedMatcher(kFive).run(data, aroundCopyB(), results);

  const std::vector<mvPointMatcherResult> full = fullMatches(results);
  ASSERT_EQ(full.size(), 1u);
  EXPECT_EQ(full[0].modelToDataMap(), identityMap(5));
  EXPECT_LT(largestDisplacement(full[0].modelToDataXform(), mvXform<2>::I, kFive), 1e-6);
  for (const mvPointMatcherResult& r : results.results()) {
    for (long d : r.modelToDataMap()) EXPECT_LT(d, static_cast<long>(data.size()));
  }
}

TEST(IndexRasters, BelowTheLimitCopyBIsFoundWhereItIs) {
  const Points data = twoCopies(1000);
  mvPointMatcherResultSet results;
  trainedMatcher(kFive).run(data, aroundCopyB(), results);

  const std::vector<mvPointMatcherResult> full = fullMatches(results);
  ASSERT_EQ(full.size(), 1u);
  EXPECT_EQ(full[0].modelToDataMap(), (std::vector<long>{1000, 1001, 1002, 1003, 1004}));
  EXPECT_LT(largestDisplacement(full[0].modelToDataXform(), similarity(200, 0, 0), kFive), 1e-6);
}

TEST(IndexRasters, TwoHypothesesWithTheSameMapGiveOneEntry) {
  // With translation free, the hypotheses at B (wrapped to A) and at A itself both end in
  // A's map: the run's store keeps it once.
  const Points data = twoCopies(65536);
  mvPointMatcherResultSet results;
  trainedMatcher(kFive).run(data, runParams(degreeRange(-1, 1), mvRange(0, 0), 5), results);
  const std::vector<mvPointMatcherResult> full = fullMatches(results);
  ASSERT_EQ(full.size(), 1u);
  EXPECT_EQ(full[0].modelToDataMap(), identityMap(5));
}

// --- Weighted scores ---

TEST(WeightedScore, AMatchedNegativeWeightLowersTheCoverage) {
  // Weights 4, 4, 4, 4 and -3: total 16. With the negative point's partner present the
  // score is 16 - 3 = 13.
  const std::vector<long> weights{4, 4, 4, 4, -3};
  const mvPointMatcher matcher = trainedMatcher(kFive, weights);
  const mvXform<2> pose = similarity(-20, 60, 7);
  const Points all = transformed(pose, kFive);
  const Points withoutNegative(all.begin(), all.end() - 1);
  const mvPointMatcherRunParams params = runParams(degreeRange(-10, 10), mvRange(0, 0));

  mvPointMatcherResultSet results;
  matcher.run(withoutNegative, params, results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, 1, 2, 3, -1}));

  matcher.run(all, params, results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].coverage(), 13.0 / 16.0);
  EXPECT_EQ(results.results()[0].modelToDataMap(), identityMap(5));
  EXPECT_LT(largestDisplacement(results.results()[0].modelToDataXform(), pose, kFive), 1e-6);
}

TEST(WeightedScore, ZeroWeightPointsAreMatchedButCountForNothing) {
  const mvPointMatcher matcher = trainedMatcher(kFive, {2, 2, 2, 2, 0});
  const mvXform<2> pose = similarity(10, 10, 0);
  mvPointMatcherResultSet results;
  matcher.run(transformed(pose, kFive), runParams(degreeRange(-5, 5), mvRange(0, 0)), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
  EXPECT_EQ(results.results()[0].modelToDataMap(), identityMap(5));
}

// --- Symmetric models ---

TEST(SymmetricModel, ASquareIsReportedAtEachOfItsFourPoses) {
  const Points square{{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  const mvXform<2> pose = similarity(50, 30, 20);
  mvPointMatcherResultSet results;
  trainedMatcher(square).run(transformed(pose, square),
                             runParams(mvAngleRange::FullRange(), mvRange(0, 0), 4), results);
  ASSERT_EQ(results.results().size(), 4u);
  std::set<std::vector<long>> maps;
  std::set<long> quarterTurns;
  for (const mvPointMatcherResult& r : results.results()) {
    EXPECT_DOUBLE_EQ(r.coverage(), 1.0);
    EXPECT_LT(r.fitError(), 1e-9);
    maps.insert(r.modelToDataMap());
    const double turns = (degreesOf(r.modelToDataXform()) - 20.0) / 90.0;
    EXPECT_NEAR(turns, std::round(turns), 1e-9);
    quarterTurns.insert((static_cast<long>(std::lround(turns)) % 4 + 4) % 4);
  }
  EXPECT_EQ(maps.size(), 4u);
  EXPECT_EQ(quarterTurns, (std::set<long>{0, 1, 2, 3}));
}

// --- Interruption ---

TEST(Interruption, AnInterruptedRunThrowsAndTheMatcherStaysUsable) {
  const mvPointMatcher matcher = trainedMatcher(kFive);
  const Points data = transformed(similarity(3, 4, 5), kFive);
  const mvPointMatcherRunParams params = runParams(degreeRange(-15, 15), mvRange(-0.1, 0.1), 3);
  mvPointMatcherResultSet expected;
  mvPointMatcher(matcher).run(data, params, expected);
  ASSERT_FALSE(expected.results().empty());

  mvPointMatcherResultSet results;
  {
    CheckCounter interruptAtThirdCheck(3);
    EXPECT_THROW(matcher.run(data, params, results), mvAttention::Interrupted);
    EXPECT_EQ(interruptAtThirdCheck.count(), 3);
  }
  EXPECT_TRUE(results.results().empty());

  matcher.run(data, params, results);
  ASSERT_EQ(results.results().size(), expected.results().size());
  for (std::size_t i = 0; i < results.results().size(); ++i) {
    EXPECT_EQ(results.results()[i].modelToDataMap(), expected.results()[i].modelToDataMap());
    EXPECT_EQ(results.results()[i].modelToDataXform(), expected.results()[i].modelToDataXform());
  }
}

TEST(Interruption, ARequestMadeBeforeTheRunIsConsumedByIt) {
  const mvPointMatcher matcher = trainedMatcher(kFive);
  mvPointMatcherResultSet results;
  mvAttention::requestInterruption();
  EXPECT_THROW(matcher.run(kFive, mvPointMatcherRunParams(), results), mvAttention::Interrupted);
  EXPECT_FALSE(mvAttention::isRequested());
  matcher.run(kFive, mvPointMatcherRunParams(), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].modelToDataMap(), identityMap(5));
}

TEST(Interruption, TheRefinementChecksOncePerFineHypothesis) {
  // Scale and rotation ranges of 0 give one lattice step; an exact copy of the triangle
  // at grid size 1 gives one 3 x 3 plateau, so one coarse and one fine hypothesis.
  const Points triangle{{0, 0}, {20, 0}, {7, 15}};
  mvPointMatcherRunParams params = runParams(degreeRange(-1, 1), mvRange(0, 0));
  useGridSize(params, 1.0);
  mvPointMatcherResultSet results;
  CheckCounter counter;
  trainedMatcher(triangle).run(transformed(similarity(30, 40, 0), triangle), params, results);
  EXPECT_EQ(counter.count(), 2);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
}
