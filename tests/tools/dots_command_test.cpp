// `ptmatch dots`, and images in place of point files for `match` and `grid`.
#include <gtest/gtest.h>

#include "common/dot_images.h"
#include "ptmatch/imageio.h"
#include "tool_test_support.h"

using ptmatch::cli::JsonValue;
using tool_test::Files;
using tool_test::json;
using tool_test::run;

namespace {

// Dark dots of radius 5 on grey 200, at the given centres, on a 120 x 90 image.
dot_images::Scene darkDots(const std::vector<std::pair<double, double>>& centres) {
  dot_images::Scene s;
  s.width = 120;
  s.height = 90;
  s.background = 200.0;
  s.blur = 0.7;
  for (const auto& c : centres) s.dots.push_back({c.first, c.second, 5.0, 5.0, 0.0, -150.0});
  return s;
}

std::string pgmOf(const dot_images::Scene& scene) {
  return mfEncodePgm(mvGreyImage(dot_images::render<unsigned char>(scene)));
}

const std::vector<std::pair<double, double>> kCentres = {
    {20.3, 20.7}, {60.1, 19.6}, {95.4, 21.2}, {30.8, 60.2}, {70.5, 65.9}};

}  // namespace

TEST(DotsCommand, JsonListsTheDotsInRowOrderWithTheirCentres) {
  Files files;
  const auto o =
      run({"dots", "--image", files.write("d.pgm", pgmOf(darkDots(kCentres))), "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_EQ(j["width"].asNumber(), 120);
  EXPECT_EQ(j["height"].asNumber(), 90);
  EXPECT_GE(j["time"].asNumber(), 0.0);
  ASSERT_EQ(j["dots"].size(), 5u);
  // Rows of the rounded centres: 19.6 gives 20, 20.7 and 21.2 give 21, then 60 and 66.
  const std::vector<std::pair<double, double>> order = {
      {60.1, 19.6}, {20.3, 20.7}, {95.4, 21.2}, {30.8, 60.2}, {70.5, 65.9}};
  for (std::size_t i = 0; i < order.size(); ++i) {
    const JsonValue& d = j["dots"][i];
    EXPECT_NEAR(d["x"].asNumber(), order[i].first, 0.05) << i;
    EXPECT_NEAR(d["y"].asNumber(), order[i].second, 0.05) << i;
    EXPECT_NEAR(d["area"].asNumber(), 78.5, 6.0);
    EXPECT_NEAR(d["contrast"].asNumber(), 150.0, 8.0);
    EXPECT_GT(d["roundness"].asNumber(), 0.9);
  }
}

TEST(DotsCommand, OptionsReachTheDetector) {
  Files files;
  dot_images::Scene s = darkDots(kCentres);
  s.background = 128.0;
  for (auto& d : s.dots) d.step = -100.0;
  s.dots[0].a = s.dots[0].b = 2.0;  // about 13 pels
  s.dots[1].step = 100.0;           // bright
  const std::string path = files.write("d.pgm", pgmOf(s));
  EXPECT_EQ(json(run({"dots", "--image", path, "--json"}))["dots"].size(), 4u);
  EXPECT_EQ(json(run({"dots", "--image", path, "--json", "--min-area", "20"}))["dots"].size(), 3u);
  EXPECT_EQ(json(run({"dots", "--image", path, "--json", "--max-area", "20"}))["dots"].size(), 1u);
  EXPECT_EQ(json(run({"dots", "--image", path, "--json", "--polarity", "bright"}))["dots"].size(),
            1u);
  EXPECT_EQ(json(run({"dots", "--image", path, "--json", "--polarity", "either", "--threshold",
                      "local"}))["dots"]
                .size(),
            5u);
  EXPECT_EQ(json(run({"dots", "--image", path, "--json", "--threshold", "100"}))["dots"].size(),
            4u);
  EXPECT_EQ(json(run({"dots", "--image", path, "--json", "--min-roundness", "0.5"}))["dots"].size(),
            4u);
}

TEST(DotsCommand, TheTableAndThePicture) {
  Files files;
  const auto o = run({"dots", "--image", files.write("d.pgm", pgmOf(darkDots(kCentres))), "--svg",
                      files.path("d.svg")});
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.out.rfind("5 dots in a 120 x 90 image of 8 bits", 0), 0u) << o.out;
  const std::string svg = files.read("d.svg");
  EXPECT_NE(svg.find("<image "), std::string::npos);
  EXPECT_NE(svg.find("data:image/png;base64,iVBORw0KGgo"), std::string::npos);
  std::size_t ellipses = 0;
  for (std::size_t at = svg.find("<ellipse"); at != std::string::npos;
       at = svg.find("<ellipse", at + 1)) {
    ++ellipses;
  }
  EXPECT_EQ(ellipses, 5u);
}

TEST(DotsCommand, BadInputIsOneLineAndStatusTwo) {
  Files files;
  const std::string good = files.write("d.pgm", pgmOf(darkDots(kCentres)));
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"dots"}, "missing option --image"},
      {{"dots", "--image", files.path("none.png")}, "cannot open the file"},
      {{"dots", "--image", files.write("x.pgm", "P5\n4 4\n255\nab")},
       "the PGM raster is truncated"},
      {{"dots", "--image", files.write("x.gif", "GIF89a")}, "not an image file of a known kind"},
      {{"dots", "--image", good, "--polarity", "grey"},
       "--polarity must be dark, bright or either"},
      {{"dots", "--image", good, "--threshold", "lots"}, "--threshold"},
      {{"dots", "--image", good, "--threshold", "-3"}, "--threshold: "},
      {{"dots", "--image", good, "--min-area", "0"}, "--min-area: "},
      {{"dots", "--image", good, "--min-roundness", "2"}, "--min-roundness: "},
      {{"match", "--model", good, "--model-image", good, "--data", good}, "not both"},
      {{"grid", "--xv", "1,0", "--yv", "0,1"}, "missing option --points (or --image)"},
  };
  for (const auto& c : cases) {
    const auto o = run(c.first);
    EXPECT_EQ(o.status, 2) << c.second;
    EXPECT_TRUE(tool_test::isOneLineMessage(o.err)) << o.err;
    EXPECT_NE(o.err.find(c.second), std::string::npos) << o.err;
  }
}

TEST(DotsCommand, MatchFindsOneImagesDotsInAnother) {
  Files files;
  // The data image: the model's dots moved by (7.5, -4.25), plus one more dot.
  std::vector<std::pair<double, double>> moved;
  for (const auto& c : kCentres) moved.emplace_back(c.first + 7.5, c.second - 4.25 + 8.0);
  moved.emplace_back(10.0, 80.0);
  const auto o = run({"match", "--model-image", files.write("m.pgm", pgmOf(darkDots(kCentres))),
                      "--data-image", files.write("d.pgm", pgmOf(darkDots(moved))), "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  ASSERT_GE(j["results"].size(), 1u);
  const JsonValue& r = j["results"][0];
  EXPECT_DOUBLE_EQ(r["coverage"].asNumber(), 1.0);
  EXPECT_NEAR(r["pose"]["tx"].asNumber(), 7.5, 0.05);
  EXPECT_NEAR(r["pose"]["ty"].asNumber(), 3.75, 0.05);
  EXPECT_NEAR(r["pose"]["a00"].asNumber(), 1.0, 0.002);
}

TEST(DotsCommand, GridMapsTheDotsOfAnImage) {
  Files files;
  dot_images::Scene s;
  s.width = 160;
  s.height = 130;
  s.background = 40.0;
  s.dots = dot_images::dotGrid(6, 5, 22.0, 4.0, 160.0, 20.0, 20.0);
  const auto o = run({"grid", "--image", files.write("g.pgm", pgmOf(s)), "--polarity", "bright",
                      "--xv", "22,0", "--yv", "0,22", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_TRUE(j["valid"].asBool());
  EXPECT_EQ(j["count"].asNumber(), 30);
}
