// The grid corresponder keeps its trained state out of its public header: the object is one
// pointer to its state. Moving a corresponder copies it, so a moved-from one keeps its
// probes and pattern.
#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "gridcorr/gridcorr_support.h"
#include "ptmatch/gridcorr.h"

namespace {

using namespace gridcorr_test;
using Defs = mv_PointToGridCorresponderDefs;

TEST(GridCorrState, TheObjectIsOnePointerToItsState) {
  EXPECT_EQ(sizeof(mv_PointToGridCorresponder), sizeof(std::unique_ptr<int>));
}

TEST(GridCorrState, MoveConstructionLeavesTheSourceTrained) {
  mv_PointToGridCorresponder source = trainedOn({"#..", "..#", ".#."}, Defs::ePointFeatures);
  const mv_PointToGridCorresponder target(std::move(source));
  const Probes expected{{0, 0, 1}, {2, 1, 1}, {1, 2, 1}};
  EXPECT_EQ(probesOf(target), expected);
  EXPECT_TRUE(source.isTrained());
  EXPECT_EQ(probesOf(source), expected);
  EXPECT_EQ(source.pattern().width(), 3);
}

TEST(GridCorrState, MoveAssignmentLeavesTheSourceTrained) {
  mv_PointToGridCorresponder source = trainedOn({"#..", "..#", ".#."}, Defs::ePointFeatures);
  mv_PointToGridCorresponder target;
  target = std::move(source);
  EXPECT_TRUE(target.isTrained());
  EXPECT_TRUE(source.isTrained());
  EXPECT_EQ(probesOf(source), probesOf(target));
}

}  // namespace
