// Pattern images and `ptmatch pattern`.
#include <gtest/gtest.h>

#include "common/expect_throw.h"
#include "errors.h"
#include "image_io.h"
#include "tool_test_support.h"

using namespace ptmatch::cli;
using tool_test::Files;
using tool_test::json;
using tool_test::pointText;
using tool_test::run;
using tool_test::similarity;

namespace {

// A binary PGM of the given size whose listed pels are 255.
std::string pgm(long width, long height, const std::vector<std::pair<long, long>>& dots) {
  std::string bytes =
      "P5\n# dots\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
  std::string raster(static_cast<std::size_t>(width * height), '\0');
  for (const auto& d : dots) raster[static_cast<std::size_t>(d.second * width + d.first)] = '\xff';
  return bytes + raster;
}

std::string imageError(const std::string& bytes) {
  return expect_throw::whatOf<InputError>([&] { parsePgm(bytes, "p.pgm"); });
}

using Dots = std::vector<std::pair<long, long>>;

// Every pel of the w x h block whose upper-left pel is (x0, y0), row by row.
Dots blockDots(long x0, long y0, long w, long h) {
  Dots dots;
  for (long y = y0; y < y0 + h; ++y) {
    for (long x = x0; x < x0 + w; ++x) dots.emplace_back(x, y);
  }
  return dots;
}

// The dots' pel positions under a pose, in dot order.
std::vector<mvVector<2>> dotsUnder(const mvXform<2>& pose, const Dots& dots) {
  std::vector<mvVector<2>> points;
  for (const auto& d : dots) points.push_back(pose * mvVector<2>(d.first, d.second));
  return points;
}

}  // namespace

TEST(PgmImage, BinaryPelsLandRowByRow) {
  const mvPelBuffer<unsigned char> image = parsePgm(pgm(3, 2, {{0, 0}, {2, 1}}), "p.pgm");
  ASSERT_EQ(image.width(), 3);
  ASSERT_EQ(image.height(), 2);
  EXPECT_EQ(image.get(0, 0), 255);
  EXPECT_EQ(image.get(1, 0), 0);
  EXPECT_EQ(image.get(2, 1), 255);
}

TEST(PgmImage, PlainPelsWithComments) {
  const mvPelBuffer<unsigned char> image =
      parsePgm("P2 # plain\n2 2\n9\n0 9\n# row two\n1 0\n", "p.pgm");
  EXPECT_EQ(image.get(1, 0), 9);
  EXPECT_EQ(image.get(0, 1), 1);
}

TEST(PgmImage, BadImagesAreNamedWithTheirProblem) {
  EXPECT_EQ(imageError("P6\n1 1\n255\nabc"), "p.pgm: not a PGM image (expected P5 or P2)");
  EXPECT_EQ(imageError("P5\n2 2\n255\nab"), "p.pgm: the PGM raster is truncated");
  EXPECT_EQ(imageError(std::string("P5\n1 1\n65535\n\0\1", 15)),
            "p.pgm: only 8-bit images are read (this one has 16 bits per pel)");
  EXPECT_EQ(imageError("P5\n0 2\n255\n"), "p.pgm: unsupported PGM size 0 x 2");
  EXPECT_EQ(imageError("P5\n2\n"), "p.pgm: PGM header: expected the height");
  EXPECT_EQ(imageError("P2\n2 1\n9\n1 10\n"), "p.pgm: a pel value exceeds the maximum value");
}

TEST(PatternImage, AFileOfAnotherKindIsNamed) {
  Files files;
  const std::string path = files.write("x.gif", "GIF89a....");
  EXPECT_THROW_THAT(readGreyImage(path), InputError, [&](const InputError& e) {
    EXPECT_EQ(std::string(e.what()).rfind(path + ": not an image file", 0), 0u) << e.what();
  });
}

TEST(PatternImage, ABrokenPngIsNamed) {
  Files files;
  const std::string path = files.write("x.png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16));
  EXPECT_THROW_THAT(readGreyImage(path), InputError, [&](const InputError& e) {
    EXPECT_EQ(std::string(e.what()).rfind(path + ": ", 0), 0u) << e.what();
  });
}

TEST(PatternCommand, APatternOfTwoDotsIsRefused) {
  Files files;
  const auto o = run({"pattern", "--image", files.write("p.pgm", pgm(4, 4, {{0, 0}, {2, 2}})),
                      "--data", files.write("d.txt", "0 0\n1 1\n2 2\n")});
  EXPECT_EQ(o.status, 2);
  EXPECT_TRUE(tool_test::isOneLineMessage(o.err)) << o.err;
  EXPECT_NE(o.err.find("a pattern needs at least 3 nonzero pels, found 2"), std::string::npos)
      << o.err;
}

TEST(PatternCommand, ABadPitchIsRefused) {
  Files files;
  const auto o =
      run({"pattern", "--image", files.write("p.pgm", pgm(4, 4, {{0, 0}, {2, 2}, {0, 2}})),
           "--data", files.write("d.txt", "0 0\n"), "--pitch", "0"});
  EXPECT_EQ(o.status, 2);
  EXPECT_NE(o.err.find("--pitch must be above 0"), std::string::npos) << o.err;
}

TEST(PatternCommand, FindsASparsePatternAtItsPitch) {
  Files files;
  // Five dots, no two touching: matched point to point.
  const std::vector<std::pair<long, long>> dots = {{0, 0}, {4, 0}, {0, 2}, {3, 3}, {6, 5}};
  const mvXform<2> truth = similarity(12.0, 10.0, 200.0, 100.0);  // pitch 10
  std::vector<mvVector<2>> data = {{0, 0}};
  for (const mvVector<2>& p : dotsUnder(truth, dots)) data.push_back(p);
  const auto o = run({"pattern", "--image", files.write("p.pgm", pgm(8, 6, dots)), "--data",
                      files.write("d.txt", pointText(data)), "--pitch", "10", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_EQ(j["command"].asString(), "pattern");
  EXPECT_EQ(j["mode"].asString(), "ePointToGrid");
  ASSERT_GE(j["results"].size(), 1u);
  const JsonValue& r = j["results"][0];
  EXPECT_DOUBLE_EQ(r["coverage"].asNumber(), 1.0);
  EXPECT_NEAR(r["pose"]["a00"].asNumber(), truth.matrix().element(0, 0), 1e-6);
  EXPECT_NEAR(r["pose"]["a10"].asNumber(), truth.matrix().element(1, 0), 1e-6);
  EXPECT_NEAR(r["pose"]["tx"].asNumber(), 200.0, 1e-5);
  EXPECT_NEAR(r["pose"]["ty"].asNumber(), 100.0, 1e-5);
  // Dots in scan order: (0,0), (4,0), (0,2), (3,3), (6,5) are data points 1..5.
  ASSERT_EQ(r["map"].size(), 5u);
  for (std::size_t k = 0; k < 5; ++k) EXPECT_EQ(r["map"][k].asNumber(), k + 1.0);
}

TEST(PatternCommand, FindsADensePatternThroughTheGrid) {
  Files files;
  // A full 5 x 4 block of dots: matched through the grid mapping.
  const Dots dots = blockDots(0, 0, 5, 4);
  const mvXform<2> truth = similarity(4.0, 10.0, 60.0, 40.0);
  const std::vector<mvVector<2>> data = dotsUnder(truth, dots);
  const auto o = run({"pattern", "--image", files.write("p.pgm", pgm(5, 4, dots)), "--data",
                      files.write("d.txt", pointText(data)), "--pitch", "10", "--rotation",
                      "-10:10", "--scale", "-0.1:0.1", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  ASSERT_GE(j["results"].size(), 1u) << o.out;
  const JsonValue& r = j["results"][0];
  EXPECT_DOUBLE_EQ(r["coverage"].asNumber(), 1.0);
  EXPECT_NEAR(r["pose"]["a00"].asNumber(), truth.matrix().element(0, 0), 1e-6);
  EXPECT_NEAR(r["pose"]["a10"].asNumber(), truth.matrix().element(1, 0), 1e-6);
  EXPECT_NEAR(r["pose"]["tx"].asNumber(), 60.0, 1e-5);
  EXPECT_NEAR(r["pose"]["ty"].asNumber(), 40.0, 1e-5);
  for (std::size_t k = 0; k < dots.size(); ++k)
    EXPECT_EQ(r["map"][k].asNumber(), static_cast<double>(k));
}

TEST(PatternCommand, ASparsePatternAwayFromTheImageCornerKeepsItsPelPositions) {
  Files files;
  // The dots' box starts at pel (1, 2) of a larger image; poses still map the file's pels.
  const std::vector<std::pair<long, long>> dots = {{2, 2}, {6, 2}, {4, 5}, {1, 8}, {10, 9}};
  const mvXform<2> truth = similarity(0.0, 10.0, 2.0, 2.0);
  const std::vector<mvVector<2>> data = dotsUnder(truth, dots);
  const auto o = run({"pattern", "--image", files.write("p.pgm", pgm(12, 10, dots)), "--data",
                      files.write("d.txt", pointText(data)), "--pitch", "10", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  ASSERT_GE(j["results"].size(), 1u);
  const JsonValue& r = j["results"][0];
  EXPECT_DOUBLE_EQ(r["coverage"].asNumber(), 1.0);
  EXPECT_NEAR(r["pose"]["a00"].asNumber(), 10.0, 1e-6);
  EXPECT_NEAR(r["pose"]["tx"].asNumber(), 2.0, 1e-5);
  EXPECT_NEAR(r["pose"]["ty"].asNumber(), 2.0, 1e-5);
  for (std::size_t k = 0; k < dots.size(); ++k) {
    EXPECT_EQ(r["map"][k].asNumber(), static_cast<double>(k)) << "dot " << k;
  }
}

TEST(PatternCommand, ADensePatternAwayFromTheImageCornerKeepsItsPelPositions) {
  Files files;
  const Dots dots = blockDots(2, 3, 5, 4);
  const mvXform<2> truth = similarity(3.0, 10.0, 60.0, 40.0);
  const std::vector<mvVector<2>> data = dotsUnder(truth, dots);
  const auto o = run({"pattern", "--image", files.write("p.pgm", pgm(9, 9, dots)), "--data",
                      files.write("d.txt", pointText(data)), "--pitch", "10", "--rotation",
                      "-10:10", "--scale", "-0.1:0.1", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  ASSERT_GE(j["results"].size(), 1u) << o.out;
  const JsonValue& r = j["results"][0];
  EXPECT_DOUBLE_EQ(r["coverage"].asNumber(), 1.0);
  EXPECT_NEAR(r["pose"]["a00"].asNumber(), truth.matrix().element(0, 0), 1e-6);
  EXPECT_NEAR(r["pose"]["tx"].asNumber(), 60.0, 1e-5);
  EXPECT_NEAR(r["pose"]["ty"].asNumber(), 40.0, 1e-5);
  for (std::size_t k = 0; k < dots.size(); ++k)
    EXPECT_EQ(r["map"][k].asNumber(), static_cast<double>(k));
}
