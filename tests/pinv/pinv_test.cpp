// The pseudo-inverse fitter: accumulating observations, solving without disturbing the
// sums, resetting, resizing and the archive layout.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "pinv/fitter_bytes.h"
#include "ptmatch/pinv.h"

using namespace archive_bytes;
using fitter_bytes::emptyFitter;

namespace {

/// A well-conditioned least-squares solve loses only a few units in the last place.
constexpr double kSolveTolerance = 1e-9;

}  // namespace

TEST(PsuedoInverse, UnitObservationsFitTheirValues) {
  mvPsuedoInverse fitter(3);
  fitter.update({1, 0, 0}, 2);
  fitter.update({0, 1, 0}, 3);
  fitter.update({0, 0, 1}, 4);
  EXPECT_EQ(fitter.fit(), (std::vector<double>{2, 3, 4}));
}

TEST(PsuedoInverse, AccumulatesTheNormalEquations) {
  mvPsuedoInverse fitter(2);
  fitter.update({1, 2}, 3);
  fitter.update({2, -1}, 1);
  // A^T A = (1 + 4, 2 - 2; 2 - 2, 4 + 1), A^T y = (3 + 2, 6 - 1).
  EXPECT_EQ(fitter.element(0, 0), 5.0);
  EXPECT_EQ(fitter.element(0, 1), 0.0);
  EXPECT_EQ(fitter.element(1, 0), 0.0);
  EXPECT_EQ(fitter.element(1, 1), 5.0);
  EXPECT_EQ(
      store(fitter),
      ByteWriter().u32(1100).u32(1100).u32(2).u32(2).doubles({5, 0, 0, 5}).doubles({5, 5}).bytes());
}

TEST(PsuedoInverse, FitsAnOverdeterminedLineInTheLeastSquaresSense) {
  // y = 1 + 2x sampled without noise at four abscissae.
  mvPsuedoInverse fitter(2);
  for (double x : {-1.0, 0.0, 2.0, 5.0}) fitter.update({1.0, x}, 1.0 + 2.0 * x);
  const std::vector<double> p = fitter.fit();
  EXPECT_NEAR(p[0], 1.0, kSolveTolerance);
  EXPECT_NEAR(p[1], 2.0, kSolveTolerance);
}

TEST(PsuedoInverse, FittingTwiceGivesTheSameResultAndLeavesTheSums) {
  mvPsuedoInverse fitter(2);
  fitter.update({1, 2}, 3);
  fitter.update({3, -1}, 1);
  fitter.update({1, 1}, 0.5);
  const std::vector<unsigned char> before = store(fitter);
  const std::vector<double> first = fitter.fit();
  EXPECT_EQ(store(fitter), before);
  EXPECT_EQ(fitter.fit(), first);
}

TEST(PsuedoInverse, ObservationsCanFollowAFit) {
  mvPsuedoInverse fitter(2);
  fitter.update({1, 0}, 1);
  EXPECT_THROW(fitter.fit(), mvMatrixExt::SingularMatrix);  // the second never seen
  fitter.update({0, 1}, 7);
  EXPECT_EQ(fitter.fit(), (std::vector<double>{1, 7}));
}

TEST(PsuedoInverse, FitAfterResetWithoutObservationsIsSingular) {
  mvPsuedoInverse fitter(3);
  fitter.update({1, 0, 0}, 2);
  fitter.update({0, 1, 0}, 3);
  fitter.update({0, 0, 1}, 4);
  fitter.reset();
  EXPECT_EQ(fitter.numParams(), 3);
  EXPECT_EQ(store(fitter), emptyFitter(3));
  EXPECT_THROW(fitter.fit(), mvMatrixExt::SingularMatrix);
}

TEST(PsuedoInverse, ResizeEmptiesTheSumsAndChangesTheCount) {
  mvPsuedoInverse fitter(2);
  fitter.update({1, 1}, 1);
  fitter.resize(4);
  EXPECT_EQ(fitter.numParams(), 4);
  EXPECT_EQ(fitter.rows(), 4);
  EXPECT_EQ(fitter.cols(), 4);
  EXPECT_EQ(store(fitter), emptyFitter(4));
}

TEST(PsuedoInverse, NoParametersFitToNothing) {
  mvPsuedoInverse fitter(0);
  fitter.update({}, 1.0);
  EXPECT_TRUE(fitter.fit().empty());
}

TEST(PsuedoInverse, LongerRowsUseTheirFirstElements) {
  mvPsuedoInverse fitter(1);
  fitter.update({2, 100}, 6);
  EXPECT_EQ(fitter.fit(), (std::vector<double>{3}));
}

TEST(PsuedoInverse, ShortRowsFailThroughTheAssertion) {
  mvPsuedoInverse fitter(3);
  EXPECT_THROW(fitter.update({1, 2}, 1), mvAssertionError);
  EXPECT_EQ(store(fitter), emptyFitter(3));
}

TEST(PsuedoInverse, NearlyDegenerateSystemsStillSolve) {
  // The second parameter's coefficients are always twice the first's: the normal matrix
  // is singular without having a zero row, so the decomposition goes on (no rank test) and
  // an answer comes back instead of an error.
  mvPsuedoInverse fitter(2);
  fitter.update({1, 2}, 1);
  fitter.update({2, 4}, 2);
  EXPECT_NO_THROW(fitter.fit());
}

TEST(PsuedoInverse, CopiesAreIndependent) {
  mvPsuedoInverse fitter(1);
  fitter.update({1}, 5);
  mvPsuedoInverse copy(fitter);
  copy.update({1}, 9);
  EXPECT_EQ(fitter.fit(), (std::vector<double>{5}));
  EXPECT_EQ(copy.fit(), (std::vector<double>{7}));
  mvPsuedoInverse assigned;
  assigned = fitter;
  EXPECT_EQ(assigned.fit(), (std::vector<double>{5}));
}

TEST(PsuedoInverse, RandomWellConditionedSystemsAreRecovered) {
  std::mt19937 prng(20240611);
  std::uniform_real_distribution<double> coefficient(-1.0, 1.0);
  for (int trial = 0; trial < 20; ++trial) {
    const std::vector<double> truth{coefficient(prng), coefficient(prng), coefficient(prng),
                                    coefficient(prng)};
    mvPsuedoInverse fitter(4);
    for (int i = 0; i < 12; ++i) {
      std::vector<double> row{coefficient(prng), coefficient(prng), coefficient(prng), 1.0};
      double value = 0.0;
      for (int k = 0; k < 4; ++k) value += row[k] * truth[k];
      fitter.update(row, value);
    }
    const std::vector<double> p = fitter.fit();
    for (int k = 0; k < 4; ++k) EXPECT_NEAR(p[k], truth[k], kSolveTolerance) << trial;
  }
}

// --- persistence ---

TEST(PsuedoInverseArchive, EmptyFitterLayout) {
  EXPECT_EQ(store(mvPsuedoInverse(2)), emptyFitter(2));
}

TEST(PsuedoInverseArchive, LoadingRestoresTheSums) {
  mvPsuedoInverse stored(2);
  stored.update({1, 2}, 3);
  stored.update({2, -1}, 1);
  mvPsuedoInverse loaded(5);
  EXPECT_TRUE(loadInto(store(stored), loaded));
  EXPECT_EQ(store(loaded), store(stored));
  EXPECT_EQ(loaded.fit(), stored.fit());
}

TEST(PsuedoInverseArchive, OtherVersionsAreUnknown) {
  std::vector<unsigned char> bytes = store(mvPsuedoInverse(1));
  bytes[0] = 0x4D;  // 1101
  mvPsuedoInverse loaded(1);
  EXPECT_THROW_THAT(
      loadInto(bytes, loaded), mvArchive::UnknownVersion,
      [&](const mvArchive::UnknownVersion& e) { EXPECT_EQ(e.file(), "ptmatch/pinv"); });
}

TEST(PsuedoInverseArchive, UnknownMatrixVersionNamesTheMatrix) {
  std::vector<unsigned char> bytes = store(mvPsuedoInverse(1));
  bytes[4] = 0x4D;  // the matrix part's version becomes 1101
  mvPsuedoInverse loaded(1);
  EXPECT_THROW_THAT(
      loadInto(bytes, loaded), mvArchive::UnknownVersion,
      [&](const mvArchive::UnknownVersion& e) { EXPECT_EQ(e.file(), "ptmatch/matext"); });
}

TEST(PsuedoInverseArchive, MatrixAndRightHandSideOfDifferentSizesAreBadData) {
  const std::vector<unsigned char> bytes = ByteWriter()
                                               .u32(1100)
                                               .u32(1100)
                                               .u32(2)
                                               .u32(2)
                                               .doubles({1, 0, 0, 1})
                                               .doubles({1, 2, 3})
                                               .bytes();
  mvPsuedoInverse loaded(1);
  EXPECT_THROW(loadInto(bytes, loaded), mvArchive::BadData);
  EXPECT_EQ(loaded.numParams(), 1);
  EXPECT_EQ(loaded.rows(), 1);
}

// The fitter's solve goes through the decomposition's pivot habits unguarded: a singular
// normal matrix without a zero row still gives an answer, the one they dictate.
TEST(PsuedoInverseSolve, ProportionalCoefficientsSolveThroughTheRememberedPivotRow) {
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

TEST(PsuedoInverse, ResizingToTheSameCountStillEmptiesTheSums) {
  mvPsuedoInverse fitter(2);
  fitter.update({1, 0}, 3);
  fitter.update({0, 1}, 4);
  fitter.resize(2);
  EXPECT_EQ(fitter.numParams(), 2);
  for (long r = 0; r < 2; ++r)
    for (long c = 0; c < 2; ++c) EXPECT_EQ(fitter.element(r, c), 0.0);
  EXPECT_THROW(fitter.fit(), mvMatrixExt::SingularMatrix);
}
