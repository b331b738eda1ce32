// Centres, counts and false dots on rendered images whose centres are known exactly.
#include <gtest/gtest.h>

#include "common/dot_images.h"
#include "dots/dot_test_support.h"
#include "ptmatch/dots.h"

using dot_images::Dot;
using dot_images::Scene;
using dot_test::score;

namespace {

// A 6 x 5 grid of dots of the given radius on a 200 x 170 image.
Scene gridScene(double radius, double step, double blur, double noiseFraction) {
  Scene s;
  s.width = 200;
  s.height = 170;
  s.background = step < 0 ? 180.0 : 60.0;
  s.blur = blur;
  s.noise = noiseFraction * std::fabs(step);
  s.dots = dot_images::dotGrid(6, 5, 30.0, radius, step, 25.0, 25.0);
  return s;
}

mvDotDetectParams params(mvDotDefs::Polarity polarity,
                         mvDotDefs::Threshold threshold = mvDotDefs::eAuto) {
  mvDotDetectParams p;
  p.polarity(polarity);
  p.threshold(threshold);
  return p;
}

}  // namespace

TEST(DotAccuracy, SharpDarkDotsAreFoundToAHundredthOfAPel) {
  const Scene s = gridScene(5.0, -100.0, 0.0, 0.0);
  const auto found = mfFindDots(dot_images::render<unsigned char>(s), params(mvDotDefs::eDark));
  const auto r = score(s.dots, found);
  EXPECT_EQ(r.found, 30);
  EXPECT_EQ(r.falseDots, 0);
  EXPECT_LT(r.rms, 0.02);
}

TEST(DotAccuracy, BlurredNoisyBrightDotsStayWithinTheGoal) {
  const Scene s = gridScene(4.5, 120.0, 1.5, 0.03);
  const auto found = mfFindDots(dot_images::render<unsigned char>(s), params(mvDotDefs::eBright));
  const auto r = score(s.dots, found);
  EXPECT_EQ(r.found, 30);
  EXPECT_EQ(r.falseDots, 0);
  EXPECT_LT(r.rms, 0.05);
}

TEST(DotAccuracy, SixteenBitDotsMeasureLikeEightBitOnes) {
  Scene s = gridScene(6.0, -20000.0, 1.0, 0.02);
  s.background = 40000.0;
  const auto found = mfFindDots(dot_images::render<unsigned short>(s), params(mvDotDefs::eDark));
  const auto r = score(s.dots, found);
  EXPECT_EQ(r.found, 30);
  EXPECT_EQ(r.falseDots, 0);
  EXPECT_LT(r.rms, 0.03);
}

TEST(DotAccuracy, TheLocalThresholdFollowsAStrongGradient) {
  // The background climbs by 150 grey levels across the image, more than the dots' step:
  // no single threshold separates them.
  Scene s = gridScene(5.0, -60.0, 1.0, 0.02);
  s.background = 70.0;
  s.slopeX = 0.75;
  s.slopeY = 0.0;
  const auto image = dot_images::render<unsigned char>(s);
  const auto local = score(s.dots, mfFindDots(image, params(mvDotDefs::eDark, mvDotDefs::eLocal)));
  EXPECT_EQ(local.found, 30);
  EXPECT_EQ(local.falseDots, 0);
  EXPECT_LT(local.rms, 0.05);
  const auto global = score(s.dots, mfFindDots(image, params(mvDotDefs::eDark)));
  EXPECT_LT(global.found, 30);
}

TEST(DotAccuracy, EitherPolarityFindsDarkAndBrightDotsTogether) {
  Scene s;
  s.width = 120;
  s.height = 60;
  s.background = 120.0;
  s.dots = {{20.3, 30.1, 6, 6, 0, -90}, {60.6, 29.7, 6, 6, 0, 90}, {100.2, 30.4, 5, 5, 0, -80}};
  const auto image = dot_images::render<unsigned char>(s);
  const auto found = mfFindDots(image, params(mvDotDefs::eEither));
  ASSERT_EQ(found.size(), 3u);
  EXPECT_FALSE(found[0].bright());
  EXPECT_TRUE(found[1].bright());
  EXPECT_FALSE(found[2].bright());
  EXPECT_LT(score(s.dots, found).rms, 0.02);
  EXPECT_EQ(mfFindDots(image, params(mvDotDefs::eBright, mvDotDefs::eLocal)).size(), 1u);
  EXPECT_EQ(mfFindDots(image, params(mvDotDefs::eDark, mvDotDefs::eLocal)).size(), 2u);
}

TEST(DotAccuracy, TiltedEllipsesKeepTheirCentreAxesAndAngle) {
  Scene s;
  s.width = 100;
  s.height = 80;
  s.background = 200.0;
  s.blur = 0.8;
  s.dots = {{30.4, 40.2, 12.0, 6.0, 0.5, -150.0}, {70.7, 39.6, 10.0, 5.0, -1.0, -150.0}};
  const auto found = mfFindDots(dot_images::render<unsigned char>(s), params(mvDotDefs::eDark));
  ASSERT_EQ(found.size(), 2u);
  EXPECT_LT(score(s.dots, found).rms, 0.03);
  // Full axes 24 x 12 and 20 x 10 pels; roundness one half.
  EXPECT_NEAR(found[0].majorAxis(), 24.0, 0.6);
  EXPECT_NEAR(found[0].minorAxis(), 12.0, 0.6);
  EXPECT_NEAR(found[0].angle(), 0.5, 0.02);
  EXPECT_NEAR(found[1].angle(), -1.0, 0.02);
  EXPECT_NEAR(found[1].roundness(), 0.5, 0.04);
  EXPECT_NEAR(found[0].area(), 3.14159 * 12 * 6, 6.0);
  EXPECT_NEAR(found[0].contrast(), 150.0, 6.0);
}

TEST(DotAccuracy, DotsCutByTheBorderAreFlaggedOrDropped) {
  Scene s;
  s.width = 80;
  s.height = 60;
  s.background = 30.0;
  s.dots = {{1.0, 30.0, 5, 5, 0, 150}, {40.2, 30.3, 5, 5, 0, 150}, {77.5, 58.0, 5, 5, 0, 150}};
  const auto image = dot_images::render<unsigned char>(s);
  mvDotDetectParams p = params(mvDotDefs::eBright);
  const auto all = mfFindDots(image, p);
  ASSERT_EQ(all.size(), 3u);
  EXPECT_TRUE(all[0].touchesBorder());  // row 30, x 1
  EXPECT_FALSE(all[1].touchesBorder());
  EXPECT_TRUE(all[2].touchesBorder());
  p.dropBorderDots(true);
  const auto inner = mfFindDots(image, p);
  ASSERT_EQ(inner.size(), 1u);
  EXPECT_NEAR(inner[0].x(), 40.2, 0.02);
  EXPECT_NEAR(inner[0].y(), 30.3, 0.02);
}

TEST(DotAccuracy, CloseDotsStaySeparateAndMergedOnesFailTheRoundnessFilter) {
  Scene s;
  s.width = 100;
  s.height = 60;
  s.background = 220.0;
  s.blur = 0.6;
  // Edges 1.5 pels apart; then a pair that overlaps into one figure-of-eight blob.
  s.dots = {{20.0, 30.0, 6, 6, 0, -150},
            {33.5, 30.2, 6, 6, 0, -150},
            {65.0, 30.0, 6, 6, 0, -150},
            {75.0, 30.0, 6, 6, 0, -150}};
  const auto image = dot_images::render<unsigned char>(s);
  mvDotDetectParams p = params(mvDotDefs::eDark);
  const auto found = mfFindDots(image, p);
  ASSERT_EQ(found.size(), 3u);
  EXPECT_LT(score({s.dots[0], s.dots[1]}, {found[0], found[1]}).rms, 0.08);
  EXPECT_NEAR(found[2].x(), 70.0, 0.05);
  EXPECT_LT(found[2].roundness(), 0.7);
  p.minRoundness(0.8);
  EXPECT_EQ(mfFindDots(image, p).size(), 2u);
}

TEST(DotAccuracy, NoisyDotsGiveNoFalseDotsAndAFlatImageNone) {
  for (auto threshold : {mvDotDefs::eAuto, mvDotDefs::eLocal}) {
    const Scene s = gridScene(4.0, -60.0, 2.0, 0.05);
    const auto r = score(s.dots, mfFindDots(dot_images::render<unsigned char>(s),
                                            params(mvDotDefs::eDark, threshold)));
    EXPECT_EQ(r.found, 30);
    EXPECT_EQ(r.falseDots, 0);
    EXPECT_LT(r.rms, 0.12);
  }
  // A flat image has nothing to split.
  mvPelBuffer<unsigned char> flat(30, 20);
  mfPelSet<unsigned char>(flat, 90);
  EXPECT_TRUE(mfFindDots(flat).empty());
  EXPECT_TRUE(mfFindDots(flat, params(mvDotDefs::eEither)).empty());
}

TEST(DotAccuracy, NoiseAloneGivesNoDotsAboveAContrastFloor) {
  // Noise of 3 grey levels; a floor of 5 times that keeps out its rare clusters.
  Scene s = gridScene(5.0, -100.0, 0.0, 0.0);
  s.dots.clear();
  s.noise = 3.0;
  for (auto threshold : {mvDotDefs::eAuto, mvDotDefs::eLocal}) {
    for (auto polarity : {mvDotDefs::eDark, mvDotDefs::eBright, mvDotDefs::eEither}) {
      mvDotDetectParams p = params(polarity, threshold);
      p.minArea(10.0);
      p.minContrast(15.0);
      EXPECT_TRUE(mfFindDots(dot_images::render<unsigned char>(s), p).empty())
          << threshold << " " << polarity;
    }
  }
}
