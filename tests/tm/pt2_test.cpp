// The 2-D affine point-match transform: pair order, the degrees-of-freedom fallback, the
// edits (and which of them forget the pairs), mapping and the archive layout.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "common/transform_near.h"
#include "ptmatch/tm.h"

using namespace archive_bytes;

namespace {

using transform_near::isNear;

using Points = std::vector<mvVector<2>>;

/// Fits and compositions of well-conditioned transforms lose only a few units in the last
/// place.
constexpr double kTolerance = 1e-9;
constexpr double kHalfPi = 1.5707963267948966;

mvXform<2> xformOf(double a00, double a01, double a10, double a11, double tx, double ty) {
  return mvXform<2>(mvMatrix<2>(a00, a01, a10, a11), mvVector<2>(tx, ty));
}

/// Exposes the protected helpers.
class OpenTm : public mv2PtMatchTm {
 public:
  using mv2PtMatchTm::concat_;
  using mv2PtMatchTm::set_;
  using mv2PtMatchTm::sync_;
};

/// Two pairs related by the similarity p -> 2 R(90) p + (1, 1): enough for 3 and 4
/// parameters, too few for 5 and 6.
void addTwoSimilarityPairs(mv2PtMatchTm& tm) {
  tm.update(mvVector<2>(0, 0), mvVector<2>(1, 1));
  tm.update(mvVector<2>(1, 0), mvVector<2>(1, 3));
}

/// Three pairs of the affine map b = (2 a.x + 2, 3 a.y + 3).
void addThreeAffinePairs(mv2PtMatchTm& tm) {
  tm.update(Points{{0, 0}, {1, 0}, {0, 1}}, Points{{2, 3}, {4, 3}, {2, 6}});
}

}  // namespace

// --- construction and fitting ---

TEST(PtMatchTm, DefaultIsTheIdentity) {
  mv2PtMatchTm tm;
  EXPECT_TRUE(tm == mvXform<2>::I);
  EXPECT_EQ(tm.b2aXform(), mvXform<2>::I);
  EXPECT_TRUE(mv2PtMatchTm::I == mvXform<2>::I);
}

TEST(PtMatchTm, FromATransformKeepsItAndItsInverse) {
  const mvXform<2> x = xformOf(2, 0, 0, 4, 1, 2);
  mv2PtMatchTm tm(x);
  EXPECT_EQ(tm.a2bXform(), x);
  EXPECT_TRUE(isNear(tm.b2a(mvVector<2>(3, 6)), mvVector<2>(1, 1), kTolerance));
}

TEST(PtMatchTm, FitCarriesAOntoB) {
  mv2PtMatchTm tm;
  addThreeAffinePairs(tm);
  tm.fit(6);
  EXPECT_TRUE(isNear(tm.a2bXform(), xformOf(2, 0, 0, 3, 2, 3), kTolerance));
  EXPECT_TRUE(isNear(tm.b2a(mvVector<2>(4, 6)), mvVector<2>(1, 1), kTolerance));
}

TEST(PtMatchTm, ListConstructorFits) {
  mv2PtMatchTm tm(Points{{0, 0}, {1, 0}, {0, 1}}, Points{{2, 3}, {4, 3}, {2, 6}}, 6);
  EXPECT_TRUE(isNear(tm.a2bXform(), xformOf(2, 0, 0, 3, 2, 3), kTolerance));
}

TEST(PtMatchTm, OpenChoiceFallsBackToTheFirstFamilyThePairsDetermine) {
  // Two pairs: 6 and 5 parameters fail, 4 succeeds.
  mv2PtMatchTm tm;
  addTwoSimilarityPairs(tm);
  tm.fit(0);
  EXPECT_TRUE(isNear(tm.a2bXform(), xformOf(0, -2, 2, 0, 1, 1), kTolerance));
}

TEST(PtMatchTm, OpenChoiceFallsBackForCollinearPoints) {
  // Collinear points of plane a: 6 and 5 parameters fail, 4 succeeds.
  mv2PtMatchTm tm;
  tm.update(Points{{0, 0}, {1, 0}, {2, 0}}, Points{{1, 1}, {1, 3}, {1, 5}});
  tm.fit(-1);
  EXPECT_TRUE(isNear(tm.a2b(mvVector<2>(0, 1)), mvVector<2>(-1, 1), kTolerance));
}

TEST(PtMatchTm, WhenEveryFamilyFailsTheLastErrorReachesTheCallerAndNothingChanges) {
  const mvXform<2> x = xformOf(2, 0, 0, 2, 1, 0);
  mv2PtMatchTm tm(x);
  tm.update(mvVector<2>(0, 0), mvVector<2>(5, 5));  // one pair determines no family
  EXPECT_THROW(tm.fit(0), mvLSPointToPointFitter::Errors);
  EXPECT_EQ(tm.a2bXform(), x);
  EXPECT_EQ(tm.b2aXform(), x.inverse());
}

TEST(PtMatchTm, AnExplicitCountIsTriedOnceWithoutFallback) {
  mv2PtMatchTm tm;
  addTwoSimilarityPairs(tm);
  EXPECT_THROW(tm.fit(6), mvLSPointToPointFitter::Errors);
  EXPECT_THROW(tm.fit(5), mvLSPointToPointFitter::Errors);
  EXPECT_THROW(tm.fit(7), mvLSPointToPointFitter::Errors);
  EXPECT_TRUE(tm == mvXform<2>::I);
  tm.fit(4);
  EXPECT_TRUE(isNear(tm.a2bXform(), xformOf(0, -2, 2, 0, 1, 1), kTolerance));
  mv2PtMatchTm single;
  single.update(mvVector<2>(0, 0), mvVector<2>(1, 1));
  EXPECT_THROW(single.fit(4), mvLSPointToPointFitter::Errors);
  EXPECT_THROW(single.fit(3), mvLSPointToPointFitter::Errors);
}

TEST(PtMatchTm, ThreeParametersGiveTheRigidFit) {
  mv2PtMatchTm tm;
  tm.update(mvVector<2>(0, 0), mvVector<2>(1, 1));
  tm.update(mvVector<2>(2, 0), mvVector<2>(1, 3));
  tm.fit(3);
  EXPECT_TRUE(isNear(tm.a2bXform(), xformOf(0, -1, 1, 0, 1, 1), kTolerance));
}

TEST(PtMatchTm, FitKeepsThePairs) {
  mv2PtMatchTm tm;
  addTwoSimilarityPairs(tm);
  tm.fit(4);
  tm.update(mvVector<2>(0, 1), mvVector<2>(-1, 1));
  tm.fit(6);  // three pairs now
  EXPECT_TRUE(isNear(tm.a2bXform(), xformOf(0, -2, 2, 0, 1, 1), kTolerance));
}

TEST(PtMatchTm, ResetForgetsThePairsAndKeepsTheTransform) {
  mv2PtMatchTm tm;
  addThreeAffinePairs(tm);
  tm.fit(6);
  const mvXform<2> fitted = tm.a2bXform();
  tm.reset();
  EXPECT_EQ(tm.a2bXform(), fitted);
  EXPECT_THROW(tm.fit(6), mvLSPointToPointFitter::Errors);
}

TEST(PtMatchTm, IdentityForgetsThePairs) {
  mv2PtMatchTm tm;
  addThreeAffinePairs(tm);
  tm.fit(6);
  tm.identity();
  EXPECT_TRUE(tm == mvXform<2>::I);
  EXPECT_EQ(tm.b2aXform(), mvXform<2>::I);
  EXPECT_THROW(tm.fit(6), mvLSPointToPointFitter::Errors);
}

TEST(PtMatchTm, ASingularFitThrowsAndChangesNothing) {
  // Coincident points of plane b give a similarity of scale 0, which has no inverse.
  mv2PtMatchTm tm;
  tm.update(Points{{0, 0}, {1, 0}}, Points{{3, 3}, {3, 3}});
  EXPECT_THROW(tm.fit(4), mvMathError);
  EXPECT_TRUE(tm == mvXform<2>::I);
  EXPECT_EQ(tm.b2aXform(), mvXform<2>::I);
}

TEST(PtMatchTm, ASingularTransformHasNoInverse) {
  EXPECT_THROW(mv2PtMatchTm(xformOf(1, 2, 2, 4, 0, 0)), mvMathError);
}

TEST(PtMatchTm, CopiesCarryThePairs) {
  mv2PtMatchTm tm;
  addThreeAffinePairs(tm);
  mv2PtMatchTm copy(tm);
  copy.fit(6);
  EXPECT_TRUE(isNear(copy.a2bXform(), xformOf(2, 0, 0, 3, 2, 3), kTolerance));
  mv2PtMatchTm assigned;
  assigned = tm;
  assigned.fit(6);
  EXPECT_EQ(assigned.a2bXform(), copy.a2bXform());
}

// --- unequal lists ---

TEST(PtMatchTmBadArgs, UnequalListsAddNothing) {
  mv2PtMatchTm tm;
  addTwoSimilarityPairs(tm);
  EXPECT_THROW(tm.update(Points{{0, 5}, {9, 9}}, Points{{7, 7}}), mv2PtMatchTm::BadArgs);
  EXPECT_THROW(tm.fit(6), mvLSPointToPointFitter::Errors);  // still two pairs
  tm.fit(4);
  EXPECT_TRUE(isNear(tm.a2bXform(), xformOf(0, -2, 2, 0, 1, 1), kTolerance));
}

TEST(PtMatchTmBadArgs, UnequalListsInFitChangeNothing) {
  mv2PtMatchTm tm;
  addTwoSimilarityPairs(tm);
  tm.fit(4);
  const mvXform<2> fitted = tm.a2bXform();
  EXPECT_THROW(tm.fit(Points{{0, 0}}, Points{}, 4), mv2PtMatchTm::BadArgs);
  EXPECT_EQ(tm.a2bXform(), fitted);
  tm.fit(4);  // the pairs are still there
  EXPECT_EQ(tm.a2bXform(), fitted);
  EXPECT_THROW(mv2PtMatchTm(Points{{0, 0}}, Points{}, 4), mv2PtMatchTm::BadArgs);
}

TEST(PtMatchTmBadArgs, IsALibraryErrorRegisteredByName) {
  std::unique_ptr<mvPersistent> made(mv_Instantiator::create("mv2PtMatchTm::BadArgs"));
  EXPECT_NE(dynamic_cast<mv2PtMatchTm::BadArgs*>(made.get()), nullptr);
  mvException* error = new mv2PtMatchTm::BadArgs();
  EXPECT_THROW(error->suicideAndRethrow(), mv2PtMatchTm::BadArgs);
}

// --- editing ---

TEST(PtMatchTmEdit, RotateActsInPlaneABeforeTheTransform) {
  mv2PtMatchTm tm(xformOf(1, 0, 0, 1, 5, 0));
  tm.rotate(mvRadian(kHalfPi));
  EXPECT_TRUE(isNear(tm.a2b(mvVector<2>(1, 0)), mvVector<2>(5, 1), kTolerance));
  EXPECT_TRUE(isNear(tm.b2a(mvVector<2>(5, 1)), mvVector<2>(1, 0), kTolerance));
}

TEST(PtMatchTmEdit, ScaleActsInPlaneABeforeTheTransform) {
  mv2PtMatchTm tm(xformOf(1, 0, 0, 1, 5, 0));
  tm.scale(mvVector<2>(2, 3));
  EXPECT_TRUE(isNear(tm.a2b(mvVector<2>(1, 1)), mvVector<2>(7, 3), kTolerance));
  mv2PtMatchTm uniform(xformOf(1, 0, 0, 1, 5, 0));
  uniform.scale(2.0);
  EXPECT_EQ(uniform.a2bXform(), xformOf(2, 0, 0, 2, 5, 0));
}

TEST(PtMatchTmEdit, TranslateMapsTheShiftedPointWithTheOldTransform) {
  mv2PtMatchTm tm(xformOf(2, 0, 0, 2, 0, 0));
  tm.translate(mvVector<2>(1, 1));
  EXPECT_EQ(tm.a2b(mvVector<2>(0, 0)), mvVector<2>(2, 2));
  EXPECT_EQ(tm.a2b(mvVector<2>(1, 0)), mvVector<2>(4, 2));
  EXPECT_EQ(tm.b2a(mvVector<2>(4, 2)), mvVector<2>(1, 0));
}

TEST(PtMatchTmEdit, ConcatAppliesTheOtherFirstAndAppendAppliesItLast) {
  const mv2PtMatchTm shift(xformOf(1, 0, 0, 1, 1, 0));
  const mv2PtMatchTm twice(xformOf(2, 0, 0, 2, 0, 0));
  mv2PtMatchTm concatenated(shift);
  concatenated.concat(twice);
  EXPECT_EQ(concatenated.a2b(mvVector<2>(1, 1)), mvVector<2>(3, 2));
  mv2PtMatchTm appended(shift);
  appended.append(twice);
  EXPECT_EQ(appended.a2b(mvVector<2>(1, 1)), mvVector<2>(4, 2));
}

TEST(PtMatchTmEdit, ConcatThenInverseUndoesTheForwardMap) {
  mv2PtMatchTm tm(xformOf(1.5, 0.2, -0.3, 0.9, 4, -2));
  tm.concat(mv2PtMatchTm(xformOf(0.8, -0.6, 0.6, 0.8, -1, 3)));
  const mvVector<2> p(2.5, -7.25);
  EXPECT_TRUE(isNear(tm.b2a(tm.a2b(p)), p, kTolerance));
}

TEST(PtMatchTmEdit, RotateScaleConcatAndAppendForgetThePairsButTranslateKeepsThem) {
  auto withPairs = [] {
    mv2PtMatchTm tm;
    addThreeAffinePairs(tm);
    return tm;
  };
  mv2PtMatchTm rotated = withPairs();
  rotated.rotate(mvRadian(0.1));
  EXPECT_THROW(rotated.fit(6), mvLSPointToPointFitter::Errors);
  mv2PtMatchTm scaled = withPairs();
  scaled.scale(2.0);
  EXPECT_THROW(scaled.fit(6), mvLSPointToPointFitter::Errors);
  mv2PtMatchTm concatenated = withPairs();
  concatenated.concat(mv2PtMatchTm::I);
  EXPECT_THROW(concatenated.fit(6), mvLSPointToPointFitter::Errors);
  mv2PtMatchTm appended = withPairs();
  appended.append(mv2PtMatchTm::I);
  EXPECT_THROW(appended.fit(6), mvLSPointToPointFitter::Errors);

  mv2PtMatchTm translated = withPairs();
  translated.translate(mvVector<2>(10, 10));
  translated.fit(6);
  EXPECT_TRUE(isNear(translated.a2bXform(), xformOf(2, 0, 0, 3, 2, 3), kTolerance));
}

TEST(PtMatchTmEdit, AFailedEditChangesNothing) {
  mv2PtMatchTm tm;
  addThreeAffinePairs(tm);
  EXPECT_THROW(tm.scale(0.0), mvMathError);
  EXPECT_TRUE(tm == mvXform<2>::I);
  tm.fit(6);  // the pairs survived
  EXPECT_TRUE(isNear(tm.a2bXform(), xformOf(2, 0, 0, 3, 2, 3), kTolerance));
}

TEST(PtMatchTmEdit, ComposeIsWrittenOutElementByElement) {
  // first (1 2; 3 4) + (5, 6), second (7 8; 9 10) + (11, 12): the matrix of second times
  // that of first is (31 46; 39 58) and the translation (7*5 + 8*6 + 11, 9*5 + 10*6 + 12).
  const mvXform<2> result =
      OpenTm::concat_(xformOf(1, 2, 3, 4, 5, 6), xformOf(7, 8, 9, 10, 11, 12));
  EXPECT_EQ(result, xformOf(31, 46, 39, 58, 94, 117));
}

TEST(PtMatchTmEdit, SetLeavesTheInverseToSync) {
  OpenTm tm;
  tm.set_(2, 0, 1, 0, 2, 0);  // a00, a01, tx, a10, a11, ty
  EXPECT_EQ(tm.a2bXform(), xformOf(2, 0, 0, 2, 1, 0));
  EXPECT_EQ(tm.b2aXform(), mvXform<2>::I);
  tm.sync_();
  EXPECT_EQ(tm.b2a(mvVector<2>(3, 0)), mvVector<2>(1, 0));
}

// --- mapping ---

TEST(PtMatchTmMap, OutputFormsAgreeWithReturnedPoints) {
  mv2PtMatchTm tm(xformOf(2, 1, 0, 3, 1, -1));
  mvVector<2> out;
  tm.a2b(mvVector<2>(1, 2), out);
  EXPECT_EQ(out, mvVector<2>(5, 5));
  EXPECT_EQ(out, tm.a2b(mvVector<2>(1, 2)));
  tm.b2a(out, out);
  EXPECT_TRUE(isNear(out, mvVector<2>(1, 2), kTolerance));
}

TEST(PtMatchTmMap, DirectionsThroughAPureTranslateAreUnchanged) {
  mv2PtMatchTm tm(xformOf(1, 0, 0, 1, 30, -40));
  EXPECT_NEAR(tm.a2b(mvRadian(0.7)).toDouble(), 0.7, kTolerance);
  EXPECT_NEAR(tm.b2a(mvRadian(-2.0)).toDouble(), -2.0, kTolerance);
}

TEST(PtMatchTmMap, DirectionsTurnWithTheTransform) {
  mv2PtMatchTm tm;
  tm.rotate(mvRadian(0.5));
  EXPECT_NEAR(tm.a2b(mvRadian(0.2)).toDouble(), 0.7, kTolerance);
  EXPECT_NEAR(tm.b2a(mvRadian(0.2)).toDouble(), -0.3, kTolerance);
  // A mirror reverses directions: the image of 30 degrees under y -> -y is -30 degrees.
  mv2PtMatchTm mirror(xformOf(1, 0, 0, -1, 0, 0));
  EXPECT_NEAR(mirror.a2b(mvRadian(0.5)).toDouble(), -0.5, kTolerance);
}

TEST(PtMatchTmMap, EqualityComparesOnlyTheForwardTransform) {
  mv2PtMatchTm fitted;
  addThreeAffinePairs(fitted);
  const mv2PtMatchTm plain(xformOf(2, 0, 0, 2, 0, 0));
  mv2PtMatchTm same(xformOf(2, 0, 0, 2, 0, 0));
  same.update(mvVector<2>(0, 0), mvVector<2>(1, 1));
  EXPECT_TRUE(plain == same);
  EXPECT_FALSE(plain == fitted);
  EXPECT_TRUE(plain == xformOf(2, 0, 0, 2, 0, 0));
  EXPECT_FALSE(plain == mvXform<2>::I);
}

TEST(PtMatchTmMap, RandomFitsRoundTrip) {
  std::mt19937 prng(7);
  std::uniform_real_distribution<double> angle(-3.0, 3.0);
  std::uniform_real_distribution<double> scale(0.5, 2.0);
  std::uniform_real_distribution<double> coordinate(-100.0, 100.0);
  for (int trial = 0; trial < 25; ++trial) {
    const mvXform<2> truth(mvVector<2>(coordinate(prng), coordinate(prng)), mvRadian(angle(prng)),
                           mvRadian(angle(prng) * 0.1), scale(prng), scale(prng));
    Points a;
    Points b;
    for (int i = 0; i < 10; ++i) {
      a.emplace_back(coordinate(prng), coordinate(prng));
      b.push_back(truth * a.back());
    }
    mv2PtMatchTm tm(a, b, 6);
    for (const mvVector<2>& p : a) {
      EXPECT_TRUE(isNear(tm.a2b(p), truth * p, kTolerance));
      EXPECT_TRUE(isNear(tm.b2a(tm.a2b(p)), p, kTolerance));
    }
  }
}

// --- persistence ---

TEST(PtMatchTmArchive, IdentityIsTheVersionAndTwoIdentityTransforms) {
  const std::vector<unsigned char> expected = ByteWriter()
                                                  .u32(1100)
                                                  .f64(1)
                                                  .f64(0)
                                                  .f64(0)
                                                  .f64(1)
                                                  .f64(0)
                                                  .f64(0)
                                                  .f64(1)
                                                  .f64(0)
                                                  .f64(0)
                                                  .f64(1)
                                                  .f64(0)
                                                  .f64(0)
                                                  .bytes();
  EXPECT_EQ(store(mv2PtMatchTm()), expected);
}

TEST(PtMatchTmArchive, ForwardThenInverseEachAsMatrixThenTranslation) {
  // a2b: (2 1; 1 1) + (1, 2), of determinant 1; b2a: (1 -1; -1 2) + (1, -3), all exact.
  const std::vector<unsigned char> expected = ByteWriter()
                                                  .u32(1100)
                                                  .f64(2)
                                                  .f64(1)
                                                  .f64(1)
                                                  .f64(1)
                                                  .f64(1)
                                                  .f64(2)
                                                  .f64(1)
                                                  .f64(-1)
                                                  .f64(-1)
                                                  .f64(2)
                                                  .f64(1)
                                                  .f64(-3)
                                                  .bytes();
  mv2PtMatchTm tm(xformOf(2, 1, 1, 1, 1, 2));
  EXPECT_EQ(store(tm), expected);
}

TEST(PtMatchTmArchive, LoadingRestoresBothTransformsAndKeepsThePairs) {
  mv2PtMatchTm stored(xformOf(2, 1, 0, 3, 1, -1));
  mv2PtMatchTm loaded;
  addThreeAffinePairs(loaded);
  EXPECT_TRUE(loadInto(store(stored), loaded));
  EXPECT_EQ(loaded.a2bXform(), stored.a2bXform());
  EXPECT_EQ(loaded.b2aXform(), stored.b2aXform());
  loaded.fit(6);  // the pairs added before loading are still there
  EXPECT_TRUE(isNear(loaded.a2bXform(), xformOf(2, 0, 0, 3, 2, 3), kTolerance));
}

TEST(PtMatchTmArchive, OtherVersionsAreUnknown) {
  std::vector<unsigned char> bytes = store(mv2PtMatchTm(xformOf(2, 0, 0, 2, 0, 0)));
  bytes[0] = 0x4B;  // 1099
  mv2PtMatchTm loaded;
  EXPECT_THROW_THAT(loadInto(bytes, loaded), mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) { EXPECT_EQ(e.file(), "ptmatch/tm"); });
  EXPECT_TRUE(loaded == mvXform<2>::I);
}

TEST(PtMatchTmArchive, TruncatedDataChangesNothing) {
  std::vector<unsigned char> bytes = store(mv2PtMatchTm(xformOf(2, 0, 0, 2, 0, 0)));
  bytes.resize(bytes.size() - 1);
  mv2PtMatchTm loaded;
  EXPECT_THROW(loadInto(bytes, loaded), mvArchive::EndOfData);
  EXPECT_TRUE(loaded == mvXform<2>::I);
  EXPECT_EQ(loaded.b2aXform(), mvXform<2>::I);
}
