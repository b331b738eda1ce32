// Hostile parameters and images: zero grid vectors, empty and 1 x 1 images, huge
// maxNumResults and weights, and ranges with NaN ends. Each test states what the library
// does and checks that the object involved came through unharmed.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "mvbase/image.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"
#include "robustness_support.h"

namespace {

using namespace robustness;
using CorrDefs = mv_PointToGridCorresponderDefs;

// Nodes of a 4 x 4 block with a few missing, no symmetry.
std::vector<mvPair<long>> patternNodes() {
  return {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {0, 1}, {2, 1}, {0, 2}, {1, 2}, {3, 2}, {1, 3}, {3, 3}};
}

std::vector<mvPair<long>> shifted(const std::vector<mvPair<long>>& nodes, long dx, long dy) {
  std::vector<mvPair<long>> out;
  for (const mvPair<long>& n : nodes) out.push_back(n + mvPair<long>(dx, dy));
  return out;
}

mv_PointToGridCorresponder trainedCorresponder() {
  mv_PointToGridCorresponder c;
  c.train(patternNodes(), mv_PointToGridCorresponderTrainParams(), mvXform<2>());
  return c;
}

// The corresponder still finds its pattern shifted by (5, 7) at full score.
void expectCorresponderFindsPattern(const mv_PointToGridCorresponder& c) {
  mv_PointToGridCorresponderResultSet results;
  ASSERT_TRUE(c.run(shifted(patternNodes(), 5, 7), mv_PointToGridCorresponderRunParams(), results));
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].score(), 1.0);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(5, 7));
}

// A dot pattern image: the pattern nodes set to 1 in a 4 x 4 image.
mvPelBuffer<unsigned char> patternImage() {
  mvPelBuffer<unsigned char> image(4, 4);
  for (const mvPair<long>& n : patternNodes()) image.put(n.x(), n.y(), 1);
  return image;
}

Points gridOfDots() {
  Points points;
  for (int j = 0; j < 5; ++j) {
    for (int i = 0; i < 6; ++i) points.emplace_back(10.0 * i + 3.0, 10.0 * j + 4.0);
  }
  return points;
}

}  // namespace

// --- Zero grid vectors ---

TEST(HostileZeroGridVectors, GridMapWithBothVectorsNullAssignsNothing) {
  mvPtToGridMapResult result;
  ASSERT_EQ(mfPtToGridMap(
                gridOfDots(),
                mvPtToGridMapRunParams(mvVector<2>(10, 0), mvVector<2>(0, 10), false, 9.0), result),
            30);
  const mvPtToGridMapResult earlier = result;
  for (bool staggered : {false, true}) {
    const mvPtToGridMapRunParams nullVectors(mvVector<2>(), mvVector<2>(), staggered, 9.0);
    EXPECT_EQ(mfPtToGridMap(gridOfDots(), nullVectors, result), 0);
    EXPECT_FALSE(result.valid());
    EXPECT_EQ(result.map(), earlier.map());  // untouched
    EXPECT_EQ(result.grid2point(), earlier.grid2point());
    EXPECT_GE(result.time(), 0.0);
  }
}

TEST(HostileZeroGridVectors, GridMapWithOneNullVectorStillMapsTheGrid) {
  mvPtToGridMapResult result;
  EXPECT_EQ(
      mfPtToGridMap(gridOfDots(),
                    mvPtToGridMapRunParams(mvVector<2>(10, 0), mvVector<2>(), false, 9.0), result),
      30);
  EXPECT_TRUE(result.valid());
}

TEST(HostileZeroGridVectors, GridMapWithNullVectorsAndDefaultSnapSizeAssignsNothing) {
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(gridOfDots(), mvPtToGridMapRunParams(), result), 0);
  EXPECT_FALSE(result.valid());
  EXPECT_TRUE(result.map().empty());
}

// --- Empty images ---

TEST(HostileEmptyImage, MatcherTrainingThrowsInsufficientModelPoints) {
  for (const mvPelBuffer<unsigned char>& image :
       {mvPelBuffer<unsigned char>(), mvPelBuffer<unsigned char>(0, 0),
        mvPelBuffer<unsigned char>(5, 0), mvPelBuffer<unsigned char>(6, 6)}) {
    mvPointMatcher matcher = pointMatcher();
    expectThrowsWithMessage<mvPointMatcherDefs::InsufficientModelPoints>(
        [&] { matcher.train(image); }, "");
    EXPECT_FALSE(matcher.isTrained());  // training untrains first
    matcher.train(referenceModel(), mvPointMatcherDefs::eAutoDetect);
    expectFindsReference(matcher);
  }
}

TEST(HostileEmptyImage, CorresponderTrainingThrowsAndKeepsTheOldProbes) {
  mv_PointToGridCorresponder corresponder = trainedCorresponder();
  const mv_PointToGridCorresponderTrainParams points(true, CorrDefs::ePointFeatures);
  for (const mvPelBuffer<unsigned char>& image :
       {mvPelBuffer<unsigned char>(), mvPelBuffer<unsigned char>(0, 0),
        mvPelBuffer<unsigned char>(7, 3)}) {
    expectThrowsWithMessage<CorrDefs::InsufficientModelPoints>(
        [&] { corresponder.train(image, points); }, "");
    EXPECT_TRUE(corresponder.trainParams() == points);  // replaced even so
    EXPECT_TRUE(corresponder.isTrained());
  }
  // The probes of the earlier training are still there (they do not depend on the
  // staggered flag once made).
  expectCorresponderFindsPattern(corresponder);
}

TEST(HostileEmptyImage, CorresponderRunOnAnEmptyImageFindsNothing) {
  const mv_PointToGridCorresponder corresponder = trainedCorresponder();
  for (const mvPelBuffer<unsigned char>& image :
       {mvPelBuffer<unsigned char>(), mvPelBuffer<unsigned char>(0, 0),
        mvPelBuffer<unsigned char>(0, 9)}) {
    mv_PointToGridCorresponderResultSet results;
    EXPECT_FALSE(corresponder.run(image, mv_PointToGridCorresponderRunParams(), results));
    EXPECT_TRUE(results.results().empty());
    EXPECT_GE(results.time(), 0.0);
  }
  mv_PointToGridCorresponderResultSet results;
  EXPECT_FALSE(corresponder.run(std::vector<mvPair<long>>(), mv_PointToGridCorresponderRunParams(),
                                results));
  expectCorresponderFindsPattern(corresponder);
}

TEST(HostileEmptyImage, ImageTrainedMatcherRunsOnNoDataAndFindsNothing) {
  mvPointMatcher matcher;
  matcher.train(patternImage());
  const Bytes before = storeObject(matcher);
  mvPointMatcherResultSet results;
  matcher.run(Points(), mvPointMatcherRunParams(), results);
  EXPECT_TRUE(results.results().empty());
  EXPECT_EQ(storeObject(matcher), before);
}

// --- A 1 x 1 image ---

TEST(HostileOnePelImage, MatcherTrainingThrowsInsufficientModelPoints) {
  for (unsigned char value : {0, 1, 255}) {
    mvPelBuffer<unsigned char> image(1, 1);
    image.put(0, 0, value);
    mvPointMatcher matcher = pointMatcher();
    expectThrowsWithMessage<mvPointMatcherDefs::InsufficientModelPoints>(
        [&] { matcher.train(image); }, "");
    EXPECT_FALSE(matcher.isTrained());
  }
}

TEST(HostileOnePelImage, CorresponderTrainingThrowsInsufficientModelPoints) {
  mvPelBuffer<unsigned char> image(1, 1);
  image.put(0, 0, 1);
  mv_PointToGridCorresponder corresponder = trainedCorresponder();
  EXPECT_THROW(corresponder.train(image, mv_PointToGridCorresponderTrainParams()),
               CorrDefs::InsufficientModelPoints);
  expectCorresponderFindsPattern(corresponder);
}

TEST(HostileOnePelImage, CorresponderRunOnAOnePelImageFindsNothing) {
  const mv_PointToGridCorresponder corresponder = trainedCorresponder();
  mvPelBuffer<unsigned char> image(1, 1);
  image.put(0, 0, 1);
  mv_PointToGridCorresponderResultSet results;
  EXPECT_FALSE(corresponder.run(image, mv_PointToGridCorresponderRunParams(), results));
  EXPECT_TRUE(results.results().empty());
  EXPECT_FALSE(corresponder.run(std::vector<mvPair<long>>{{4, 4}},
                                mv_PointToGridCorresponderRunParams(), results));
}

// --- Huge maxNumResults ---

TEST(HostileHugeMaxNumResults, PointToPointRunReportsEveryResultWithBoundedMemory) {
  mvPointMatcher matcher = pointMatcher();
  const Bytes before = storeObject(matcher);
  mvPointMatcherRunParams params = referenceParams();
  params.minCoverage(0.2);
  params.maxNumResults(50);
  mvPointMatcherResultSet some;
  matcher.run(referenceData(), params, some);
  for (long huge : {2147483647L, std::numeric_limits<long>::max()}) {
    params.maxNumResults(huge);
    mvPointMatcherResultSet all;
    matcher.run(referenceData(), params, all);
    expectValidResults(all, 5, 5, huge, mvPointMatcherDefs::ePointToPoint);
    ASSERT_EQ(all.results().size(), some.results().size());
    for (std::size_t k = 0; k < all.results().size(); ++k) {
      EXPECT_EQ(all.results()[k].coverage(), some.results()[k].coverage());
      EXPECT_EQ(all.results()[k].fitError(), some.results()[k].fitError());
    }
  }
  expectIntact(matcher, before);
}

TEST(HostileHugeMaxNumResults, ExhaustiveRunReportsEveryResult) {
  mvPointMatcher matcher = exhaustiveMatcher({{0, 0}, {10, 0}, {0, 10}});
  mvPointMatcherRunParams params = exhaustiveParams();
  params.maxNumResults(2147483647L);
  mvPointMatcherResultSet results;
  matcher.run({{3, 4}, {13, 4}, {3, 14}, {20, 20}}, params, results);
  expectValidResults(results, 3, 4, 2147483647L, mvPointMatcherDefs::eExhaustiveMode);
  ASSERT_FALSE(results.results().empty());
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
}

TEST(HostileHugeMaxNumResults, CorresponderRunReportsEveryPosition) {
  const mv_PointToGridCorresponder corresponder = trainedCorresponder();
  mv_PointToGridCorresponderResultSet results;
  ASSERT_TRUE(corresponder.run(shifted(patternNodes(), 5, 7),
                               mv_PointToGridCorresponderRunParams(0.5, 1.0, 2147483647L),
                               results));
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(5, 7));
  EXPECT_LT(results.results().size(), 100u);
}

TEST(HostileHugeMaxNumResults, ImageTrainedRunReportsItsResults) {
  mvPointMatcher matcher;
  matcher.train(patternImage());
  Points data;
  for (const mvPair<long>& n : patternNodes()) data.emplace_back(n.x() + 20.0, n.y() + 30.0);
  mvPointMatcherRunParams params;
  params.autoCaptureRange(false);
  params.captureRange(1.0);  // the pitch: the grid mapping's snap size
  params.maxNumResults(2147483647L);
  mvPointMatcherResultSet results;
  matcher.run(data, params, results);
  ASSERT_FALSE(results.results().empty());
  EXPECT_EQ(results.results()[0].runMode(), mvPointMatcherDefs::ePointToGrid);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
}

// --- Huge weights ---

TEST(HostileHugeWeights, PointToPointRunRefusesWeightsAddingUpPast4194304) {
  mvPointMatcher matcher;
  matcher.train(referenceModel(), {2000000000L, 147483646L, 1, 0, -5},
                mvPointMatcherDefs::eAutoDetect);
  mvPointMatcherResultSet results;
  expectThrowsWithMessage<mvPointMatcherDefs::BadParams>(
      [&] { matcher.run(referenceData(), referenceParams(), results); },
      "the positive weights must add up to at most 4194304 for a point-to-point run\n");
  // At the bound the run works.
  matcher.train(referenceModel(), {838860L, 838861L, 838861L, 838861L, 838861L},
                mvPointMatcherDefs::eAutoDetect);
  matcher.run(referenceData(), referenceParams(), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
}

TEST(HostileHugeWeights, TrainingRefusesAPositiveTotalBeyond32Bits) {
  mvPointMatcher matcher;
  expectThrowsWithMessage<mvPointMatcherDefs::BadParams>(
      [&] {
        matcher.train(referenceModel(), {2000000000L, 2000000000L, 1, 1, 1},
                      mvPointMatcherDefs::eAutoDetect);
      },
      "the positive weights must add up to at most 2147483647\n");
  EXPECT_FALSE(matcher.isTrained());
}

// --- Ranges with NaN ends ---

TEST(HostileNanRangeEnds, ARangeBuiltFromANaNEndIsEmptyAndRefused) {
  mvPointMatcherRunParams params = referenceParams();
  const mvPointMatcherRunParams before = params;
  EXPECT_THROW(params.xTranslationUncertainty(mvRange(kNaN, 5.0)), mvPointMatcherDefs::BadParams);
  EXPECT_THROW(params.yTranslationUncertainty(mvRange(0.0, kNaN)), mvPointMatcherDefs::BadParams);
  EXPECT_THROW(params.scaleUncertainty(mvRange(kNaN, kNaN)), mvPointMatcherDefs::BadParams);
  EXPECT_THROW(params.rotationUncertainty(mvAngleRange(mvRadian(kNaN), mvRadian(1.0), false)),
               mvPointMatcherDefs::BadParams);
  EXPECT_TRUE(params == before);
}

TEST(HostileNanRangeEnds, NaNStartOfATranslationRangeLeavesNoTranslation) {
  // A translation range of kind eNormal is turned into whole-cell offsets; a NaN offset
  // counts as lying beyond every raster. So a NaN start leaves no offset at all...
  mvPointMatcher matcher = pointMatcher();
  const Bytes before = storeObject(matcher);
  mvPointMatcherRunParams params = referenceParams();
  params.xTranslationUncertainty(mvRange(kNaN, 200.0, mvRangeDefs::eNormal));
  mvPointMatcherResultSet results;
  matcher.run(referenceData(), params, results);
  EXPECT_TRUE(results.results().empty());
  EXPECT_GE(results.time(), 0.0);
  expectIntact(matcher, before);
}

TEST(HostileNanRangeEnds, NaNEndOfATranslationRangeLeavesThatEndOpen) {
  // ... and a NaN end bounds nothing: the model is found as with an open range.
  mvPointMatcher matcher = pointMatcher();
  mvPointMatcherRunParams params = referenceParams();
  params.yTranslationUncertainty(mvRange(0.0, kNaN, mvRangeDefs::eNormal));
  mvPointMatcherResultSet results;
  matcher.run(referenceData(), params, results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
}

TEST(HostileNanRangeEnds, NaNEndsOfTheScaleAndRotationRangesFindNothing) {
  // No scale or rotation compares within a range with a NaN end, and the lattices built
  // from such a range are empty.
  mvPointMatcher matcher = pointMatcher();
  const Bytes before = storeObject(matcher);
  for (int which = 0; which < 4; ++which) {
    mvPointMatcherRunParams params = referenceParams();
    switch (which) {
      case 0:
        params.scaleUncertainty(mvRange(kNaN, 0.1, mvRangeDefs::eNormal));
        break;
      case 1:
        params.scaleUncertainty(mvRange(0.0, kNaN, mvRangeDefs::eNormal));
        break;
      case 2:
        params.rotationUncertainty(
            mvAngleRange(mvRadian(kNaN), mvRadian(1.0), mvRangeDefs::eNormal));
        break;
      default:
        params.rotationUncertainty(
            mvAngleRange(mvRadian(0.0), mvRadian(kNaN), mvRangeDefs::eNormal));
        break;
    }
    mvPointMatcherResultSet results;
    matcher.run(referenceData(), params, results);
    EXPECT_TRUE(results.results().empty()) << "case " << which;
  }
  expectIntact(matcher, before);
}

TEST(HostileNanRangeEnds, ExhaustiveSearchWithNaNRangeEndsFindsNothing) {
  mvPointMatcher matcher = exhaustiveMatcher({{0, 0}, {10, 0}, {0, 10}});
  mvPointMatcherRunParams params = exhaustiveParams();
  params.xTranslationUncertainty(mvRange(kNaN, 5.0, mvRangeDefs::eNormal));
  mvPointMatcherResultSet results;
  matcher.run({{3, 4}, {13, 4}, {3, 14}}, params, results);
  EXPECT_TRUE(results.results().empty());
}

TEST(HostileNanRangeEnds, GridMapRefusesANaNAngleToleranceAndIgnoresANaNSizeTolerance) {
  mvPtToGridMapRunParams params(mvVector<2>(10, 0), mvVector<2>(0, 10), false, 9.0);
  params.angleTol(mvAngleRange(mvRadian(kNaN), mvRadian(0.3), mvRangeDefs::eNormal));
  mvPtToGridMapResult result;
  expectThrowsWithMessage<mvPtToGridMapDefs::BadInput>(
      [&] { mfPtToGridMap(gridOfDots(), params, result); },
      "The angle tolerance is not finite or spans more than 100 turns.");
  // A size tolerance with a NaN end accepts no neighbour distance: no seed, nothing mapped.
  params.angleTol(mvAngleRange());
  params.sizeTol(mvRange(kNaN, 1.2, mvRangeDefs::eNormal));
  EXPECT_EQ(mfPtToGridMap(gridOfDots(), params, result), 0);
  EXPECT_FALSE(result.valid());
}
