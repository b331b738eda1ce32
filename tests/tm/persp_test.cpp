// The 2-D perspective point-match transform: the linearised fit, the inverse and the
// edits by refitting sample points, the affine approximation and the archive layout.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
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

using Points = std::vector<mvVector<2>>;

/// The perspective fits solve normal equations whose condition grows with the square of
/// the coordinates' spread; on samples within +-10 they keep well over six digits.
constexpr double kTolerance = 1e-6;
constexpr double kHalfPi = 1.5707963267948966;

mvXform<2> xformOf(double a00, double a01, double a10, double a11, double tx, double ty) {
  return mvXform<2>(mvMatrix<2>(a00, a01, a10, a11), mvVector<2>(tx, ty));
}

/// A perspective map written out: w = h6 x + h7 y + 1, ((h0 x + h1 y + h2) / w, ...).
struct Homography {
  double h[8];
  mvVector<2> operator()(const mvVector<2>& p) const {
    const double w = h[6] * p.x() + h[7] * p.y() + 1.0;
    return mvVector<2>((h[0] * p.x() + h[1] * p.y() + h[2]) / w,
                       (h[3] * p.x() + h[4] * p.y() + h[5]) / w);
  }
};

const Homography kTilt{{1.0, 0.2, 3.0, 0.1, 1.5, -2.0, 0.01, 0.02}};
const Points kCorners{{-4, -3}, {5, -4}, {6, 5}, {-3, 4}};

Points imagesOf(const Homography& h, const Points& points) {
  Points images;
  for (const mvVector<2>& p : points) images.push_back(h(p));
  return images;
}

/// The identity's interleaved parameters: a2b[i], b2a[i] for i = 0 ... 7.
ByteWriter& identityParameters(ByteWriter& bytes) {
  for (int i = 0; i < 8; ++i) {
    const double v = (i == 0 || i == 4) ? 1.0 : 0.0;
    bytes.f64(v).f64(v);
  }
  return bytes;
}

}  // namespace

TEST(PerspectiveTm, DefaultIsTheIdentity) {
  mv2PTm tm;
  EXPECT_EQ(tm.a2b(mvVector<2>(3, -4)), mvVector<2>(3, -4));
  EXPECT_EQ(tm.b2a(mvVector<2>(3, -4)), mvVector<2>(3, -4));
  EXPECT_EQ(mv2PTm::I.a2b(mvVector<2>(1, 2)), mvVector<2>(1, 2));
}

TEST(PerspectiveTm, FourPairsInGeneralPositionDetermineTheTransform) {
  mv2PTm tm(kCorners, imagesOf(kTilt, kCorners));
  for (const mvVector<2>& p : Points{{0, 0}, {1, 2}, {-5, 5}, {2.5, -1.5}}) {
    EXPECT_TRUE(isNear(tm.a2b(p), kTilt(p), kTolerance));
    EXPECT_TRUE(isNear(tm.b2a(tm.a2b(p)), p, kTolerance));
  }
}

TEST(PerspectiveTm, OutputFormsAgreeWithReturnedPoints) {
  mv2PTm tm(kCorners, imagesOf(kTilt, kCorners));
  mvVector<2> out;
  tm.a2b(mvVector<2>(1, 2), out);
  EXPECT_EQ(out, tm.a2b(mvVector<2>(1, 2)));
  tm.b2a(out, out);
  EXPECT_TRUE(isNear(out, mvVector<2>(1, 2), kTolerance));
}

TEST(PerspectiveTm, FitWithoutPairsIsSingularAndChangesNothing) {
  mv2PTm tm(mv2PtMatchTm(xformOf(2, 0, 0, 2, 1, 1)));
  const std::vector<unsigned char> before = store(tm);
  EXPECT_THROW(tm.fit(), mvMatrixExt::SingularMatrix);
  EXPECT_EQ(store(tm), before);
}

TEST(PerspectiveTm, FittingAgainAfterMorePairsUsesThemAll) {
  mv2PTm tm;
  const Points more{{1, 1}, {-2, 3}};
  tm.update(kCorners, imagesOf(kTilt, kCorners));
  tm.fit();
  const std::vector<unsigned char> fittedOnce = store(tm);
  tm.fit();
  EXPECT_EQ(store(tm), fittedOnce);  // the sums were not disturbed
  tm.update(more, imagesOf(kTilt, more));
  tm.fit();
  EXPECT_TRUE(isNear(tm.a2b(mvVector<2>(0, 0)), kTilt(mvVector<2>(0, 0)), kTolerance));
  EXPECT_NE(store(tm), fittedOnce);  // six pairs now
}

TEST(PerspectiveTm, IdentityEmptiesTheSums) {
  mv2PTm tm(kCorners, imagesOf(kTilt, kCorners));
  tm.identity();
  EXPECT_EQ(store(tm), store(mv2PTm()));
  EXPECT_THROW(tm.fit(), mvMatrixExt::SingularMatrix);
}

TEST(PerspectiveTm, FromAnAffineTransformMapsAsItDoes) {
  const mvXform<2> affine = xformOf(1.2, -0.3, 0.4, 0.9, 5, -2);
  const mv2PtMatchTm tm(affine);
  const mv2PTm perspective(tm);
  for (const mvVector<2>& p : Points{{0, 0}, {1, 2}, {-7, 3}}) {
    EXPECT_TRUE(isNear(perspective.a2b(p), tm.a2b(p), kTolerance));
    EXPECT_TRUE(isNear(perspective.b2a(p), tm.b2a(p), kTolerance));
  }
  const mvXform<2> back = perspective.a2bXform();
  EXPECT_TRUE(isNear(back, affine, kTolerance));
}

TEST(PerspectiveTm, AffineApproximationCarriesItsThirtySixPairs) {
  const mv2PTm perspective(kCorners, imagesOf(kTilt, kCorners));
  mv2PtMatchTm approximation = perspective.a2bTm();
  EXPECT_EQ(approximation.a2bXform(), perspective.a2bXform());
  const mvXform<2> fitted = approximation.a2bXform();
  approximation.fit(6);  // refits the same 36 pairs
  EXPECT_EQ(approximation.a2bXform(), fitted);
  // A least-squares affine fit of a tilted map is near it in the middle of the samples.
  EXPECT_NEAR(approximation.a2b(mvVector<2>(0, 0)).x(), kTilt(mvVector<2>(0, 0)).x(), 0.2);
}

// --- edits by refitting ---

TEST(PerspectiveTmEdit, EditsActInPlaneABeforeTheTransform) {
  mv2PTm rotated(mv2PtMatchTm(xformOf(1, 0, 0, 1, 5, 0)));
  rotated.rotate(mvRadian(kHalfPi));
  EXPECT_TRUE(isNear(rotated.a2b(mvVector<2>(1, 0)), mvVector<2>(5, 1), kTolerance));
  EXPECT_TRUE(isNear(rotated.b2a(mvVector<2>(5, 1)), mvVector<2>(1, 0), kTolerance));

  mv2PTm translated;
  translated.translate(mvVector<2>(1, 2));
  EXPECT_TRUE(isNear(translated.a2b(mvVector<2>(3, 3)), mvVector<2>(4, 5), kTolerance));

  mv2PTm scaled(mv2PtMatchTm(xformOf(1, 0, 0, 1, 5, 0)));
  scaled.scale(mvVector<2>(2, 3));
  EXPECT_TRUE(isNear(scaled.a2b(mvVector<2>(1, 1)), mvVector<2>(7, 3), kTolerance));
}

TEST(PerspectiveTmEdit, EditOfAPerspectiveMapComposesWithIt) {
  mv2PTm tm(kCorners, imagesOf(kTilt, kCorners));
  tm.translate(mvVector<2>(0.5, -0.25));
  EXPECT_TRUE(isNear(tm.a2b(mvVector<2>(1, 1)), kTilt(mvVector<2>(1.5, 0.75)), kTolerance));
}

TEST(PerspectiveTmEdit, PairsAccumulatedBeforeAnEditStillCount) {
  mv2PTm tm;
  tm.update(kCorners, imagesOf(kTilt, kCorners));
  tm.rotate(mvRadian(0.3));
  tm.fit();
  EXPECT_TRUE(isNear(tm.a2b(mvVector<2>(1, 2)), kTilt(mvVector<2>(1, 2)), kTolerance));
}

// --- unequal lists and degenerate maps ---

TEST(PerspectiveTmBadArgs, UnequalListsChangeNothing) {
  mv2PTm tm;
  tm.update(kCorners, imagesOf(kTilt, kCorners));
  const std::vector<unsigned char> before = store(tm);
  EXPECT_THROW(tm.update(Points{{1, 1}, {2, 2}}, Points{{1, 1}}), mv2PTm::BadArgs);
  EXPECT_THROW(tm.fit(Points{{1, 1}}, Points{}), mv2PTm::BadArgs);
  EXPECT_EQ(store(tm), before);
  EXPECT_THROW(mv2PTm(Points{{1, 1}}, Points{}), mv2PTm::BadArgs);
}

TEST(PerspectiveTmBadArgs, IsALibraryErrorRegisteredByName) {
  std::unique_ptr<mvPersistent> made(mv_Instantiator::create("mv2PTm::BadArgs"));
  EXPECT_NE(dynamic_cast<mv2PTm::BadArgs*>(made.get()), nullptr);
}

TEST(PerspectiveTm, PointsOnTheVanishingLineMapToNonFiniteCoordinates) {
  // a2b = (1, 0, 0, 0, 1, 0, 1, 0): w = x + 1 vanishes at x = -1.
  ByteWriter writer;
  writer.u32(1100);
  for (int i = 0; i < 8; ++i) {
    const double forward = (i == 0 || i == 4 || i == 6) ? 1.0 : 0.0;
    writer.f64(forward).f64(i == 0 || i == 4 ? 1.0 : 0.0);
  }
  writer.append(emptyFitter(8));
  mv2PTm tm;
  ASSERT_TRUE(loadInto(writer.bytes(), tm));
  mvVector<2> image;
  EXPECT_NO_THROW(image = tm.a2b(mvVector<2>(-1, 5)));
  EXPECT_FALSE(std::isfinite(image.x()));
  EXPECT_FALSE(std::isfinite(image.y()));
  EXPECT_TRUE(isNear(tm.a2b(mvVector<2>(1, 4)), mvVector<2>(0.5, 2), kTolerance));
}

// --- persistence ---

TEST(PerspectiveTmArchive, IdentityIsInterleavedParametersThenAnEmptyFitter) {
  ByteWriter expected;
  expected.u32(1100);
  identityParameters(expected).append(emptyFitter(8));
  EXPECT_EQ(store(mv2PTm()), expected.bytes());
}

TEST(PerspectiveTmArchive, ParametersAreInterleavedForwardThenInverse) {
  // From the affine (2 0; 0 4) + (2, 4): a2b = (2, 0, 2, 0, 4, 4, 0, 0) exactly, so the
  // first bytes after the version are a2b0 = 2 and then b2a0, near 0.5.
  const mv2PTm tm(mv2PtMatchTm(xformOf(2, 0, 0, 4, 2, 4)));
  const std::vector<unsigned char> bytes = store(tm);
  ASSERT_EQ(bytes.size(), 4u + 16u * 8u + emptyFitter(8).size());
  double values[16];
  std::memcpy(values, bytes.data() + 4, sizeof values);
  const double forward[8] = {2, 0, 2, 0, 4, 4, 0, 0};
  const double inverse[8] = {0.5, 0, -1, 0, 0.25, -1, 0, 0};
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(values[2 * i], forward[i]) << i;
    EXPECT_NEAR(values[2 * i + 1], inverse[i], kTolerance) << i;
  }
}

TEST(PerspectiveTmArchive, LoadingRestoresParametersAndSums) {
  mv2PTm stored;
  stored.update(kCorners, imagesOf(kTilt, kCorners));
  stored.fit();
  mv2PTm loaded;
  EXPECT_TRUE(loadInto(store(stored), loaded));
  EXPECT_EQ(store(loaded), store(stored));
  EXPECT_EQ(loaded.a2b(mvVector<2>(1, 2)), stored.a2b(mvVector<2>(1, 2)));
  loaded.fit();  // the loaded sums fit the same transform
  EXPECT_TRUE(isNear(loaded.a2b(mvVector<2>(1, 2)), kTilt(mvVector<2>(1, 2)), kTolerance));
}

TEST(PerspectiveTmArchive, OtherVersionsAreUnknown) {
  std::vector<unsigned char> bytes = store(mv2PTm());
  bytes[0] = 0x4D;
  mv2PTm loaded;
  EXPECT_THROW_THAT(loadInto(bytes, loaded), mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) { EXPECT_EQ(e.file(), "ptmatch/tm"); });
}

TEST(PerspectiveTmArchive, AFitterOfAnotherSizeIsBadData) {
  ByteWriter writer;
  writer.u32(1100);
  identityParameters(writer).append(emptyFitter(3));
  mv2PTm loaded(kCorners, imagesOf(kTilt, kCorners));
  const std::vector<unsigned char> before = store(loaded);
  EXPECT_THROW(loadInto(writer.bytes(), loaded), mvArchive::BadData);
  EXPECT_EQ(store(loaded), before);
}

TEST(PerspectiveTmMap, RandomFitsRoundTrip) {
  std::mt19937 prng(11);
  std::uniform_real_distribution<double> small(-0.01, 0.01);
  std::uniform_real_distribution<double> linear(0.7, 1.4);
  std::uniform_real_distribution<double> shear(-0.3, 0.3);
  std::uniform_real_distribution<double> coordinate(-5.0, 5.0);
  for (int trial = 0; trial < 20; ++trial) {
    const Homography truth{{linear(prng), shear(prng), coordinate(prng), shear(prng), linear(prng),
                            coordinate(prng), small(prng), small(prng)}};
    Points a;
    for (int i = 0; i < 8; ++i) a.emplace_back(coordinate(prng), coordinate(prng));
    const mv2PTm tm(a, imagesOf(truth, a));
    for (const mvVector<2>& p : a) {
      EXPECT_TRUE(isNear(tm.a2b(p), truth(p), kTolerance));
      EXPECT_TRUE(isNear(tm.b2a(tm.a2b(p)), p, kTolerance));
    }
  }
}

// The perspective transform's refits, rebuilt here step by step from their definition
// and compared bit for bit: the inverse from the five samples at +-5, the edits from the
// five samples at +-1, and the affine approximation from the 6 x 6 grid of samples taken
// row by row. Sums of rounded products depend on the order of the samples, so a different
// sample or a different order shows in the last bits.

namespace {

using Parameters = std::vector<double>;

/// A genuinely perspective map: h0 ... h7.
const Parameters kTiltParameters{1.0, 0.2, 3.0, 0.1, 1.5, -2.0, 0.01, 0.02};

/// Exposes the inverse refit.
class OpenPTm : public mv2PTm {
 public:
  using mv2PTm::sync_;
};

/// Maps p with h: w = h6 x + h7 y + 1, then both numerators times 1 / w.
mvVector<2> project(const Parameters& h, const mvVector<2>& p) {
  const double w = h[6] * p.x() + h[7] * p.y() + 1.0;
  const double wInverse = 1.0 / w;
  return mvVector<2>((h[0] * p.x() + h[1] * p.y() + h[2]) * wInverse,
                     (h[3] * p.x() + h[4] * p.y() + h[5]) * wInverse);
}

/// The eight parameters fitted to the pairs a[i] -> b[i], each pair as the two linearised
/// observations (x, y, 1, 0, 0, 0, -x u, -y u) -> u and (0, 0, 0, x, y, 1, -x v, -y v) -> v.
Parameters linearisedFit(const Points& a, const Points& b) {
  mvPsuedoInverse fitter(8);
  for (std::size_t i = 0; i < a.size(); ++i) {
    const double x = a[i].x();
    const double y = a[i].y();
    const double u = b[i].x();
    const double v = b[i].y();
    fitter.update({x, y, 1, 0, 0, 0, -x * u, -y * u}, u);
    fitter.update({0, 0, 0, x, y, 1, -x * v, -y * v}, v);
  }
  return fitter.fit();
}

/// A transform with forward parameters h, the identity as its inverse and empty sums.
void loadForward(const Parameters& h, mv2PTm& tm) {
  ByteWriter writer;
  writer.u32(1100);
  for (int i = 0; i < 8; ++i) writer.f64(h[i]).f64(i == 0 || i == 4 ? 1.0 : 0.0);
  writer.append(emptyFitter(8));
  ASSERT_TRUE(loadInto(writer.bytes(), tm));
}

/// The forward (which = 0) or inverse (which = 1) parameters, read from the archive.
Parameters parametersOf(const mv2PTm& tm, int which) {
  const std::vector<unsigned char> bytes = store(tm);
  Parameters h(8);
  for (int i = 0; i < 8; ++i) std::memcpy(&h[i], bytes.data() + 4 + 16 * i + 8 * which, 8);
  return h;
}

const Points kInverseSamples{{-5, -5}, {5, -5}, {5, 5}, {-5, 5}, {0, 0}};
const Points kEditSamples{{-1, -1}, {1, -1}, {1, 1}, {-1, 1}, {0, 0}};

}  // namespace

TEST(PerspectiveTmRefits, TheInverseIsTheRefitOfTheImagesOfFiveSamplesInOrder) {
  OpenPTm tm;
  loadForward(kTiltParameters, tm);
  tm.sync_();
  Points images;
  for (const mvVector<2>& p : kInverseSamples) images.push_back(project(kTiltParameters, p));
  EXPECT_EQ(parametersOf(tm, 1), linearisedFit(images, kInverseSamples));
  EXPECT_EQ(parametersOf(tm, 0), kTiltParameters);  // the forward parameters are untouched
}

TEST(PerspectiveTmRefits, AnEditIsTheRefitOfFiveUnitSamplesCarriedThroughTheEditFirst) {
  struct Edit {
    const char* name;
    void (*onAffine)(mv2PtMatchTm&);
    void (*onPerspective)(mv2PTm&);
  };
  const Edit edits[] = {
      {"rotate", [](mv2PtMatchTm& e) { e.rotate(mvRadian(0.3)); },
       [](mv2PTm& t) { t.rotate(mvRadian(0.3)); }},
      {"translate", [](mv2PtMatchTm& e) { e.translate(mvVector<2>(0.5, -0.25)); },
       [](mv2PTm& t) { t.translate(mvVector<2>(0.5, -0.25)); }},
      {"scale", [](mv2PtMatchTm& e) { e.scale(mvVector<2>(1.5, 0.75)); },
       [](mv2PTm& t) { t.scale(mvVector<2>(1.5, 0.75)); }},
  };
  for (const Edit& edit : edits) {
    mv2PTm tm;
    loadForward(kTiltParameters, tm);
    edit.onPerspective(tm);

    mv2PtMatchTm e;
    edit.onAffine(e);
    Points images;
    for (const mvVector<2>& p : kEditSamples) images.push_back(project(kTiltParameters, e.a2b(p)));
    const Parameters forward = linearisedFit(kEditSamples, images);
    Points inverseImages;
    for (const mvVector<2>& p : kInverseSamples) inverseImages.push_back(project(forward, p));

    EXPECT_EQ(parametersOf(tm, 0), forward) << edit.name;
    EXPECT_EQ(parametersOf(tm, 1), linearisedFit(inverseImages, kInverseSamples)) << edit.name;
  }
}

TEST(PerspectiveTmRefits, TheAffineApproximationFitsThirtySixSamplesRowByRow) {
  mv2PTm tm;
  loadForward(kTiltParameters, tm);
  mv2PtMatchTm expected;
  for (double y : {-5.0, -3.0, -1.0, 1.0, 3.0, 5.0}) {
    for (double x : {-5.0, -3.0, -1.0, 1.0, 3.0, 5.0}) {
      const mvVector<2> p(x, y);
      expected.update(p, project(kTiltParameters, p));
    }
  }
  expected.fit(6);  // the richest family, which 36 samples in general position determine
  EXPECT_EQ(tm.a2bXform(), expected.a2bXform());
  mv2PtMatchTm approximation = tm.a2bTm();
  EXPECT_TRUE(approximation == expected);
  approximation.fit(6);  // it carries the same 36 pairs
  EXPECT_TRUE(approximation == expected);
}
