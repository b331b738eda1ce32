// The Gauss-Jordan pivot search order, shown by a result that depends on it only through
// the sign of a zero.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ptmatch/matext.h"

TEST(MatrixExtGaussJordanOrder, TheSearchRunsRowByRowAndColumnByColumnWithinARow) {
  // (0 1; -1 0): the candidates of magnitude 1 are (0, 1) and (1, 0). Searched row by row,
  // (1, 0) comes last and wins: rows 1 and 0 are exchanged, the pivot -1 turns row 0 into
  // (-1, -0), the second pivot 1 at (1, 1) subtracts 1 * -0 from that -0, which gives +0,
  // and undoing the column interchange yields (+0 -1; 1 0). Searched column by column,
  // (0, 1) would come last and the same element would end as -0.
  mvMatrixExt a(2, 2);
  a.element(0, 1, 1.0);
  a.element(1, 0, -1.0);
  mvMatrixExt b(2, 1);
  a.gaussj(b);
  EXPECT_EQ(a.element(0, 0), 0.0);
  EXPECT_FALSE(std::signbit(a.element(0, 0)));
  EXPECT_EQ(a.element(0, 1), -1.0);
  EXPECT_EQ(a.element(1, 0), 1.0);
  EXPECT_EQ(a.element(1, 1), 0.0);
}
