// Boards on which the plain mapping gives a clutter point a node of the board and the
// robust one does not; one point per node; the residuals and the transforms.

#include <gtest/gtest.h>

#include <set>
#include <utility>

#include "ptmatch/ptgdmap.h"
#include "robustgrid/board_fixture.h"

namespace {

using namespace board_fixture;

// The plain mapping at its recommended snap size (0.9 pitch).
long plainClutterOnNodes(const Board& board, const BoardPlan& plan) {
  mvPtToGridMapResult plain;
  mfPtToGridMap(board.points,
                mvPtToGridMapRunParams(mvVector<2>(plan.pitch, 0.0), mvVector<2>(0.0, plan.pitch),
                                       plan.staggered, 0.9 * plan.pitch),
                plain);
  long clutter = 0;
  for (std::size_t k = 0; k < board.points.size() && k < plain.map().size(); ++k) {
    if (!board.truth[k] && isAssigned(plain.map()[k])) ++clutter;
  }
  return clutter;
}

TEST(RobustGridClutter, PlainMapperGivesClutterANodeAndTheRobustOneDoesNot) {
  BoardPlan plan;
  plan.noise = 0.5;
  plan.missing = 0.05;
  plan.clutter = 0.25;
  for (unsigned seed = 1; seed <= 3; ++seed) {
    plan.seed = seed;
    const Board board = makeBoard(plan);
    // Every missing dot's node lies inside the board, so the plain mapping snaps the
    // nearest clutter point to it.
    EXPECT_GT(plainClutterOnNodes(board, plan), 0);
    mvRobustGridMapResult robust;
    mfRobustGridMap(board.points, paramsFor(plan), robust);
    ASSERT_TRUE(robust.valid()) << robust.reason();
    const Strict s = checkStrict(board, robust.map());
    EXPECT_TRUE(s.exact()) << s.unassigned << " unassigned, " << s.wrong << " wrong, "
                           << s.clutterAssigned << " clutter";
  }
}

TEST(RobustGridClutter, EachNodeHoldsAtMostOnePoint) {
  BoardPlan plan;
  plan.noise = 1.0;
  plan.clutter = 0.5;
  plan.corners = 0.05;
  const Board board = makeBoard(plan);
  // A second point right beside each of ten dots: only the nearer of the two may stay.
  Board doubled = board;
  for (std::size_t k = 0;
       k < board.points.size() && doubled.points.size() < board.points.size() + 10; ++k) {
    if (!board.truth[k]) continue;
    doubled.points.push_back(board.points[k] + mvVector<2>(3.0, 0.0));
    doubled.truth.push_back(std::nullopt);
  }
  mvRobustGridMapResult r;
  mfRobustGridMap(doubled.points, paramsFor(plan), r);
  ASSERT_TRUE(r.valid()) << r.reason();
  std::set<std::pair<long, long>> nodes;
  for (const mvPair<long>& n : r.map()) {
    if (isAssigned(n)) {
      EXPECT_TRUE(nodes.insert({n.x(), n.y()}).second) << "a node twice";
    }
  }
  EXPECT_EQ(static_cast<long>(nodes.size()), r.count());
}

TEST(RobustGridClutter, ResidualsAreThoseOfTheHomography) {
  BoardPlan plan;
  plan.noise = 1.0;
  plan.clutter = 0.2;
  plan.corners = 0.1;
  const Board board = makeBoard(plan);
  mvRobustGridMapResult r;
  mfRobustGridMap(board.points, paramsFor(plan), r);
  ASSERT_TRUE(r.valid()) << r.reason();
  ASSERT_EQ(r.residuals().size(), board.points.size());
  long assigned = 0;
  for (std::size_t k = 0; k < board.points.size(); ++k) {
    if (!isAssigned(r.map()[k])) {
      EXPECT_EQ(r.residuals()[k], -1.0);
      continue;
    }
    ++assigned;
    const mvVector<2> node(static_cast<double>(r.map()[k].x()),
                           static_cast<double>(r.map()[k].y()));
    EXPECT_NEAR(r.residuals()[k], (board.points[k] - r.homography().a2b(node)).len(), 1e-9);
    // Noise of 1 px per axis: no assigned point lies 6 px off.
    EXPECT_LT(r.residuals()[k], 6.0);
  }
  EXPECT_EQ(assigned, r.count());
  EXPECT_EQ(r.numUnassigned(), static_cast<long>(board.points.size()) - assigned);
  // The noise level is near the 1 px of the board.
  EXPECT_GT(r.sigma(), 0.7);
  EXPECT_LT(r.sigma(), 1.3);
}

}  // namespace
