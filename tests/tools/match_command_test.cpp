// `ptmatch match` on small files whose answer is known.
#include <gtest/gtest.h>

#include "tool_test_support.h"

using ptmatch::cli::JsonValue;
using tool_test::Files;
using tool_test::json;
using tool_test::pointText;
using tool_test::run;
using tool_test::similarity;

namespace {

// An asymmetric model: no rotation maps it onto itself.
const std::vector<mvVector<2>> kModel = {{0, 0},   {20, 0},  {40, 0},  {0, 15},  {0, 30},
                                         {25, 25}, {10, 40}, {35, 12}, {-12, 8}, {18, -14}};

// The data: the model under `pose`, in reverse order, after two clutter points.
std::vector<mvVector<2>> dataUnder(const mvXform<2>& pose, std::size_t dropLast = 0) {
  std::vector<mvVector<2>> data = {{300, 300}, {-50, 120}};
  for (std::size_t i = kModel.size() - dropLast; i-- > 0;) data.push_back(pose * kModel[i]);
  return data;
}

// Where model point i lies in dataUnder's list.
long dataIndexOf(std::size_t i) { return static_cast<long>(2 + kModel.size() - 1 - i); }

void expectPose(const JsonValue& pose, const mvXform<2>& truth, double tolerance) {
  EXPECT_NEAR(pose["a00"].asNumber(), truth.matrix().element(0, 0), tolerance);
  EXPECT_NEAR(pose["a01"].asNumber(), truth.matrix().element(0, 1), tolerance);
  EXPECT_NEAR(pose["a10"].asNumber(), truth.matrix().element(1, 0), tolerance);
  EXPECT_NEAR(pose["a11"].asNumber(), truth.matrix().element(1, 1), tolerance);
  EXPECT_NEAR(pose["tx"].asNumber(), truth.trans().x(), 100 * tolerance);
  EXPECT_NEAR(pose["ty"].asNumber(), truth.trans().y(), 100 * tolerance);
}

}  // namespace

TEST(MatchCommand, RecoversARotatedMovedModelAndItsCorrespondence) {
  Files files;
  const mvXform<2> truth = similarity(30.0, 1.0, 50.0, 20.0);
  const std::string model = files.write("model.txt", pointText(kModel));
  const std::string data = files.write("data.txt", pointText(dataUnder(truth)));
  const auto o = run({"match", "--model", model, "--data", data, "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_EQ(j["command"].asString(), "match");
  EXPECT_EQ(j["mode"].asString(), "ePointToPoint");
  EXPECT_GE(j["time"].asNumber(), 0.0);
  ASSERT_EQ(j["results"].size(), 1u);
  const JsonValue& r = j["results"][0];
  EXPECT_DOUBLE_EQ(r["coverage"].asNumber(), 1.0);
  EXPECT_NEAR(r["fitError"].asNumber(), 0.0, 1e-6);
  expectPose(r["pose"], truth, 1e-6);
  EXPECT_NEAR(r["rotationDeg"].asNumber(), 30.0, 1e-6);
  EXPECT_NEAR(r["scale"].asNumber(), 1.0, 1e-6);
  ASSERT_EQ(r["map"].size(), kModel.size());
  for (std::size_t i = 0; i < kModel.size(); ++i) {
    EXPECT_EQ(r["map"][i].asNumber(), dataIndexOf(i)) << "model point " << i;
  }
}

TEST(MatchCommand, RecoversAScaleWithinTheScaleRange) {
  Files files;
  const mvXform<2> truth = similarity(-75.0, 1.06, -20.0, 140.0);
  const std::string model = files.write("model.txt", pointText(kModel));
  const std::string data = files.write("data.txt", pointText(dataUnder(truth)));
  const auto o = run({"match", "--model", model, "--data", data, "--scale", "-0.1:0.1", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  ASSERT_EQ(j["results"].size(), 1u);
  expectPose(j["results"][0]["pose"], truth, 1e-6);
  EXPECT_NEAR(j["results"][0]["scale"].asNumber(), 1.06, 1e-6);
}

TEST(MatchCommand, ARotationRangeAroundTheStartPose) {
  Files files;
  const mvXform<2> truth = similarity(100.0, 1.0, 10.0, 10.0);
  const std::string model = files.write("model.txt", pointText(kModel));
  const std::string data = files.write("data.txt", pointText(dataUnder(truth)));
  // Start pose rotated by 90 degrees: the truth lies 10 degrees from it.
  const std::vector<std::string> base = {"match", "--model",      model,          "--data",
                                         data,    "--start-pose", "0,-1,1,0,0,0", "--json"};
  std::vector<std::string> around = base;
  around.insert(around.end(), {"--rotation", "5:15"});
  const auto found = run(around);
  ASSERT_EQ(found.status, 0) << found.err;
  ASSERT_EQ(json(found)["results"].size(), 1u);
  expectPose(json(found)["results"][0]["pose"], truth, 1e-6);

  std::vector<std::string> away = base;
  away.insert(away.end(), {"--rotation", "-15:-5"});
  const auto missed = run(away);
  EXPECT_EQ(missed.status, 0) << missed.err;  // it ran: zero results are not an error
  EXPECT_EQ(json(missed)["results"].size(), 0u);
}

TEST(MatchCommand, WeightsCountInTheCoverage) {
  Files files;
  const mvXform<2> truth = similarity(10.0, 1.0, 5.0, 5.0);
  std::string model;
  // Weight 4 on the first model point, 1 on the others; the data leave out the last one.
  for (std::size_t i = 0; i < kModel.size(); ++i) {
    model += std::to_string(kModel[i].x()) + " " + std::to_string(kModel[i].y()) + " " +
             (i == 0 ? "4" : "1") + "\n";
  }
  const std::string modelPath = files.write("model.txt", model);
  const std::string data = files.write("data.txt", pointText(dataUnder(truth, 1)));
  const auto o = run({"match", "--model", modelPath, "--data", data, "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  ASSERT_EQ(j["results"].size(), 1u);
  // (4 + 8 x 1) of (4 + 9 x 1).
  EXPECT_NEAR(j["results"][0]["coverage"].asNumber(), 12.0 / 13.0, 1e-12);
  EXPECT_EQ(j["results"][0]["map"][0].asNumber(), dataIndexOf(0) - 1);
  EXPECT_EQ(j["results"][0]["map"][kModel.size() - 1].asNumber(), -1);
}

TEST(MatchCommand, AWeightsFileWorksLikeAWeightColumn) {
  Files files;
  const mvXform<2> truth = similarity(10.0, 1.0, 5.0, 5.0);
  const std::string model = files.write("model.txt", pointText(kModel));
  const std::string weights = files.write("w.json", "[4, 1, 1, 1, 1, 1, 1, 1, 1, 1]");
  const std::string data = files.write("data.txt", pointText(dataUnder(truth, 1)));
  const auto o = run({"match", "--model", model, "--data", data, "--weights", weights, "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_NEAR(json(o)["results"][0]["coverage"].asNumber(), 12.0 / 13.0, 1e-12);
}

TEST(MatchCommand, ExhaustiveModeFindsASmallModel) {
  Files files;
  const std::vector<mvVector<2>> model = {{0, 0}, {10, 0}, {0, 6}, {7, 9}};
  const mvXform<2> truth = similarity(-40.0, 1.0, 3.0, 4.0);
  std::vector<mvVector<2>> data = {{50, 50}};
  for (const mvVector<2>& m : model) data.push_back(truth * m);
  const auto o = run({"match", "--model", files.write("m.json", "[[0,0],[10,0],[0,6],[7,9]]"),
                      "--data", files.write("d.txt", pointText(data)), "--exhaustive", "--json"});
  ASSERT_EQ(o.status, 0) << o.err;
  const JsonValue j = json(o);
  EXPECT_EQ(j["mode"].asString(), "eExhaustiveMode");
  ASSERT_GE(j["results"].size(), 1u);
  expectPose(j["results"][0]["pose"], truth, 1e-6);
  for (std::size_t i = 0; i < model.size(); ++i)
    EXPECT_EQ(j["results"][0]["map"][i].asNumber(), i + 1.0);
}

TEST(MatchCommand, MaxResultsBoundsTheResults) {
  Files files;
  const mvXform<2> truth = similarity(30.0, 1.0, 50.0, 20.0);
  std::vector<mvVector<2>> data = dataUnder(truth);
  const mvXform<2> second = similarity(-60.0, 1.0, 400.0, 400.0);
  for (std::size_t i = 0; i + 2 < kModel.size(); ++i) data.push_back(second * kModel[i]);
  const std::string model = files.write("model.txt", pointText(kModel));
  const std::string dataPath = files.write("data.txt", pointText(data));
  const auto two =
      run({"match", "--model", model, "--data", dataPath, "--max-results", "2", "--json"});
  ASSERT_EQ(two.status, 0) << two.err;
  const JsonValue j = json(two);
  ASSERT_EQ(j["results"].size(), 2u);
  // Best first: the complete copy, then the one missing two points.
  EXPECT_DOUBLE_EQ(j["results"][0]["coverage"].asNumber(), 1.0);
  EXPECT_DOUBLE_EQ(j["results"][1]["coverage"].asNumber(), 0.8);
  expectPose(j["results"][1]["pose"], second, 1e-6);
}

TEST(MatchCommand, TheTableShowsTheBestPose) {
  Files files;
  const mvXform<2> truth = similarity(30.0, 1.0, 50.0, 20.0);
  const auto o = run({"match", "--model", files.write("m.txt", pointText(kModel)), "--data",
                      files.write("d.txt", pointText(dataUnder(truth)))});
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_NE(o.out.find("1 result in"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("(mode ePointToPoint, 10 model points, 12 data points)"), std::string::npos)
      << o.out;
  EXPECT_NE(o.out.find("30.000"), std::string::npos) << o.out;
  EXPECT_NE(o.out.find("best pose (model to data): [0.866025 -0.5; 0.5 0.866025] + (50, 20)"),
            std::string::npos)
      << o.out;
}

TEST(MatchCommand, NoDataPointsIsAnEmptyResult) {
  Files files;
  const auto o = run({"match", "--model", files.write("m.txt", pointText(kModel)), "--data",
                      files.write("d.txt", "# nothing measured\n"), "--json"});
  EXPECT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(json(o)["results"].size(), 0u);
}

TEST(MatchCommand, WritesThePictureBesideTheJson) {
  Files files;
  const mvXform<2> truth = similarity(30.0, 1.0, 50.0, 20.0);
  const auto o = run({"match", "--model", files.write("m.txt", pointText(kModel)), "--data",
                      files.write("d.txt", pointText(dataUnder(truth))), "--json", "--svg",
                      files.path("p.svg")});
  ASSERT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(json(o)["results"].size(), 1u);  // stdout holds only the JSON
  EXPECT_NE(files.read("p.svg").find("coverage 1 (10 of 10 model points)"), std::string::npos);
}

TEST(MatchCommand, ExactGivesTheWrittenSearchsAnswerAndThreadsChangeNothing) {
  Files files;
  const mvXform<2> truth = similarity(-140.0, 1.1, 80.0, 60.0);
  const std::string model = files.write("model.txt", pointText(kModel));
  const std::string data = files.write("data.txt", pointText(dataUnder(truth)));
  const std::vector<std::string> search = {"match", "--model", model,       "--data",
                                           data,    "--scale", "-0.2:0.25", "--json"};
  std::vector<std::string> exact = search;
  exact.push_back("--exact");
  std::vector<std::string> threads = search;
  threads.insert(threads.end(), {"--threads", "3"});
  for (const auto& args : {search, exact, threads}) {
    const auto o = run(args);
    ASSERT_EQ(o.status, 0) << o.err;
    const JsonValue j = json(o);
    ASSERT_EQ(j["results"].size(), 1u);
    EXPECT_NEAR(j["results"][0]["rotationDeg"].asNumber(), -140.0, 1e-6);
    for (std::size_t i = 0; i < kModel.size(); ++i) {
      EXPECT_EQ(j["results"][0]["map"][i].asNumber(), dataIndexOf(i)) << "model point " << i;
    }
  }
}

TEST(MatchCommand, ThreadsMustBeAWholeNumberFromOne) {
  Files files;
  const std::string model = files.write("model.txt", pointText(kModel));
  for (const char* bad : {"0", "-2", "1.5", "many", "2000"}) {
    const auto o = run({"match", "--model", model, "--data", model, "--threads", bad});
    EXPECT_EQ(o.status, 2) << bad;
    EXPECT_NE(o.err.find("--threads"), std::string::npos) << o.err;
  }
  const auto missing = run({"match", "--model", model, "--data", model, "--threads"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("--threads: missing value"), std::string::npos) << missing.err;
}
