// Training of the grid corresponder: which pels become probes, in which order, and what
// the trained state holds. Every probe list below was worked out by hand by following the
// boundary pass and the ring pass pel by pel.
#include <gtest/gtest.h>

#include "common/expect_throw.h"
#include "gridcorr/gridcorr_support.h"
#include "ptmatch/gridcorr.h"

namespace {

using namespace gridcorr_test;
using Defs = mv_PointToGridCorresponderDefs;
using TrainParams = mv_PointToGridCorresponderTrainParams;

// --- from an image ---

TEST(GridCorrTrain, ImageWithThreeSetPelsTrains) {
  mv_PointToGridCorresponder corresponder;
  corresponder.train(imageOf({"#..", "..#", ".#."}), TrainParams(false, Defs::ePointFeatures));
  EXPECT_TRUE(corresponder.isTrained());
  EXPECT_EQ(probesOf(corresponder), (Probes{{0, 0, 1}, {2, 1, 1}, {1, 2, 1}}));
}

TEST(GridCorrTrain, ImageWithTwoSetPelsThrowsInsufficientModelPoints) {
  mv_PointToGridCorresponder corresponder;
  EXPECT_THROW_THAT((corresponder.train(imageOf({"#..", "...", "..#"}), TrainParams())),
                    Defs::InsufficientModelPoints, [&](const Defs::InsufficientModelPoints& e) {
                      EXPECT_TRUE(e.message().empty());
                      EXPECT_EQ(e.errorNumber(), 0x10005f06);
                    });
  EXPECT_FALSE(corresponder.isTrained());
}

TEST(GridCorrTrain, FailedImageTrainingReplacesOnlyTheTrainParams) {
  mv_PointToGridCorresponder corresponder;
  corresponder.train(nodesOf({"##", "#."}), TrainParams(false, Defs::ePointFeatures),
                     mvXform<2>::I);
  const Archived before = archivedFields(corresponder);

  const TrainParams staggeredThick(true, Defs::eThickBoundaryFeatures);
  EXPECT_THROW(corresponder.train(imageOf({"#.", ".#"}), staggeredThick),
               Defs::InsufficientModelPoints);

  EXPECT_EQ(corresponder.trainParams(), staggeredThick);
  const Archived after = archivedFields(corresponder);
  EXPECT_EQ(after.probes, before.probes);
  EXPECT_EQ(after.patternRect, before.patternRect);
  EXPECT_EQ(corresponder.pattern().size(), mvPair<long>(2, 2));
}

TEST(GridCorrTrain, ImageNodesCarryTheImageOffset) {
  // Set pels at window (1, 0), (3, 0) and (2, 2) of an image placed at (10, 20).
  mvPelBuffer<unsigned char> image = imageOf({".#.#", "....", "..#."});
  image.offset(mvPair<long>(10, 20));
  const mvXform<2> scaleBy2(mvMatrix<2>(2, 0, 0, 2), mvVector<2>(1, 1));
  image.clientFromImageXform(scaleBy2);

  mv_PointToGridCorresponder corresponder;
  corresponder.train(image, TrainParams(false, Defs::ePointFeatures));

  const Archived fields = archivedFields(corresponder);
  EXPECT_EQ(fields.patternRect, mvRectangle<long>(mvPair<long>(11, 20), mvPair<long>(13, 22)));
  const mvPelBuffer_const<unsigned char>& pattern = corresponder.pattern();
  EXPECT_EQ(pattern.size(), mvPair<long>(3, 3));
  EXPECT_EQ(pattern.offset(), mvPair<long>(11, 20));
  EXPECT_EQ(pattern.clientFromImageXform(), scaleBy2);
  EXPECT_EQ(pattern.get(11, 20), 1);
  EXPECT_EQ(pattern.get(13, 20), 1);
  EXPECT_EQ(pattern.get(12, 22), 1);
  EXPECT_EQ(pattern.get(12, 20), 0);
  EXPECT_EQ(fields.probes, (Probes{{0, 0, 1}, {2, 0, 1}, {1, 2, 1}}));
}

// --- the pattern and its rectangle ---

TEST(GridCorrTrain, PatternHoldsTheNodesAtTheModelsUpperLeftCorner) {
  const mvXform<2> shifted(mvMatrix<2>(1, 0, 0, 1), mvVector<2>(0.5, -2));
  for (Defs::FeatureType feature : {Defs::ePointFeatures, Defs::eBoundaryFeatures}) {
    mv_PointToGridCorresponder corresponder;
    corresponder.train(nodesOf({"#..", "..#"}, mvPair<long>(-3, 4)), TrainParams(false, feature),
                       shifted);
    const mvPelBuffer_const<unsigned char>& pattern = corresponder.pattern();
    EXPECT_EQ(pattern.size(), mvPair<long>(3, 2));
    EXPECT_EQ(pattern.offset(), mvPair<long>(-3, 4));
    EXPECT_EQ(pattern.clientFromImageXform(), shifted);
    EXPECT_EQ(pattern.get(-3, 4), 1);
    EXPECT_EQ(pattern.get(-1, 5), 1);
    EXPECT_EQ(pattern.get(-2, 4), 0);
    EXPECT_EQ(pattern.get(-3, 5), 0);
    // Corners are the extreme nodes: the rectangle is 2 wide and 1 high.
    EXPECT_EQ(archivedFields(corresponder).patternRect,
              mvRectangle<long>(mvPair<long>(-3, 4), mvPair<long>(-1, 5)));
  }
}

TEST(GridCorrTrain, EmptyNodeListIsAnAssertionFailure) {
  mv_PointToGridCorresponder corresponder;
  EXPECT_THROW(corresponder.train(std::vector<mvPair<long>>(), TrainParams(), mvXform<2>::I),
               mvAssertionError);
  EXPECT_FALSE(corresponder.isTrained());
}

// --- point features ---

TEST(GridCorrTrain, PointFeaturesOnA3x3BlockGiveNineNodeProbes) {
  const auto corresponder = trainedOn({"###", "###", "###"}, Defs::ePointFeatures);
  EXPECT_EQ(probesOf(corresponder), (Probes{{0, 0, 1},
                                            {1, 0, 1},
                                            {2, 0, 1},
                                            {0, 1, 1},
                                            {1, 1, 1},
                                            {2, 1, 1},
                                            {0, 2, 1},
                                            {1, 2, 1},
                                            {2, 2, 1}}));
}

TEST(GridCorrTrain, UnknownFeatureValuesBehaveLikePointFeatures) {
  const auto corresponder = trainedOn({"#.#", ".#."}, static_cast<Defs::FeatureType>(7));
  EXPECT_EQ(probesOf(corresponder), (Probes{{0, 0, 1}, {2, 0, 1}, {1, 1, 1}}));
  EXPECT_EQ(corresponder.trainParams().featureType(), static_cast<Defs::FeatureType>(7));
}

TEST(GridCorrTrain, SingleNodeGivesOneProbe) {
  // The node lies on the edge of a 1 x 1 work image.
  for (Defs::FeatureType feature :
       {Defs::ePointFeatures, Defs::eBoundaryFeatures, Defs::eThickBoundaryFeatures}) {
    mv_PointToGridCorresponder corresponder;
    corresponder.train({mvPair<long>(5, -6)}, TrainParams(false, feature), mvXform<2>::I);
    EXPECT_EQ(probesOf(corresponder), (Probes{{0, 0, 1}}));
  }
}

// --- boundary features, square grid ---

TEST(GridCorrTrain, BoundaryFeaturesOnAFilled3x3BlockProbeTheEightOuterNodes) {
  // The centre has no empty side neighbour; there is no empty pel for background probes.
  const auto corresponder = trainedOn({"###", "###", "###"}, Defs::eBoundaryFeatures);
  EXPECT_EQ(
      probesOf(corresponder),
      (Probes{
          {0, 0, 1}, {1, 0, 1}, {2, 0, 1}, {0, 1, 1}, {2, 1, 1}, {0, 2, 1}, {1, 2, 1}, {2, 2, 1}}));
}

TEST(GridCorrTrain, ProbesFollowRowMajorOrderWithBothKindsInterleaved) {
  // Row 1: (0, 1) is marked, the read position then passes it and the centre node, and
  // the column counter runs out before (2, 1) is read: it is never examined.
  const auto corresponder = trainedOn({"#.#", ".#.", "#.#"}, Defs::eBoundaryFeatures);
  EXPECT_EQ(
      probesOf(corresponder),
      (Probes{
          {0, 0, 1}, {1, 0, 0}, {2, 0, 1}, {0, 1, 0}, {1, 1, 1}, {0, 2, 1}, {1, 2, 0}, {2, 2, 1}}));
}

TEST(GridCorrTrain, RingPassReadPositionLagsBehindTheColumnCounter) {
  // Row 0: (0, 0) and (1, 0) are marked; each mark costs a column, so the counter runs
  // out before (2, 0), next to two node probes, is read.
  const auto corresponder = trainedOn({"...#", "####"}, Defs::eBoundaryFeatures);
  EXPECT_EQ(probesOf(corresponder),
            (Probes{{0, 0, 0}, {1, 0, 0}, {3, 0, 1}, {0, 1, 1}, {1, 1, 1}, {2, 1, 1}, {3, 1, 1}}));
}

TEST(GridCorrTrain, UnmarkedEmptyPelHoldsTheReadPositionForTheRestOfTheRow) {
  // (0, 0) has no node-probe neighbour, so the whole of row 0 re-examines it and (2, 0),
  // next to the node at (3, 0), is never read; in row 1 the read position stays on (1, 1),
  // so (3, 1), below that node, is never read either.
  const auto corresponder = trainedOn({"...#", "....", "#..."}, Defs::eBoundaryFeatures);
  EXPECT_EQ(probesOf(corresponder), (Probes{{3, 0, 1}, {0, 1, 0}, {0, 2, 1}, {1, 2, 0}}));
}

// A work image 32 pels wide (or 33) and 4 high: nodes at the right end of rows 0 and 1,
// at column 10 of row 1 and at column 0 of row 3.
mv_PointToGridCorresponder trainedOnWideRows(long lastColumn) {
  mv_PointToGridCorresponder corresponder;
  corresponder.train({{lastColumn, 0}, {10, 1}, {lastColumn, 1}, {0, 3}},
                     TrainParams(false, Defs::eBoundaryFeatures), mvXform<2>::I);
  return corresponder;
}

TEST(GridCorrTrain, LeftTestAtTheFirstPelReadsTheByteBeforeTheRow) {
  // A 32-pel row has no padding at alignment 32, so the byte before row 1 is the last pel
  // of row 0, a node probe. (0, 1) has no node-probe neighbour at column 0, but from
  // column 1 on its left test reads that byte, and it is marked.
  EXPECT_EQ(
      probesOf(trainedOnWideRows(31)),
      (Probes{{31, 0, 1}, {0, 1, 0}, {10, 1, 1}, {31, 1, 1}, {0, 2, 0}, {0, 3, 1}, {1, 3, 0}}));
}

TEST(GridCorrTrain, ByteBeforeAPaddedRowIsPaddingAndMarksNothing) {
  // One pel wider, the rows are padded and the byte before row 1 is a zero padding pel:
  // (0, 1) holds the read position of row 1 unmarked.
  EXPECT_EQ(probesOf(trainedOnWideRows(32)),
            (Probes{{32, 0, 1}, {10, 1, 1}, {32, 1, 1}, {0, 2, 0}, {0, 3, 1}, {1, 3, 0}}));
}

// --- boundary features, staggered grid ---

TEST(GridCorrTrain, StaggeredBoundaryLeavesANodeWithNodesOnAllDiagonalsUnprobed) {
  const auto corresponder = trainedOn({"#.#", ".#.", "#.#"}, Defs::eBoundaryFeatures, true);
  EXPECT_EQ(probesOf(corresponder), (Probes{{0, 0, 1}, {2, 0, 1}, {0, 2, 1}, {2, 2, 1}}));
}

TEST(GridCorrTrain, StaggeredRingProbesAreDiagonalNeighboursOfNodeProbes) {
  // (1, 1) has two empty diagonals and becomes a node probe. In row 2, (0, 2) is its
  // lower-left diagonal and becomes a ring probe. (2, 0), its upper-right diagonal, is
  // never read: the read position of row 0 stays on (1, 0).
  const auto corresponder = trainedOn({"#...#", ".#...", "..#.."}, Defs::eBoundaryFeatures, true);
  EXPECT_EQ(probesOf(corresponder),
            (Probes{{0, 0, 1}, {4, 0, 1}, {1, 1, 1}, {0, 2, 0}, {2, 2, 1}}));
}

// --- thick boundary features ---

TEST(GridCorrTrain, ThickBoundaryOnA5x5BlockProbesTwoLayersOfNodes) {
  // Every node but the centre: the edge and the layer next to it.
  const auto corresponder =
      trainedOn({"#####", "#####", "#####", "#####", "#####"}, Defs::eThickBoundaryFeatures);
  Probes expected;
  for (long y = 0; y < 5; ++y) {
    for (long x = 0; x < 5; ++x) {
      if (x != 2 || y != 2) expected.push_back({x, y, 1});
    }
  }
  EXPECT_EQ(probesOf(corresponder), expected);
}

TEST(GridCorrTrain, ThinBoundaryLeavesTheCentreOfAPlusUnprobed) {
  const auto corresponder = trainedOn({".#.", "###", ".#."}, Defs::eBoundaryFeatures);
  EXPECT_EQ(probesOf(corresponder),
            (Probes{{0, 0, 0}, {1, 0, 1}, {0, 1, 1}, {2, 1, 1}, {0, 2, 0}, {1, 2, 1}}));
}

TEST(GridCorrTrain, ThickBoundaryProbesTheCentreOfAPlus) {
  // The top node marks its lower neighbour, the centre, as a node probe.
  const auto corresponder = trainedOn({".#.", "###", ".#."}, Defs::eThickBoundaryFeatures);
  EXPECT_EQ(probesOf(corresponder),
            (Probes{{0, 0, 0}, {1, 0, 1}, {0, 1, 1}, {1, 1, 1}, {2, 1, 1}, {0, 2, 0}, {1, 2, 1}}));
}

TEST(GridCorrTrain, ThickRingMarksTheEmptySideNeighboursOfARingProbe) {
  // (0, 1) sits above a node probe and is marked; being thick, its empty neighbours above
  // (0, 0), already passed, and to the right (1, 1) are marked too.
  const auto corresponder = trainedOn({"..#", "...", "###"}, Defs::eThickBoundaryFeatures);
  EXPECT_EQ(probesOf(corresponder),
            (Probes{{0, 0, 0}, {2, 0, 1}, {0, 1, 0}, {1, 1, 0}, {0, 2, 1}, {1, 2, 1}, {2, 2, 1}}));
}

TEST(GridCorrTrain, ThinRingOfTheSameModelLeavesThePassedPelAboveUnmarked) {
  // (0, 0) was passed in row 0 with no node-probe neighbour; only thick marking reaches
  // back to it. (1, 1) is marked here in its own turn, above the node probe (1, 2).
  const auto corresponder = trainedOn({"..#", "...", "###"}, Defs::eBoundaryFeatures);
  EXPECT_EQ(probesOf(corresponder),
            (Probes{{2, 0, 1}, {0, 1, 0}, {1, 1, 0}, {0, 2, 1}, {1, 2, 1}, {2, 2, 1}}));
}

// --- state ---

TEST(GridCorrTrain, NewCorresponderIsUntrainedWithDefaultParams) {
  const mv_PointToGridCorresponder corresponder;
  EXPECT_FALSE(corresponder.isTrained());
  EXPECT_FALSE(corresponder.trainParams().staggered());
  EXPECT_EQ(corresponder.trainParams().featureType(), Defs::eBoundaryFeatures);
  EXPECT_FALSE(corresponder.pattern().isBound());
}

TEST(GridCorrTrain, UntrainForgetsProbesButKeepsThePattern) {
  auto corresponder = trainedOn({"##", "#."}, Defs::ePointFeatures);
  corresponder.untrain();
  EXPECT_FALSE(corresponder.isTrained());
  EXPECT_EQ(corresponder.pattern().size(), mvPair<long>(2, 2));
  EXPECT_EQ(corresponder.pattern().get(1, 0), 1);
  EXPECT_EQ(corresponder.trainParams().featureType(), Defs::ePointFeatures);
  const Archived fields = archivedFields(corresponder);
  EXPECT_TRUE(fields.probes.empty());
  EXPECT_EQ(fields.patternRect, mvRectangle<long>(mvPair<long>(0, 0), mvPair<long>(1, 1)));
}

TEST(GridCorrTrain, SecondTrainingReplacesEverything) {
  auto corresponder = trainedOn({"###", "###"}, Defs::ePointFeatures);
  corresponder.train(nodesOf({"#.", ".#", "#."}, mvPair<long>(4, 4)),
                     TrainParams(true, Defs::eBoundaryFeatures), mvXform<2>::I);
  EXPECT_TRUE(corresponder.trainParams().staggered());
  EXPECT_EQ(corresponder.pattern().size(), mvPair<long>(2, 3));
  EXPECT_EQ(corresponder.pattern().offset(), mvPair<long>(4, 4));
  const Archived fields = archivedFields(corresponder);
  EXPECT_EQ(fields.patternRect, mvRectangle<long>(mvPair<long>(4, 4), mvPair<long>(5, 6)));
  EXPECT_EQ(fields.probes, (Probes{{0, 0, 1}, {1, 1, 1}, {0, 2, 1}}));
}

TEST(GridCorrTrain, CopyAndAssignmentCarryEveryField) {
  const auto original = trainedOn({"#.#", ".#."}, Defs::eBoundaryFeatures, true);
  const mv_PointToGridCorresponder copy(original);
  mv_PointToGridCorresponder assigned;
  assigned = original;
  for (const mv_PointToGridCorresponder* c :
       {&copy, static_cast<const mv_PointToGridCorresponder*>(&assigned)}) {
    EXPECT_TRUE(c->isTrained());
    EXPECT_EQ(c->trainParams(), original.trainParams());
    const Archived fields = archivedFields(*c);
    const Archived expected = archivedFields(original);
    EXPECT_EQ(fields.probes, expected.probes);
    EXPECT_EQ(fields.patternRect, expected.patternRect);
    // Image buffers share their pels when copied.
    EXPECT_EQ(c->pattern().pointToRow(0), original.pattern().pointToRow(0));
  }
}

TEST(GridCorrTrain, CopyIsIndependentOfLaterTraining) {
  auto original = trainedOn({"###"}, Defs::ePointFeatures);
  const mv_PointToGridCorresponder copy(original);
  original.untrain();
  EXPECT_TRUE(copy.isTrained());
  EXPECT_EQ(probesOf(copy).size(), 3u);
}

// Training from node positions stores its parameters first, before it reads the first
// node: an empty list fails its precondition with the new parameters already in place,
// and the probes of the earlier training are left as they were.
TEST(GridCorrTrain, TrainingFromNoNodesStoresTheParamsBeforeFailing) {
  auto corresponder = trainedOn({"##", "#."}, Defs::ePointFeatures);
  const TrainParams staggeredThick(true, Defs::eThickBoundaryFeatures);
  EXPECT_THROW(corresponder.train(std::vector<mvPair<long>>(), staggeredThick, mvXform<2>::I),
               mvAssertionError);
  EXPECT_EQ(corresponder.trainParams(), staggeredThick);
  EXPECT_EQ(probesOf(corresponder), (Probes{{0, 0, 1}, {1, 0, 1}, {0, 1, 1}}));
}

}  // namespace
