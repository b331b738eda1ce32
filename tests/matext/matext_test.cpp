// The extended matrix: storage, checked access, the LU and Gauss-Jordan solvers with their
// deliberate pivoting, the empty invert and the archive layout.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "ptmatch/matext.h"

using namespace archive_bytes;

namespace {

/// A matrix from its rows.
mvMatrixExt matrixOf(const std::vector<std::vector<double>>& rows) {
  mvMatrixExt m(static_cast<long>(rows.size()), static_cast<long>(rows.front().size()));
  for (long r = 0; r < m.rows(); ++r)
    for (long c = 0; c < m.cols(); ++c) m.element(r, c, rows[r][c]);
  return m;
}

/// Solving a well-conditioned system loses only a few units in the last place.
constexpr double kSolveTolerance = 1e-12;

}  // namespace

// --- storage and access ---

TEST(MatrixExt, DefaultIsEmptyAndUnbound) {
  mvMatrixExt m;
  EXPECT_EQ(m.rows(), 0);
  EXPECT_EQ(m.cols(), 0);
  EXPECT_FALSE(m.isBound());
}

TEST(MatrixExt, BoundOnlyWhenBothSizesAreNonZero) {
  EXPECT_TRUE(mvMatrixExt(2, 3).isBound());
  EXPECT_FALSE(mvMatrixExt(2, 0).isBound());
  EXPECT_FALSE(mvMatrixExt(0, 2).isBound());
}

TEST(MatrixExt, ResizeOfAMatrixThatHeldValuesYieldsAllZeros) {
  mvMatrixExt m = matrixOf({{1, 2}, {3, 4}});
  m.resize(2, 3);
  EXPECT_EQ(m.rows(), 2);
  EXPECT_EQ(m.cols(), 3);
  for (long r = 0; r < 2; ++r)
    for (long c = 0; c < 3; ++c) EXPECT_EQ(m.element(r, c), 0.0);
  m.element(1, 1, 5.0);
  m.resize(2, 3);  // same shape: still discarded
  EXPECT_EQ(m.element(1, 1), 0.0);
}

TEST(MatrixExt, ElementsAreStoredRowByRow) {
  mvMatrixExt m = matrixOf({{1, 2, 3}, {4, 5, 6}});
  const double* row1 = m.pointToRow(1);
  ASSERT_NE(row1, nullptr);
  EXPECT_EQ(row1[0], 4.0);
  EXPECT_EQ(row1[2], 6.0);
  EXPECT_EQ(m.pointToRow(0) + 3, row1);
}

TEST(MatrixExt, IndexingReturnsACopyOfTheRow) {
  mvMatrixExt m = matrixOf({{1, 2, 3}, {4, 5, 6}});
  std::vector<double> row = m[1];
  EXPECT_EQ(row, (std::vector<double>{4, 5, 6}));
  row[0] = 99.0;
  EXPECT_EQ(m.element(1, 0), 4.0);
}

TEST(MatrixExt, PointToRowIsNullWithoutData) {
  mvMatrixExt m(2, 0);
  EXPECT_EQ(m.pointToRow(1), nullptr);
}

TEST(MatrixExt, IndicesOutsideTheMatrixFailThroughTheAssertion) {
  mvMatrixExt m(2, 3);
  EXPECT_THROW(m.element(2, 0, 1.0), mvAssertionError);
  EXPECT_THROW(m.element(0, 3, 1.0), mvAssertionError);
  EXPECT_THROW(m.element(-1, 0, 1.0), mvAssertionError);
  EXPECT_THROW(static_cast<void>(m.element(0, -1)), mvAssertionError);
  EXPECT_THROW(static_cast<void>(m.element(2, 0)), mvAssertionError);
  EXPECT_THROW(m.pointToRow(2), mvAssertionError);
  EXPECT_THROW(static_cast<void>(m[-1]), mvAssertionError);
  EXPECT_THROW(m.resize(-1, 2), mvAssertionError);
}

TEST(MatrixExt, AssertionNamesTheModule) {
  mvMatrixExt m(1, 1);
  EXPECT_THROW_THAT(m.element(5, 5, 0.0), mvAssertionError,
                    [&](const mvAssertionError& e) { EXPECT_EQ(e.module(), "ptmatch/matext"); });
}

TEST(MatrixExt, CopiesAreIndependent) {
  mvMatrixExt m = matrixOf({{1, 2}, {3, 4}});
  mvMatrixExt copy(m);
  copy.element(0, 0, 9.0);
  EXPECT_EQ(m.element(0, 0), 1.0);
  mvMatrixExt assigned;
  assigned = m;
  EXPECT_EQ(assigned.element(1, 1), 4.0);
}

TEST(MatrixExt, InvertLeavesTheMatrixBitForBitUnchanged) {
  mvMatrixExt m = matrixOf({{1.5, -0.0}, {std::nan(""), 1e300}});
  const std::vector<unsigned char> before = store(m);
  m.invert();
  EXPECT_EQ(store(m), before);
}

// --- LU decomposition ---

TEST(MatrixExtLu, SolvesASquareSystem) {
  // 2x + y + z = 5, 4x - 6y = -2, -2x + 7y + 2z = 9 has the solution (1, 1, 2).
  mvMatrixExt a = matrixOf({{2, 1, 1}, {4, -6, 0}, {-2, 7, 2}});
  std::vector<long> indx;  // ludcmp sizes it
  a.ludcmp(indx);
  ASSERT_EQ(indx.size(), 3u);
  std::vector<double> b{5, -2, 9};
  a.lubksb(indx, b);
  EXPECT_NEAR(b[0], 1.0, kSolveTolerance);
  EXPECT_NEAR(b[1], 1.0, kSolveTolerance);
  EXPECT_NEAR(b[2], 2.0, kSolveTolerance);
}

TEST(MatrixExtLu, EqualRowsKeepThePreviousPivotRowAndExchangeUpwards) {
  // Column 0 picks row 0 (the tie goes to the first row). In column 1 the only candidate
  // is 2 - 1 * 2 = 0, so the remembered row 0 stays the pivot row and rows 1 and 0 are
  // exchanged: the rows become (1, 0) and (1, 2).
  mvMatrixExt a = matrixOf({{1, 2}, {1, 2}});
  std::vector<long> indx;
  EXPECT_NO_THROW(a.ludcmp(indx));
  EXPECT_EQ(indx, (std::vector<long>{0, 0}));
  EXPECT_EQ(a.element(0, 0), 1.0);
  EXPECT_EQ(a.element(0, 1), 0.0);
  EXPECT_EQ(a.element(1, 0), 1.0);
  EXPECT_EQ(a.element(1, 1), 2.0);
}

TEST(MatrixExtLu, ZeroPivotIsReplacedByTheTinyPivot) {
  // No candidate of column 0 exceeds 0: row 0 stays the pivot row and a(0, 0) becomes
  // 1e-40; column 1 then picks row 1.
  mvMatrixExt a = matrixOf({{0, 1}, {0, 1}});
  std::vector<long> indx;
  EXPECT_NO_THROW(a.ludcmp(indx));
  EXPECT_EQ(indx, (std::vector<long>{0, 1}));
  EXPECT_EQ(a.element(0, 0), 1e-40);
  EXPECT_EQ(a.element(1, 0), 0.0);
  EXPECT_EQ(a.element(1, 1), 1.0);
}

TEST(MatrixExtLu, TiedScaledCandidatesGoToTheFirstRowAndTheColumnIsDivided) {
  // Row scales 1/3 and 1/5: both candidates of column 0 weigh exactly 1, so row 0 (the
  // first) stays the pivot. The multiplier is 5 / 3 by division, which differs in the
  // last place from 5 * (1 / 3).
  ASSERT_NE(5.0 / 3.0, 5.0 * (1.0 / 3.0));
  mvMatrixExt a = matrixOf({{3, 1}, {5, 1}});
  std::vector<long> indx;
  a.ludcmp(indx);
  EXPECT_EQ(indx, (std::vector<long>{0, 1}));
  EXPECT_EQ(a.element(1, 0), 5.0 / 3.0);
}

TEST(MatrixExtLu, RowOfZerosIsSingular) {
  mvMatrixExt a = matrixOf({{1, 2}, {0, 0}});
  std::vector<long> indx;
  EXPECT_THROW(a.ludcmp(indx), mvMatrixExt::SingularMatrix);
}

TEST(MatrixExtLu, SingularMatrixIsAMathError) {
  mvMatrixExt a(2, 2);
  std::vector<long> indx;
  EXPECT_THROW(a.ludcmp(indx), mvMathError);
}

TEST(MatrixExtLu, NonSquareMatricesAreRejected) {
  mvMatrixExt a(2, 3);
  std::vector<long> indx;
  EXPECT_THROW(a.ludcmp(indx), mvMatrixExt::NotSquareMatrix);
  std::vector<double> b{1, 2};
  EXPECT_THROW(a.lubksb({0, 1}, b), mvMatrixExt::NotSquareMatrix);
}

TEST(MatrixExtLu, BackSubstitutionDividesByTheDiagonal) {
  mvMatrixExt a = matrixOf({{3}});
  std::vector<long> indx;
  a.ludcmp(indx);
  std::vector<double> b{5};
  a.lubksb(indx, b);
  EXPECT_EQ(b[0], 5.0 / 3.0);
}

TEST(MatrixExtLu, ForwardPassSkipsTheLeadingZerosOfB) {
  // A decomposed matrix whose multiplier below row 0 is infinite: with b = (0, 1) the
  // forward sum of row 1 starts at its own element, so inf * 0 is never formed.
  mvMatrixExt lu = matrixOf({{1, 0}, {std::numeric_limits<double>::infinity(), 1}});
  std::vector<double> b{0, 1};
  lu.lubksb({0, 1}, b);
  EXPECT_EQ(b[0], 0.0);
  EXPECT_EQ(b[1], 1.0);
}

TEST(MatrixExtLu, PermutationAndRightHandSideMustFitTheMatrix) {
  mvMatrixExt a = matrixOf({{1, 0}, {0, 1}});
  std::vector<double> shortB{1};
  EXPECT_THROW(a.lubksb({0, 1}, shortB), mvAssertionError);
  std::vector<double> b{1, 2};
  EXPECT_THROW(a.lubksb({0}, b), mvAssertionError);
  EXPECT_THROW(a.lubksb({0, 7}, b), mvAssertionError);
}

TEST(MatrixExtLu, EmptyMatrixDecomposesToNothing) {
  mvMatrixExt a;
  std::vector<long> indx{4, 5};
  a.ludcmp(indx);
  EXPECT_TRUE(indx.empty());
  std::vector<double> b;
  a.lubksb(indx, b);
  EXPECT_TRUE(b.empty());
}

// --- Gauss-Jordan elimination ---

TEST(MatrixExtGaussJordan, ReplacesTheMatrixByItsInverseAndSolvesEachColumn) {
  // The inverse of (4 7; 2 6) is (6 -7; -2 4) / 10.
  mvMatrixExt a = matrixOf({{4, 7}, {2, 6}});
  mvMatrixExt b = matrixOf({{11, 4}, {8, 2}});  // columns: A (1, 1) and A (1, 0)
  a.gaussj(b);
  EXPECT_NEAR(a.element(0, 0), 0.6, kSolveTolerance);
  EXPECT_NEAR(a.element(0, 1), -0.7, kSolveTolerance);
  EXPECT_NEAR(a.element(1, 0), -0.2, kSolveTolerance);
  EXPECT_NEAR(a.element(1, 1), 0.4, kSolveTolerance);
  EXPECT_NEAR(b.element(0, 0), 1.0, kSolveTolerance);
  EXPECT_NEAR(b.element(1, 0), 1.0, kSolveTolerance);
  EXPECT_NEAR(b.element(0, 1), 1.0, kSolveTolerance);
  EXPECT_NEAR(b.element(1, 1), 0.0, kSolveTolerance);
}

TEST(MatrixExtGaussJordan, InvertsAThreeByThreeWithColumnInterchanges) {
  mvMatrixExt a = matrixOf({{0, 2, 1}, {1, 0, 0}, {3, 0, 1}});
  const mvMatrixExt original = a;
  mvMatrixExt b(3, 0);
  a.gaussj(b);
  for (long r = 0; r < 3; ++r) {
    for (long c = 0; c < 3; ++c) {
      double sum = 0.0;
      for (long k = 0; k < 3; ++k) sum += original.element(r, k) * a.element(k, c);
      EXPECT_NEAR(sum, r == c ? 1.0 : 0.0, kSolveTolerance) << r << ", " << c;
    }
  }
}

TEST(MatrixExtGaussJordan, AmongEqualCandidatesTheLastExaminedWins) {
  // All of 3, 3, 3 tie; searched row by row, the last is (1, 1). Pivoting there first,
  // row 1 becomes (1, 1/3) and row 0 (-2, -1); the second pivot -2 gives row 0
  // (-0.5, 0.5) and leaves 1/3 - 0.5 (an exact difference) at (1, 1), one unit in the
  // last place away from the nearest double to -1/6, which the first candidate would give.
  mvMatrixExt a = matrixOf({{1, 3}, {3, 3}});
  mvMatrixExt b(2, 1);
  a.gaussj(b);
  EXPECT_EQ(a.element(0, 0), -0.5);
  EXPECT_EQ(a.element(0, 1), 0.5);
  EXPECT_EQ(a.element(1, 0), 0.5);
  EXPECT_EQ(a.element(1, 1), 1.0 / 3.0 - 0.5);
  EXPECT_NE(a.element(1, 1), -1.0 / 6.0);
}

// The Gauss-Jordan pivot search order, shown by a result that depends on it only through
// the sign of a zero.
TEST(MatrixExtGaussJordan, TheSearchRunsRowByRowAndColumnByColumnWithinARow) {
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

TEST(MatrixExtGaussJordan, ZeroPivotIsSingular) {
  mvMatrixExt a = matrixOf({{1, 2}, {2, 4}});
  mvMatrixExt b(2, 1);
  EXPECT_THROW(a.gaussj(b), mvMatrixExt::SingularMatrix);
}

TEST(MatrixExtGaussJordan, ColumnOfZerosIsSingular) {
  mvMatrixExt a = matrixOf({{0, 1}, {0, 2}});
  mvMatrixExt b(2, 1);
  EXPECT_THROW(a.gaussj(b), mvMatrixExt::SingularMatrix);
}

TEST(MatrixExtGaussJordan, ShapesMustAgree) {
  mvMatrixExt notSquare(2, 3);
  mvMatrixExt b(2, 1);
  EXPECT_THROW(notSquare.gaussj(b), mvAssertionError);
  mvMatrixExt a = matrixOf({{1, 0}, {0, 1}});
  mvMatrixExt wrongRows(3, 1);
  EXPECT_THROW(a.gaussj(wrongRows), mvAssertionError);
}

// --- persistence ---

TEST(MatrixExtArchive, EmptyMatrixIsVersionSizesAndAnEmptyVector) {
  const std::vector<unsigned char> expected =
      ByteWriter().u32(1100).u32(0).u32(0).u8(0).u32(0).bytes();
  EXPECT_EQ(store(mvMatrixExt()), expected);
}

TEST(MatrixExtArchive, ColumnsComeBeforeRowsThenTheElementsRowByRow) {
  const std::vector<unsigned char> expected =
      ByteWriter().u32(1100).u32(3).u32(2).doubles({1, 2, 3, 4, 5, 6}).bytes();
  EXPECT_EQ(store(matrixOf({{1, 2, 3}, {4, 5, 6}})), expected);
}

TEST(MatrixExtArchive, LoadingRestoresTheMatrix) {
  mvMatrixExt loaded(5, 5);
  EXPECT_TRUE(loadInto(store(matrixOf({{1, 2, 3}, {4, 5, 6}})), loaded));
  EXPECT_EQ(loaded.rows(), 2);
  EXPECT_EQ(loaded.cols(), 3);
  EXPECT_EQ(loaded[1], (std::vector<double>{4, 5, 6}));
}

TEST(MatrixExtArchive, OtherVersionsAreUnknown) {
  const std::vector<unsigned char> bytes =
      ByteWriter().u32(1101).u32(0).u32(0).u8(0).u32(0).bytes();
  mvMatrixExt m;
  EXPECT_THROW_THAT(
      loadInto(bytes, m), mvArchive::UnknownVersion,
      [&](const mvArchive::UnknownVersion& e) { EXPECT_EQ(e.file(), "ptmatch/matext"); });
}

TEST(MatrixExtArchive, SizesThatDisagreeWithTheElementsAreBadData) {
  mvMatrixExt m = matrixOf({{7}});
  EXPECT_THROW(loadInto(ByteWriter().u32(1100).u32(2).u32(2).doubles({1, 2, 3}).bytes(), m),
               mvArchive::BadData);
  EXPECT_THROW(
      loadInto(ByteWriter().u32(1100).u32(0xFFFFFFFF).u32(0xFFFFFFFF).doubles({1}).bytes(), m),
      mvArchive::BadData);
  EXPECT_EQ(m.rows(), 1);
  EXPECT_EQ(m.element(0, 0), 7.0);
}

TEST(MatrixExtArchive, ACountBeyondTheBytesLeftIsRejectedBeforeAllocating) {
  mvMatrixExt m;
  const std::vector<unsigned char> bytes =
      ByteWriter().u32(1100).u32(50000).u32(50000).u8(0).u32(2500000000u).bytes();
  EXPECT_THROW(loadInto(bytes, m), mvArchive::Errors);
}

// --- errors ---

TEST(MatrixExtErrors, AreRegisteredByName) {
  std::unique_ptr<mvPersistent> singular(mv_Instantiator::create("mvMatrixExt::SingularMatrix"));
  EXPECT_NE(dynamic_cast<mvMatrixExt::SingularMatrix*>(singular.get()), nullptr);
  std::unique_ptr<mvPersistent> notSquare(mv_Instantiator::create("mvMatrixExt::NotSquareMatrix"));
  EXPECT_NE(dynamic_cast<mvMatrixExt::NotSquareMatrix*>(notSquare.get()), nullptr);
}

TEST(MatrixExtErrors, RethrowKeepsTheType) {
  mvException* error = new mvMatrixExt::SingularMatrix();
  EXPECT_THROW(error->suicideAndRethrow(), mvMatrixExt::SingularMatrix);
}

TEST(MatrixExtErrors, PersistWithAClassVersionAndTheirMessage) {
  mvMatrixExt::SingularMatrix stored;
  mvMemoryArchive out;
  stored.dispatchSerialize(out);
  ASSERT_FALSE(out.bytes().empty());
  EXPECT_EQ(out.bytes()[0], 0);  // the class version byte
  EXPECT_EQ(roundTripError(stored).message(), stored.message());
}
