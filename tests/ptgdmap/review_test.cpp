// mfPtToGridMap in corners of its behaviour that the ordinary grids do not reach, each
// worked out by hand step by step.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ptmatch/ptgdmap.h"

namespace {

constexpr double kPi = 3.141592653589793;
constexpr long kU = mvPtToGridMapResult::kUnassigned;

/// The point at distance r from `from` in the direction of `degrees`.
mvVector<2> towards(const mvVector<2>& from, double r, double degrees) {
  const double a = degrees * kPi / 180.0;
  return from + mvVector<2>(r * std::cos(a), r * std::sin(a));
}

mvAngleRange degreeRange(double from, double to) {
  return mvAngleRange(mvRadian(mvDegree(from)), mvRadian(mvDegree(to)), false);
}

}  // namespace

// An angle tolerance from 0.2 to 0.7 degrees reads a profile of two entries, k = 0 and
// k = 1. The peak search starts at the second entry and has nothing to compare it with,
// so the rotation is 1 degree even when the first entry is as high.
//
// The points: P0 = (0, 0) with P1 0.4 away at 3.7 degrees, and Q0 = (5, 0) with Q1 0.4
// away at -3.3 degrees. Pitches 10, sizeTol 0.01 ... 1.2 (distances 0.1 ... 12 accepted),
// snap size 0.5: P0 and P1 lie in adjacent buckets (columns 0 and 1), as do Q0 and Q1
// (columns 10 and 11), and link; the pairs are 9 buckets apart. Link directions: 3.7
// (bin 4), 183.7 (bin 184), 356.7 (bin 357) and 176.7 (bin 177). Smoothed: H[0] = h[357]
// = 1 and H[1] = h[4] = 1, nothing near 90, so the profile is (1, 1) and the rotation 1.
//
// The angular tolerance is atan2(0.5, 10) = 2.862 degrees. Against the rotated first axis
// at 1 degree, P0's link at 3.7 differs by 2.7 and is followed: P0 scores 1 and is the
// seed. (Q0's link at 356.7 differs by 355.7, short of 357.138, and is not followed; at a
// rotation of 0 neither link would be, and there would be no seed at all.)
//
// The trial at P0 puts node (0, 0) on P0, with the axes turned by 1 degree. P1 snaps to
// node (0, 0) at a squared distance of 0.16 <= 0.25; Q0 (5 along the axis, node (0, 0) or
// (1, 0) at best) and Q1 are 4.6 or more off. Two points assigned in each pass, so the
// refit mark 3 is never reached: the count is 2 and the mapping is not valid.
TEST(GridMapReview, TwoEntryProfileTakesTheSecondEntryAsThePeak) {
  const mvVector<2> p0(0.0, 0.0);
  const mvVector<2> q0(5.0, 0.0);
  const std::vector<mvVector<2>> points = {p0, towards(p0, 0.4, 3.7), q0, towards(q0, 0.4, -3.3)};
  const mvPtToGridMapRunParams params(mvVector<2>(10.0, 0.0), mvVector<2>(0.0, 10.0), false, 0.5,
                                      mvRange(0.01, 1.2), degreeRange(0.2, 0.7));
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(points, params, result), 2);
  EXPECT_FALSE(result.valid());
  ASSERT_EQ(result.map().size(), 4u);
  EXPECT_EQ(result.map()[0], mvPair<long>(0, 0));
  EXPECT_EQ(result.map()[1], mvPair<long>(0, 0));
  EXPECT_EQ(result.map()[2], mvPair<long>(kU, kU));
  EXPECT_EQ(result.map()[3], mvPair<long>(kU, kU));
}

// The initial estimate keeps the trial of smallest error among the seed and its followed
// neighbours, and the first growth pass starts from the kept trial's point.
//
// One grid vector (10, 0), snap size 10 (buckets 0, 1 and 2 along x), default tolerances.
// A = (0, 0), B = (10.5, 0), C = (20.5, 0): A links to B, B to C and A, C to B. The
// direction histogram has 2 links at 0 and 2 at 180 degrees; the profile is symmetric
// about 0, so the rotation is 0. A is visited first and follows A -> B -> C: score 2, the
// seed. A's trial (node 0 on A, node 1 on (10, 0)) snaps B to node 1 at (10, 0): error
// 0.25. B's trial (node 0 on B, node 1 on (20.5, 0)) puts C exactly on node 1: error 0, so
// it is kept and B becomes node 0. (C has no followed link: error infinite.)
//
// First pass, centred on B's bucket: B -> 0, then ring 1: C -> 1 and A -> -1 (0.5 off);
// count 3 refits. Second pass, centred on A's bucket: A -> -1, B -> 0, C -> 1. The final
// similarity through (-1, 0), (0, 10.5), (1, 20.5): scale 10.25, translation 31 / 3.
TEST(GridMapReview, InitialEstimateKeepsTheNeighbourTrialOfSmallerError) {
  const std::vector<mvVector<2>> points = {mvVector<2>(0.0, 0.0), mvVector<2>(10.5, 0.0),
                                           mvVector<2>(20.5, 0.0)};
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(
                points, mvPtToGridMapRunParams(mvVector<2>(10.0, 0.0), mvVector<2>(), false, 10.0),
                result),
            3);
  EXPECT_TRUE(result.valid());
  ASSERT_EQ(result.map().size(), 3u);
  EXPECT_EQ(result.map()[0], mvPair<long>(-1, 0));
  EXPECT_EQ(result.map()[1], mvPair<long>(0, 0));
  EXPECT_EQ(result.map()[2], mvPair<long>(1, 0));
  EXPECT_NEAR(result.grid2point().matrix().element(0, 0), 10.25, 1e-9);
  EXPECT_NEAR(result.grid2point().matrix().element(1, 0), 0.0, 1e-9);
  EXPECT_NEAR(result.grid2point().trans().x(), 31.0 / 3.0, 1e-9);
  EXPECT_NEAR(result.grid2point().trans().y(), 0.0, 1e-9);
}
