// Point-to-grid matching of a dense pattern: the data points mapped onto the pattern's
// pixel grid, the grid corresponder's positions, and per position a label image, a fit
// from pattern pixels to data (similarity for collinear hits, affine otherwise) composed
// with the image-from-client transform, a coverage in pattern pixels and a mean-squared
// fit error; results in the one result order.
#include <gtest/gtest.h>

#include <vector>

#include "mvbase/fitter.h"
#include "ppmatch/pattern_support.h"

using namespace pattern_test;

namespace {

using Defs = mvPointMatcherDefs;

const double kPitch = 10.0;
// A capture range of a little more than the pitch lets the grid mapping find neighbours.
const double kCapture = 12.0;
// Poses are recovered to within this many data units at every dot (noise 0.3).
const double kPoseTolerance = 1.0;

mvPointMatcher trainedFrom(const mvPelBuffer_const<unsigned char>& image) {
  mvPointMatcher m;
  m.train(image);
  return m;
}

SceneRecipe exactScene(const Cells& cells, const mvXform<2>& clientFromImage,
                       const mvXform<2>& pose) {
  return {cells, clientFromImage, pose, {}, 0.0, 0, 0.0, 0.0, 1};
}

// The pixel positions and data points of a result's labels, row by row.
void labelledPairs(const mvPointMatcherResult& r, const Points& data, Points* dataOut,
                   Points* pixelsOut) {
  const mvPelBuffer_const<long>& labels = r.gridToDataImage();
  for (long y = 0; y < labels.height(); ++y) {
    for (long x = 0; x < labels.width(); ++x) {
      const long k = labels.pointToRow(y)[x];
      if (k < 0) continue;
      dataOut->push_back(data[static_cast<std::size_t>(k)]);
      pixelsOut->push_back(at(mvPair<long>(x, y) + labels.offset()));
    }
  }
}

mvXform<2> fitOf(const Points& data, const Points& pixels, int dof) {
  mvLSPointToPointFitter fitter;
  for (std::size_t i = 0; i < data.size(); ++i) fitter.update(data[i], pixels[i]);
  return fitter.fit(dof);
}

// --- end to end ---

struct Trial {
  mvXform<2> pose;
  std::set<std::pair<long, long>> missing;
  unsigned seed;
};

// Runs a dense pattern against its cells under each trial's pose with noise, the missing
// dots left out and clutter at least three pitches away from every dot, and checks the
// best result's coverage, every label and the pose. (With a snap size of about a pitch the
// grid mapping assigns every point to its nearest node, clutter included, and clutter
// close to the dots would pull its running fit off.)
void expectFoundInScenes(const mvPelBuffer_const<unsigned char>& image, const Cells& cells,
                         const std::vector<Trial>& trials, const mvPointMatcherRunParams& params) {
  const mvPointMatcher m = trainedFrom(image);
  ASSERT_EQ(m.trainMode(), Defs::ePointToGrid);
  for (const Trial& t : trials) {
    const SceneRecipe recipe{
        cells, image.clientFromImageXform(), t.pose, t.missing, 0.3, 10, 3 * kPitch, 6 * kPitch,
        t.seed};
    const Scene scene = makeScene(recipe);
    mvPointMatcherResultSet rs;
    m.run(scene.data, params, rs);

    ASSERT_EQ(rs.results().size(), 1u) << "seed " << t.seed;
    const mvPointMatcherResult& best = rs.results()[0];
    EXPECT_EQ(best.runMode(), Defs::ePointToGrid);
    EXPECT_EQ(best.coverage(), static_cast<double>(cells.size() - t.missing.size()) /
                                   static_cast<double>(cells.size()));
    expectLabelsMatchTruth(best, scene);
    // The pose carries the model's client points onto data points.
    EXPECT_LT(largestDisplacement(best.modelToDataXform(), t.pose,
                                  clientPoints(cells, image.clientFromImageXform())),
              kPoseTolerance);
    EXPECT_THROW(best.modelToDataMap(), Defs::NotRun);
  }
}

TEST(PatternGridMatching, FindsASixBySixBlockAmongNoiseMissingDotsAndClutter) {
  const Cells block = blockCells(6, 6);
  expectFoundInScenes(dotImage(6, 6, block, pitchOf(kPitch)), block,
                      {
                          {similarity(100, 50, 10, 1.05), {{2, 3}, {5, 0}}, 1},
                          {similarity(-300, 20, -7, 0.96), {{0, 0}, {5, 5}, {3, 3}}, 2},
                          {similarity(40, 400, 2, 1.0), {}, 3},
                      },
                      denseParams(kCapture));
}

TEST(PatternGridMatching, FindsAStaggeredSevenBySevenCheckerboard) {
  const Cells checker = checkerCells(7, 7);
  expectFoundInScenes(dotImage(7, 7, checker, pitchOf(kPitch)), checker,
                      {
                          {similarity(100, 50, 5, 1.04), {{2, 2}}, 4},
                          {similarity(-80, -60, -12, 0.97), {{0, 0}, {6, 6}}, 5},
                          {similarity(0, 0, 0, 1.0), {}, 6},
                      },
                      denseParams(kCapture));
}

TEST(PatternGridMatching, ADensePatternNeedsAnExplicitCaptureRangeOfAboutAPitch) {
  // The capture range is the grid mapping's snap size; without it (automatic, or 0) the
  // mapping snaps within a fifth of the pitch and finds no neighbour at all.
  const Cells block = blockCells(6, 6);
  const mvPointMatcher m = trainedFrom(dotImage(6, 6, block, pitchOf(kPitch)));
  const Scene scene = makeScene(exactScene(block, pitchOf(kPitch), similarity(50, 50, 4)));

  mvPointMatcherRunParams automatic = denseParams(kCapture);
  automatic.autoCaptureRange(true);
  mvPointMatcherResultSet rs;
  m.run(scene.data, automatic, rs);
  EXPECT_TRUE(rs.results().empty());

  m.run(scene.data, denseParams(0.0), rs);
  EXPECT_TRUE(rs.results().empty());

  m.run(scene.data, denseParams(0.2 * kPitch), rs);
  EXPECT_TRUE(rs.results().empty());

  m.run(scene.data, denseParams(kPitch), rs);
  ASSERT_EQ(rs.results().size(), 1u);
  EXPECT_EQ(rs.results()[0].coverage(), 1.0);
  expectLabelsMatchTruth(rs.results()[0], scene);
}

// --- one-row and one-column patterns ---

TEST(PatternGridMatching, AOneRowPatternIsFound) {
  // Twelve touching dots in one row; the grid mapping is given no second grid vector.
  const Cells row = blockCells(12, 1);
  expectFoundInScenes(dotImage(12, 1, row, pitchOf(kPitch)), row,
                      {{similarity(30, 70, 6, 1.05), {{4, 0}}, 7}}, denseParams(kCapture));
}

TEST(PatternGridMatching, AOneColumnPatternIsFound) {
  // A one-column pattern is the least robust to clutter: with a snap of about a pitch the
  // mapping's running fit along the column can be pulled one node off by a clutter point
  // (about half the seeds of this scene do that); this seed shows the column found.
  const Cells column = blockCells(1, 12);
  expectFoundInScenes(dotImage(1, 12, column, pitchOf(kPitch)), column,
                      {{similarity(30, 70, -5, 0.97), {{0, 7}}, 9}}, denseParams(kCapture));
}

// --- the collinearity switch ---

// A mild affine map from pixels to data (the training images below have the identity
// transform, so pixels are client points).
const mvXform<2> kAffine(mvMatrix<2>(1.1, 0.05, -0.02, 0.95), mvVector<2>(30, 40));

mvPointMatcherRunParams lowCoverageParams(double minCoverage) {
  mvPointMatcherRunParams p;
  p.minCoverage(minCoverage);
  p.scaleUncertainty(mvRange(-0.2, 0.2));
  p.autoCaptureRange(false);
  p.captureRange(1.2);
  return p;
}

Points dataAt(const Cells& pixels) {
  Points data;
  for (const mvPair<long>& c : pixels) data.push_back(kAffine * at(c));
  return data;
}

TEST(PatternGridMatching, HitsOnOneLineGetASimilarityFit) {
  // One row of a 4 x 4 block: 4 hits on a line; an affine fit of them would not be
  // determined.
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, blockCells(4, 4)));
  const Points data = dataAt({{0, 1}, {1, 1}, {2, 1}, {3, 1}});
  mvPointMatcherResultSet rs;
  m.run(data, lowCoverageParams(0.2), rs);

  ASSERT_EQ(rs.results().size(), 1u);
  const mvPointMatcherResult& r = rs.results()[0];
  EXPECT_EQ(r.coverage(), 0.25);
  Points hitData, hitPixels;
  labelledPairs(r, data, &hitData, &hitPixels);
  ASSERT_EQ(hitPixels.size(), 4u);
  EXPECT_TRUE(isSimilarity(r.modelToDataXform(), 1e-12));
  EXPECT_TRUE(sameXform(r.modelToDataXform(), fitOf(hitData, hitPixels, 4), 1e-9));
}

TEST(PatternGridMatching, OneHitOffTheLineMakesTheFitAffine) {
  // Row 0 and one dot of row 3 pin the block's position; the dot is 3 pixels off the line.
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, blockCells(4, 4)));
  const Cells hits = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {1, 3}};
  mvPointMatcherResultSet rs;
  m.run(dataAt(hits), lowCoverageParams(0.3), rs);

  ASSERT_EQ(rs.results().size(), 1u);
  const mvPointMatcherResult& r = rs.results()[0];
  EXPECT_EQ(r.coverage(), 5.0 / 16.0);
  for (std::size_t k = 0; k < hits.size(); ++k) {
    EXPECT_EQ(r.gridToDataMap(hits[k]), static_cast<long>(k));
  }
  EXPECT_TRUE(sameXform(r.modelToDataXform(), kAffine, 1e-9));
}

TEST(PatternGridMatching, TheQuarterPixelLineToleranceDecidesTheFit) {
  // Hits (0, 0), (4, 1), (8, 2), (12, 3) lie on a line; (11, 3) lies 1 / sqrt(17) = 0.2425
  // pixel off it and keeps the hits collinear, (10, 3) lies 0.485 pixel off and does not.
  // The hits span the whole 13 x 4 block, so the block's position is unique.
  const mvPointMatcher m = trainedFrom(dotImage(13, 4, blockCells(13, 4)));
  const Cells nearLine = {{0, 0}, {4, 1}, {8, 2}, {12, 3}, {11, 3}};
  Cells offLine = nearLine;
  offLine.emplace_back(10, 3);

  mvPointMatcherResultSet rs;
  m.run(dataAt(nearLine), lowCoverageParams(0.05), rs);
  ASSERT_EQ(rs.results().size(), 1u);
  EXPECT_EQ(rs.results()[0].coverage(), 5.0 / 52.0);
  EXPECT_TRUE(isSimilarity(rs.results()[0].modelToDataXform(), 1e-12));
  Points nearPixels;
  for (const mvPair<long>& c : nearLine) nearPixels.push_back(at(c));
  EXPECT_TRUE(
      sameXform(rs.results()[0].modelToDataXform(), fitOf(dataAt(nearLine), nearPixels, 4), 1e-9));

  m.run(dataAt(offLine), lowCoverageParams(0.05), rs);
  ASSERT_EQ(rs.results().size(), 1u);
  EXPECT_EQ(rs.results()[0].coverage(), 6.0 / 52.0);
  EXPECT_TRUE(sameXform(rs.results()[0].modelToDataXform(), kAffine, 1e-9));
}

// --- labels, coverage and the fit ---

TEST(PatternGridMatching, TwoDataPointsOnOnePixelCountOnceKeepTheLaterIndexAndFeedBothPairs) {
  const Cells block = blockCells(4, 4);
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, block, pitchOf(kPitch)));
  const mvXform<2> pose = similarity(100, 50, 5);
  Scene scene = makeScene(exactScene(block, pitchOf(kPitch), pose));
  // A second point near the dot at pixel (1, 1), last in the data.
  scene.data.push_back(pose * mvVector<2>(10.8, 10.5));
  const long extra = static_cast<long>(scene.data.size()) - 1;

  mvPointMatcherResultSet rs;
  m.run(scene.data, denseParams(kPitch), rs);
  ASSERT_EQ(rs.results().size(), 1u);
  const mvPointMatcherResult& r = rs.results()[0];
  EXPECT_EQ(r.coverage(), 1.0);
  EXPECT_EQ(r.gridToDataMap({1, 1}), extra);

  Points data, pixels;
  for (const mvPair<long>& c : block) {
    data.push_back(scene.data[static_cast<std::size_t>(scene.expectedAt(c))]);
    pixels.push_back(at(c));
  }
  const mvXform<2> withoutExtra = fitOf(data, pixels, 6);
  data.push_back(scene.data.back());
  pixels.push_back(at({1, 1}));
  const mvXform<2> bothPairs = fitOf(data, pixels, 6);
  const mvXform<2> imageFromClient = pitchOf(kPitch).inverse();
  EXPECT_TRUE(sameXform(r.modelToDataXform(), bothPairs * imageFromClient, 1e-9));
  EXPECT_FALSE(sameXform(bothPairs, withoutExtra, 1e-6)) << "the test tells the two apart";
}

TEST(PatternGridMatching, AWholePixelShiftOfThePatternFitsExactly) {
  // Identity client-from-image transform, no offset, data exactly the pixels moved by
  // (7, -3): every pixel is hit and the fit leaves no residual.
  const Cells block = blockCells(4, 4);
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, block));
  Points data;
  for (const mvPair<long>& c : block) data.push_back(at(c) + mvVector<2>(7, -3));
  mvPointMatcherRunParams p;
  p.autoCaptureRange(false);
  p.captureRange(1.0);
  mvPointMatcherResultSet rs;
  m.run(data, p, rs);

  ASSERT_EQ(rs.results().size(), 1u);
  const mvPointMatcherResult& r = rs.results()[0];
  EXPECT_EQ(r.coverage(), 1.0);
  EXPECT_NEAR(r.fitError(), 0.0, 1e-20);
  EXPECT_TRUE(sameXform(r.modelToDataXform(), mvXform<2>(mvMatrix<2>(), mvVector<2>(7, -3)), 1e-9));
  for (std::size_t k = 0; k < block.size(); ++k) {
    EXPECT_EQ(r.gridToDataMap(block[k]), static_cast<long>(k));
  }
}

TEST(PatternGridMatching, TheFitErrorComparesClientPointsWithPixelPositionsAsAMeanOfSquares) {
  // Pitch 10: each data point maps back to the client point (10 x, 10 y), which is
  // compared with the pixel (x, y): the squared distance is 81 (x^2 + y^2), whose mean
  // over the 4 x 4 block is 81 x 7 = 567.
  const Cells block = blockCells(4, 4);
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, block, pitchOf(kPitch)));
  const mvXform<2> pose = similarity(100, 50, 5);
  mvPointMatcherResultSet rs;
  m.run(makeScene(exactScene(block, pitchOf(kPitch), pose)).data, denseParams(kCapture), rs);

  ASSERT_EQ(rs.results().size(), 1u);
  EXPECT_NEAR(rs.results()[0].fitError(), 567.0, 1e-9);
  EXPECT_TRUE(sameXform(rs.results()[0].modelToDataXform(), pose, 1e-9));
}

TEST(PatternGridMatching, LabelsAndThePoseUseThePatternFrame) {
  // A 4 x 4 block at (1, 1) of a 6 x 6 image whose offset is (100, 200): the pattern and
  // its label image start at (101, 201). The fit maps those pattern-frame positions to
  // data, so the pose carries a client point of the image's own frame, shifted by the
  // client image of the offset, onto its data point.
  Cells cells;
  for (const mvPair<long>& c : blockCells(4, 4)) cells.push_back(c + mvPair<long>(1, 1));
  const mvPair<long> offset(100, 200);
  const mvPointMatcher m = trainedFrom(dotImage(6, 6, cells, pitchOf(kPitch), offset));
  const mvXform<2> pose = similarity(100, 50, 5);
  const Scene scene = makeScene(exactScene(cells, pitchOf(kPitch), pose));

  mvPointMatcherResultSet rs;
  m.run(scene.data, denseParams(kCapture), rs);
  ASSERT_EQ(rs.results().size(), 1u);
  const mvPointMatcherResult& r = rs.results()[0];
  EXPECT_EQ(r.gridToDataImage().size(), mvPair<long>(4, 4));
  EXPECT_EQ(r.gridToDataImage().offset(), mvPair<long>(101, 201));
  expectLabelsMatchTruth(r, scene, offset);
  const mvXform<2> shift(mvMatrix<2>(), -(pitchOf(kPitch) * at(offset)));
  EXPECT_TRUE(sameXform(r.modelToDataXform(), pose * shift, 1e-9));
}

// --- ordering and empty outcomes ---

TEST(PatternGridMatching, SeveralResultsComeInTheResultOrder) {
  // Shifted placements of a 4 x 4 block still hit 12 or 9 of its 16 pixels; with pitch
  // 10 their fit errors differ.
  const Cells block = blockCells(4, 4);
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, block, pitchOf(kPitch)));
  const Scene scene = makeScene(exactScene(block, pitchOf(kPitch), similarity(100, 50, 5)));
  mvPointMatcherRunParams p = denseParams(kCapture, 5);
  p.minCoverage(0.3);
  mvPointMatcherResultSet rs;
  m.run(scene.data, p, rs);

  ASSERT_EQ(rs.results().size(), 5u);
  EXPECT_EQ(rs.results()[0].coverage(), 1.0);
  expectLabelsMatchTruth(rs.results()[0], scene);
  for (std::size_t i = 1; i < rs.results().size(); ++i) {
    const mvPointMatcherResult& before = rs.results()[i - 1];
    const mvPointMatcherResult& after = rs.results()[i];
    EXPECT_GE(before.coverage(), after.coverage());
    if (before.coverage() == after.coverage()) {
      EXPECT_LE(before.fitError(), after.fitError());
    }
  }
}

TEST(PatternGridMatching, OneResultAskedForGivesTheBestOnly) {
  const Cells block = blockCells(4, 4);
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, block, pitchOf(kPitch)));
  const Scene scene = makeScene(exactScene(block, pitchOf(kPitch), similarity(100, 50, 5)));
  mvPointMatcherRunParams p = denseParams(kCapture, 1);
  p.minCoverage(0.3);
  mvPointMatcherResultSet rs;
  m.run(scene.data, p, rs);
  ASSERT_EQ(rs.results().size(), 1u);
  EXPECT_EQ(rs.results()[0].coverage(), 1.0);
}

TEST(PatternGridMatching, FewerThanThreeMappedPointsGiveNoResults) {
  const Cells block = blockCells(4, 4);
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, block, pitchOf(kPitch)));
  mvPointMatcherResultSet rs;
  m.run(makeScene(exactScene(block, pitchOf(kPitch), similarity(0, 0, 0))).data,
        denseParams(kCapture), rs);
  ASSERT_EQ(rs.results().size(), 1u);

  m.run(Points{{0, 0}, {10, 0}}, denseParams(kCapture), rs);
  EXPECT_TRUE(rs.results().empty()) << "the result set is emptied first";
  EXPECT_GE(rs.time(), 0.0);
  m.run(Points(), denseParams(kCapture), rs);
  EXPECT_TRUE(rs.results().empty());
}

TEST(PatternGridMatching, AnUnsuccessfulCorresponderRunGivesNoResults) {
  // Three by two mapped points are too few to hold an 8 x 8 pattern.
  const mvPointMatcher m = trainedFrom(dotImage(8, 8, blockCells(8, 8), pitchOf(kPitch)));
  mvPointMatcherResultSet rs;
  m.run(makeScene(exactScene(blockCells(3, 2), pitchOf(kPitch), similarity(0, 0, 0))).data,
        denseParams(kCapture), rs);
  EXPECT_TRUE(rs.results().empty());
}

TEST(PatternGridMatching, AFitThatTheHitsDoNotDetermineFailsTheRun) {
  // With a low coverage a placement may hit a single pixel (here the far dot alone); its
  // fit is not determined and the fitter's error passes out of the run, after the
  // results appended before it.
  const Cells block = blockCells(4, 4);
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, block));
  Points data;
  for (const mvPair<long>& c : block) data.push_back(at(c));
  data.push_back(mvVector<2>(12, 0));
  mvPointMatcherRunParams p;
  p.minCoverage(0.07);  // one probe of 16
  p.autoCaptureRange(false);
  p.captureRange(1.0);
  p.maxNumResults(1000);
  mvPointMatcherResultSet rs;
  EXPECT_THROW(m.run(data, p, rs), mvLSPointToPointFitter::Errors);
  ASSERT_FALSE(rs.results().empty());
  EXPECT_EQ(rs.results()[0].coverage(), 1.0);
}

}  // namespace
