// The perspective transform's refits, rebuilt here step by step from their definition
// and compared bit for bit: the inverse from the five samples at +-5, the edits from the
// five samples at +-1, and the affine approximation from the 6 x 6 grid of samples taken
// row by row. Sums of rounded products depend on the order of the samples, so a different
// sample or a different order shows in the last bits.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "common/archive_bytes.h"
#include "pinv/fitter_bytes.h"
#include "ptmatch/tm.h"

using namespace archive_bytes;
using fitter_bytes::emptyFitter;

namespace {

using Points = std::vector<mvVector<2>>;
using Parameters = std::vector<double>;

/// A genuinely perspective map: h0 ... h7.
const Parameters kTilt{1.0, 0.2, 3.0, 0.1, 1.5, -2.0, 0.01, 0.02};

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

TEST(PerspectiveTmReview, TheInverseIsTheRefitOfTheImagesOfFiveSamplesInOrder) {
  OpenPTm tm;
  loadForward(kTilt, tm);
  tm.sync_();
  Points images;
  for (const mvVector<2>& p : kInverseSamples) images.push_back(project(kTilt, p));
  EXPECT_EQ(parametersOf(tm, 1), linearisedFit(images, kInverseSamples));
  EXPECT_EQ(parametersOf(tm, 0), kTilt);  // the forward parameters are untouched
}

TEST(PerspectiveTmReview, AnEditIsTheRefitOfFiveUnitSamplesCarriedThroughTheEditFirst) {
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
    loadForward(kTilt, tm);
    edit.onPerspective(tm);

    mv2PtMatchTm e;
    edit.onAffine(e);
    Points images;
    for (const mvVector<2>& p : kEditSamples) images.push_back(project(kTilt, e.a2b(p)));
    const Parameters forward = linearisedFit(kEditSamples, images);
    Points inverseImages;
    for (const mvVector<2>& p : kInverseSamples) inverseImages.push_back(project(forward, p));

    EXPECT_EQ(parametersOf(tm, 0), forward) << edit.name;
    EXPECT_EQ(parametersOf(tm, 1), linearisedFit(inverseImages, kInverseSamples)) << edit.name;
  }
}

TEST(PerspectiveTmReview, TheAffineApproximationFitsThirtySixSamplesRowByRow) {
  mv2PTm tm;
  loadForward(kTilt, tm);
  mv2PtMatchTm expected;
  for (double y : {-5.0, -3.0, -1.0, 1.0, 3.0, 5.0}) {
    for (double x : {-5.0, -3.0, -1.0, 1.0, 3.0, 5.0}) {
      const mvVector<2> p(x, y);
      expected.update(p, project(kTilt, p));
    }
  }
  expected.fit(6);  // the richest family, which 36 samples in general position determine
  EXPECT_EQ(tm.a2bXform(), expected.a2bXform());
  mv2PtMatchTm approximation = tm.a2bTm();
  EXPECT_TRUE(approximation == expected);
  approximation.fit(6);  // it carries the same 36 pairs
  EXPECT_TRUE(approximation == expected);
}
