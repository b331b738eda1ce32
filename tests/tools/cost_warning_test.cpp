// A match whose search is estimated above about ten seconds warns on standard error first,
// naming the options that make it smaller; an ordinary match says nothing there.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tool_test_support.h"

namespace {

using tool_test::Files;
using tool_test::pointText;
using tool_test::run;
using tool_test::spreadPoints;

}  // namespace

TEST(ToolCostWarning, LongMatchWarnsAndNamesTheOptionsThatShrinkIt) {
  // 200 model points against data over 3000 x 3000 at grid size 0.5: a window of about
  // 6000^2 cells at every one of thousands of rotations, far beyond ten seconds.
  Files files;
  const std::string model = files.write("model.txt", pointText(spreadPoints(200, 300.0, 1)));
  const std::string data = files.write("data.txt", pointText(spreadPoints(300, 3000.0, 2)));
  const auto o =
      run({"match", "--model", model, "--data", data, "--grid-size", "0.5", "--time-limit", "0.2"});
  EXPECT_EQ(o.status, 3) << o.err;
  const std::size_t warning = o.err.find("ptmatch match: warning: this search would take about");
  ASSERT_NE(warning, std::string::npos) << o.err;
  const std::string line = o.err.substr(warning, o.err.find('\n', warning) - warning);
  EXPECT_NE(line.find("--grid-size"), std::string::npos) << line;
  EXPECT_NE(line.find("--x-range"), std::string::npos) << line;
  EXPECT_NE(line.find("--rotation"), std::string::npos) << line;
  EXPECT_NE(line.find("200 model points"), std::string::npos) << line;
  // The warning comes before the line about the time limit.
  EXPECT_LT(warning, o.err.find("stopped by --time-limit"));
}

TEST(ToolCostWarning, OrdinaryMatchWritesNothingToStandardError) {
  Files files;
  const std::vector<mvVector<2>> points{{0, 0}, {20, 0}, {7, 15}, {30, 22}, {11, 40}};
  const std::string model = files.write("model.txt", pointText(points));
  const std::string data = files.write("data.txt", pointText(points));
  const auto o = run({"match", "--model", model, "--data", data});
  EXPECT_EQ(o.status, 0) << o.err;
  EXPECT_EQ(o.err, "");
}
