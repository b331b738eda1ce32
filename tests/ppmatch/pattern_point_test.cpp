// Point-to-point matching of a sparse pattern: the nested matcher's search with the
// caller's parameters (free translation, start pose at the middle of the rotation range),
// each inner result re-expressed with a label image, a fit from pattern pixels to data
// (similarity for collinear hits, affine otherwise), a coverage in pattern pixels and the
// inner fit error.
#include <gtest/gtest.h>

#include <vector>

#include "mvbase/fitter.h"
#include "ppmatch/pattern_support.h"

using namespace pattern_test;

namespace {

using Defs = mvPointMatcherDefs;

// Seven dots with no symmetry, 10 client units apart.
const Cells kSparse = {{0, 0}, {3, 0}, {5, 1}, {1, 2}, {4, 3}, {0, 4}, {2, 4}};
const double kPitch = 10.0;
// Poses are recovered to within this many data units at every dot (noise 0.3).
const double kPoseTolerance = 1.0;

mvPointMatcher sparseMatcher(const mvXform<2>& clientFromImage = pitchOf(kPitch)) {
  mvPointMatcher m;
  m.train(dotImage(6, 5, kSparse, clientFromImage));
  return m;
}

mvPointMatcherRunParams sparseParams(long maxNumResults = 1) {
  mvPointMatcherRunParams p;
  p.scaleUncertainty(mvRange(-0.1, 0.1));
  p.maxNumResults(maxNumResults);
  return p;
}

SceneRecipe exactScene(const Cells& cells, const mvXform<2>& pose) {
  return {cells, pitchOf(kPitch), pose, {}, 0.0, 0, 0.0, 0.0, 1};
}

// The least-squares fit of the pairs (data point, pixel) with the given dof.
mvXform<2> fitOf(const Points& data, const Points& pixels, int dof) {
  mvLSPointToPointFitter fitter;
  for (std::size_t i = 0; i < data.size(); ++i) fitter.update(data[i], pixels[i]);
  return fitter.fit(dof);
}

// --- end to end ---

TEST(PatternPointMatching, FindsASparsePatternAmongNoiseMissingDotsAndClutter) {
  struct Trial {
    mvXform<2> pose;
    std::set<std::pair<long, long>> missing;
    unsigned seed;
  };
  const std::vector<Trial> trials = {
      {similarity(120, 80, 8, 1.05), {{5, 1}}, 11},
      {similarity(-40, 300, -12, 0.95), {{0, 0}, {2, 4}}, 12},
      {similarity(500, -250, 3, 1.0), {}, 13},
  };
  for (const Trial& t : trials) {
    SceneRecipe recipe{kSparse, pitchOf(kPitch), t.pose,     t.missing, 0.3,
                       8,       1.5 * kPitch,    3 * kPitch, t.seed};
    const Scene scene = makeScene(recipe);
    mvPointMatcherResultSet rs;
    sparseMatcher().run(scene.data, sparseParams(), rs);

    ASSERT_EQ(rs.results().size(), 1u);
    const mvPointMatcherResult& best = rs.results()[0];
    EXPECT_EQ(best.runMode(), Defs::ePointToGrid);
    EXPECT_EQ(best.coverage(), static_cast<double>(7 - t.missing.size()) / 7.0);
    expectLabelsMatchTruth(best, scene);
    // The pose carries pattern pixels onto data points.
    EXPECT_LT(largestDisplacement(best.modelToDataXform(), t.pose * pitchOf(kPitch),
                                  clientPoints(kSparse, mvXform<2>::I)),
              kPoseTolerance);
    EXPECT_THROW(best.modelToDataMap(), Defs::NotRun);
    EXPECT_GE(rs.time(), 0.0);
  }
}

TEST(PatternPointMatching, ADottedLineIsFoundWithASimilarityFit) {
  // All hits lie on one line, so the fit is a similarity: an affine fit of collinear
  // pixels would not be determined.
  Cells line;
  for (long i = 0; i < 12; ++i) line.emplace_back(2 * i, 0);
  mvPointMatcher m;
  m.train(dotImage(23, 1, line, pitchOf(kPitch)));
  const mvXform<2> pose = similarity(70, 40, 6, 1.02);
  const Scene scene = makeScene(exactScene(line, pose));

  mvPointMatcherResultSet rs;
  m.run(scene.data, sparseParams(), rs);
  ASSERT_EQ(rs.results().size(), 1u);
  const mvPointMatcherResult& best = rs.results()[0];
  EXPECT_EQ(best.coverage(), 1.0);
  expectLabelsMatchTruth(best, scene);
  EXPECT_TRUE(sameXform(best.modelToDataXform(), pose * pitchOf(kPitch), 1e-9));
}

// --- the inner run parameters ---

TEST(PatternPointMatching, AFullRotationRangeSearchesFromTheIdentity) {
  mvPointMatcherRunParams p = sparseParams();
  p.rotationUncertainty(mvAngleRange::FullRange());
  for (double degrees : {100.0, 250.0}) {
    const mvXform<2> pose = similarity(60, 60, degrees);
    mvPointMatcherResultSet rs;
    sparseMatcher().run(makeScene(exactScene(kSparse, pose)).data, p, rs);
    ASSERT_EQ(rs.results().size(), 1u) << degrees;
    EXPECT_EQ(rs.results()[0].coverage(), 1.0);
    EXPECT_TRUE(sameXform(rs.results()[0].modelToDataXform(), pose * pitchOf(kPitch), 1e-9));
  }
}

TEST(PatternPointMatching, ANormalRotationRangeStartsTheInnerSearchAtItsMiddle) {
  // The range 10..30 degrees rotates the inner start pose by 20 degrees and keeps 10..30
  // as the inner range around it: the search covers 30..50 degrees.
  mvPointMatcherRunParams p = sparseParams();
  p.minCoverage(0.9);
  p.rotationUncertainty(degreeRange(10, 30));

  mvPointMatcherResultSet at40;
  sparseMatcher().run(makeScene(exactScene(kSparse, similarity(60, 60, 40))).data, p, at40);
  ASSERT_EQ(at40.results().size(), 1u);
  EXPECT_EQ(at40.results()[0].coverage(), 1.0);
  EXPECT_TRUE(sameXform(at40.results()[0].modelToDataXform(),
                        similarity(60, 60, 40) * pitchOf(kPitch), 1e-9));

  mvPointMatcherResultSet at20;
  sparseMatcher().run(makeScene(exactScene(kSparse, similarity(60, 60, 20))).data, p, at20);
  EXPECT_TRUE(at20.results().empty()) << "20 degrees is 0 relative to the inner start pose";
}

TEST(PatternPointMatching, TheCallersTranslationRangesAndStartPoseAreNotUsed) {
  const SceneRecipe recipe{kSparse,
                           pitchOf(kPitch),
                           similarity(150, -90, 4, 1.03),
                           {{4, 3}},
                           0.3,
                           5,
                           1.5 * kPitch,
                           2 * kPitch,
                           21};
  const Scene scene = makeScene(recipe);
  mvPointMatcherResultSet freeRun, narrow;
  sparseMatcher().run(scene.data, sparseParams(), freeRun);

  mvPointMatcherRunParams p = sparseParams();
  p.xTranslationUncertainty(mvRange(-1, 1));
  p.yTranslationUncertainty(mvRange(1000, 1001));
  p.startPose(similarity(-500, 500, 0));
  sparseMatcher().run(scene.data, p, narrow);

  ASSERT_EQ(freeRun.results().size(), 1u);
  expectSameResults(freeRun, narrow);
}

// --- re-expressing the inner results ---

TEST(PatternPointMatching, ACellOutsideAReplacedPatternIsIgnored) {
  mvPointMatcher m = sparseMatcher();
  // Replace the corresponder by one whose pattern holds only the dots of the upper-left
  // 4 x 3 pixels; the cells (5, 1), (4, 3), (0, 4) and (2, 4) now lie outside it.
  PatternState replacement = readPatternState(m);
  replacement.corresponder.train(
      dotImage(4, 3, {{0, 0}, {3, 0}, {1, 2}}, pitchOf(kPitch)),
      mv_PointToGridCorresponderTrainParams(true, mv_PointToGridCorresponderDefs::ePointFeatures));
  replacement.hasNested = false;  // keep the nested matcher
  replacePatternState(m, replacement);
  ASSERT_EQ(m.pattern().size(), mvPair<long>(4, 3));

  const mvXform<2> pose = similarity(30, 20, 5);
  const Scene scene = makeScene(exactScene(kSparse, pose));
  mvPointMatcherResultSet rs;
  m.run(scene.data, sparseParams(), rs);

  ASSERT_EQ(rs.results().size(), 1u);
  const mvPointMatcherResult& r = rs.results()[0];
  EXPECT_EQ(r.coverage(), 3.0 / 7.0);
  const mvPelBuffer_const<long>& labels = r.gridToDataImage();
  EXPECT_EQ(labels.size(), mvPair<long>(4, 3));
  for (long y = 0; y < 3; ++y) {
    for (long x = 0; x < 4; ++x) {
      const mvPair<long> p(x, y);
      const bool kept =
          p == mvPair<long>(0, 0) || p == mvPair<long>(3, 0) || p == mvPair<long>(1, 2);
      EXPECT_EQ(r.gridToDataMap(p), kept ? scene.expectedAt(p) : -1) << x << ", " << y;
    }
  }
  EXPECT_TRUE(sameXform(r.modelToDataXform(), pose * pitchOf(kPitch), 1e-9));
}

TEST(PatternPointMatching, TwoCellsOnOnePixelCountOnceKeepTheLaterIndexAndFeedBothPairs) {
  mvPointMatcher m = sparseMatcher();
  // Model point 1 (the dot at (3, 0)) is said to lie on pixel (0, 0), as model point 0.
  PatternState replacement = readPatternState(m);
  replacement.hasCorresponder = false;
  replacement.hasNested = false;
  replacement.cells[1] = mvPair<long>(0, 0);
  replacePatternState(m, replacement);

  const mvXform<2> pose = similarity(30, 20, 5);
  const Scene scene = makeScene(exactScene(kSparse, pose));
  mvPointMatcherResultSet rs;
  m.run(scene.data, sparseParams(), rs);
  ASSERT_EQ(rs.results().size(), 1u);
  const mvPointMatcherResult& r = rs.results()[0];

  EXPECT_EQ(r.coverage(), 6.0 / 7.0);
  EXPECT_EQ(r.gridToDataMap({0, 0}), scene.expectedAt({3, 0})) << "the later model point's data";
  EXPECT_EQ(r.gridToDataMap({3, 0}), -1);

  // The fit takes every pair, the two on pixel (0, 0) included.
  Points data, pixels;
  for (std::size_t k = 0; k < kSparse.size(); ++k) {
    data.push_back(scene.data[static_cast<std::size_t>(scene.expectedAt(kSparse[k]))]);
    pixels.push_back(at(replacement.cells[k]));
  }
  const mvXform<2> bothPairs = fitOf(data, pixels, 6);
  EXPECT_TRUE(sameXform(r.modelToDataXform(), bothPairs, 1e-9));
  const mvXform<2> laterPairOnly =
      fitOf(Points(data.begin() + 1, data.end()), Points(pixels.begin() + 1, pixels.end()), 6);
  EXPECT_FALSE(sameXform(bothPairs, laterPairOnly, 1e-6)) << "the test tells the two apart";
}

TEST(PatternPointMatching, CoverageCountsPatternPixelsAndTheFitErrorIsTheInnerOne) {
  // The dots start at column 2 of the training image, so the pattern (cropped to the set
  // pixels, offset (2, 0), 6 wide) and the cells (relative to the image) disagree: a cell
  // lands on the pixel cell + (2, 0), and the cells from column 6 on are skipped.
  Cells shifted;
  for (const mvPair<long>& c : kSparse) shifted.push_back(c + mvPair<long>(2, 0));
  mvPointMatcher m;
  m.train(dotImage(8, 5, shifted, pitchOf(kPitch)));
  ASSERT_EQ(m.pattern().offset(), mvPair<long>(2, 0));

  const SceneRecipe recipe{shifted, pitchOf(kPitch), similarity(20, 10, -6, 1.04), {}, 0.4, 0, 0, 0,
                           31};
  const Scene scene = makeScene(recipe);
  const mvPointMatcherRunParams params = sparseParams(3);
  mvPointMatcherResultSet rs;
  m.run(scene.data, params, rs);

  // The nested matcher's own search, with the same parameters: the caller's rotation
  // range is centred on 0, so the inner start pose is the identity.
  mvPointMatcher reference;
  reference.train(clientPoints(shifted, pitchOf(kPitch)), Defs::eAutoDetect);
  mvPointMatcherResultSet inner;
  reference.run(scene.data, params, inner);

  ASSERT_FALSE(rs.results().empty());
  ASSERT_EQ(rs.results().size(), inner.results().size());
  EXPECT_EQ(inner.results()[0].coverage(), 1.0);
  EXPECT_EQ(rs.results()[0].coverage(), 5.0 / 7.0);
  for (std::size_t i = 0; i < rs.results().size(); ++i) {
    EXPECT_EQ(rs.results()[i].fitError(), inner.results()[i].fitError()) << "result " << i;
  }
  const mvPointMatcherResult& best = rs.results()[0];
  for (const mvPair<long>& c : shifted) {
    if (c.x() >= 6) continue;
    EXPECT_EQ(best.gridToDataMap(c + mvPair<long>(2, 0)), scene.expectedAt(c));
  }
}

TEST(PatternPointMatching, AnInnerRunThatFindsNothingLeavesTheResultSetEmpty) {
  const mvPointMatcher m = sparseMatcher();
  mvPointMatcherResultSet rs;
  m.run(makeScene(exactScene(kSparse, similarity(0, 0, 0))).data, sparseParams(), rs);
  ASSERT_EQ(rs.results().size(), 1u);

  m.run(Points{{0, 0}, {10, 0}}, sparseParams(), rs);
  EXPECT_TRUE(rs.results().empty());
  EXPECT_GE(rs.time(), 0.0);
}

// --- the collinearity switch ---

// Pattern pixels (0, 0), (4, 1), (8, 2) lie on one line; the fourth dot lies off it.
mvPointMatcherResult slantedMatch(const mvPair<long>& fourth, const mvXform<2>& dataFromPixel,
                                  Points* dataOut) {
  const Cells cells = {{0, 0}, {4, 1}, {8, 2}, fourth};
  mvPointMatcher m;
  m.train(dotImage(12, 4, cells, pitchOf(kPitch)));
  Points data;
  for (const mvPair<long>& c : cells) data.push_back(dataFromPixel * at(c));
  mvPointMatcherRunParams p = sparseParams();
  p.minCoverage(1.0);
  p.autoCaptureRange(false);
  p.captureRange(2.0);
  mvPointMatcherResultSet rs;
  m.run(data, p, rs);
  EXPECT_EQ(rs.results().size(), 1u);
  *dataOut = data;
  return rs.results().empty() ? mvPointMatcherResult() : rs.results()[0];
}

// A mild affine map from pattern pixels to data: pitch 10, some shear and stretch.
const mvXform<2> kAffine(mvMatrix<2>(10.0, 0.2, 0.0, 10.3), mvVector<2>(50, 20));

TEST(PatternPointMatching, AHitLessThanAQuarterPixelOffTheLineKeepsTheFitASimilarity) {
  // (11, 3) lies 1 / sqrt(17) = 0.2425 pixel from the line through (0, 0) and (4, 1).
  Points data;
  const mvPointMatcherResult r = slantedMatch({11, 3}, kAffine, &data);
  EXPECT_EQ(r.coverage(), 1.0);
  EXPECT_TRUE(isSimilarity(r.modelToDataXform(), 1e-9));
  EXPECT_TRUE(
      sameXform(r.modelToDataXform(), fitOf(data, {{0, 0}, {4, 1}, {8, 2}, {11, 3}}, 4), 1e-9));
}

TEST(PatternPointMatching, AHitAQuarterPixelOrMoreOffTheLineMakesTheFitAffine) {
  // (10, 3) lies 2 / sqrt(17) = 0.485 pixel from the line.
  Points data;
  const mvPointMatcherResult r = slantedMatch({10, 3}, kAffine, &data);
  EXPECT_EQ(r.coverage(), 1.0);
  EXPECT_TRUE(sameXform(r.modelToDataXform(), kAffine, 1e-9));
}

}  // namespace
