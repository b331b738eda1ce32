// A run's capacity (maxNumResults) is checked only where a scan makes its score store: the
// runs that return early, on a single node or on observed nodes no larger than the
// pattern, return false with the time set whatever the capacity.

#include <cmath>

#include <gtest/gtest.h>

#include "gridcorr/gridcorr_support.h"
#include "mvbase/exception.h"
#include "ptmatch/gridcorr.h"

namespace {

using namespace gridcorr_test;
using Defs = mv_PointToGridCorresponderDefs;
using RunParams = mv_PointToGridCorresponderRunParams;
using ResultSet = mv_PointToGridCorresponderResultSet;

// 4 x 3 nodes.
const std::initializer_list<const char*> kModel = {"##.#", "#...", ".##."};

// A result set that a successful run has filled, so that clearing it shows.
ResultSet filledResults(const mv_PointToGridCorresponder& corresponder) {
  ResultSet results;
  EXPECT_TRUE(corresponder.run(nodesOf(kModel), RunParams(), results));
  EXPECT_FALSE(results.results().empty());
  return results;
}

void expectEarlyFalse(bool found, const ResultSet& results) {
  EXPECT_FALSE(found);
  EXPECT_TRUE(results.results().empty());
  EXPECT_TRUE(std::isfinite(results.time()));
  EXPECT_GE(results.time(), 0.0);
}

TEST(GridCorrCapacity, SingleNodeWithCapacityZeroReturnsFalse) {
  const auto corresponder = trainedOn(kModel, Defs::eBoundaryFeatures);
  for (long capacity : {0L, -1L}) {
    ResultSet results = filledResults(corresponder);
    bool found = true;
    EXPECT_NO_THROW(found = corresponder.run({{5, 7}}, RunParams(0.5, 1.0, capacity), results));
    expectEarlyFalse(found, results);
  }
}

TEST(GridCorrCapacity, EmptyNodeListWithCapacityZeroReturnsFalse) {
  const auto corresponder = trainedOn(kModel, Defs::eBoundaryFeatures);
  ResultSet results = filledResults(corresponder);
  bool found = true;
  EXPECT_NO_THROW(
      found = corresponder.run(std::vector<mvPair<long>>(), RunParams(0.5, 1.0, 0), results));
  expectEarlyFalse(found, results);
}

// 9 x 2 nodes: wider than 2 x 2 observed nodes with the run's padding around them.
const std::initializer_list<const char*> kWideModel = {"#..#....#", "#.......#"};

TEST(GridCorrCapacity, ObservedNodesSmallerThanThePatternWithCapacityZeroReturnFalse) {
  const auto corresponder = trainedOn(kWideModel, Defs::eBoundaryFeatures);
  ResultSet results;
  ASSERT_TRUE(corresponder.run(nodesOf(kWideModel), RunParams(), results));
  bool found = true;
  // 2 x 2 nodes against a 4 x 3 pattern: nothing to scan.
  EXPECT_NO_THROW(found = corresponder.run(nodesOf({"##", "##"}), RunParams(0.5, 1.0, 0), results));
  expectEarlyFalse(found, results);

  ASSERT_TRUE(corresponder.run(nodesOf(kWideModel), RunParams(), results));
  found = true;
  EXPECT_NO_THROW(found = corresponder.run(imageOf({"##", "#."}), RunParams(0.5, 1.0, 0), results));
  expectEarlyFalse(found, results);
}

TEST(GridCorrCapacity, CapacityZeroStillFailsWhereTheScanStarts) {
  const auto corresponder = trainedOn(kModel, Defs::eBoundaryFeatures);
  ResultSet results;
  EXPECT_THROW(corresponder.run(nodesOf(kModel), RunParams(0.5, 1.0, 0), results),
               mvAssertionError);
  EXPECT_THROW(corresponder.run(imageOf({"##.#", "#...", ".##."}), RunParams(0.5, 1.0, 0), results),
               mvAssertionError);
}

}  // namespace
