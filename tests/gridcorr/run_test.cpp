// The grid corresponder's run: positions, scores, result order, the size test, the
// threshold and its early exit, and the guarded preconditions. Expected positions and
// scores were worked out by hand from the scan, the probe order and the score store's
// iteration order (highest score first, newest first within a score).
#include <cstdint>
#include <set>
#include <utility>

#include <gtest/gtest.h>

#include "common/expect_throw.h"
#include "gridcorr/gridcorr_support.h"
#include "ptmatch/gridcorr.h"

namespace {

using namespace gridcorr_test;
using archive_bytes::store;
using Defs = mv_PointToGridCorresponderDefs;
using TrainParams = mv_PointToGridCorresponderTrainParams;
using RunParams = mv_PointToGridCorresponderRunParams;
using ResultSet = mv_PointToGridCorresponderResultSet;

// An asymmetric model: no shift of it lands on itself.
const std::initializer_list<const char*> kModel = {"##.#", "#...", ".##."};

std::vector<mvPair<long>> shifted(std::vector<mvPair<long>> nodes, mvPair<long> by) {
  for (auto& n : nodes) n = n + by;
  return nodes;
}

// The found flag has no accessor; it is the byte after the version word in the archive.
bool foundFlag(const mv_PointToGridCorresponderResult& r) { return store(r).at(4) != 0; }

// --- finding the pattern ---

TEST(GridCorrRun, ObservedNodesEqualToTheModelGivePositionZeroAndScoreOne) {
  const auto corresponder = trainedOn(kModel, Defs::eBoundaryFeatures);
  ResultSet results;
  EXPECT_TRUE(corresponder.run(nodesOf(kModel), RunParams(), results));
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(0, 0));
  EXPECT_DOUBLE_EQ(results.results()[0].score(), 1.0);
  EXPECT_TRUE(foundFlag(results.results()[0]));
}

TEST(GridCorrRun, ShiftedObservedNodesGiveTheShift) {
  for (Defs::FeatureType feature :
       {Defs::ePointFeatures, Defs::eBoundaryFeatures, Defs::eThickBoundaryFeatures}) {
    const auto corresponder = trainedOn(kModel, feature);
    ResultSet results;
    EXPECT_TRUE(
        corresponder.run(shifted(nodesOf(kModel), mvPair<long>(7, -3)), RunParams(), results));
    ASSERT_EQ(results.results().size(), 1u);
    EXPECT_EQ(results.results()[0].position(), mvPair<long>(7, -3));
    EXPECT_DOUBLE_EQ(results.results()[0].score(), 1.0);
  }
}

TEST(GridCorrRun, ModelAwayFromTheOriginIsFoundByItsTranslation) {
  // The model's own corner is at (10, 10); observed nodes are the model moved by (-4, 5).
  mv_PointToGridCorresponder corresponder;
  corresponder.train(nodesOf(kModel, mvPair<long>(10, 10)), TrainParams(), mvXform<2>::I);
  ResultSet results;
  EXPECT_TRUE(corresponder.run(nodesOf(kModel, mvPair<long>(6, 15)), RunParams(), results));
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(-4, 5));
}

TEST(GridCorrRun, ImageOfObservedNodesIsFoundAtItsOffset) {
  const auto corresponder = trainedOn(kModel, Defs::eBoundaryFeatures);
  mvPelBuffer<unsigned char> image = imageOf({"......", ".##.#.", ".#....", "..##..", "......"});
  image.offset(mvPair<long>(20, 30));
  ResultSet results;
  EXPECT_TRUE(corresponder.run(image, RunParams(), results));
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(21, 31));
  EXPECT_DOUBLE_EQ(results.results()[0].score(), 1.0);
}

TEST(GridCorrRun, ImagePelsOtherThanOneMatchNoNodeProbe) {
  const auto corresponder = trainedOn({"###"}, Defs::ePointFeatures);
  mvPelBuffer<unsigned char> image(5, 3);
  for (long x = 0; x < 3; ++x) image.put(x, 1, 255);
  ResultSet results;
  EXPECT_FALSE(corresponder.run(image, RunParams(), results));
  EXPECT_TRUE(results.results().empty());
}

// --- result order ---

TEST(GridCorrRun, CapacityOneKeepsTheFirstOfEqualBestScoresBySmallerY) {
  // Full copies at (10, 0) and (0, 5): the one in the earlier row wins.
  const auto corresponder = trainedOn({"###"}, Defs::ePointFeatures);
  const std::vector<mvPair<long>> observed = {{10, 0}, {11, 0}, {12, 0}, {0, 5}, {1, 5}, {2, 5}};
  ResultSet results;
  EXPECT_TRUE(corresponder.run(observed, RunParams(0.5, 1.0, 1), results));
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(10, 0));
  EXPECT_DOUBLE_EQ(results.results()[0].score(), 1.0);
}

TEST(GridCorrRun, CapacityOneKeepsTheFirstOfEqualBestScoresInARowBySmallerX) {
  const auto corresponder = trainedOn({"###"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_TRUE(corresponder.run(nodesOf({"###.....###"}, mvPair<long>(0, 3)), RunParams(), results));
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(0, 3));
}

TEST(GridCorrRun, CapacityThreeKeepsTheBestThreeOfFivePositionsDescending) {
  // Model "##", threshold 1: positions 0, 1, 5, 8 and 9 score 2, 1, 1, 2, 1. The store
  // keeps 2 (at 0), 1 (at 1), 1 (at 5); the score 2 at 8 evicts the newer 1 (at 5); the
  // last 1 ties the lowest and is refused. Equal scores come newest first.
  const auto corresponder = trainedOn({"##"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_TRUE(corresponder.run(nodesOf({"##...#..##"}), RunParams(0.5, 1.0, 3), results));
  ASSERT_EQ(results.results().size(), 3u);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(8, 0));
  EXPECT_DOUBLE_EQ(results.results()[0].score(), 1.0);
  EXPECT_EQ(results.results()[1].position(), mvPair<long>(0, 0));
  EXPECT_DOUBLE_EQ(results.results()[1].score(), 1.0);
  EXPECT_EQ(results.results()[2].position(), mvPair<long>(1, 0));
  EXPECT_DOUBLE_EQ(results.results()[2].score(), 0.5);
}

// --- the size test ---

TEST(GridCorrRun, ObservedSetNoWiderThanThePatternAfterPaddingFindsNothing) {
  // Pattern 6 wide: observed width 1 + 5 does not exceed it, whatever the height.
  const auto corresponder = trainedOn({"#.....#"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_FALSE(corresponder.run({{0, 0}, {1, 20}}, RunParams(0.0, 1.0, 1), results));
  EXPECT_TRUE(results.results().empty());
  EXPECT_GE(results.time(), 0.0);
}

TEST(GridCorrRun, ObservedSetNoTallerThanThePatternAfterPaddingFindsNothing) {
  // Pattern 6 high: observed height 1 + 5 does not exceed it, whatever the width.
  const auto corresponder = trainedOn({"#", ".", ".", ".", ".", ".", "#"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_FALSE(corresponder.run({{0, 0}, {20, 1}}, RunParams(0.0, 1.0, 1), results));
  EXPECT_TRUE(results.results().empty());
}

TEST(GridCorrRun, ObservedSetOneWiderThanThePatternAfterPaddingIsScanned) {
  // Width 2 + 5 exceeds 6: one column of positions is scanned. With accept 0 it reports.
  const auto corresponder = trainedOn({"#.....#"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_TRUE(corresponder.run({{0, 0}, {2, 0}}, RunParams(0.0, 1.0, 1), results));
  EXPECT_EQ(results.results().size(), 1u);
}

TEST(GridCorrRun, SingleObservedNodeFindsNothing) {
  const auto corresponder = trainedOn({"#"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_FALSE(corresponder.run({{3, 4}}, RunParams(0.0, 1.0, 1), results));
  EXPECT_FALSE(corresponder.run({{3, 4}, {3, 4}}, RunParams(0.0, 1.0, 1), results));
  EXPECT_TRUE(results.results().empty());
}

TEST(GridCorrRun, OnePelImageFindsNothing) {
  const auto corresponder = trainedOn({"#"}, Defs::ePointFeatures);
  mvPelBuffer<unsigned char> image(1, 1);
  image.put(0, 0, 1);
  ResultSet results;
  EXPECT_FALSE(corresponder.run(image, RunParams(0.0, 1.0, 1), results));
  EXPECT_TRUE(results.results().empty());
}

TEST(GridCorrRun, EmptyNodeListFindsNothing) {
  const auto corresponder = trainedOn({"#"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_FALSE(corresponder.run(std::vector<mvPair<long>>(), RunParams(), results));
  EXPECT_TRUE(results.results().empty());
}

// --- the threshold ---

TEST(GridCorrRun, EarlyExitRejectsPositionsWhoseFirstProbesAllMiss) {
  // Model "###", accept 0.34: threshold 1, the first 2 probes are read first. Observed
  // nodes at 0 and 3. Positions -2 and 1 would reach 1 with their third probe alone, but
  // their first two miss, so they are given up. Reported: -1, 0, 2, 3, newest first.
  const auto corresponder = trainedOn({"###"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_TRUE(corresponder.run(nodesOf({"#..#"}), RunParams(0.34, 1.0, 10), results));
  std::vector<mvPair<long>> positions;
  for (const auto& r : results.results()) {
    positions.push_back(r.position());
    EXPECT_DOUBLE_EQ(r.score(), 1.0 / 3.0);
  }
  EXPECT_EQ(positions, (std::vector<mvPair<long>>{{3, 0}, {2, 0}, {0, 0}, {-1, 0}}));
}

TEST(GridCorrRun, AcceptOneNeedsEveryProbe) {
  const auto corresponder = trainedOn({"###"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_FALSE(corresponder.run(nodesOf({"##.#"}), RunParams(1.0, 1.0, 5), results));
  EXPECT_TRUE(corresponder.run(nodesOf({"###.#"}), RunParams(1.0, 1.0, 5), results));
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(0, 0));
}

TEST(GridCorrRun, AcceptZeroWithCapacityOneReportsScoreZeroAtTheUnsetPosition) {
  // An empty image: no probe agrees anywhere, yet the best score 0 reaches threshold 0.
  // The position never set is scan position (0, 0): offset (-2, -2) + (0, 0) - (0, 0).
  const auto corresponder = trainedOn({"#"}, Defs::ePointFeatures);
  const mvPelBuffer<unsigned char> image(3, 3);
  ResultSet results;
  EXPECT_TRUE(corresponder.run(image, RunParams(0.0, 1.0, 1), results));
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].score(), 0.0);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(-2, -2));
  EXPECT_TRUE(foundFlag(results.results()[0]));
}

TEST(GridCorrRun, AcceptZeroWithLargerCapacityLeavesDefaultResultsAfterAScoreZero) {
  // Model "#": scores 0 fill the store first; the two nodes' score-1 positions evict two of
  // them. Filling stops at the remaining score 0, so the third result stays default.
  const auto corresponder = trainedOn({"#"}, Defs::ePointFeatures);
  ResultSet results;
  EXPECT_TRUE(corresponder.run(nodesOf({"#..#"}), RunParams(0.0, 1.0, 3), results));
  ASSERT_EQ(results.results().size(), 3u);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(3, 0));
  EXPECT_DOUBLE_EQ(results.results()[0].score(), 1.0);
  EXPECT_TRUE(foundFlag(results.results()[0]));
  EXPECT_EQ(results.results()[1].position(), mvPair<long>(0, 0));
  EXPECT_TRUE(foundFlag(results.results()[1]));
  EXPECT_FALSE(foundFlag(results.results()[2]));
  EXPECT_DOUBLE_EQ(results.results()[2].score(), 0.0);
  EXPECT_EQ(results.results()[2].position(), mvPair<long>(0, 0));
}

TEST(GridCorrRun, ConfusionIsNotConsulted) {
  const auto corresponder = trainedOn(kModel, Defs::eBoundaryFeatures);
  ResultSet a;
  ResultSet b;
  corresponder.run(nodesOf(kModel), RunParams(0.5, 1.0, 4), a);
  corresponder.run(nodesOf(kModel), RunParams(0.5, -123.0, 4), b);
  ASSERT_EQ(a.results().size(), b.results().size());
  for (std::size_t i = 0; i < a.results().size(); ++i) {
    EXPECT_EQ(a.results()[i].position(), b.results()[i].position());
    EXPECT_EQ(a.results()[i].score(), b.results()[i].score());
  }
}

// --- guarded preconditions and the result set ---

TEST(GridCorrRun, UntrainedRunIsAnAssertionFailure) {
  mv_PointToGridCorresponder corresponder;
  ResultSet results;
  EXPECT_THROW(corresponder.run(nodesOf(kModel), RunParams(), results), mvAssertionError);
  EXPECT_THROW(corresponder.run(imageOf({"#.", ".#"}), RunParams(), results), mvAssertionError);

  auto untrained = trainedOn(kModel, Defs::eBoundaryFeatures);
  untrained.untrain();
  EXPECT_THROW_THAT(untrained.run(nodesOf(kModel), RunParams(), results), mvAssertionError,
                    [&](const mvAssertionError& e) { EXPECT_EQ(e.module(), "ptmatch/gridcorr"); });
}

TEST(GridCorrRun, MaxNumResultsBelowOneIsAnAssertionFailure) {
  const auto corresponder = trainedOn(kModel, Defs::eBoundaryFeatures);
  ResultSet results;
  EXPECT_THROW(corresponder.run(nodesOf(kModel), RunParams(0.5, 1.0, 0), results),
               mvAssertionError);
  EXPECT_THROW(corresponder.run(nodesOf(kModel), RunParams(0.5, 1.0, -1), results),
               mvAssertionError);
}

TEST(GridCorrRun, AcceptOutsideZeroToOneIsAnAssertionFailure) {
  const auto corresponder = trainedOn(kModel, Defs::eBoundaryFeatures);
  ResultSet results;
  EXPECT_THROW(corresponder.run(nodesOf(kModel), RunParams(1.5, 1.0, 2), results),
               mvAssertionError);
  EXPECT_THROW(corresponder.run(nodesOf(kModel), RunParams(-0.1, 1.0, 2), results),
               mvAssertionError);
}

TEST(GridCorrRun, EveryRunClearsTheResultsAndSetsTheTime) {
  const auto corresponder = trainedOn(kModel, Defs::eBoundaryFeatures);
  ResultSet results;
  ASSERT_TRUE(corresponder.run(nodesOf(kModel), RunParams(), results));
  EXPECT_GE(results.time(), 0.0);
  EXPECT_FALSE(corresponder.run({{0, 0}}, RunParams(), results));
  EXPECT_TRUE(results.results().empty());

  ASSERT_TRUE(corresponder.run(nodesOf(kModel), RunParams(), results));
  EXPECT_THROW(corresponder.run(nodesOf(kModel), RunParams(0.5, 1.0, 0), results),
               mvAssertionError);
  EXPECT_TRUE(results.results().empty());
  EXPECT_EQ(results.time(), 0.0);
}

// --- a pattern in a larger grid ---

// A small deterministic generator, so that the clutter is the same everywhere.
class Lcg {
 public:
  explicit Lcg(std::uint32_t seed) : state_(seed) {}
  std::uint32_t next() {
    state_ = state_ * 1664525u + 1013904223u;
    return state_ >> 8;
  }

 private:
  std::uint32_t state_;
};

// A 10 x 10 dot pattern with no symmetry.
const std::initializer_list<const char*> kTenByTen = {
    "#.#..##..#", ".#...#.#.#", "##.#....#.", "...##.#..#", "#......##.",
    ".#.##.#...", "#...#...##", "..#..#.#..", ".##....#.#", "#..#.#..##"};

// The pattern moved to `at` with three nodes dropped, in a 100 x 100 grid with clutter
// that keeps one empty pel around the pattern.
std::vector<mvPair<long>> clutteredGrid(mvPair<long> at,
                                        const std::set<std::pair<long, long>>& drop) {
  std::vector<mvPair<long>> nodes;
  for (const mvPair<long>& n : nodesOf(kTenByTen)) {
    if (drop.count({n.x(), n.y()}) == 0) nodes.push_back(n + at);
  }
  Lcg random(12345);
  for (long y = 0; y < 100; ++y) {
    for (long x = 0; x < 100; ++x) {
      const bool nearPattern =
          x >= at.x() - 1 && x <= at.x() + 10 && y >= at.y() - 1 && y <= at.y() + 10;
      if (!nearPattern && random.next() % 10 == 0) nodes.push_back(mvPair<long>(x, y));
    }
  }
  return nodes;
}

TEST(GridCorrRun, PatternWithMissingNodesIsFoundInALargerClutteredGrid) {
  // Point features: every node is a probe, so three dropped nodes cost three probes.
  const auto corresponder = trainedOn(kTenByTen, Defs::ePointFeatures);
  const std::size_t modelNodes = nodesOf(kTenByTen).size();
  ASSERT_EQ(modelNodes, 40u);
  const auto observed = clutteredGrid(mvPair<long>(37, 52), {{0, 0}, {4, 3}, {9, 9}});

  ResultSet results;
  EXPECT_TRUE(corresponder.run(observed, RunParams(0.7, 1.0, 5), results));
  ASSERT_FALSE(results.results().empty());
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(37, 52));
  EXPECT_DOUBLE_EQ(results.results()[0].score(), 37.0 * (1.0 / 40.0));
}

TEST(GridCorrRun, BoundaryPatternWithMissingEdgeNodesIsFoundInALargerClutteredGrid) {
  // The dropped nodes lie on the pattern's edge, so each was a node probe; no clutter
  // reaches the pattern's rectangle, so every ring probe still reads 0.
  const auto corresponder = trainedOn(kTenByTen, Defs::eBoundaryFeatures);
  const auto observed = clutteredGrid(mvPair<long>(61, 8), {{0, 0}, {9, 3}, {3, 9}});
  const double n = static_cast<double>(probesOf(corresponder).size());

  ResultSet results;
  EXPECT_TRUE(corresponder.run(observed, RunParams(0.7, 1.0, 1), results));
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].position(), mvPair<long>(61, 8));
  EXPECT_DOUBLE_EQ(results.results()[0].score(), (n - 3.0) * (1.0 / n));
}

}  // namespace
