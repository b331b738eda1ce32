// The least-squares point-to-point fitter: each family recovers exact transforms, solves
// noisy data in the least-squares sense, and refuses pairs that do not determine it.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "common/transform_near.h"
#include "mvbase/fitter.h"

namespace {

using transform_near::isNear;

// Recovering a transform from exact data loses only a few units in the last place of
// coordinates of size about 10.
constexpr double kRecoveryTolerance = 1e-9;

// Second points: an irregular, non-collinear set.
std::vector<mvVector<2>> samplePoints() {
  return {{0.0, 0.0}, {4.0, 1.0}, {1.0, 5.0}, {-3.0, 2.0}, {6.0, -4.0}, {2.5, 3.5}};
}

mvLSPointToPointFitter fitterFor(const mvXform<2>& truth, const std::vector<mvVector<2>>& second) {
  std::vector<mvVector<2>> first;
  for (const mvVector<2>& p : second) first.push_back(truth * p);
  return mvLSPointToPointFitter(first, second);
}

void expectSameXform(const mvXform<2>& actual, const mvXform<2>& expected) {
  EXPECT_TRUE(isNear(actual, expected, kRecoveryTolerance));
}

double sumOfSquares(const mvXform<2>& x, const std::vector<mvVector<2>>& first,
                    const std::vector<mvVector<2>>& second) {
  double sum = 0.0;
  for (std::size_t i = 0; i < first.size(); ++i) {
    const mvVector<2> d = x * second[i] - first[i];
    sum += d.x() * d.x() + d.y() * d.y();
  }
  return sum;
}

}  // namespace

// --- exact data ---

TEST(Fitter, SimilarityOfAPureTranslationIsThatTranslationWithAUnitMatrix) {
  mvLSPointToPointFitter fitter;
  const mvVector<2> shift(3.0, -1.0);
  for (const mvVector<2>& p : {mvVector<2>(0.0, 0.0), mvVector<2>(2.0, 0.0), mvVector<2>(0.0, 2.0),
                               mvVector<2>(2.0, 2.0)}) {
    fitter.update(p + shift, p);
  }
  const mvXform<2> x = fitter.fit(4);
  EXPECT_EQ(x.matrix(), mvMatrix<2>(1.0, 0.0, 0.0, 1.0));
  EXPECT_EQ(x.trans(), shift);
}

TEST(Fitter, RigidRecoversRotationAndTranslation) {
  const mvXform<2> truth(mvVector<2>(10.0, -2.0), mvRadian(0.6), mvRadian(0.6), 1.0, 1.0);
  expectSameXform(fitterFor(truth, samplePoints()).fit(3), truth);
}

TEST(Fitter, RigidNeedsOnlyTwoPairs) {
  const mvXform<2> truth(mvVector<2>(1.0, 2.0), mvRadian(-2.0), mvRadian(-2.0), 1.0, 1.0);
  expectSameXform(fitterFor(truth, {{0.0, 0.0}, {3.0, 4.0}}).fit(3), truth);
}

TEST(Fitter, SimilarityRecoversRotationScaleAndTranslation) {
  const mvXform<2> truth(mvVector<2>(-7.0, 3.0), mvRadian(2.5), mvRadian(2.5), 0.4, 0.4);
  expectSameXform(fitterFor(truth, samplePoints()).fit(4), truth);
  expectSameXform(fitterFor(truth, {{1.0, 1.0}, {2.0, -1.0}}).fit(4), truth);
}

TEST(Fitter, AxisScalesRecoverRotationAndTwoScales) {
  const mvXform<2> truth(mvVector<2>(4.0, 5.0), mvRadian(0.3), mvRadian(0.3), 2.0, 0.5);
  expectSameXform(fitterFor(truth, samplePoints()).fit(5), truth);
  const mvXform<2> turned(mvVector<2>(-1.0, 0.0), mvRadian(-2.8), mvRadian(-2.8), 1.2, 3.0);
  const mvXform<2> fitted = fitterFor(turned, {{0.0, 0.0}, {1.0, 0.0}, {0.0, 1.0}}).fit(5);
  expectSameXform(fitted, turned);
  EXPECT_NEAR(fitted.xScale(), 1.2, kRecoveryTolerance);
  EXPECT_NEAR(fitted.yScale(), 3.0, kRecoveryTolerance);
}

TEST(Fitter, AxisScalesKeepAReflection) {
  const mvXform<2> mirror(mvVector<2>(1.0, 1.0), mvRadian(0.5), mvRadian(0.5), 1.5, -2.0);
  expectSameXform(fitterFor(mirror, samplePoints()).fit(5), mirror);
}

TEST(Fitter, AffineRecoversAnyNonSingularTransform) {
  const mvXform<2> truth(mvMatrix<2>(1.5, -0.3, 0.7, 0.9), mvVector<2>(12.0, -8.0));
  expectSameXform(fitterFor(truth, samplePoints()).fit(6), truth);
  expectSameXform(fitterFor(truth, {{0.0, 0.0}, {1.0, 0.0}, {0.0, 1.0}}).fit(6), truth);
}

TEST(Fitter, FitMapsSecondPointsOntoFirst) {
  mvLSPointToPointFitter fitter;
  fitter.update(mvVector<2>(10.0, 10.0), mvVector<2>(0.0, 0.0));
  fitter.update(mvVector<2>(11.0, 10.0), mvVector<2>(1.0, 0.0));
  const mvXform<2> x = fitter.fit(3);
  EXPECT_NEAR((x * mvVector<2>(0.0, 0.0)).x(), 10.0, kRecoveryTolerance);
  EXPECT_NEAR((x * mvVector<2>(0.0, 0.0)).y(), 10.0, kRecoveryTolerance);
}

// --- noisy data: least squares ---

// Parameters of the rigid, similarity and axis-scales families: x axis angle, x and y
// scales, translation.
struct FamilyPose {
  double angle, sx, sy, tx, ty;
  mvXform<2> xform() const {
    return mvXform<2>(mvVector<2>(tx, ty), mvRadian(angle), mvRadian(angle), sx, sy);
  }
};

// Nudges of 1e-4 raise the sum of squares by about 1e-8 per pair; rebuilding the pose from
// its parameters changes it by rounding only, far below that.
constexpr double kNudge = 1e-4;
constexpr double kRebuildSlack = 1e-12;

TEST(Fitter, EveryFamilyIsALeastSquaresMinimum) {
  std::mt19937 prng(7);
  std::normal_distribution<double> noise(0.0, 0.05);
  const mvXform<2> truth(mvVector<2>(2.0, 1.0), mvRadian(0.4), mvRadian(0.4), 1.3, 0.8);
  std::vector<mvVector<2>> first;
  const std::vector<mvVector<2>> second = samplePoints();
  for (const mvVector<2>& p : second) {
    first.push_back(truth * p + mvVector<2>(noise(prng), noise(prng)));
  }
  const mvLSPointToPointFitter fitter(first, second);

  for (int dof : {3, 4, 5}) {
    const mvXform<2> best = fitter.fit(dof);
    const double bestSum = sumOfSquares(best, first, second);
    const FamilyPose pose{best.xRot().toDouble(), best.xScale(), best.yScale(), best.trans().x(),
                          best.trans().y()};
    std::vector<FamilyPose> nudges;
    for (double d : {-kNudge, kNudge}) {
      nudges.push_back({pose.angle + d, pose.sx, pose.sy, pose.tx, pose.ty});
      nudges.push_back({pose.angle, pose.sx, pose.sy, pose.tx + d, pose.ty});
      nudges.push_back({pose.angle, pose.sx, pose.sy, pose.tx, pose.ty + d});
      if (dof == 4) nudges.push_back({pose.angle, pose.sx + d, pose.sy + d, pose.tx, pose.ty});
      if (dof == 5) {
        nudges.push_back({pose.angle, pose.sx + d, pose.sy, pose.tx, pose.ty});
        nudges.push_back({pose.angle, pose.sx, pose.sy + d, pose.tx, pose.ty});
      }
    }
    for (const FamilyPose& n : nudges) {
      EXPECT_GT(sumOfSquares(n.xform(), first, second), bestSum + kRebuildSlack) << "dof " << dof;
    }
  }

  const mvXform<2> affine = fitter.fit(6);
  const double affineSum = sumOfSquares(affine, first, second);
  for (long r = 0; r < 2; ++r) {
    for (long c = 0; c < 2; ++c) {
      for (double d : {-kNudge, kNudge}) {
        mvMatrix<2> m = affine.matrix();
        m.element(r, c, m.element(r, c) + d);
        EXPECT_GT(sumOfSquares(mvXform<2>(m, affine.trans()), first, second), affineSum);
      }
    }
  }
  // Each richer family fits at least as well as the one below it.
  EXPECT_LE(sumOfSquares(fitter.fit(4), first, second), sumOfSquares(fitter.fit(3), first, second));
  EXPECT_LE(sumOfSquares(fitter.fit(5), first, second), sumOfSquares(fitter.fit(4), first, second));
  EXPECT_LE(affineSum, sumOfSquares(fitter.fit(5), first, second) + kRebuildSlack);
}

TEST(Fitter, RigidKeepsUnitScaleOnScaledData) {
  const mvXform<2> truth(mvVector<2>(), mvRadian(0.2), mvRadian(0.2), 2.0, 2.0);
  const mvXform<2> x = fitterFor(truth, samplePoints()).fit(3);
  EXPECT_NEAR(x.xScale(), 1.0, 1e-12);
  EXPECT_NEAR(x.rotation().toDouble(), 0.2, 1e-12);
}

// --- failures ---

TEST(FitterFailures, TooFewPairs) {
  mvLSPointToPointFitter none;
  for (int dof : {3, 4, 5, 6}) EXPECT_THROW(none.fit(dof), mvLSPointToPointFitter::Errors);
  mvLSPointToPointFitter one;
  one.update(mvVector<2>(1.0, 1.0), mvVector<2>(0.0, 0.0));
  EXPECT_THROW(one.fit(3), mvLSPointToPointFitter::Errors);
  EXPECT_THROW(one.fit(4), mvLSPointToPointFitter::Errors);
  mvLSPointToPointFitter two;
  two.update(mvVector<2>(1.0, 1.0), mvVector<2>(0.0, 0.0));
  two.update(mvVector<2>(2.0, 1.0), mvVector<2>(1.0, 0.0));
  EXPECT_NO_THROW(two.fit(4));
  EXPECT_THROW(two.fit(5), mvLSPointToPointFitter::Errors);
  EXPECT_THROW(two.fit(6), mvLSPointToPointFitter::Errors);
}

TEST(FitterFailures, CoincidentSecondPoints) {
  mvLSPointToPointFitter fitter;
  fitter.update(mvVector<2>(0.0, 0.0), mvVector<2>(0.1, 0.7));
  fitter.update(mvVector<2>(1.0, 0.0), mvVector<2>(0.1, 0.7));
  fitter.update(mvVector<2>(0.0, 1.0), mvVector<2>(0.1, 0.7));
  for (int dof : {3, 4, 5, 6}) EXPECT_THROW(fitter.fit(dof), mvLSPointToPointFitter::Errors);
}

TEST(FitterFailures, CoincidentFirstPointsFailRigidButGiveSingularSimilarity) {
  mvLSPointToPointFitter fitter;
  fitter.update(mvVector<2>(0.3, 0.3), mvVector<2>(0.0, 0.0));
  fitter.update(mvVector<2>(0.3, 0.3), mvVector<2>(1.0, 0.0));
  fitter.update(mvVector<2>(0.3, 0.3), mvVector<2>(0.0, 1.0));
  EXPECT_THROW(fitter.fit(3), mvLSPointToPointFitter::Errors);
  const mvXform<2> collapsed = fitter.fit(4);
  EXPECT_TRUE(collapsed.isSingular());
  EXPECT_EQ(collapsed.xScale(), 0.0);
  EXPECT_NEAR((collapsed * mvVector<2>(5.0, 5.0)).x(), 0.3, 1e-15);
}

TEST(FitterFailures, CollinearSecondPointsFailFiveAndSix) {
  mvLSPointToPointFitter fitter;
  fitter.update(mvVector<2>(0.0, 0.0), mvVector<2>(0.0, 0.0));
  fitter.update(mvVector<2>(1.0, 2.0), mvVector<2>(1.0, 3.0));
  fitter.update(mvVector<2>(3.0, 1.0), mvVector<2>(2.0, 6.0));
  fitter.update(mvVector<2>(5.0, 5.0), mvVector<2>(-4.0, -12.0));
  EXPECT_THROW(fitter.fit(5), mvLSPointToPointFitter::Errors);
  EXPECT_THROW(fitter.fit(6), mvLSPointToPointFitter::Errors);
  EXPECT_NO_THROW(fitter.fit(4));
  EXPECT_NO_THROW(fitter.fit(3));
  mvLSPointToPointFitter vertical;
  for (double y : {0.0, 1.0, 2.0}) vertical.update(mvVector<2>(y, 0.0), mvVector<2>(0.5, y));
  EXPECT_THROW(vertical.fit(5), mvLSPointToPointFitter::Errors);
  EXPECT_THROW(vertical.fit(6), mvLSPointToPointFitter::Errors);
}

TEST(FitterFailures, UnknownDegreesOfFreedom) {
  const mvLSPointToPointFitter fitter = fitterFor(mvXform<2>::I, samplePoints());
  for (int dof : {-1, 0, 1, 2, 7, 8}) {
    EXPECT_THROW(fitter.fit(dof), mvLSPointToPointFitter::Errors) << dof;
  }
}

TEST(FitterFailures, ResetForgetsEveryPair) {
  mvLSPointToPointFitter fitter = fitterFor(mvXform<2>::I, samplePoints());
  EXPECT_EQ(fitter.numPairs(), 6);
  fitter.reset();
  EXPECT_EQ(fitter.numPairs(), 0);
  EXPECT_THROW(fitter.fit(3), mvLSPointToPointFitter::Errors);
}

TEST(FitterFailures, ListsOfDifferentLengthAreAnAssertion) {
  EXPECT_THROW(mvLSPointToPointFitter({{0.0, 0.0}}, {}), mvAssertionError);
}

TEST(FitterFailures, ErrorsAreMvExceptions) {
  EXPECT_THROW(mvLSPointToPointFitter().fit(4), mvException);
}
