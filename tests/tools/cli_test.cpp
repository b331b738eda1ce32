// The program's front door: help, version, and exit status 2 with a one-line message
// naming the problem for every bad command line or input.
#include <gtest/gtest.h>

#include "tool_test_support.h"

using tool_test::Files;
using tool_test::isOneLineMessage;
using tool_test::run;

namespace {

// Expects exit status 2 and one message line containing `needle`.
void expectRefused(const std::vector<std::string>& args, const std::string& needle) {
  const tool_test::Outcome o = run(args);
  EXPECT_EQ(o.status, 2) << o.err;
  EXPECT_TRUE(isOneLineMessage(o.err)) << "[" << o.err << "]";
  EXPECT_NE(o.err.find(needle), std::string::npos) << o.err;
  EXPECT_EQ(o.out, "");
}

const char* const kModel = "0 0\n10 0\n0 10\n20 5\n";
const char* const kData = "1 1\n11 1\n1 11\n21 6\n";

}  // namespace

TEST(Cli, HelpListsTheCommands) {
  const auto o = run({"--help"});
  EXPECT_EQ(o.status, 0);
  for (const char* c : {"demo", "match", "grid", "pattern", "Exit status"}) {
    EXPECT_NE(o.out.find(c), std::string::npos) << c;
  }
  EXPECT_EQ(run({"help", "grid"}).out, run({"grid", "--help"}).out);
}

TEST(Cli, EachCommandHasItsHelp) {
  EXPECT_NE(run({"match", "--help"}).out.find("--start-pose a00,a01,a10,a11,tx,ty"),
            std::string::npos);
  EXPECT_NE(run({"match", "-h"}).out.find("-0.1:0.1 allows 0.9 to 1.1"), std::string::npos);
  EXPECT_NE(run({"pattern", "--help"}).out.find("--image FILE"), std::string::npos);
  EXPECT_NE(run({"demo", "--help"}).out.find("--svg FILE"), std::string::npos);
}

TEST(Cli, GridHelpStatesTheSnapDefault) {
  const auto o = run({"grid", "--help"});
  EXPECT_EQ(o.status, 0);
  EXPECT_NE(o.out.find("Default: 1.25"), std::string::npos);
  EXPECT_NE(o.out.find("xv + yv and yv - xv"), std::string::npos);
}

TEST(Cli, HelpWinsOverOtherArguments) {
  EXPECT_EQ(run({"match", "--nonsense", "--help"}).status, 0);
}

TEST(Cli, VersionPrintsTheProjectVersion) {
  const auto o = run({"--version"});
  EXPECT_EQ(o.status, 0);
  EXPECT_EQ(o.out, "ptmatch " + std::string(ptmatch::cli::versionString()) + "\n");
  EXPECT_NE(std::string(ptmatch::cli::versionString()), "unknown");
}

TEST(Cli, NoCommandIsAUsageError) { expectRefused({}, "missing command"); }

TEST(Cli, AnUnknownCommandIsNamed) { expectRefused({"mach"}, "unknown command 'mach'"); }

TEST(Cli, HelpOnAnUnknownTopicIsAUsageError) { expectRefused({"help", "nope"}, "'nope'"); }

TEST(Cli, AnUnknownOptionIsNamed) {
  expectRefused({"match", "--model", "m", "--data", "d", "--rotate", "5"},
                "unknown option --rotate");
}

TEST(Cli, AMissingRequiredOptionIsNamed) {
  expectRefused({"match", "--data", "d.txt"}, "missing option --model");
  expectRefused({"grid", "--plain", "--points", "p.txt", "--yv", "0,1"}, "missing option --xv");
  expectRefused({"grid", "--points", "p.txt", "--yv", "0,1"},
                "give both --xv and --yv, or neither");
  expectRefused({"pattern", "--data", "d.txt"}, "missing option --image");
}

TEST(Cli, AMissingFileIsNamed) {
  Files files;
  const std::string data = files.write("d.txt", kData);
  expectRefused({"match", "--model", files.path("absent.txt"), "--data", data},
                "cannot read " + files.path("absent.txt"));
}

TEST(Cli, ABadLineIsNamedWithFileAndLine) {
  Files files;
  const std::string model = files.write("m.txt", "0 0\n10 0\n0 ten\n");
  const std::string data = files.write("d.txt", kData);
  expectRefused({"match", "--model", model, "--data", data}, model + ":3:");
}

TEST(Cli, OutOfRangeSearchOptionsNameTheOption) {
  Files files;
  const std::string model = files.write("m.txt", kModel);
  const std::string data = files.write("d.txt", kData);
  const std::vector<std::string> base = {"match", "--model", model, "--data", data};
  const auto with = [&](std::vector<std::string> extra) {
    std::vector<std::string> args = base;
    args.insert(args.end(), extra.begin(), extra.end());
    return args;
  };
  expectRefused(with({"--scale", "-0.95:0.1"}),
                "--scale: start of scaleUncertainty scale must be >= -0.9");
  expectRefused(with({"--scale", "0.1:-0.1"}), "--scale: LO must not exceed HI");
  expectRefused(with({"--min-coverage", "1.5"}),
                "--min-coverage: minCoverage must be in [0.0, 1.0]");
  expectRefused(with({"--max-results", "0"}), "--max-results: maxNumResults must be >= 1");
  expectRefused(with({"--grid-size", "0"}), "--grid-size:");
  expectRefused(with({"--grid-size", "small"}), "--grid-size: expected a number or 'auto'");
  expectRefused(with({"--capture-range", "-1"}), "--capture-range:");
  expectRefused(with({"--rotation", "30:10"}), "--rotation: LO must not exceed HI");
  expectRefused(with({"--x-range", "5"}), "--x-range: expected LO:HI");
  expectRefused(with({"--start-pose", "0,0,0,0,1,1"}), "--start-pose: the pose is singular");
  expectRefused(with({"--start-pose", "1,0,0,1"}), "--start-pose: expected six numbers");
}

TEST(Cli, TooFewModelPointsAreRefused) {
  Files files;
  const std::string model = files.write("m.txt", "0 0\n1 1\n");
  const std::string data = files.write("d.txt", kData);
  expectRefused({"match", "--model", model, "--data", data},
                "a model needs at least 3 points, found 2");
}

TEST(Cli, WeightsMustLeaveTwoPositive) {
  Files files;
  const std::string model = files.write("m.txt", "0 0 5\n10 0 0\n0 10 -3\n");
  const std::string data = files.write("d.txt", kData);
  expectRefused({"match", "--model", model, "--data", data}, "at least two positive weights");
}

TEST(Cli, AWeightsFileMustHaveOneWeightPerModelPoint) {
  Files files;
  const std::string model = files.write("m.txt", kModel);
  const std::string data = files.write("d.txt", kData);
  const std::string weights = files.write("w.txt", "1\n2\n3\n");
  expectRefused({"match", "--model", model, "--data", data, "--weights", weights},
                weights + ": 3 weights for 4 model points");
}

TEST(Cli, WeightsMayNotComeTwice) {
  Files files;
  const std::string model = files.write("m.txt", "0 0 1\n10 0 1\n0 10 1\n");
  const std::string data = files.write("d.txt", kData);
  const std::string weights = files.write("w.txt", "1\n2\n3\n");
  expectRefused({"match", "--model", model, "--data", data, "--weights", weights},
                "has a weight column already");
}

TEST(Cli, DataPointsTakeNoWeights) {
  Files files;
  const std::string model = files.write("m.txt", kModel);
  const std::string data = files.write("d.txt", "1 1 1\n2 2 1\n");
  expectRefused({"match", "--model", model, "--data", data},
                data + ": these points take no weight column");
}

TEST(Cli, AnUnwritablePictureIsNamed) {
  Files files;
  const std::string points = files.write("p.txt", "0 0\n10 0\n20 0\n");
  expectRefused(
      {"grid", "--points", points, "--xv", "10,0", "--yv", "0,10", "--svg", "/nonexistent/g.svg"},
      "cannot write /nonexistent/g.svg");
}

TEST(Cli, GridVectorsMustNotBothBeZero) {
  Files files;
  const std::string points = files.write("p.txt", "0 0\n10 0\n20 0\n");
  expectRefused({"grid", "--plain", "--points", points, "--xv", "0,0", "--yv", "0,0"},
                "--xv and --yv must not both be 0,0");
  expectRefused({"grid", "--points", points, "--xv", "0,0", "--yv", "0,0"},
                "--xv and --yv must be non-zero and not parallel");
  expectRefused(
      {"grid", "--plain", "--points", points, "--xv", "10,0", "--yv", "0,10", "--snap", "0"},
      "--snap must be above 0");
  expectRefused({"grid", "--plain", "--points", points, "--xv", "10,0", "--yv", "0,10",
                 "--size-tol", "0:1.2"},
                "--size-tol: LO must be above 0");
  expectRefused({"grid", "--points", points, "--snap", "5"}, "--snap needs --plain");
  expectRefused({"grid", "--points", points, "--xv", "10;0", "--yv", "0,10"}, "--xv: expected X,Y");
}

TEST(Cli, DemoPictureOptionsExcludeEachOther) {
  expectRefused({"demo", "--svg", "a.svg", "--no-svg"}, "--svg and --no-svg exclude each other");
}

TEST(Cli, AnExhaustiveSearchThatCouldNotEndIsRefused) {
  Files files;
  std::string points;
  for (int i = 0; i < 12; ++i)
    points += std::to_string(i * 7 % 11) + " " + std::to_string(i * 3) + "\n";
  const std::string model = files.write("m.txt", points);
  // 12 model and 12 data points: 13^12, about 10^14 assignments.
  expectRefused({"match", "--model", model, "--data", model, "--exhaustive"},
                "--exhaustive would try about 10^14 assignments for 12 model and 12 data points");
}
