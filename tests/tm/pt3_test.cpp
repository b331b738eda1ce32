// The 3-D point-match transform: the three row fits, the inverse by Gauss-Jordan, the
// edits (rotations and scaling on the b side keep the translation, translate composes
// fully) and the archive layout.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "common/transform_near.h"
#include "pinv/fitter_bytes.h"
#include "ptmatch/tm.h"

using namespace archive_bytes;
using fitter_bytes::emptyFitter;

namespace {

using transform_near::isNear;

using Points = std::vector<mvVector<3>>;

/// Fits and Gauss-Jordan inverses of well-conditioned transforms keep far more digits.
constexpr double kTolerance = 1e-9;
constexpr double kHalfPi = 1.5707963267948966;

/// b = M a + t with M = (2 1 0; 0 1 -1; 1 0 3) and t = (1, 2, 3).
mvVector<3> skew(const mvVector<3>& a) {
  return mvVector<3>(2 * a.x() + a.y() + 1, a.y() - a.z() + 2, a.x() + 3 * a.z() + 3);
}

const Points kTetrahedron{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

Points imagesOf(mvVector<3> (*map)(const mvVector<3>&), const Points& points) {
  Points images;
  for (const mvVector<3>& p : points) images.push_back(map(p));
  return images;
}

/// The identity's interleaved elements: a2b[i], b2a[i] for i = 0 ... 11.
ByteWriter& identityElements(ByteWriter& bytes) {
  for (int i = 0; i < 12; ++i) {
    const double v = (i == 0 || i == 5 || i == 10) ? 1.0 : 0.0;
    bytes.f64(v).f64(v);
  }
  return bytes;
}

}  // namespace

TEST(PtMatchTm3, DefaultIsTheIdentity) {
  mv3PtMatchTm tm;
  EXPECT_EQ(tm.a2b(mvVector<3>(1, 2, 3)), mvVector<3>(1, 2, 3));
  EXPECT_EQ(tm.b2a(mvVector<3>(1, 2, 3)), mvVector<3>(1, 2, 3));
  EXPECT_EQ(store(mv3PtMatchTm::I), store(tm));
}

TEST(PtMatchTm3, FourNonCoplanarPairsDetermineTheTransform) {
  mv3PtMatchTm tm;
  tm.fit(kTetrahedron, imagesOf(skew, kTetrahedron));
  for (const mvVector<3>& p : Points{{1, 1, 1}, {-2, 0.5, 3}, {4, -1, -2}}) {
    EXPECT_TRUE(isNear(tm.a2b(p), skew(p), kTolerance));
    EXPECT_TRUE(isNear(tm.b2a(tm.a2b(p)), p, kTolerance));
  }
  mvVector<3> out;
  tm.a2b(mvVector<3>(1, 1, 1), out);
  EXPECT_EQ(out, tm.a2b(mvVector<3>(1, 1, 1)));
  tm.b2a(out, out);
  EXPECT_TRUE(isNear(out, mvVector<3>(1, 1, 1), kTolerance));
}

TEST(PtMatchTm3, FitKeepsTheSums) {
  mv3PtMatchTm tm;
  tm.update(kTetrahedron, imagesOf(skew, kTetrahedron));
  tm.fit();
  const std::vector<unsigned char> once = store(tm);
  tm.fit();
  EXPECT_EQ(store(tm), once);
  tm.update(mvVector<3>(1, 1, 1), skew(mvVector<3>(1, 1, 1)));
  tm.fit();
  EXPECT_TRUE(isNear(tm.a2b(mvVector<3>(2, 2, 2)), skew(mvVector<3>(2, 2, 2)), kTolerance));
}

TEST(PtMatchTm3, IdentityEmptiesTheFitters) {
  mv3PtMatchTm tm;
  tm.fit(kTetrahedron, imagesOf(skew, kTetrahedron));
  tm.identity();
  EXPECT_EQ(store(tm), store(mv3PtMatchTm()));
}

TEST(PtMatchTm3, PointsInAPlaneOfConstantZAreSingular) {
  mv3PtMatchTm tm;
  const Points flat{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  EXPECT_THROW(tm.fit(flat, flat), mvMatrixExt::SingularMatrix);
}

TEST(PtMatchTm3, NoPairsAreSingular) {
  mv3PtMatchTm tm;
  EXPECT_THROW(tm.fit(), mvMatrixExt::SingularMatrix);
  EXPECT_EQ(store(tm), store(mv3PtMatchTm()));
}

TEST(PtMatchTm3, ListConstructorFitsBeforeSizingItsFittersAndStaysTheIdentity) {
  // The fit runs while the fitters have no parameters: it solves nothing, and the fitters
  // are sized to 4 (empty) afterwards.
  const mv3PtMatchTm tm(kTetrahedron, imagesOf(skew, kTetrahedron));
  EXPECT_EQ(store(tm), store(mv3PtMatchTm()));
  mv3PtMatchTm refitted(tm);
  refitted.fit(kTetrahedron, imagesOf(skew, kTetrahedron));
  EXPECT_TRUE(isNear(refitted.a2b(mvVector<3>(1, 1, 1)), skew(mvVector<3>(1, 1, 1)), kTolerance));
}

// --- edits ---

TEST(PtMatchTm3Edit, RotationOnZKeepsTheTranslation) {
  mv3PtMatchTm tm;
  tm.translate(mvVector<3>(1, 0, 0));
  tm.rotateOnZ(mvRadian(kHalfPi));
  EXPECT_TRUE(isNear(tm.a2b(mvVector<3>(1, 0, 0)), mvVector<3>(1, 1, 0), kTolerance));
  EXPECT_TRUE(isNear(tm.b2a(mvVector<3>(1, 1, 0)), mvVector<3>(1, 0, 0), kTolerance));
}

TEST(PtMatchTm3Edit, TranslateOfTheIdentityMovesTheOrigin) {
  mv3PtMatchTm tm;
  tm.translate(mvVector<3>(1, 2, 3));
  EXPECT_EQ(tm.a2b(mvVector<3>(0, 0, 0)), mvVector<3>(1, 2, 3));
  EXPECT_EQ(tm.b2a(mvVector<3>(1, 2, 3)), mvVector<3>(0, 0, 0));
}

TEST(PtMatchTm3Edit, TranslateMapsTheShiftedPointWithTheOldTransform) {
  mv3PtMatchTm tm;
  tm.fit(kTetrahedron, imagesOf(skew, kTetrahedron));
  tm.translate(mvVector<3>(1, -1, 2));
  EXPECT_TRUE(
      isNear(tm.a2b(mvVector<3>(0.5, 0.5, 0.5)), skew(mvVector<3>(1.5, -0.5, 2.5)), kTolerance));
}

TEST(PtMatchTm3Edit, ScalingAfterTranslatingLeavesTheTranslation) {
  // concat_ adds translations without applying the new linear part to the old one.
  mv3PtMatchTm tm;
  tm.translate(mvVector<3>(1, 0, 0));
  tm.scale(2.0);
  EXPECT_EQ(tm.a2b(mvVector<3>(0, 0, 0)), mvVector<3>(1, 0, 0));
  EXPECT_EQ(tm.a2b(mvVector<3>(1, 0, 0)), mvVector<3>(3, 0, 0));
}

TEST(PtMatchTm3Edit, TranslatingAfterScalingComposesFully) {
  // mul_ is the full composition: the shift is applied in space a, before the scaling.
  mv3PtMatchTm tm;
  tm.scale(2.0);
  tm.translate(mvVector<3>(1, 0, 0));
  EXPECT_EQ(tm.a2b(mvVector<3>(0, 0, 0)), mvVector<3>(2, 0, 0));
}

TEST(PtMatchTm3Edit, RotationsAndScalingActOnTheBSide) {
  // Scaling x by 2 and then rotating a quarter turn about z: (1, 0, 0) -> (2, 0, 0) ->
  // (0, 2, 0). Acting on the a side instead would give (0, 1, 0).
  mv3PtMatchTm tm;
  tm.scale(mvVector<3>(2, 1, 1));
  tm.rotateOnZ(mvRadian(kHalfPi));
  EXPECT_TRUE(isNear(tm.a2b(mvVector<3>(1, 0, 0)), mvVector<3>(0, 2, 0), kTolerance));
}

TEST(PtMatchTm3Edit, AxisRotationsTurnTheRightWay) {
  mv3PtMatchTm x;
  x.rotateOnX(mvRadian(kHalfPi));
  EXPECT_TRUE(isNear(x.a2b(mvVector<3>(0, 1, 0)), mvVector<3>(0, 0, 1), kTolerance));
  mv3PtMatchTm y;
  y.rotateOnY(mvRadian(kHalfPi));
  EXPECT_TRUE(isNear(y.a2b(mvVector<3>(0, 0, 1)), mvVector<3>(1, 0, 0), kTolerance));
  EXPECT_TRUE(isNear(y.a2b(mvVector<3>(1, 0, 0)), mvVector<3>(0, 0, -1), kTolerance));
  mv3PtMatchTm z;
  z.rotateOnZ(mvRadian(kHalfPi));
  EXPECT_TRUE(isNear(z.a2b(mvVector<3>(1, 0, 0)), mvVector<3>(0, 1, 0), kTolerance));
  EXPECT_TRUE(isNear(z.b2a(mvVector<3>(0, 1, 0)), mvVector<3>(1, 0, 0), kTolerance));
}

TEST(PtMatchTm3Edit, ScaleByAVectorScalesEachAxis) {
  mv3PtMatchTm tm;
  tm.scale(mvVector<3>(2, 3, 4));
  EXPECT_EQ(tm.a2b(mvVector<3>(1, 1, 1)), mvVector<3>(2, 3, 4));
  EXPECT_EQ(tm.b2a(mvVector<3>(2, 3, 4)), mvVector<3>(1, 1, 1));
}

TEST(PtMatchTm3Edit, ASingularEditThrowsAndChangesNothing) {
  mv3PtMatchTm tm;
  tm.translate(mvVector<3>(1, 2, 3));
  const std::vector<unsigned char> before = store(tm);
  EXPECT_THROW(tm.scale(mvVector<3>(1, 0, 1)), mvMatrixExt::SingularMatrix);
  EXPECT_EQ(store(tm), before);
}

// --- unequal lists ---

TEST(PtMatchTm3BadArgs, UnequalListsChangeNothing) {
  mv3PtMatchTm tm;
  tm.update(kTetrahedron, imagesOf(skew, kTetrahedron));
  const std::vector<unsigned char> before = store(tm);
  EXPECT_THROW(tm.update(Points{{1, 1, 1}, {2, 2, 2}}, Points{{1, 1, 1}}), mv3PtMatchTm::BadArgs);
  EXPECT_THROW(tm.fit(Points{{1, 1, 1}}, Points{}), mv3PtMatchTm::BadArgs);
  EXPECT_EQ(store(tm), before);
  EXPECT_THROW(mv3PtMatchTm(Points{{1, 1, 1}}, Points{}), mv3PtMatchTm::BadArgs);
}

TEST(PtMatchTm3BadArgs, IsALibraryErrorRegisteredByName) {
  std::unique_ptr<mvPersistent> made(mv_Instantiator::create("mv3PtMatchTm::BadArgs"));
  EXPECT_NE(dynamic_cast<mv3PtMatchTm::BadArgs*>(made.get()), nullptr);
}

// --- persistence ---

TEST(PtMatchTm3Archive, IdentityIsThreeEmptyFittersThenTwentyFourDoubles) {
  ByteWriter expected;
  expected.u32(1100).append(emptyFitter(4)).append(emptyFitter(4)).append(emptyFitter(4));
  identityElements(expected);
  EXPECT_EQ(store(mv3PtMatchTm()), expected.bytes());
}

TEST(PtMatchTm3Archive, ElementsAreInterleavedForwardThenInverse) {
  mv3PtMatchTm tm;
  tm.translate(mvVector<3>(1, 2, 3));
  ByteWriter expected;
  expected.u32(1100).append(emptyFitter(4)).append(emptyFitter(4)).append(emptyFitter(4));
  const double forward[12] = {1, 0, 0, 1, 0, 1, 0, 2, 0, 0, 1, 3};
  const double inverse[12] = {1, 0, 0, -1, 0, 1, 0, -2, 0, 0, 1, -3};
  for (int i = 0; i < 12; ++i) expected.f64(forward[i]).f64(inverse[i]);
  EXPECT_EQ(store(tm), expected.bytes());
}

TEST(PtMatchTm3Archive, LoadingRestoresElementsAndSums) {
  mv3PtMatchTm stored;
  stored.fit(kTetrahedron, imagesOf(skew, kTetrahedron));
  mv3PtMatchTm loaded;
  EXPECT_TRUE(loadInto(store(stored), loaded));
  EXPECT_EQ(store(loaded), store(stored));
  EXPECT_EQ(loaded.a2b(mvVector<3>(1, 2, 3)), stored.a2b(mvVector<3>(1, 2, 3)));
}

TEST(PtMatchTm3Archive, OtherVersionsAreUnknown) {
  std::vector<unsigned char> bytes = store(mv3PtMatchTm());
  bytes[0] = 0x4D;
  mv3PtMatchTm loaded;
  EXPECT_THROW_THAT(loadInto(bytes, loaded), mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) { EXPECT_EQ(e.file(), "ptmatch/tm"); });
}

TEST(PtMatchTm3Archive, FittersOfAnotherSizeAreBadData) {
  ByteWriter writer;
  writer.u32(1100).append(emptyFitter(4)).append(emptyFitter(2)).append(emptyFitter(4));
  identityElements(writer);
  mv3PtMatchTm loaded;
  loaded.translate(mvVector<3>(1, 1, 1));
  const std::vector<unsigned char> before = store(loaded);
  EXPECT_THROW(loadInto(writer.bytes(), loaded), mvArchive::BadData);
  EXPECT_EQ(store(loaded), before);
}

TEST(PtMatchTm3Map, RandomFitsRoundTrip) {
  std::mt19937 prng(3);
  std::uniform_real_distribution<double> angle(-3.0, 3.0);
  std::uniform_real_distribution<double> scale(0.5, 2.0);
  std::uniform_real_distribution<double> coordinate(-50.0, 50.0);
  for (int trial = 0; trial < 20; ++trial) {
    mv3PtMatchTm truth;
    truth.scale(mvVector<3>(scale(prng), scale(prng), scale(prng)));
    truth.rotateOnX(mvRadian(angle(prng)));
    truth.rotateOnY(mvRadian(angle(prng)));
    truth.rotateOnZ(mvRadian(angle(prng)));
    truth.translate(mvVector<3>(coordinate(prng), coordinate(prng), coordinate(prng)));
    Points a;
    Points b;
    for (int i = 0; i < 10; ++i) {
      a.emplace_back(coordinate(prng), coordinate(prng), coordinate(prng));
      b.push_back(truth.a2b(a.back()));
    }
    mv3PtMatchTm tm;
    tm.fit(a, b);
    for (const mvVector<3>& p : a) {
      EXPECT_TRUE(isNear(tm.a2b(p), truth.a2b(p), kTolerance));
      EXPECT_TRUE(isNear(tm.b2a(tm.a2b(p)), p, kTolerance));
    }
  }
}
