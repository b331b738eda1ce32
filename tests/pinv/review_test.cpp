// The fitter's solve goes through the decomposition's pivot habits unguarded: a singular
// normal matrix without a zero row still gives an answer, the one they dictate.
#include <gtest/gtest.h>

#include <vector>

#include "ptmatch/pinv.h"

TEST(PsuedoInverseReview, ProportionalCoefficientsSolveThroughTheRememberedPivotRow) {
  // Observations (1, 2) -> 1 and (2, 4) -> 2 sum to the normal matrix (5 10; 10 20) and
  // the right-hand side (5, 10). Both rows scale to 0.5 in column 0, so row 0 (the first)
  // is the pivot and the multiplier below it is 10 / 5 = 2. Column 1 leaves
  // 20 - 2 * 10 = 0 as its only candidate, so the remembered row 0 is kept and rows 1 and
  // 0 are exchanged: the factors become (2 0; 5 10) with indx (0, 0). The forward pass
  // turns b into (10, 5 - 5 * 10) = (10, -45); back-substitution gives -45 / 10 = -4.5
  // and (10 - 0 * -4.5) / 2 = 5.
  mvPsuedoInverse fitter(2);
  fitter.update({1, 2}, 1);
  fitter.update({2, 4}, 2);
  EXPECT_EQ(fitter.fit(), (std::vector<double>{5.0, -4.5}));
}

TEST(PsuedoInverseReview, ResizingToTheSameCountStillEmptiesTheSums) {
  mvPsuedoInverse fitter(2);
  fitter.update({1, 0}, 3);
  fitter.update({0, 1}, 4);
  fitter.resize(2);
  EXPECT_EQ(fitter.numParams(), 2);
  for (long r = 0; r < 2; ++r)
    for (long c = 0; c < 2; ++c) EXPECT_EQ(fitter.element(r, c), 0.0);
  EXPECT_THROW(fitter.fit(), mvMatrixExt::SingularMatrix);
}
