// mfPtToGridMap with one input broken at a time: each is refused with
// mvPtToGridMapDefs::BadInput (or, for degenerate grids, answered with a count of 0),
// never a crash.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "ptmatch/ptgdmap.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

std::vector<mvVector<2>> goodPoints() {
  std::vector<mvVector<2>> points;
  for (long j = 0; j < 4; ++j) {
    for (long i = 0; i < 4; ++i) {
      points.emplace_back(10.0 * static_cast<double>(i), 10.0 * static_cast<double>(j));
    }
  }
  return points;
}

mvPtToGridMapRunParams goodParams() {
  return mvPtToGridMapRunParams(mvVector<2>(10.0, 0.0), mvVector<2>(0.0, 10.0), false, 10.0);
}

long run(const std::vector<mvVector<2>>& points, const mvPtToGridMapRunParams& params) {
  mvPtToGridMapResult result;
  return mfPtToGridMap(points, params, result);
}

}  // namespace

TEST(GridMapBadInput, TheGoodCallMapsEveryPoint) { EXPECT_EQ(run(goodPoints(), goodParams()), 16); }

TEST(GridMapBadInput, NaNCoordinateIsRefused) {
  std::vector<mvVector<2>> points = goodPoints();
  points[0] = mvVector<2>(0.0, kNaN);
  EXPECT_THROW(run(points, goodParams()), mvPtToGridMapDefs::BadInput);
}

TEST(GridMapBadInput, InfiniteCoordinateIsRefused) {
  std::vector<mvVector<2>> points = goodPoints();
  points.back() = mvVector<2>(-kInf, 3.0);
  EXPECT_THROW(run(points, goodParams()), mvPtToGridMapDefs::BadInput);
}

TEST(GridMapBadInput, BadInputIsCaughtAsTheLibrarysException) {
  std::vector<mvVector<2>> points = goodPoints();
  points[3] = mvVector<2>(kInf, kInf);
  EXPECT_THROW(run(points, goodParams()), mvException);
}

TEST(GridMapBadInput, NonFiniteGridVectorIsRefused) {
  mvPtToGridMapRunParams params = goodParams();
  params.xv(mvVector<2>(kNaN, 0.0));
  EXPECT_THROW(run(goodPoints(), params), mvPtToGridMapDefs::BadInput);
  params = goodParams();
  params.yv(mvVector<2>(0.0, kInf));
  EXPECT_THROW(run(goodPoints(), params), mvPtToGridMapDefs::BadInput);
}

TEST(GridMapBadInput, NonFiniteSnapSizeIsRefused) {
  mvPtToGridMapRunParams params = goodParams();
  params.snapSize(kNaN);
  EXPECT_THROW(run(goodPoints(), params), mvPtToGridMapDefs::BadInput);
  params.snapSize(kInf);
  EXPECT_THROW(run(goodPoints(), params), mvPtToGridMapDefs::BadInput);
}

TEST(GridMapBadInput, NonFiniteAngleToleranceIsRefused) {
  mvPtToGridMapRunParams params = goodParams();
  params.angleTol(mvAngleRange(mvRadian(kNaN), mvRadian(0.1), mvRangeDefs::eNormal));
  EXPECT_THROW(run(goodPoints(), params), mvPtToGridMapDefs::BadInput);
  params.angleTol(mvAngleRange(mvRadian(0.0), mvRadian(1e300), mvRangeDefs::eFull));
  EXPECT_THROW(run(goodPoints(), params), mvPtToGridMapDefs::BadInput);
}

// An empty tolerance is replaced by the default, whatever its ends hold.
TEST(GridMapBadInput, EmptyAngleToleranceWithNaNEndsIsTheDefault) {
  mvPtToGridMapRunParams params = goodParams();
  params.angleTol(mvAngleRange(mvRadian(kNaN), mvRadian(kNaN), mvRangeDefs::eEmpty));
  EXPECT_EQ(run(goodPoints(), params), 16);
}

TEST(GridMapBadInput, PointsSpreadOverTooManyBucketsAreRefused) {
  std::vector<mvVector<2>> points = goodPoints();
  points.emplace_back(1e12, 1e12);
  EXPECT_THROW(run(points, goodParams()), mvPtToGridMapDefs::BadInput);
}

// Vectors too short for their length to be represented give no snap size: count 0.
TEST(GridMapBadInput, GridVectorsOfUnderflowingLengthGiveZero) {
  mvPtToGridMapRunParams params(mvVector<2>(1e-200, 0.0), mvVector<2>(0.0, 1e-200), false, 0.0);
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(goodPoints(), params, result), 0);
  EXPECT_FALSE(result.valid());
}

// A full tolerance reads the profile from 0 to 360 degrees; the peak search starts one
// entry in, so the first of the equal peaks at 90, 180 and 270 wins: the rotation is 90
// degrees and the index axes come out a quarter turn round (first index along +y, second
// along -x). Still a complete mapping of the lattice.
TEST(GridMapBadInput, FullAngleToleranceTurnsTheAxesAQuarterTurn) {
  mvPtToGridMapRunParams params = goodParams();
  params.angleTol(mvAngleRange::FullRange());
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(goodPoints(), params, result), 16);
  for (long k = 0; k < 16; ++k) {
    const long i = k % 4;
    const long j = k / 4;
    EXPECT_EQ(result.map()[k] - result.map()[0], mvPair<long>(j, -i)) << k;
  }
}

TEST(GridMapBadInput, ToleranceOfSeveralTurnsStaysInsideTheHistogram) {
  mvPtToGridMapRunParams params = goodParams();
  params.angleTol(mvAngleRange(mvRadian(-30.0), mvRadian(30.0), mvRangeDefs::eNormal));
  EXPECT_NO_THROW(run(goodPoints(), params));
}

TEST(GridMapBadInput, ZeroWidthAngleToleranceMeansNoRotation) {
  mvPtToGridMapRunParams params = goodParams();
  params.angleTol(mvAngleRange(mvRadian(0.0), mvRadian(0.0)));
  EXPECT_EQ(run(goodPoints(), params), 16);
}

TEST(GridMapBadInput, BackwardsAngleToleranceMeansNoRotation) {
  mvPtToGridMapRunParams params = goodParams();
  params.angleTol(mvAngleRange(mvRadian(0.2), mvRadian(-0.2), mvRangeDefs::eNormal));
  EXPECT_EQ(run(goodPoints(), params), 16);
}

TEST(GridMapBadInput, SizeToleranceAdmittingZeroLinksPointsToThemselves) {
  mvPtToGridMapRunParams params = goodParams();
  params.sizeTol(mvRange(0.0, 1.2));
  EXPECT_EQ(run(goodPoints(), params), 16);
  // Duplicates at distance 0 are linked to each other too and share a node.
  std::vector<mvVector<2>> points = goodPoints();
  points.push_back(points[5]);
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(points, params, result), 17);
  EXPECT_EQ(result.map()[5], result.map()[16]);
}
