// Training the point matcher from a dot-pattern image: the staggered test, the cell
// count, the corresponder trained with point features, the cells in scan order, the
// sparseness rule and the nested matcher, bad input, and copying and archiving the
// trained state.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "ppmatch/pattern_support.h"

using namespace pattern_test;

namespace {

using Defs = mvPointMatcherDefs;
using CorrDefs = mv_PointToGridCorresponderDefs;

mvPointMatcher trainedFrom(const mvPelBuffer_const<unsigned char>& image) {
  mvPointMatcher m;
  m.train(image);
  return m;
}

// Every cell x = 0, 2, 4, ... of a one-row image, count cells in all.
Cells dottedRow(long count) {
  Cells cells;
  for (long i = 0; i < count; ++i) cells.emplace_back(2 * i, 0);
  return cells;
}

Points asPoints(const Cells& cells) { return clientPoints(cells, mvXform<2>::I); }

// --- the staggered test, the count and the sparseness rule ---

TEST(PatternTraining, CornersAndCentreOfAThreeByThreeImageAreStaggeredAndSparse) {
  const Cells cells = {{0, 0}, {2, 0}, {1, 1}, {0, 2}, {2, 2}};
  const mvPointMatcher m = trainedFrom(dotImage(3, 3, cells));

  EXPECT_TRUE(m.isTrained());
  EXPECT_EQ(m.trainMode(), Defs::ePointToGrid);
  const PatternState s = readPatternState(m);
  ASSERT_TRUE(s.hasCorresponder);
  EXPECT_TRUE(s.corresponder.isTrained());
  EXPECT_TRUE(s.corresponder.trainParams().staggered());
  EXPECT_EQ(s.corresponder.trainParams().featureType(), CorrDefs::ePointFeatures);
  EXPECT_EQ(s.cellCount, 5);
  EXPECT_EQ(s.cells, cells);
  ASSERT_TRUE(s.hasNested);
  mvPointMatcher nested = s.nested;
  ASSERT_TRUE(nested.isTrained());
  EXPECT_EQ(nested.trainMode(), Defs::ePointToPoint);
  EXPECT_EQ(nested.modelPoints(), asPoints(cells));
}

TEST(PatternTraining, AFullFourByFourImageIsNeitherStaggeredNorSparse) {
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, blockCells(4, 4)));

  const PatternState s = readPatternState(m);
  EXPECT_FALSE(s.corresponder.trainParams().staggered());
  EXPECT_EQ(s.cellCount, 16);
  EXPECT_EQ(s.cells, blockCells(4, 4));
  ASSERT_TRUE(s.hasNested) << "every image training creates the nested matcher";
  EXPECT_FALSE(s.nested.isTrained());
}

TEST(PatternTraining, ADenseMatcherRunsPointToGrid) {
  // The point-to-grid search needs an explicit capture range to find anything, while the
  // nested point search of a sparse pattern would find these points with an automatic one.
  const mvPointMatcher m = trainedFrom(dotImage(4, 4, blockCells(4, 4)));
  Points data;
  for (const mvPair<long>& c : blockCells(4, 4)) data.push_back(at(c) + mvVector<2>(5, 5));

  mvPointMatcherResultSet automatic;
  m.run(data, mvPointMatcherRunParams(), automatic);
  EXPECT_TRUE(automatic.results().empty());

  mvPointMatcherResultSet explicitRange;
  m.run(data, denseParams(1.0), explicitRange);
  ASSERT_EQ(explicitRange.results().size(), 1u);
  EXPECT_EQ(explicitRange.results()[0].coverage(), 1.0);
}

TEST(PatternTraining, ADottedLineOfTwelvePixelsTwoApartIsStaggeredAndSparse) {
  const Cells cells = dottedRow(12);
  const mvPointMatcher m = trainedFrom(dotImage(23, 1, cells));

  const PatternState s = readPatternState(m);
  EXPECT_TRUE(s.corresponder.trainParams().staggered());
  EXPECT_EQ(s.cellCount, 12);
  mvPointMatcher nested = s.nested;
  ASSERT_TRUE(nested.isTrained()) << "no pixel has a diagonal neighbour";
  EXPECT_EQ(nested.modelPoints(), asPoints(cells));
}

TEST(PatternTraining, TwoPixelsTouchingEdgeToEdgeMakeAPatternNotStaggered) {
  const mvPointMatcher m = trainedFrom(dotImage(4, 3, {{0, 0}, {1, 0}, {3, 2}}));
  EXPECT_FALSE(readPatternState(m).corresponder.trainParams().staggered());
}

TEST(PatternTraining, PixelsTouchingOnlyAtCornersKeepAPatternStaggered) {
  const mvPointMatcher m = trainedFrom(dotImage(4, 3, {{0, 0}, {1, 1}, {3, 2}}));
  EXPECT_TRUE(readPatternState(m).corresponder.trainParams().staggered());
}

TEST(PatternTraining, NinePixelsAreSparseWhateverTheirNeighbours) {
  const PatternState s = readPatternState(trainedFrom(dotImage(3, 3, blockCells(3, 3))));
  EXPECT_FALSE(s.corresponder.trainParams().staggered());
  mvPointMatcher nested = s.nested;
  ASSERT_TRUE(nested.isTrained());
  EXPECT_EQ(nested.modelPoints().size(), 9u);
}

TEST(PatternTraining, TenPixelsWithOneEdgeNeighbourEachAreSparse) {
  // Five dominoes: every pixel has exactly one set edge neighbour.
  const Cells dominoes = {{0, 0}, {1, 0}, {3, 0}, {4, 0}, {6, 0},
                          {7, 0}, {0, 2}, {1, 2}, {3, 2}, {4, 2}};
  const PatternState s = readPatternState(trainedFrom(dotImage(8, 3, dominoes)));
  EXPECT_FALSE(s.corresponder.trainParams().staggered());
  EXPECT_EQ(s.cellCount, 10);
  EXPECT_TRUE(s.nested.isTrained());
}

TEST(PatternTraining, OnePixelWithTwoEdgeNeighboursMakesTenPixelsDense) {
  // Pixel (1, 0) has the set neighbours (0, 0) and (2, 0).
  const Cells cells = {{0, 0}, {1, 0}, {2, 0}, {4, 0}, {5, 0},
                       {7, 0}, {8, 0}, {0, 2}, {1, 2}, {4, 2}};
  const PatternState s = readPatternState(trainedFrom(dotImage(9, 3, cells)));
  EXPECT_EQ(s.cellCount, 10);
  EXPECT_FALSE(s.nested.isTrained());
}

TEST(PatternTraining, AStaggeredPatternCountsDiagonalNeighbours) {
  // A diagonal line touches only at corners, so it is staggered, and each inner pixel has
  // two diagonal neighbours, so it is dense.
  Cells diagonal;
  for (long i = 0; i < 10; ++i) diagonal.emplace_back(i, i);
  const PatternState line = readPatternState(trainedFrom(dotImage(10, 10, diagonal)));
  EXPECT_TRUE(line.corresponder.trainParams().staggered());
  EXPECT_FALSE(line.nested.isTrained());

  const PatternState checker = readPatternState(trainedFrom(dotImage(7, 7, checkerCells(7, 7))));
  EXPECT_TRUE(checker.corresponder.trainParams().staggered());
  EXPECT_EQ(checker.cellCount, 25);
  EXPECT_FALSE(checker.nested.isTrained());
}

// --- cells, model points and the pattern ---

TEST(PatternTraining, ModelPointsAreInClientCoordinates) {
  // Scale 2, then translate by (5, -7): pixel (3, 4) becomes (11, 1).
  const mvXform<2> clientFromImage(mvMatrix<2>(2, 0, 0, 2), mvVector<2>(5, -7));
  const mvPointMatcher m = trainedFrom(dotImage(5, 5, {{0, 0}, {1, 2}, {3, 4}}, clientFromImage));

  const PatternState s = readPatternState(m);
  EXPECT_EQ(s.transform, clientFromImage);
  mvPointMatcher nested = s.nested;
  ASSERT_EQ(nested.modelPoints().size(), 3u);
  EXPECT_EQ(nested.modelPoints()[0], mvVector<2>(5, -7));
  EXPECT_EQ(nested.modelPoints()[1], mvVector<2>(7, -3));
  EXPECT_EQ(nested.modelPoints()[2], mvVector<2>(11, 1));
}

TEST(PatternTraining, CellsLeaveOutTheImageOffsetWhileThePatternKeepsIt) {
  const Cells cells = {{2, 1}, {4, 1}, {3, 3}};
  const mvPointMatcher m = trainedFrom(dotImage(6, 5, cells, mvXform<2>::I, {100, 200}));

  const PatternState s = readPatternState(m);
  EXPECT_EQ(s.cells, cells);
  mvPointMatcher nested = s.nested;
  EXPECT_EQ(nested.modelPoints(), asPoints(cells));

  // The pattern is the set pixels' bounding box, at its place in the image's frame.
  const mvPelBuffer_const<unsigned char>& pattern = m.pattern();
  EXPECT_EQ(pattern.size(), mvPair<long>(3, 3));
  EXPECT_EQ(pattern.offset(), mvPair<long>(102, 201));
  for (long y = 201; y < 204; ++y) {
    for (long x = 102; x < 105; ++x) {
      const bool set = (x == 102 && y == 201) || (x == 104 && y == 201) || (x == 103 && y == 203);
      EXPECT_EQ(pattern.get(x, y), set ? 1 : 0) << x << ", " << y;
    }
  }
}

TEST(PatternTraining, AnyNonzeroPelIsADot) {
  mvPelBuffer<unsigned char> image = dotImage(3, 1, {});
  image.put(0, 0, 255);
  image.put(1, 0, 7);
  image.put(2, 0, 1);
  const PatternState s = readPatternState(trainedFrom(image));
  EXPECT_EQ(s.cellCount, 3);
}

// --- bad input ---

TEST(PatternTraining, TwoSetPixelsAreTooFewAndLeaveTheMatcherUntrained) {
  mvPointMatcher m;
  m.train(Points{{0, 0}, {10, 0}, {0, 10}}, Defs::eAutoDetect);
  EXPECT_THROW_MESSAGE(m.train(dotImage(3, 3, {{0, 0}, {2, 2}})), Defs::InsufficientModelPoints,
                       L"");
  EXPECT_FALSE(m.isTrained());
}

TEST(PatternTraining, ThreeSetPixelsAreEnough) {
  const mvPointMatcher m = trainedFrom(dotImage(3, 1, blockCells(3, 1)));
  EXPECT_TRUE(m.isTrained());
  EXPECT_EQ(m.trainMode(), Defs::ePointToGrid);
}

TEST(PatternTraining, AnUnboundImageIsRefusedLikeAnEmptyOne) {
  mvPointMatcher m = trainedFrom(dotImage(3, 3, blockCells(3, 3)));
  EXPECT_THROW_MESSAGE(m.train(mvPelBuffer<unsigned char>()), Defs::InsufficientModelPoints, L"");
  EXPECT_FALSE(m.isTrained());
  EXPECT_THROW_MESSAGE(m.train(dotImage(4, 4, {})), Defs::InsufficientModelPoints, L"");
}

TEST(PatternTraining, ANonFiniteClientFromImageTransformIsRefused) {
  const double inf = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const mvXform<2>& bad : {mvXform<2>(mvMatrix<2>(inf, 0, 0, 1), mvVector<2>(0, 0)),
                                mvXform<2>(mvMatrix<2>(1, 0, 0, 1), mvVector<2>(0, nan))}) {
    mvPointMatcher m = trainedFrom(dotImage(3, 3, blockCells(3, 3)));
    EXPECT_THROW_MESSAGE(m.train(dotImage(3, 3, blockCells(3, 3), bad)), Defs::BadParams,
                         L"the training image's client-from-image transform must be finite\n");
    EXPECT_FALSE(m.isTrained());
  }
}

TEST(PatternTraining, PatternOfAMatcherNotTrainedFromAnImageThrowsNotTrained) {
  mvPointMatcher m;
  EXPECT_THROW_MESSAGE(m.pattern(), Defs::NotTrained, L"");
  m.train(Points{{0, 0}, {10, 0}, {0, 10}}, Defs::eAutoDetect);
  EXPECT_THROW_MESSAGE(m.pattern(), Defs::NotTrained, L"");
  m.train(Points{{0, 0}, {10, 0}, {0, 10}}, Defs::eExhaustiveMode);
  EXPECT_THROW_MESSAGE(m.pattern(), Defs::NotTrained, L"");
}

// --- retraining and untraining ---

TEST(PatternTraining, TrainingFromPointsReplacesAnImageTraining) {
  mvPointMatcher m = trainedFrom(dotImage(3, 3, blockCells(3, 3)));
  EXPECT_THROW(m.modelPoints(), Defs::NotTrained);
  m.train(Points{{0, 0}, {10, 0}, {0, 10}}, Defs::eAutoDetect);
  EXPECT_EQ(m.trainMode(), Defs::ePointToPoint);
  EXPECT_THROW(m.pattern(), Defs::NotTrained);
  EXPECT_EQ(m.modelPoints().size(), 3u);
}

TEST(PatternTraining, UntrainForgetsThePatternButKeepsTheTransformAndTheCount) {
  const mvXform<2> clientFromImage = pitchOf(10.0);
  mvPointMatcher m = trainedFrom(dotImage(4, 4, blockCells(4, 4), clientFromImage));
  m.untrain();
  EXPECT_FALSE(m.isTrained());
  EXPECT_THROW(m.pattern(), Defs::NotTrained);
  const PatternState s = readPatternState(m);
  EXPECT_FALSE(s.hasCorresponder);
  EXPECT_FALSE(s.hasNested);
  EXPECT_TRUE(s.cells.empty());
  EXPECT_EQ(s.transform, clientFromImage);
  EXPECT_EQ(s.cellCount, 16);
}

// --- copying and archiving carry the image-training state ---

// A sparse and a dense pattern with data that each is found in.
struct Case {
  mvPelBuffer<unsigned char> image;
  Points data;
  mvPointMatcherRunParams params;
};

std::vector<Case> sparseAndDenseCases() {
  const Cells sparse = {{0, 0}, {3, 0}, {5, 1}, {1, 2}, {4, 3}, {0, 4}, {2, 4}};
  Case a{dotImage(6, 5, sparse, pitchOf(10.0)), {}, mvPointMatcherRunParams()};
  a.data = makeScene({sparse, pitchOf(10.0), similarity(40, 30, 5), {}, 0.2, 0, 0, 0, 7}).data;
  Case b{dotImage(5, 5, blockCells(5, 5), pitchOf(10.0)), {}, denseParams(12.0)};
  b.data =
      makeScene({blockCells(5, 5), pitchOf(10.0), similarity(40, 30, 5), {}, 0.2, 0, 0, 0, 7}).data;
  return {a, b};
}

void expectSameState(const mvPointMatcher& a, const mvPointMatcher& b) {
  const PatternState sa = readPatternState(a);
  const PatternState sb = readPatternState(b);
  EXPECT_EQ(sa.hasCorresponder, sb.hasCorresponder);
  EXPECT_EQ(sa.hasNested, sb.hasNested);
  EXPECT_EQ(sa.nested.isTrained(), sb.nested.isTrained());
  EXPECT_EQ(sa.transform, sb.transform);
  EXPECT_EQ(sa.cellCount, sb.cellCount);
  EXPECT_EQ(sa.cells, sb.cells);
  EXPECT_EQ(a.pattern().size(), b.pattern().size());
  EXPECT_EQ(a.pattern().offset(), b.pattern().offset());
}

TEST(PatternCopy, CopiesRunLikeTheOriginal) {
  for (const Case& c : sparseAndDenseCases()) {
    const mvPointMatcher original = trainedFrom(c.image);
    const mvPointMatcher constructed(original);
    mvPointMatcher assigned;
    assigned = original;

    mvPointMatcherResultSet expected, fromConstructed, fromAssigned;
    original.run(c.data, c.params, expected);
    ASSERT_EQ(expected.results().size(), 1u);
    EXPECT_EQ(expected.results()[0].coverage(), 1.0);
    constructed.run(c.data, c.params, fromConstructed);
    assigned.run(c.data, c.params, fromAssigned);
    EXPECT_EQ(constructed.trainMode(), Defs::ePointToGrid);
    EXPECT_EQ(assigned.trainMode(), Defs::ePointToGrid);
    expectSameState(original, constructed);
    expectSameState(original, assigned);
    expectSameResults(expected, fromConstructed);
    expectSameResults(expected, fromAssigned);
  }
}

TEST(PatternArchive, AReloadedMatcherRunsLikeTheOriginal) {
  for (const Case& c : sparseAndDenseCases()) {
    mvPointMatcher original = trainedFrom(c.image);
    const mvPointMatcher reloaded = archive_bytes::roundTrip(original);

    EXPECT_EQ(reloaded.trainMode(), Defs::ePointToGrid);
    expectSameState(original, reloaded);
    mvPointMatcherResultSet expected, actual;
    original.run(c.data, c.params, expected);
    reloaded.run(c.data, c.params, actual);
    ASSERT_EQ(expected.results().size(), 1u);
    expectSameResults(expected, actual);
  }
}

// Image training creates the grid corresponder and lists the pattern cells before it
// trains the nested matcher; when that last step fails, its error passes out and what was
// set before stays, so the matcher is partly trained: it has its corresponder (and so
// reports ePointToGrid and gives its pattern back) and its cells.
//
// Three dots at x = 0, 2, 4 of a 5 x 1 image are staggered (no edge neighbours) and sparse
// (fewer than 10), so a nested matcher is trained from their client positions. A pitch of
// 1e308 makes (2, 0) and (4, 0) land on +infinity, which point training refuses.
TEST(PatternTraining, AFailingNestedTrainingLeavesTheMatcherPartlyTrained) {
  const mvXform<2> hugePitch(mvMatrix<2>(1e308, 0, 0, 1e308), mvVector<2>(0, 0));
  const mvPelBuffer<unsigned char> image = dotImage(5, 1, {{0, 0}, {2, 0}, {4, 0}}, hugePitch);
  mvPointMatcher m;
  EXPECT_THROW(m.train(image), Defs::BadParams);

  EXPECT_TRUE(m.isTrained());
  EXPECT_EQ(m.trainMode(), Defs::ePointToGrid);
  EXPECT_EQ(m.pattern().width(), 5);
  EXPECT_EQ(m.pattern().height(), 1);
  const PatternState s = readPatternState(m);
  EXPECT_TRUE(s.hasCorresponder);
  EXPECT_EQ(s.cellCount, 3);
  EXPECT_EQ(s.cells, (Cells{{0, 0}, {2, 0}, {4, 0}}));
  EXPECT_EQ(s.transform, hugePitch);
  EXPECT_TRUE(s.hasNested) << "created before its training failed";
  EXPECT_FALSE(s.nested.isTrained());
}

}  // namespace
