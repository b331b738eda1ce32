// Bad arguments, failures that say why, and interruption of the robust grid mapping.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "mvbase/attention.h"
#include "robustgrid/board_fixture.h"

namespace {

using namespace board_fixture;
using Defs = mvRobustGridMapDefs;

TEST(RobustGridBadInput, ParametersAreValidated) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW(mvRobustGridMapParams(mvVector<2>(nan, 0.0), mvVector<2>(0.0, 1.0)), Defs::BadInput);
  EXPECT_THROW(mvRobustGridMapParams(mvVector<2>(1.0, 0.0), mvVector<2>()), Defs::BadInput);
  EXPECT_THROW(mvRobustGridMapParams(mvVector<2>(1.0, 0.0), mvVector<2>(-2.0, 0.0)),
               Defs::BadInput);
  EXPECT_THROW(mvRobustGridMapParams(mvVector<2>(), mvVector<2>(), false, 0.0), Defs::BadInput);
  EXPECT_THROW(mvRobustGridMapParams(mvVector<2>(), mvVector<2>(), false, nan), Defs::BadInput);
  EXPECT_THROW(mvRobustGridMapParams(mvVector<2>(), mvVector<2>(), false, 4.5, 3), Defs::BadInput);

  mvRobustGridMapParams p(mvVector<2>(10.0, 0.0), mvVector<2>(0.0, 10.0), true, 3.0, 9);
  EXPECT_THROW(p.rejectSigmas(-1.0), Defs::BadInput);
  EXPECT_THROW(p.minNodes(0), Defs::BadInput);
  EXPECT_THROW(p.vectors(mvVector<2>(1.0, 1.0), mvVector<2>(2.0, 2.0)), Defs::BadInput);
  // A failed setter leaves the record as it was.
  EXPECT_EQ(p.xv(), mvVector<2>(10.0, 0.0));
  EXPECT_EQ(p.rejectSigmas(), 3.0);
  EXPECT_EQ(p.minNodes(), 9);
  EXPECT_TRUE(p.staggered());
  EXPECT_TRUE(p.hasVectors());
  p.vectors(mvVector<2>(), mvVector<2>());
  EXPECT_FALSE(p.hasVectors());
}

TEST(RobustGridBadInput, NonFinitePointThrowsWithTheTimeSet) {
  BoardPlan plan;
  Board board = makeBoard(plan);
  board.points[5] = mvVector<2>(std::numeric_limits<double>::infinity(), 0.0);
  mvRobustGridMapResult r;
  EXPECT_THROW(mfRobustGridMap(board.points, paramsFor(plan), r), Defs::BadInput);
  EXPECT_GE(r.time(), 0.0);
  EXPECT_FALSE(r.valid());
}

TEST(RobustGridBadInput, TooFewPointsFailWithAReason) {
  mvRobustGridMapResult r;
  EXPECT_EQ(mfRobustGridMap({}, mvRobustGridMapParams(), r), 0);
  EXPECT_EQ(r.failure(), Defs::eTooFewPoints);
  EXPECT_FALSE(r.reason().empty());
  const std::vector<mvVector<2>> three = {{0.0, 0.0}, {10.0, 0.0}, {0.0, 10.0}};
  EXPECT_EQ(mfRobustGridMap(three, mvRobustGridMapParams(), r), 0);
  EXPECT_EQ(r.failure(), Defs::eTooFewPoints);
  ASSERT_EQ(r.map().size(), 3u);
  for (const mvPair<long>& n : r.map()) EXPECT_FALSE(isAssigned(n));
  for (double d : r.residuals()) EXPECT_EQ(d, -1.0);
}

TEST(RobustGridBadInput, ScatteredPointsFailRatherThanGuess) {
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> unit(0.0, 400.0);
  std::vector<mvVector<2>> points;
  for (int k = 0; k < 150; ++k) {
    const double y = unit(rng);  // drawn before x, whatever the compiler
    const double x = unit(rng);
    points.emplace_back(x, y);
  }
  mvRobustGridMapResult r;
  EXPECT_EQ(mfRobustGridMap(
                points, mvRobustGridMapParams(mvVector<2>(20.0, 0.0), mvVector<2>(0.0, 20.0)), r),
            0);
  EXPECT_FALSE(r.valid());
  EXPECT_NE(r.failure(), Defs::eNone);
  EXPECT_NE(r.reason(), "ok");
  for (const mvPair<long>& n : r.map()) EXPECT_FALSE(isAssigned(n));
}

TEST(RobustGridBadInput, PointsOnOneLineHaveNoSeed) {
  std::vector<mvVector<2>> points;
  for (int k = 0; k < 20; ++k) points.emplace_back(10.0 * k, 5.0);
  mvRobustGridMapResult r;
  EXPECT_EQ(mfRobustGridMap(points, mvRobustGridMapParams(), r), 0);
  EXPECT_TRUE(r.failure() == Defs::eNoPitch || r.failure() == Defs::eNoSeed) << r.reason();
}

TEST(RobustGridBadInput, MinNodesAboveTheBoardFails) {
  BoardPlan plan;
  plan.columns = 5;
  plan.rows = 4;
  const Board board = makeBoard(plan);
  mvRobustGridMapParams p = paramsFor(plan);
  p.minNodes(21);
  mvRobustGridMapResult r;
  EXPECT_EQ(mfRobustGridMap(board.points, p, r), 0);
  EXPECT_EQ(r.failure(), Defs::eTooFewPoints);
  p.minNodes(20);
  EXPECT_EQ(mfRobustGridMap(board.points, p, r), 20);
  EXPECT_TRUE(r.valid()) << r.reason();
}

TEST(RobustGridBadInput, AnInterruptionStopsTheGrowth) {
  BoardPlan plan;
  const Board board = makeBoard(plan);
  mvRobustGridMapResult r;
  mvAttention::requestInterruption();
  EXPECT_THROW(mfRobustGridMap(board.points, paramsFor(plan), r), mvAttention::Interrupted);
  EXPECT_FALSE(mvAttention::isRequested());
  EXPECT_GE(r.time(), 0.0);
  EXPECT_GT(mfRobustGridMap(board.points, paramsFor(plan), r), 0);
}

}  // namespace
