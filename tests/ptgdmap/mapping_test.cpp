// mfPtToGridMap on small grids whose outcome is worked out by hand, and its edge cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "common/transform_near.h"
#include "ptmatch/ptgdmap.h"

using namespace archive_bytes;

namespace {

using transform_near::isNear;

constexpr long kU = mvPtToGridMapResult::kUnassigned;
/// Transforms fitted to exact grids agree with the hand values to rounding.
constexpr double kFitTolerance = 1e-9;

const mvVector<2> kX10(10.0, 0.0);
const mvVector<2> kY10(0.0, 10.0);

/// Dots at (10 i, 10 j) + origin for 0 <= i < columns, 0 <= j < rows, row by row; for a
/// staggered grid only where i + j is even.
std::vector<mvVector<2>> lattice(long columns, long rows, bool staggered = false,
                                 mvVector<2> origin = mvVector<2>(0.0, 0.0)) {
  std::vector<mvVector<2>> points;
  for (long j = 0; j < rows; ++j) {
    for (long i = 0; i < columns; ++i) {
      if (staggered && (i + j) % 2 != 0) continue;
      points.push_back(origin +
                       mvVector<2>(10.0 * static_cast<double>(i), 10.0 * static_cast<double>(j)));
    }
  }
  return points;
}

/// A result loaded from hand-written bytes: valid true, time -1 (so a call that sets the
/// time shows), grid2point (1 2; 3 4) + (5, 6), map {(7, 8)}.
mvPtToGridMapResult preparedResult() {
  constexpr std::uint64_t kMinusOne = 0xBFF0000000000000ull;
  const Bytes bytes = cat({le32(1100),
                           {1},
                           le64(kMinusOne),
                           le64(kOne),
                           le64(kTwo),
                           le64(kThree),
                           le64(kFour),
                           le64(kFive),
                           le64(kSix),
                           {0},
                           le32(1),
                           {0},
                           le32(7),
                           le32(8)});
  return load<mvPtToGridMapResult>(bytes);
}

const mvXform<2> kPreparedXform(mvMatrix<2>(1.0, 2.0, 3.0, 4.0), mvVector<2>(5.0, 6.0));

}  // namespace

// --- the ordinary path, worked out by hand ---

// A 3 x 3 lattice with snap size 10: every dot lies in its own bucket, links run to the
// right, down, left and up; the first dot's chain of rightward and downward links reaches
// all 8 others, so it is the seed. Node (0, 0) goes to the dot whose trial fits best among
// the seed, its used neighbours (1, 0) and (0, 1), and theirs (2, 0), (1, 1) and (0, 2):
// on an exact lattice they all fit to rounding, so any of them may win; the nodes of all
// dots then follow from that one by the lattice.
TEST(GridMap, ExactLatticeMapsEachDotToItsNodeFromATrialDot) {
  const std::vector<mvVector<2>> points = lattice(3, 3);
  mvPtToGridMapResult result;
  const long count = mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, kY10, false, 10.0), result);
  EXPECT_EQ(count, 9);
  EXPECT_TRUE(result.valid());
  ASSERT_EQ(result.map().size(), 9u);
  const mvPair<long> origin = mvPair<long>(0, 0) - result.map()[0];  // dot of node (0, 0)
  const std::vector<mvPair<long>> trialDots = {{0, 0}, {1, 0}, {0, 1}, {2, 0}, {1, 1}, {0, 2}};
  EXPECT_NE(std::find(trialDots.begin(), trialDots.end(), origin), trialDots.end());
  for (long k = 0; k < 9; ++k) {
    EXPECT_EQ(result.map()[k], mvPair<long>(k % 3, k / 3) - origin) << k;
  }
  const mvVector<2> originPoint(10.0 * static_cast<double>(origin.x()),
                                10.0 * static_cast<double>(origin.y()));
  EXPECT_TRUE(isNear(result.grid2point(),
                     mvXform<2>(mvMatrix<2>(10.0, 0.0, 0.0, 10.0), originPoint), kFitTolerance));
  EXPECT_GE(result.time(), 0.0);
}

// The same lattice away from the origin and with the dots in another order maps every dot
// to the same nodes relative to the seed's dot.
TEST(GridMap, IndicesFollowTheGivenAxesWhateverTheInputOrder) {
  std::vector<mvVector<2>> points = lattice(4, 3, false, mvVector<2>(-35.0, 120.0));
  std::swap(points[0], points[11]);
  std::swap(points[3], points[7]);
  mvPtToGridMapResult result;
  ASSERT_EQ(mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, kY10, false, 10.0), result), 12);
  for (std::size_t k = 0; k < points.size(); ++k) {
    // grid2point takes each node back onto its dot: node differences follow xv and yv.
    const mvVector<2> back = result.grid2point() * mvVector<2>(result.map()[k]);
    EXPECT_NEAR(back.x(), points[k].x(), kFitTolerance);
    EXPECT_NEAR(back.y(), points[k].y(), kFitTolerance);
  }
  EXPECT_NEAR(result.grid2point().matrix().element(0, 0), 10.0, kFitTolerance);
  EXPECT_NEAR(result.grid2point().matrix().element(1, 1), 10.0, kFitTolerance);
}

// --- edge cases ---

TEST(GridMap, EmptyPointListReturnsZeroAndLeavesTheRestAlone) {
  mvPtToGridMapResult result = preparedResult();
  EXPECT_EQ(mfPtToGridMap({}, mvPtToGridMapRunParams(kX10, kY10, false, 10.0), result), 0);
  EXPECT_FALSE(result.valid());
  EXPECT_GE(result.time(), 0.0);
  EXPECT_EQ(result.grid2point(), kPreparedXform);
  ASSERT_EQ(result.map().size(), 1u);
  EXPECT_EQ(result.map()[0], mvPair<long>(7, 8));
}

TEST(GridMap, SinglePointReturnsZero) {
  mvPtToGridMapResult result = preparedResult();
  EXPECT_EQ(mfPtToGridMap({mvVector<2>(3.0, 4.0)}, mvPtToGridMapRunParams(kX10, kY10), result), 0);
  EXPECT_FALSE(result.valid());
  EXPECT_EQ(result.map().size(), 1u);
}

TEST(GridMap, TwoNullGridVectorsReturnZero) {
  const std::vector<mvVector<2>> points = lattice(3, 3);
  mvPtToGridMapResult result = preparedResult();
  EXPECT_EQ(mfPtToGridMap(points, mvPtToGridMapRunParams(), result), 0);
  EXPECT_FALSE(result.valid());
  EXPECT_EQ(mfPtToGridMap(points, mvPtToGridMapRunParams(mvVector<2>(), mvVector<2>(), false, 5.0),
                          result),
            0);
  EXPECT_FALSE(result.valid());
  EXPECT_EQ(result.map()[0], mvPair<long>(7, 8));
}

// A staggered grid whose diagonals cancel (xv = -yv) keeps one diagonal: not an error.
TEST(GridMap, StaggeredGridWithOppositeVectorsIsNotAnError) {
  mvPtToGridMapResult result;
  EXPECT_NO_THROW(
      mfPtToGridMap(lattice(3, 3), mvPtToGridMapRunParams(kX10, -kX10, true, 10.0), result));
}

// The default snap size, 0.2 of the pitch, makes buckets of 2: a neighbour 10 away lies 5
// buckets off, outside the 3 x 3 buckets searched, so no dot gets a link, there is no
// seed, nothing is assigned and the map is not touched.
TEST(GridMap, DefaultSnapSizeFindsNoNeighboursAndAssignsNothing) {
  const std::vector<mvVector<2>> points = lattice(10, 10);
  mvPtToGridMapResult result = preparedResult();
  EXPECT_EQ(mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, kY10), result), 0);
  EXPECT_FALSE(result.valid());
  ASSERT_EQ(result.map().size(), 1u);
  EXPECT_EQ(result.map()[0], mvPair<long>(7, 8));
  EXPECT_EQ(result.grid2point(), kPreparedXform);

  // The same grid with a snap size of one pitch maps every dot.
  EXPECT_EQ(mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, kY10, false, 10.0), result), 100);
  EXPECT_TRUE(result.valid());
}

// Two dots one pitch apart: the first links to the second, so it is a seed; both snap, but
// 2 assignments are too few: not valid, grid2point untouched, the map holds both nodes.
TEST(GridMap, FewerThanThreeAssignedIsNotValidAndKeepsTheTransform) {
  mvPtToGridMapResult result = preparedResult();
  const long count = mfPtToGridMap({mvVector<2>(0.0, 0.0), mvVector<2>(10.0, 0.0)},
                                   mvPtToGridMapRunParams(kX10, kY10, false, 10.0), result);
  EXPECT_EQ(count, 2);
  EXPECT_FALSE(result.valid());
  EXPECT_EQ(result.grid2point(), kPreparedXform);
  ASSERT_EQ(result.map().size(), 2u);
  EXPECT_EQ(result.map()[0], mvPair<long>(0, 0));
  EXPECT_EQ(result.map()[1], mvPair<long>(1, 0));
}

// Dots on one grid row are collinear nodes: the final fit is a similarity (4 degrees of
// freedom) although both grid vectors are given; an affine fit could not be made at all.
TEST(GridMap, PointsOnOneGridLineGetASimilarityFit) {
  const std::vector<mvVector<2>> points = lattice(6, 1, false, mvVector<2>(50.0, 20.0));
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, kY10, false, 10.0), result), 6);
  EXPECT_TRUE(result.valid());
  // Node (0, 0) is the first dot, its right neighbour or the one after (the trials).
  const long origin = -result.map()[0].x();
  EXPECT_TRUE(origin >= 0 && origin <= 2) << origin;
  for (long k = 0; k < 6; ++k) EXPECT_EQ(result.map()[k], mvPair<long>(k - origin, 0));
  // The similarity carries the second axis perpendicular to the first at the same scale.
  EXPECT_TRUE(isNear(result.grid2point(),
                     mvXform<2>(mvMatrix<2>(10.0, 0.0, 0.0, 10.0),
                                mvVector<2>(50.0 + 10.0 * static_cast<double>(origin), 20.0)),
                     kFitTolerance));
}

// With one grid vector the final fit is a similarity too.
TEST(GridMap, OneGridVectorMapsARowWithASimilarity) {
  const std::vector<mvVector<2>> points = lattice(5, 1);
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, mvVector<2>(), false, 10.0), result),
            5);
  EXPECT_TRUE(result.valid());
  for (long k = 0; k < 5; ++k) EXPECT_EQ(result.map()[k].x() - result.map()[0].x(), k);
  EXPECT_NEAR(result.grid2point().matrix().element(0, 0), 10.0, kFitTolerance);
  EXPECT_NEAR(result.grid2point().matrix().element(1, 0), 0.0, kFitTolerance);
}

// A staggered lattice: the search runs on the diagonals (10, 10) and (-10, 10); its nodes
// (u, v) come back as (u - v, u + v): the dots' own (i, j) less the (i, j) of the dot that
// became node (0, 0), all of even index sum.
TEST(GridMap, StaggeredNodesComeBackInTheGridsOwnAxesWithEvenSums) {
  const std::vector<mvVector<2>> points = lattice(5, 5, true);
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, kY10, true, 10.0), result), 13);
  EXPECT_TRUE(result.valid());
  ASSERT_EQ(points[0], mvVector<2>(0.0, 0.0));
  const mvPair<long> origin = mvPair<long>(0, 0) - result.map()[0];
  EXPECT_EQ((origin.x() + origin.y()) % 2, 0);
  for (std::size_t k = 0; k < points.size(); ++k) {
    const mvPair<long>& n = result.map()[k];
    EXPECT_EQ((n.x() + n.y()) % 2, 0) << k;
    const mvPair<long> dot(static_cast<long>(points[k].x() / 10.0),
                           static_cast<long>(points[k].y() / 10.0));
    EXPECT_EQ(n, dot - origin) << k;
  }
  const mvVector<2> originPoint(10.0 * static_cast<double>(origin.x()),
                                10.0 * static_cast<double>(origin.y()));
  EXPECT_TRUE(isNear(result.grid2point(),
                     mvXform<2>(mvMatrix<2>(10.0, 0.0, 0.0, 10.0), originPoint), kFitTolerance));
}

// With snap size 6 a point in the middle of a cell lies 7.07 from every node: it is tested
// and not assigned, and keeps the marker. (Buckets of 6 still hold some neighbours one
// pitch apart side by side, so a seed is found.)
TEST(GridMap, UnassignedPointKeepsTheMarker) {
  std::vector<mvVector<2>> points = lattice(5, 5);
  points.insert(points.begin() + 7, mvVector<2>(15.0, 15.0));
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, kY10, false, 6.0), result), 25);
  EXPECT_TRUE(result.valid());
  EXPECT_EQ(result.map()[7], mvPair<long>(kU, kU));
  const mvPair<long> shift = result.map()[0];
  for (std::size_t k = 0; k < points.size(); ++k) {
    if (k == 7) continue;
    const mvPair<long> truth(static_cast<long>(points[k].x() / 10.0),
                             static_cast<long>(points[k].y() / 10.0));
    EXPECT_EQ(result.map()[k] - truth, shift) << k;
  }
}

// The same after the staggered conversion: a point on an empty (odd) position lies 10 from
// the nearest dot's node and keeps the marker untouched by the conversion.
TEST(GridMap, UnassignedPointKeepsTheMarkerThroughTheStaggeredConversion) {
  std::vector<mvVector<2>> points = lattice(6, 6, true);
  points.push_back(mvVector<2>(30.0, 20.0));  // (3, 2): odd index sum, no dot there
  mvPtToGridMapResult result;
  const long count = mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, kY10, true, 6.0), result);
  EXPECT_EQ(count, 18);
  EXPECT_TRUE(result.valid());
  EXPECT_EQ(result.map().back(), mvPair<long>(kU, kU));
  for (std::size_t k = 0; k + 1 < points.size(); ++k) {
    const mvPair<long>& n = result.map()[k];
    EXPECT_EQ((n.x() + n.y()) % 2, 0) << k;
  }
}

// --- timing and failures ---

TEST(GridMap, EveryReturnSetsTheTime) {
  mvPtToGridMapResult result = preparedResult();
  ASSERT_EQ(result.time(), -1.0);
  mfPtToGridMap(lattice(3, 3), mvPtToGridMapRunParams(kX10, kY10), result);  // no seed
  EXPECT_GE(result.time(), 0.0);
}

TEST(GridMap, NonFinitePointThrowsBadInputAfterSettingTheTime) {
  mvPtToGridMapResult result = preparedResult();
  std::vector<mvVector<2>> points = lattice(3, 3);
  points[4] = mvVector<2>(std::numeric_limits<double>::quiet_NaN(), 0.0);
  EXPECT_THROW_MESSAGE(
      mfPtToGridMap(points, mvPtToGridMapRunParams(kX10, kY10, false, 10.0), result),
      mvPtToGridMapDefs::BadInput, L"Point 4 is not finite.");
  EXPECT_GE(result.time(), 0.0);
  EXPECT_FALSE(result.valid());
  EXPECT_EQ(result.map().size(), 1u);
}

// Parallel grid vectors make the first trial transform singular: the base library's
// mvMathError passes out unchanged, and the time is set.
TEST(GridMap, ExceptionsOfTheTransformPassThroughAfterSettingTheTime) {
  mvPtToGridMapResult result = preparedResult();
  EXPECT_THROW(
      mfPtToGridMap(lattice(5, 1), mvPtToGridMapRunParams(kX10, kX10 * 2.0, false, 10.0), result),
      mvMathError);
  EXPECT_GE(result.time(), 0.0);
}

// --- corners that the ordinary grids do not reach, each worked out by hand step by step ---

namespace {

constexpr double kPi = 3.141592653589793;

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
TEST(GridMapRotationProfile, TwoEntryProfileTakesTheSecondEntryAsThePeak) {
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
TEST(GridMapInitialEstimate, KeepsTheNeighbourTrialOfSmallerError) {
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
