// `ptmatch grid --plain` (the written mapping) on small files whose answer is known.
#include <gtest/gtest.h>

#include <cmath>

#include "tool_test_support.h"

using ptmatch::cli::JsonValue;
using tool_test::Files;
using tool_test::json;
using tool_test::pointText;
using tool_test::run;

namespace {

// Checks that the mapped nodes equal the true ones up to one shift, and returns it.
std::pair<long, long> commonShift(const JsonValue& map,
                                  const std::vector<std::pair<long, long>>& truth) {
  EXPECT_EQ(map.size(), truth.size());
  const long du = static_cast<long>(map[0][0].asNumber()) - truth[0].first;
  const long dv = static_cast<long>(map[0][1].asNumber()) - truth[0].second;
  for (std::size_t i = 0; i < truth.size(); ++i) {
    EXPECT_EQ(map[i][0].asNumber(), truth[i].first + du) << "point " << i;
    EXPECT_EQ(map[i][1].asNumber(), truth[i].second + dv) << "point " << i;
  }
  return {du, dv};
}

}  // namespace

TEST(GridCommand, MapsARegularGridWithTheDefaultSnap) {
  Files files;
  std::vector<mvVector<2>> points;
  std::vector<std::pair<long, long>> nodes;
  for (long v = 0; v < 4; ++v) {
    for (long u = 0; u < 5; ++u) {
      points.emplace_back(100.0 + 10.0 * u, 50.0 + 10.0 * v);
      nodes.emplace_back(u, v);
    }
  }
  const auto o = run({"grid", "--plain", "--points", files.write("p.txt", pointText(points)),
                      "--xv", "10,0", "--yv", "0,10", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_EQ(j["command"].asString(), "grid");
  EXPECT_TRUE(j["valid"].asBool());
  EXPECT_EQ(j["count"].asNumber(), 20);
  EXPECT_GE(j["time"].asNumber(), 0.0);
  const auto shift = commonShift(j["map"], nodes);
  const JsonValue& g = j["grid2point"];
  EXPECT_NEAR(g["a00"].asNumber(), 10.0, 1e-9);
  EXPECT_NEAR(g["a01"].asNumber(), 0.0, 1e-9);
  EXPECT_NEAR(g["a10"].asNumber(), 0.0, 1e-9);
  EXPECT_NEAR(g["a11"].asNumber(), 10.0, 1e-9);
  // Node (0, 0) of the truth is the point (100, 50).
  EXPECT_NEAR(g["tx"].asNumber() + 10.0 * shift.first, 100.0, 1e-9);
  EXPECT_NEAR(g["ty"].asNumber() + 10.0 * shift.second, 50.0, 1e-9);
}

TEST(GridCommand, AStaggeredGridGetsNodesWithAnEvenIndexSum) {
  Files files;
  std::vector<mvVector<2>> points;
  std::vector<std::pair<long, long>> nodes;
  const double c = std::cos(0.1);
  const double s = std::sin(0.1);
  for (long v = 0; v < 6; ++v) {
    for (long u = 0; u < 8; ++u) {
      if ((u + v) % 2 != 0) continue;
      const double x = 12.0 * u;
      const double y = 12.0 * v;
      points.emplace_back(20.0 + c * x - s * y, 30.0 + s * x + c * y);
      nodes.emplace_back(u, v);
    }
  }
  const auto o = run({"grid", "--plain", "--points", files.write("p.txt", pointText(points)),
                      "--xv", "12,0", "--yv", "0,12", "--staggered", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_TRUE(j["valid"].asBool());
  EXPECT_EQ(j["count"].asNumber(), static_cast<double>(points.size()));
  const auto shift = commonShift(j["map"], nodes);
  EXPECT_EQ((shift.first + shift.second) % 2, 0);
  EXPECT_NEAR(j["grid2point"]["a00"].asNumber(), 12.0 * c, 1e-9);
  EXPECT_NEAR(j["grid2point"]["a10"].asNumber(), 12.0 * s, 1e-9);
}

TEST(GridCommand, TheLibraryDefaultSnapMapsNothing) {
  // 2.4 is 0.2 of the pitch, the mapping's own default: no neighbour is ever found.
  Files files;
  std::vector<mvVector<2>> points;
  for (long u = 0; u < 6; ++u) points.emplace_back(10.0 * u, 0.0);
  const auto o = run({"grid", "--plain", "--points", files.write("p.txt", pointText(points)),
                      "--xv", "10,0", "--yv", "0,10", "--snap", "2", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_FALSE(j["valid"].asBool());
  EXPECT_EQ(j["count"].asNumber(), 0);
  ASSERT_EQ(j["map"].size(), points.size());
  for (const JsonValue& node : j["map"].items()) EXPECT_TRUE(node.isNull());
}

TEST(GridCommand, AFarPointIsLeftWithoutANode) {
  Files files;
  std::vector<mvVector<2>> points;
  for (long v = 0; v < 3; ++v) {
    for (long u = 0; u < 4; ++u) points.emplace_back(10.0 * u, 10.0 * v);
  }
  // 7.07 from the nearest nodes: beyond a snap of 7. (With the default snap, 12.5, every
  // point within the grid's extent finds a node.)
  points.emplace_back(15.0, 5.0);
  const auto o = run({"grid", "--plain", "--points", files.write("p.txt", pointText(points)),
                      "--xv", "10,0", "--yv", "0,10", "--snap", "7", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_EQ(j["count"].asNumber(), 12);
  EXPECT_TRUE(j["map"][12].isNull());
  EXPECT_FALSE(j["map"][0].isNull());
}

TEST(GridCommand, TheTableAndPictureShowTheNodes) {
  Files files;
  std::vector<mvVector<2>> points;
  for (long u = 0; u < 3; ++u) {
    for (long v = 0; v < 3; ++v) points.emplace_back(10.0 * u, 10.0 * v);
  }
  const auto o = run({"grid", "--plain", "--points", files.write("p.txt", pointText(points)),
                      "--xv", "10,0", "--yv", "0,10", "--svg", files.path("g.svg")});
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_NE(o.out.find("valid: 9 of 9 points assigned"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("picture: " + files.path("g.svg")), std::string::npos);
  EXPECT_NE(files.read("g.svg").find("9 of 9 points on grid nodes"), std::string::npos);
}
