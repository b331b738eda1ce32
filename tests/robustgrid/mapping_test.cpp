// The robust grid mapping on boards with holes, missing rows, turns, staggered rows,
// perspective, noise and clutter: every dot at its true node and no clutter on a node.

#include <gtest/gtest.h>

#include <cmath>

#include "robustgrid/board_fixture.h"

namespace {

using namespace board_fixture;

TEST(RobustGridMap, CleanBoardGetsEveryDot) {
  BoardPlan plan;
  const mvRobustGridMapResult r = expectStrict(plan, paramsFor(plan));
  EXPECT_EQ(r.count(), plan.columns * plan.rows);
  EXPECT_EQ(r.numUnassigned(), 0);
  EXPECT_EQ(r.failure(), mvRobustGridMapDefs::eNone);
  EXPECT_EQ(r.reason(), "ok");
  EXPECT_GE(r.time(), 0.0);
}

TEST(RobustGridMap, IndicesStartAtZeroAndFollowTheGivenAxes) {
  BoardPlan plan;
  plan.rotationDegrees = 8.0;
  const Board board = makeBoard(plan);
  mvRobustGridMapResult r;
  mfRobustGridMap(board.points, paramsFor(plan), r);
  ASSERT_TRUE(r.valid()) << r.reason();
  // Every corner dot is there, so the shift is 0: the indices are the true ones.
  for (std::size_t k = 0; k < board.points.size(); ++k) {
    EXPECT_EQ(r.map()[k], *board.truth[k]);
  }
  // Node (11, 8) lies at the far corner: 11 pitches along the turned x axis, 8 along y.
  const mvVector<2> corner = r.homography().a2b(at(11, 8));
  EXPECT_NEAR((corner - board.truePose.a2b(at(11, 8))).len(), 0.0, 1e-6);
  const mvVector<2> affine = r.grid2point() * at(11, 8);
  EXPECT_NEAR((affine - board.truePose.a2b(at(11, 8))).len(), 0.0, 1e-6);
  // The lattice vectors found at the seed: 20 px turned by 8 degrees.
  EXPECT_NEAR(r.xv().len(), 20.0, 1e-6);
  EXPECT_NEAR(std::atan2(r.xv().y(), r.xv().x()) * 180.0 / kPi, 8.0, 1e-6);
  EXPECT_NEAR(std::atan2(r.yv().y(), r.yv().x()) * 180.0 / kPi, 98.0, 1e-6);
  for (double d : r.residuals()) EXPECT_NEAR(d, 0.0, 1e-6);
  // The matrix maps node (3, 2) where the homography does.
  const auto& m = r.homographyMatrix();
  const double w = m[6] * 3.0 + m[7] * 2.0 + m[8];
  const mvVector<2> viaMatrix((m[0] * 3.0 + m[1] * 2.0 + m[2]) / w,
                              (m[3] * 3.0 + m[4] * 2.0 + m[5]) / w);
  EXPECT_NEAR((viaMatrix - r.homography().a2b(at(3, 2))).len(), 0.0, 1e-6);
  EXPECT_EQ(m[8], 1.0);
}

TEST(RobustGridMap, WithoutVectorsTheFirstAxisLiesNearestPlusX) {
  BoardPlan plan;
  plan.rotationDegrees = -30.0;
  plan.noise = 0.5;
  const Board board = makeBoard(plan);
  mvRobustGridMapResult r;
  mfRobustGridMap(board.points, mvRobustGridMapParams(), r);
  ASSERT_TRUE(r.valid()) << r.reason();
  const Strict s = checkStrict(board, r.map());
  EXPECT_TRUE(s.exact());
  EXPECT_EQ(s.shift, mvPair<long>(0, 0));
  EXPECT_NEAR(r.xv().len(), 20.0, 1.0);
  EXPECT_GT(r.xv().x(), 0.0);
  EXPECT_GT(r.yv().y(), 0.0);
}

TEST(RobustGridMap, AnyRotation) {
  for (double degrees : {0.0, 17.0, 45.0, 63.0, 90.0, 133.0, 180.0, 251.0, 322.0}) {
    SCOPED_TRACE(degrees);
    BoardPlan plan;
    plan.rotationDegrees = degrees;
    plan.noise = 0.5;
    plan.seed = static_cast<unsigned>(degrees) + 3;
    // Beyond 45 degrees the labels follow the nearest quarter turn of the given axes.
    expectStrict(plan, paramsFor(plan), true);
    expectStrict(plan, mvRobustGridMapParams(), true);
  }
}

TEST(RobustGridMap, HolesAndAMissingRow) {
  BoardPlan plan;
  plan.columns = 14;
  plan.rows = 11;
  plan.missing = 0.1;
  plan.missingRow = 5;
  plan.noise = 0.5;
  for (unsigned seed = 1; seed <= 4; ++seed) {
    plan.seed = seed;
    expectStrict(plan, paramsFor(plan));
  }
}

TEST(RobustGridMap, TwoMissingRowsSideBySide) {
  BoardPlan plan;
  plan.rows = 12;
  plan.missingRow = 6;
  plan.missing = 0.0;
  const Board first = makeBoard(plan);
  // Drop row 7 as well: the growth steps over two empty rows.
  Board board;
  for (std::size_t k = 0; k < first.points.size(); ++k) {
    if (first.truth[k] && first.truth[k]->y() == 7) continue;
    board.points.push_back(first.points[k]);
    board.truth.push_back(first.truth[k]);
  }
  mvRobustGridMapResult r;
  mfRobustGridMap(board.points, paramsFor(plan), r);
  ASSERT_TRUE(r.valid()) << r.reason();
  EXPECT_TRUE(checkStrict(board, r.map()).exact());
}

TEST(RobustGridMap, StaggeredBoards) {
  BoardPlan plan;
  plan.staggered = true;
  plan.columns = 15;
  plan.rows = 11;
  plan.pitch = 14.0;
  plan.noise = 0.5;
  for (unsigned seed = 1; seed <= 3; ++seed) {
    plan.seed = seed;
    plan.rotationDegrees = 11.0 * seed;
    const mvRobustGridMapResult r = expectStrict(plan, paramsFor(plan));
    for (const mvPair<long>& n : r.map()) {
      if (isAssigned(n)) {
        EXPECT_EQ((n.x() + n.y()) % 2, 0);
      }
    }
  }
}

TEST(RobustGridMap, StaggeredWithoutVectors) {
  BoardPlan plan;
  plan.staggered = true;
  plan.columns = 13;
  plan.rows = 9;
  plan.noise = 0.3;
  mvRobustGridMapParams params;
  params.staggered(true);
  expectStrict(plan, params);
}

TEST(RobustGridMap, StrongPerspective) {
  BoardPlan plan;
  plan.columns = 14;
  plan.rows = 10;
  plan.corners = 0.15;
  plan.noise = 0.5;
  for (unsigned seed = 1; seed <= 6; ++seed) {
    plan.seed = seed;
    const mvRobustGridMapResult r = expectStrict(plan, paramsFor(plan));
    EXPECT_LT(r.sigma(), 1.5);
  }
}

TEST(RobustGridMap, StrongPerspectiveChangesThePitchByAThirdOrMore) {
  BoardPlan plan;
  plan.columns = 14;
  plan.rows = 10;
  plan.corners = 0.15;
  // Find a seed whose pose changes the local pitch by a third or more across the board.
  for (unsigned seed = 1; seed < 60; ++seed) {
    plan.seed = seed;
    std::mt19937 rng(seed);
    const mv2PTm pose = makePose(plan, rng);
    double lo = 1e300, hi = 0.0;
    for (long j = 0; j < plan.rows; ++j) {
      for (long i = 0; i + 1 < plan.columns; ++i) {
        const double step = (pose.a2b(at(i + 1, j)) - pose.a2b(at(i, j))).len();
        lo = std::min(lo, step);
        hi = std::max(hi, step);
      }
    }
    if (hi > 1.33 * lo) break;
  }
  // The board's axes turn so much from corner to corner that the labels may follow
  // another quarter turn of the given axes.
  expectStrict(plan, paramsFor(plan), true);
}

TEST(RobustGridMap, HeavyNoise) {
  BoardPlan plan;
  plan.pitch = 20.0;
  plan.noise = 2.5;
  for (unsigned seed = 1; seed <= 4; ++seed) {
    plan.seed = seed;
    plan.rotationDegrees = 5.0 * seed;
    expectStrict(plan, paramsFor(plan));
  }
}

TEST(RobustGridMap, ClutterUpToHalfTheDots) {
  BoardPlan plan;
  plan.noise = 0.5;
  for (double clutter : {0.1, 0.25, 0.5}) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
      SCOPED_TRACE(clutter);
      plan.clutter = clutter;
      plan.seed = seed;
      const mvRobustGridMapResult r = expectStrict(plan, paramsFor(plan));
      EXPECT_EQ(r.count(), plan.columns * plan.rows);
    }
  }
}

TEST(RobustGridMap, MixedDegradations) {
  BoardPlan plan;
  plan.columns = 13;
  plan.rows = 10;
  plan.corners = 0.05;
  plan.noise = 0.5;
  plan.missing = 0.03;
  plan.clutter = 0.1;
  for (unsigned seed = 1; seed <= 6; ++seed) {
    plan.seed = seed;
    plan.rotationDegrees = 7.0 * seed;
    expectStrict(plan, paramsFor(plan));
  }
}

TEST(RobustGridMap, BoardFillingPartOfThePoints) {
  BoardPlan plan;
  plan.columns = 8;
  plan.rows = 6;
  plan.outside = 40;
  plan.noise = 0.3;
  expectStrict(plan, paramsFor(plan));
}

TEST(RobustGridMap, Deterministic) {
  BoardPlan plan;
  plan.corners = 0.08;
  plan.clutter = 0.3;
  plan.noise = 1.0;
  plan.missing = 0.05;
  const Board board = makeBoard(plan);
  mvRobustGridMapResult a, b;
  mfRobustGridMap(board.points, paramsFor(plan), a);
  mfRobustGridMap(board.points, paramsFor(plan), b);
  ASSERT_TRUE(a.valid());
  EXPECT_EQ(a.map(), b.map());
  EXPECT_EQ(a.residuals(), b.residuals());
  EXPECT_EQ(a.grid2point(), b.grid2point());
}

}  // namespace
