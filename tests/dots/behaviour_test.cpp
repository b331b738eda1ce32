// The detector's frame, order, filters, parameters and interruption.
#include <gtest/gtest.h>

#include "common/dot_images.h"
#include "mvbase/attention.h"
#include "ptmatch/dots.h"

namespace {

// A 20 x 12 image of grey 200 with dark 2 x 1 and 3 x 3 blocks of grey 0.
mvPelBuffer<unsigned char> blocks() {
  mvPelBuffer<unsigned char> image(20, 12);
  mfPelSet<unsigned char>(image, 200);
  image.put(10, 5, 0);
  image.put(11, 5, 0);
  for (long y = 2; y <= 4; ++y) {
    for (long x = 3; x <= 5; ++x) image.put(x, y, 0);
  }
  return image;
}

mvDotDetectParams smallDots() {
  mvDotDetectParams p;
  p.minArea(1.0);
  return p;
}

}  // namespace

TEST(DotFrame, ThePelCentreIsItsWholeCoordinate) {
  const auto dots = mfFindDots(blocks(), smallDots());
  ASSERT_EQ(dots.size(), 2u);
  // Sorted by row of centre: the 3 x 3 block (row 3) comes first.
  EXPECT_DOUBLE_EQ(dots[0].x(), 4.0);
  EXPECT_DOUBLE_EQ(dots[0].y(), 3.0);
  EXPECT_DOUBLE_EQ(dots[0].area(), 9.0);
  EXPECT_EQ(dots[0].box().x(), 3);
  EXPECT_EQ(dots[0].box().y(), 2);
  EXPECT_EQ(dots[0].box().width(), 3);
  EXPECT_EQ(dots[0].box().height(), 3);
  EXPECT_DOUBLE_EQ(dots[0].contrast(), 200.0);
  EXPECT_NEAR(dots[0].roundness(), 1.0, 1e-9);
  EXPECT_DOUBLE_EQ(dots[1].x(), 10.5);
  EXPECT_DOUBLE_EQ(dots[1].y(), 5.0);
  // 2 x 1 pels: variances 1/4 + 1/12 along x and 1/12 along y.
  EXPECT_NEAR(dots[1].mxx(), 1.0 / 3.0, 1e-12);
  EXPECT_NEAR(dots[1].myy(), 1.0 / 12.0, 1e-12);
  EXPECT_NEAR(dots[1].angle(), 0.0, 1e-12);
}

TEST(DotFrame, AWindowKeepsTheCoordinatesOfItsImage) {
  mvPelBuffer<unsigned char> image = blocks();
  ASSERT_TRUE(image.window(2, 1, 10, 8));
  const auto dots = mfFindDots(image, smallDots());
  ASSERT_EQ(dots.size(), 2u);
  EXPECT_DOUBLE_EQ(dots[0].x(), 4.0);
  EXPECT_DOUBLE_EQ(dots[0].y(), 3.0);
  EXPECT_EQ(dots[0].box().x(), 3);
}

TEST(DotOrder, RowOfTheCentreThenX) {
  dot_images::Scene s;
  s.width = 90;
  s.height = 50;
  s.background = 20.0;
  s.dots = {{70.0, 20.4, 4, 4, 0, 200},
            {20.0, 20.2, 4, 4, 0, 200},
            {45.0, 19.6, 4, 4, 0, 200},
            {10.0, 40.0, 4, 4, 0, 200}};
  mvDotDetectParams p;
  p.polarity(mvDotDefs::eBright);
  const auto dots = mfFindDots(dot_images::render<unsigned char>(s), p);
  ASSERT_EQ(dots.size(), 4u);
  EXPECT_NEAR(dots[0].x(), 20.0, 0.05);
  EXPECT_NEAR(dots[1].x(), 45.0, 0.05);
  EXPECT_NEAR(dots[2].x(), 70.0, 0.05);
  EXPECT_NEAR(dots[3].x(), 10.0, 0.05);
}

TEST(DotFilters, AreaAndContrastLimitsApply) {
  mvDotDetectParams p = smallDots();
  p.minArea(3.0);
  EXPECT_EQ(mfFindDots(blocks(), p).size(), 1u);
  p.minArea(1.0);
  p.maxArea(8.0);
  EXPECT_EQ(mfFindDots(blocks(), p).size(), 1u);
  p.maxArea(100.0);
  p.minContrast(201.0);
  EXPECT_TRUE(mfFindDots(blocks(), p).empty());
}

TEST(DotThreshold, AFixedGreyChoosesThePels) {
  mvPelBuffer<unsigned char> image = blocks();
  image.put(4, 3, 150);  // the block's centre, lighter
  mvDotDetectParams p = smallDots();
  p.fixedThreshold(100.0);
  EXPECT_EQ(p.threshold(), mvDotDefs::eFixed);
  EXPECT_EQ(mfFindDots(image, p)[0].area(), 8.0);
  p.fixedThreshold(160.0);
  EXPECT_EQ(mfFindDots(image, p)[0].area(), 9.0);
}

TEST(DotParams, BadValuesAreRefusedAndLeaveTheParams) {
  mvDotDetectParams p;
  EXPECT_THROW(p.minArea(0.5), mvDotDefs::BadInput);
  EXPECT_THROW(p.minArea(std::nan("")), mvDotDefs::BadInput);
  EXPECT_THROW(p.maxArea(2.0), mvDotDefs::BadInput);  // below the minimum of 4
  EXPECT_THROW(p.maxArea(HUGE_VAL), mvDotDefs::BadInput);
  EXPECT_THROW(p.minRoundness(1.5), mvDotDefs::BadInput);
  EXPECT_THROW(p.minRoundness(-0.1), mvDotDefs::BadInput);
  EXPECT_THROW(p.minContrast(-1.0), mvDotDefs::BadInput);
  EXPECT_THROW(p.fixedThreshold(70000.0), mvDotDefs::BadInput);
  EXPECT_THROW(p.localWindow(2), mvDotDefs::BadInput);
  EXPECT_THROW(p.polarity(static_cast<mvDotDefs::Polarity>(7)), mvDotDefs::BadInput);
  EXPECT_THROW(p.threshold(static_cast<mvDotDefs::Threshold>(-1)), mvDotDefs::BadInput);
  EXPECT_EQ(p.minArea(), 4.0);
  EXPECT_EQ(p.maxArea(), 100000.0);
  EXPECT_EQ(p.minRoundness(), 0.0);
  EXPECT_EQ(p.threshold(), mvDotDefs::eAuto);
  EXPECT_EQ(p.localWindow(), 0);
}

TEST(DotParams, AnUnboundImageIsRefused) {
  EXPECT_THROW(mfFindDots(mvPelBuffer<unsigned char>()), mvDotDefs::BadInput);
  EXPECT_THROW(mfFindDots(mvPelBuffer<unsigned short>()), mvDotDefs::BadInput);
}

TEST(DotAttention, ARequestedInterruptionStopsTheSearch) {
  mvAttention::requestInterruption();
  EXPECT_THROW(mfFindDots(blocks()), mvAttention::Interrupted);
  EXPECT_FALSE(mvAttention::isRequested());
}
