// `ptmatch demo`: the built-in scenarios are recovered, and their files can be matched
// with the other commands.
#include <gtest/gtest.h>

#include "scenarios.h"
#include "tool_test_support.h"
#include "xml_check.h"

using ptmatch::cli::JsonValue;
using tool_test::Files;
using tool_test::json;
using tool_test::run;

TEST(DemoScenarios, TheFiducialDataHaveTheAdvertisedMake) {
  const ptmatch::cli::FiducialScenario s = ptmatch::cli::makeFiducialScenario();
  EXPECT_EQ(s.model.size(), 40u);
  EXPECT_EQ(s.data.size(), 40u - 3u + 12u);
  long present = 0;
  for (std::size_t i = 0; i < s.model.size(); ++i) {
    if (s.trueMap[i] < 0) continue;
    ++present;
    // Each data point lies within 5 sigma of where the truth puts its model point.
    EXPECT_LT((s.truth * s.model[i] - s.data[static_cast<std::size_t>(s.trueMap[i])]).len(), 1.0);
  }
  EXPECT_EQ(present, 37);
}

TEST(DemoScenarios, TheGridIsStaggered) {
  const ptmatch::cli::GridScenario s = ptmatch::cli::makeGridScenario();
  ASSERT_EQ(s.points.size(), s.trueNodes.size());
  for (const mvPair<long>& n : s.trueNodes) EXPECT_EQ((n.x() + n.y()) % 2, 0);
}

TEST(DemoCommand, RecoversBothScenariosWithinHalfAPixel) {
  Files files;
  const auto o = run({"demo", "--json", "--svg", files.path("demo.svg")});
  ASSERT_EQ(o.status, 0) << o.err << o.out;
  const JsonValue j = json(o);
  EXPECT_EQ(j["command"].asString(), "demo");
  EXPECT_TRUE(j["passed"].asBool());
  const JsonValue& fiducial = j["scenarios"][0];
  ASSERT_EQ(fiducial["results"].size(), 1u);
  EXPECT_LT(fiducial["poseDifference"].asNumber(), 0.5);
  EXPECT_NEAR(fiducial["results"][0]["rotationDeg"].asNumber(), 37.5, 0.5);
  EXPECT_NEAR(fiducial["results"][0]["scale"].asNumber(), 1.035, 0.01);
  EXPECT_GE(fiducial["results"][0]["coverage"].asNumber(), 0.9);
  const JsonValue& grid = j["scenarios"][1];
  EXPECT_TRUE(grid["valid"].asBool());
  EXPECT_LT(grid["gridDifference"].asNumber(), 0.5);
  EXPECT_EQ(xml_check::wellFormedError(files.read("demo.svg")), "");
}

TEST(DemoCommand, PrintsTheTruthBesideWhatWasFound) {
  Files files;
  const auto o = run({"demo", "--svg", files.path("demo.svg")});
  ASSERT_EQ(o.status, 0) << o.err << o.out;
  for (const char* line :
       {"true pose", "found pose", "coverage", "fit error", "time", "true grid", "found grid",
        "of the true one at every model point", "picture: ", "result: both scenarios recovered"}) {
    EXPECT_NE(o.out.find(line), std::string::npos) << line << "\n" << o.out;
  }
  EXPECT_NE(files.read("demo.svg").find("ptmatch demo 1"), std::string::npos);
}

TEST(DemoCommand, ItsPointFilesFeedMatchAndGrid) {
  Files files;
  ASSERT_EQ(run({"demo", "--no-svg", "--write-points", files.path("")}).status, 0);
  const auto match = run({"match", "--model", files.path("fiducial-model.txt"), "--data",
                          files.path("fiducial-data.txt"), "--scale", "-0.1:0.1", "--json"});
  ASSERT_EQ(match.status, 0) << match.err;
  const ptmatch::cli::FiducialScenario s = ptmatch::cli::makeFiducialScenario();
  const JsonValue matched = json(match);
  const JsonValue& pose = matched["results"][0]["pose"];
  const mvXform<2> found(mvMatrix<2>(pose["a00"].asNumber(), pose["a01"].asNumber(),
                                     pose["a10"].asNumber(), pose["a11"].asNumber()),
                         mvVector<2>(pose["tx"].asNumber(), pose["ty"].asNumber()));
  for (const mvVector<2>& m : s.model) EXPECT_LT((found * m - s.truth * m).len(), 0.5);

  const auto grid = run({"grid", "--points", files.path("grid-points.txt"), "--xv", "10,0", "--yv",
                         "0,10", "--staggered", "--json"});
  ASSERT_EQ(grid.status, 0) << grid.err;
  EXPECT_TRUE(json(grid)["valid"].asBool());
}

TEST(DemoCommand, NoSvgWritesNoPicture) {
  const auto o = run({"demo", "--no-svg"});
  EXPECT_EQ(o.out.find("picture:"), std::string::npos);
}
