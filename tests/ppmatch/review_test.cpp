// Behaviour pinned down by a line-by-line review of the point matcher's records, its
// training and its pattern-trained paths.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "common/expect_throw.h"
#include "ppmatch/pattern_support.h"
#include "ptmatch/ppmatch.h"

using namespace pattern_test;

namespace {

using Defs = mvPointMatcherDefs;

}  // namespace

// The root of the family is registered and made like every other error, so rethrowing one
// must keep its type: a handler of the family still catches the copy.
TEST(ReviewErrors, TheRootErrorRethrowsACopyOfItsOwnType) {
  std::unique_ptr<mvPersistent> made(mv_Instantiator::create("mvPointMatcherDefs::Errors"));
  auto* root = dynamic_cast<Defs::Errors*>(made.get());
  ASSERT_NE(root, nullptr);
  made.release();  // suicideAndRethrow destroys the object itself
  EXPECT_THROW_MESSAGE(root->suicideAndRethrow(), Defs::Errors, L"");

  mvException* withMessage = new Defs::Errors(L"root\n");
  EXPECT_THROW_MESSAGE(withMessage->suicideAndRethrow(), Defs::Errors, L"root\n");
}

// Image training creates the grid corresponder and lists the pattern cells before it
// trains the nested matcher; when that last step fails, its error passes out and what was
// set before stays, so the matcher is partly trained: it has its corresponder (and so
// reports ePointToGrid and gives its pattern back) and its cells.
//
// Three dots at x = 0, 2, 4 of a 5 x 1 image are staggered (no edge neighbours) and sparse
// (fewer than 10), so a nested matcher is trained from their client positions. A pitch of
// 1e308 makes (2, 0) and (4, 0) land on +infinity, which point training refuses.
TEST(ReviewImageTraining, AFailingNestedTrainingLeavesTheMatcherPartlyTrained) {
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
