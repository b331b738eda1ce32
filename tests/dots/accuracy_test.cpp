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
  const auto found =
      mfFindDots(dot_images::render<unsigned char>(s), params(mvDotDefs::eBright));
  const auto r = score(s.dots, found);
  EXPECT_EQ(r.found, 30);
  EXPECT_EQ(r.falseDots, 0);
  EXPECT_LT(r.rms, 0.05);
}

