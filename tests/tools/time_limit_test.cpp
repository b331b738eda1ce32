// --time-limit SECONDS on match, grid and pattern: a search that runs past it ends with exit
// status 3 and one line naming the limit and the options that make the search smaller.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tool_test_support.h"

namespace {

using tool_test::Files;
using tool_test::isOneLineMessage;
using tool_test::pointText;
using tool_test::run;
using tool_test::spreadPoints;

// 200 model points and 300 data points spread over 3000 x 3000 pels; with a grid size of
// 0.5, a full rotation and scales 0.5 to 1.5 the search takes minutes.
}  // namespace

TEST(ToolTimeLimit, MatchStoppedByItsTimeLimitExitsWithStatus3AndNamesTheLimit) {
  Files files;
  const std::string model = files.write("model.txt", pointText(spreadPoints(200, 300.0, 1)));
  const std::string data = files.write("data.txt", pointText(spreadPoints(300, 3000.0, 2)));
  const auto o = run({"match", "--model", model, "--data", data, "--grid-size", "0.5", "--scale",
                      "-0.5:0.5", "--time-limit", "0.2"});
  EXPECT_EQ(o.status, 3);
  // A warning about the search's size comes first (cost_warning_test.cpp); the message that
  // ends the run is the last line.
  const std::string last = o.err.substr(o.err.rfind('\n', o.err.size() - 2) + 1);
  EXPECT_TRUE(isOneLineMessage(last)) << o.err;
  EXPECT_NE(o.err.find("time limit of 0.2 s"), std::string::npos) << o.err;
  EXPECT_NE(o.err.find("--time-limit"), std::string::npos) << o.err;
  EXPECT_NE(o.err.find("--grid-size"), std::string::npos) << o.err;
}

TEST(ToolTimeLimit, GridWithinItsTimeLimitRunsAsWithout) {
  Files files;
  std::vector<mvVector<2>> dots;
  for (long j = 0; j < 5; ++j) {
    for (long i = 0; i < 5; ++i) dots.emplace_back(10.0 * i, 10.0 * j);
  }
  const std::string points = files.write("p.txt", pointText(dots));
  const std::vector<std::string> base = {"grid", "--points", points, "--xv",
                                         "10,0", "--yv",     "0,10"};
  std::vector<std::string> limited = base;
  limited.insert(limited.end(), {"--time-limit", "60"});
  const auto plain = run(base);
  const auto within = run(limited);
  EXPECT_EQ(within.status, 0) << within.err;
  EXPECT_EQ(plain.status, 0) << plain.err;
  // Reports differ only in the time they print.
  EXPECT_EQ(within.out.size() > 0, true);
}

TEST(ToolTimeLimit, BadTimeLimitsAreUsageErrors) {
  for (const char* value : {"0", "-1", "soon", "nan"}) {
    const auto o = run({"grid", "--points", "p.txt", "--time-limit", value});
    EXPECT_EQ(o.status, 2) << value;
    EXPECT_TRUE(isOneLineMessage(o.err)) << o.err;
    EXPECT_NE(o.err.find("--time-limit"), std::string::npos) << o.err;
  }
  const auto missing = run({"match", "--time-limit"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("--time-limit: missing value"), std::string::npos) << missing.err;
}

TEST(ToolTimeLimit, HelpNamesTheOptionAndItsExitStatus) {
  const auto o = run({"--help"});
  EXPECT_NE(o.out.find("--time-limit SECONDS"), std::string::npos);
  EXPECT_NE(o.out.find("3 when\n--time-limit stopped the command"), std::string::npos);
}
