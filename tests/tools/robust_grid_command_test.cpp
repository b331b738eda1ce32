// `ptmatch grid` with its default, robust mapping: clutter left without a node, the JSON
// keys, the rejected points in the table and the picture, and the options it refuses.
#include <gtest/gtest.h>

#include <cmath>

#include "tool_test_support.h"

using ptmatch::cli::JsonValue;
using tool_test::Files;
using tool_test::json;
using tool_test::pointText;
using tool_test::run;

namespace {

// A 7 x 5 grid of pitch 10 at (100, 50), its nodes, and two clutter points at the end:
// one between four dots, one beside a dot (3 px off, nearer its node than a third pitch).
struct Board {
  std::vector<mvVector<2>> points;
  std::vector<std::pair<long, long>> nodes;
};

Board boardWithClutter() {
  Board b;
  for (long v = 0; v < 5; ++v) {
    for (long u = 0; u < 7; ++u) {
      b.points.emplace_back(100.0 + 10.0 * u, 50.0 + 10.0 * v);
      b.nodes.emplace_back(u, v);
    }
  }
  b.points.emplace_back(125.0, 65.0);
  b.points.emplace_back(133.0, 70.0);
  return b;
}

}  // namespace

TEST(RobustGridCommand, ClutterGetsNoNodeAndTheKeysAreThere) {
  Files files;
  const Board b = boardWithClutter();
  const auto o = run({"grid", "--points", files.write("p.txt", pointText(b.points)), "--xv", "10,0",
                      "--yv", "0,10", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_EQ(j["command"].asString(), "grid");
  EXPECT_TRUE(j["valid"].asBool());
  EXPECT_EQ(j["count"].asNumber(), 35);
  EXPECT_EQ(j["reason"].asString(), "ok");
  ASSERT_EQ(j["map"].size(), b.points.size());
  // The indices start at 0 at the grid's first corner, as the truth does.
  for (std::size_t i = 0; i < b.nodes.size(); ++i) {
    EXPECT_EQ(j["map"][i][0].asNumber(), b.nodes[i].first) << i;
    EXPECT_EQ(j["map"][i][1].asNumber(), b.nodes[i].second) << i;
    EXPECT_NEAR(j["residuals"][i].asNumber(), 0.0, 1e-6);
  }
  EXPECT_TRUE(j["map"][35].isNull());
  EXPECT_TRUE(j["map"][36].isNull());
  EXPECT_TRUE(j["residuals"][35].isNull());
  EXPECT_TRUE(j["residuals"][36].isNull());
  EXPECT_NEAR(j["grid2point"]["a00"].asNumber(), 10.0, 1e-9);
  EXPECT_NEAR(j["grid2point"]["tx"].asNumber(), 100.0, 1e-9);
  EXPECT_NEAR(j["grid2point"]["ty"].asNumber(), 50.0, 1e-9);
  // The homography of a flat grid: [[10 0 100] [0 10 50] [0 0 1]].
  const JsonValue& h = j["homography"];
  ASSERT_EQ(h.size(), 3u);
  const double expected[3][3] = {{10.0, 0.0, 100.0}, {0.0, 10.0, 50.0}, {0.0, 0.0, 1.0}};
  for (std::size_t r = 0; r < 3; ++r) {
    for (std::size_t c = 0; c < 3; ++c) EXPECT_NEAR(h[r][c].asNumber(), expected[r][c], 1e-6);
  }
}

TEST(RobustGridCommand, ThePlainMappingGivesTheClutterANode) {
  // The same board with --plain and its default snap: every point near the grid snaps.
  Files files;
  const Board b = boardWithClutter();
  const auto o = run({"grid", "--plain", "--points", files.write("p.txt", pointText(b.points)),
                      "--xv", "10,0", "--yv", "0,10", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_FALSE(j["map"][36].isNull());
  EXPECT_FALSE(j.contains("homography"));
  EXPECT_FALSE(j.contains("residuals"));
}

TEST(RobustGridCommand, WorksWithoutGridVectors) {
  Files files;
  const Board b = boardWithClutter();
  const auto o = run({"grid", "--points", files.write("p.txt", pointText(b.points)), "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_TRUE(j["valid"].asBool());
  EXPECT_EQ(j["count"].asNumber(), 35);
}

TEST(RobustGridCommand, TheTableAndPictureShowTheRejectedPoints) {
  Files files;
  const Board b = boardWithClutter();
  const auto o = run({"grid", "--points", files.write("p.txt", pointText(b.points)), "--svg",
                      files.path("g.svg")});
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_NE(o.out.find("valid: 35 of 37 points assigned"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("2 points rejected (no node)"), std::string::npos) << o.out;
  const std::string svg = files.read("g.svg");
  EXPECT_NE(svg.find("rejected point (no node)"), std::string::npos);
  EXPECT_NE(svg.find("35 of 37 points on grid nodes"), std::string::npos);
}

TEST(RobustGridCommand, AFailureSaysWhy) {
  Files files;
  const std::vector<mvVector<2>> points = {{0.0, 0.0}, {10.0, 0.0}, {0.0, 10.0}};
  const auto o = run({"grid", "--points", files.write("p.txt", pointText(points)), "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_FALSE(j["valid"].asBool());
  EXPECT_EQ(j["count"].asNumber(), 0);
  EXPECT_NE(j["reason"].asString(), "ok");
  for (const JsonValue& node : j["map"].items()) EXPECT_TRUE(node.isNull());
  const auto t = run({"grid", "--points", files.path("p.txt")});
  EXPECT_NE(t.out.find("reason: "), std::string::npos) << t.out;
}

TEST(RobustGridCommand, RefusesOptionsOfThePlainMapping) {
  Files files;
  const std::string p = files.write("p.txt", pointText(boardWithClutter().points));
  for (const std::vector<std::string>& extra : {std::vector<std::string>{"--snap", "5"},
                                                {"--size-tol", "0.8:1.2"},
                                                {"--angle-tol", "-5:5"},
                                                {"--xv", "10,0"},
                                                {"--xv", "10,0", "--yv", "20,0"},
                                                {"--reject", "0"}}) {
    std::vector<std::string> args = {"grid", "--points", p};
    args.insert(args.end(), extra.begin(), extra.end());
    const auto o = run(args);
    EXPECT_EQ(o.status, 2) << extra[0];
    EXPECT_TRUE(tool_test::isOneLineMessage(o.err)) << o.err;
  }
  const auto o =
      run({"grid", "--plain", "--points", p, "--xv", "10,0", "--yv", "0,10", "--reject", "3"});
  EXPECT_EQ(o.status, 2);
  const auto noVectors = run({"grid", "--plain", "--points", p});
  EXPECT_EQ(noVectors.status, 2);
}
