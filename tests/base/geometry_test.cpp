// Geometry value types, rounding and the stopwatch.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "mvbase/exception.h"
#include "mvbase/geometry.h"
#include "mvbase/timer.h"

namespace {
constexpr double kPi = 3.141592653589793;
// Results of a few trigonometric steps; a few units in the last place.
constexpr double kTrigTolerance = 1e-12;
}  // namespace

// --- vectors and angles ---

TEST(Vector, DefaultIsOrigin) {
  EXPECT_EQ(mvVector<2>(), mvVector<2>(0.0, 0.0));
  EXPECT_EQ(mvVector<3>(), mvVector<3>(0.0, 0.0, 0.0));
  EXPECT_TRUE(mvVector<2>().isNull());
  EXPECT_FALSE(mvVector<2>(0.0, 1e-300).isNull());
}

TEST(Vector, ArithmeticLengthAndDirection) {
  const mvVector<2> a(3.0, 4.0);
  EXPECT_EQ(a + mvVector<2>(1.0, 1.0), mvVector<2>(4.0, 5.0));
  EXPECT_EQ(a - mvVector<2>(1.0, 1.0), mvVector<2>(2.0, 3.0));
  EXPECT_EQ(a.len(), 5.0);
  EXPECT_EQ(mvVector<3>(2.0, 3.0, 6.0).len(), 7.0);
  EXPECT_NEAR(mvVector<2>(0.0, 2.0).angle().toDouble(), kPi / 2, kTrigTolerance);
  EXPECT_NEAR(mvVector<2>(-1.0, 0.0).angle().toDouble(), kPi, kTrigTolerance);
}

TEST(Vector, ConvertsPixelPairs) {
  EXPECT_EQ(mvVector<2>(mvPair<long>(-3, 7)), mvVector<2>(-3.0, 7.0));
}

TEST(Angle, DegreesAndRadiansConvert) {
  EXPECT_NEAR(mvRadian(mvDegree(180.0)).toDouble(), kPi, kTrigTolerance);
  EXPECT_NEAR(mvDegree(mvRadian(kPi / 2)).toDouble(), 90.0, 1e-12);
  EXPECT_EQ((mvRadian(3.0) / 2.0).toDouble(), 1.5);
}

// --- ranges ---

TEST(Range, DefaultIsEmpty) {
  EXPECT_EQ(mvRange().range(), mvRangeDefs::eEmpty);
  EXPECT_EQ(mvAngleRange().range(), mvRangeDefs::eEmpty);
}

TEST(Range, KindFollowsTheEnds) {
  EXPECT_EQ(mvRange(1.0, 2.0).range(), mvRangeDefs::eNormal);
  EXPECT_EQ(mvRange(1.0, 1.0).range(), mvRangeDefs::eNormal);
  EXPECT_EQ(mvRange(2.0, 1.0).range(), mvRangeDefs::eEmpty);
  EXPECT_EQ(mvRange::FullRange().range(), mvRangeDefs::eFull);
}

TEST(Range, NormalRangeHoldsItsEnds) {
  const mvRange r(1.0, 2.0);
  EXPECT_TRUE(r.isWithin(1.0));
  EXPECT_TRUE(r.isWithin(2.0));
  EXPECT_TRUE(r.isWithin(1.5));
  EXPECT_FALSE(r.isWithin(0.999));
  EXPECT_FALSE(r.isWithin(2.001));
  EXPECT_EQ(r.length(), 1.0);
  EXPECT_EQ(r.middle(), 1.5);
}

TEST(Range, EmptyHoldsNothingWhateverItsEnds) {
  const mvRange empty(0.0, 10.0, mvRangeDefs::eEmpty);
  EXPECT_FALSE(empty.isWithin(5.0));
  EXPECT_FALSE(empty.isWithin(0.0));
  EXPECT_FALSE(mvRange().isWithin(0.0));
}

TEST(Range, FullHoldsEverythingWhateverItsEnds) {
  const mvRange full(10.0, 0.0, mvRangeDefs::eFull);
  EXPECT_TRUE(full.isWithin(-1e300));
  EXPECT_TRUE(full.isWithin(5.0));
  EXPECT_TRUE(mvRange::FullRange().isWithin(std::numeric_limits<double>::infinity()));
}

TEST(Range, EqualityComparesKindAndEnds) {
  EXPECT_EQ(mvRange(1.0, 2.0), mvRange(1.0, 2.0));
  EXPECT_NE(mvRange(1.0, 2.0), mvRange(1.0, 2.0, mvRangeDefs::eFull));
  EXPECT_NE(mvRange(1.0, 2.0), mvRange(1.0, 3.0));
}

TEST(AngleRange, KindFollowsTheExtent) {
  EXPECT_EQ(mvAngleRange(mvRadian(0.0), mvRadian(1.0)).range(), mvRangeDefs::eNormal);
  EXPECT_EQ(mvAngleRange(mvRadian(1.0), mvRadian(0.0)).range(), mvRangeDefs::eEmpty);
  EXPECT_EQ(mvAngleRange(mvRadian(-kPi), mvRadian(kPi)).range(), mvRangeDefs::eFull);
  EXPECT_EQ(mvAngleRange(mvRadian(0.0), mvRadian(7.0), false).range(), mvRangeDefs::eFull);
  EXPECT_EQ(mvAngleRange::FullRange().range(), mvRangeDefs::eFull);
}

TEST(AngleRange, MiddleAndLength) {
  const mvAngleRange r(mvRadian(0.5), mvRadian(1.5));
  EXPECT_EQ(r.length().toDouble(), 1.0);
  EXPECT_EQ(r.middle().toDouble(), 1.0);
}

TEST(AngleRange, IsWithinReducesByWholeTurns) {
  const mvAngleRange r(mvRadian(-0.1), mvRadian(0.1));
  EXPECT_TRUE(r.isWithin(mvRadian(0.0)));
  EXPECT_TRUE(r.isWithin(mvRadian(-0.1)));
  EXPECT_TRUE(r.isWithin(mvRadian(0.1)));
  EXPECT_TRUE(r.isWithin(mvRadian(2 * kPi - 0.05)));
  EXPECT_TRUE(r.isWithin(mvRadian(4 * kPi + 0.05)));
  EXPECT_FALSE(r.isWithin(mvRadian(0.2)));
  EXPECT_FALSE(r.isWithin(mvRadian(kPi)));
  const mvAngleRange high(mvRadian(3.0), mvRadian(4.0));
  EXPECT_TRUE(high.isWithin(mvRadian(3.5 - 2 * kPi)));
  EXPECT_FALSE(high.isWithin(mvRadian(2.5)));
}

TEST(AngleRange, EmptyAndFullIgnoreTheirEnds) {
  const mvAngleRange empty(mvRadian(0.0), mvRadian(1.0), mvRangeDefs::eEmpty);
  const mvAngleRange full(mvRadian(0.0), mvRadian(0.0), mvRangeDefs::eFull);
  EXPECT_FALSE(empty.isWithin(mvRadian(0.5)));
  EXPECT_TRUE(full.isWithin(mvRadian(123.0)));
}

// --- matrices and transforms ---

TEST(Matrix, ElementsInRowOrder) {
  const mvMatrix<2> m(1.0, 2.0, 3.0, 4.0);
  EXPECT_EQ(m.element(0, 0), 1.0);
  EXPECT_EQ(m.element(0, 1), 2.0);
  EXPECT_EQ(m.element(1, 0), 3.0);
  EXPECT_EQ(m.element(1, 1), 4.0);
  EXPECT_EQ(m.determinant(), -2.0);
  EXPECT_EQ(m * mvVector<2>(1.0, 1.0), mvVector<2>(3.0, 7.0));
}

TEST(Xform, IdentityLeavesEveryPointExactlyInPlace) {
  const double big = std::numeric_limits<double>::max();
  const double tiny = std::numeric_limits<double>::denorm_min();
  for (const mvVector<2>& p :
       {mvVector<2>(0.0, 0.0), mvVector<2>(1.5, -2.25), mvVector<2>(big, -big),
        mvVector<2>(tiny, -tiny), mvVector<2>(1e-300, 1e300), mvVector<2>(0.1, 0.7)}) {
    EXPECT_EQ(mvXform<2>::I * p, p);
    EXPECT_EQ(mvXform<2>() * p, p);
  }
  EXPECT_EQ(mvXform<2>::I, mvXform<2>(mvMatrix<2>(1.0, 0.0, 0.0, 1.0), mvVector<2>(0.0, 0.0)));
}

TEST(Xform, CompositionAppliesTheRightOperandFirst) {
  const mvXform<2> shift(mvMatrix<2>(), mvVector<2>(1.0, 0.0));
  const mvXform<2> twice(mvMatrix<2>(2.0, 0.0, 0.0, 2.0), mvVector<2>());
  EXPECT_EQ((shift * twice) * mvVector<2>(1.0, 1.0), mvVector<2>(3.0, 2.0));
  EXPECT_EQ((twice * shift) * mvVector<2>(1.0, 1.0), mvVector<2>(4.0, 2.0));
}

TEST(Xform, BuiltFromAxisRotationsAndScales) {
  const mvXform<2> x(mvVector<2>(5.0, 6.0), mvRadian(kPi / 2), mvRadian(0.0), 2.0, 3.0);
  // First column 2 (cos 90, sin 90) = (0, 2); second 3 (-sin 0, cos 0) = (0, 3).
  EXPECT_NEAR(x.matrix().element(0, 0), 0.0, kTrigTolerance);
  EXPECT_NEAR(x.matrix().element(1, 0), 2.0, kTrigTolerance);
  EXPECT_EQ(x.matrix().element(0, 1), 0.0);
  EXPECT_EQ(x.matrix().element(1, 1), 3.0);
  EXPECT_EQ(x.trans(), mvVector<2>(5.0, 6.0));
  EXPECT_NEAR(x.xScale(), 2.0, kTrigTolerance);
  EXPECT_NEAR(x.yScale(), 3.0, kTrigTolerance);
  EXPECT_NEAR(x.xRot().toDouble(), kPi / 2, kTrigTolerance);
  EXPECT_NEAR(x.yRot().toDouble(), 0.0, kTrigTolerance);
}

TEST(Xform, RotationAndXRotAgreeForASimilarity) {
  const mvXform<2> x(mvVector<2>(), mvRadian(0.7), mvRadian(0.7), 1.5, 1.5);
  EXPECT_NEAR(x.rotation().toDouble(), 0.7, kTrigTolerance);
  EXPECT_NEAR(x.xRot().toDouble(), 0.7, kTrigTolerance);
  // A shear: the nearest rotation differs from the x axis angle.
  const mvXform<2> shear(mvMatrix<2>(1.0, 1.0, 0.0, 1.0), mvVector<2>());
  EXPECT_EQ(shear.xRot().toDouble(), 0.0);
  EXPECT_NEAR(shear.rotation().toDouble(), std::atan2(-1.0, 2.0), kTrigTolerance);
}

TEST(Xform, InverseUndoesTheTransform) {
  const mvXform<2> x(mvMatrix<2>(2.0, 1.0, -1.0, 3.0), mvVector<2>(4.0, -5.0));
  const mvXform<2> inv = x.inverse();
  const mvVector<2> p(0.25, -7.5);
  const mvVector<2> back = inv * (x * p);
  EXPECT_NEAR(back.x(), p.x(), 1e-12);
  EXPECT_NEAR(back.y(), p.y(), 1e-12);
  // Worked by hand: det 7, inverse matrix (3, -1; 1, 2) / 7.
  EXPECT_NEAR(inv.matrix().element(0, 0), 3.0 / 7.0, 1e-15);
  EXPECT_NEAR(inv.matrix().element(0, 1), -1.0 / 7.0, 1e-15);
  EXPECT_NEAR(inv.matrix().element(1, 0), 1.0 / 7.0, 1e-15);
  EXPECT_NEAR(inv.matrix().element(1, 1), 2.0 / 7.0, 1e-15);
}

TEST(Xform, SingularTransformHasNoInverse) {
  const mvXform<2> flat(mvMatrix<2>(1.0, 2.0, 2.0, 4.0), mvVector<2>(1.0, 1.0));
  EXPECT_TRUE(flat.isSingular());
  EXPECT_THROW(flat.inverse(), mvMathError);
  EXPECT_FALSE(mvXform<2>::I.isSingular());
  EXPECT_TRUE(mvXform<2>(mvMatrix<2>(0.0, 0.0, 0.0, 0.0), mvVector<2>()).isSingular());
}

// --- lines and rectangles ---

TEST(Line, DistanceIsPerpendicularAndUnsigned) {
  const mvLine line(mvVector<2>(0.0, 0.0), mvVector<2>(2.0, 0.0));
  EXPECT_EQ(line.distToPoint(mvVector<2>(5.0, 3.0)), 3.0);
  EXPECT_EQ(line.distToPoint(mvVector<2>(-5.0, -3.0)), 3.0);
  EXPECT_EQ(line.distToPoint(mvVector<2>(7.0, 0.0)), 0.0);
  const mvLine diagonal(mvVector<2>(0.0, 0.0), mvVector<2>(1.0, 1.0));
  EXPECT_NEAR(diagonal.distToPoint(mvVector<2>(1.0, 0.0)), std::sqrt(0.5), 1e-15);
}

TEST(Line, CoincidentPointsMeasureToThatPoint) {
  const mvLine point(mvVector<2>(1.0, 1.0), mvVector<2>(1.0, 1.0));
  EXPECT_EQ(point.distToPoint(mvVector<2>(4.0, 5.0)), 5.0);
}

TEST(Rectangle, SizesFromCorners) {
  const mvRectangle<long> r(mvPair<long>(1, 2), mvPair<long>(4, 8));
  EXPECT_EQ(r.width(), 3);
  EXPECT_EQ(r.height(), 6);
  const mvRectangle<double> d(1.0, 2.0, 3.0, 4.0);
  EXPECT_EQ(d.ul(), mvVector<2>(1.0, 2.0));
  EXPECT_EQ(d.lr(), mvVector<2>(4.0, 6.0));
  EXPECT_EQ(d.width(), 3.0);
}

// --- rounding and comparison ---

TEST(Rounding, HalvesGoAwayFromZero) {
  EXPECT_EQ(iRound(2.5), 3);
  EXPECT_EQ(iRound(-2.5), -3);
  EXPECT_EQ(iRound(0.49999), 0);
  EXPECT_EQ(iRound(-0.5), -1);
  EXPECT_EQ(iRound(1e9 + 0.4), 1000000000L);
}

TEST(RealEq, WithinEpsilonInclusive) {
  EXPECT_TRUE(mfRealEq(1.0, 1.0, 0.0));
  EXPECT_TRUE(mfRealEq(1.0, 1.5, 0.5));
  EXPECT_FALSE(mfRealEq(1.0, 1.0 + 1e-14, 1e-15));
}

// --- timer ---

TEST(Timer, NeverStartedReadsZero) {
  const mvTimer timer(false);
  EXPECT_EQ(timer.sec(), 0.0);
}

TEST(Timer, ElapsedTimeNeverDecreases) {
  mvTimer timer(false);
  timer.start();
  const double first = timer.sec();
  const double second = timer.sec();
  EXPECT_GE(first, 0.0);
  EXPECT_GE(second, first);
}

TEST(Timer, ALaterStartReadsNoMore) {
  const mvTimer earlier;  // starts at once
  mvTimer later(false);
  later.start();
  const double laterReading = later.sec();
  EXPECT_GE(earlier.sec(), laterReading);
}
