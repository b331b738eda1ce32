// Grids large enough that the chains of neighbour links run through millions of points:
// the neighbour scores must not exhaust the call stack.
#include <gtest/gtest.h>

#include <vector>

#include "ptmatch/ptgdmap.h"

namespace {

constexpr double kPitch = 10.0;

}  // namespace

// A 2000 x 2000 lattice: the first dot's chain of rightward and downward links holds all
// 4 million dots, and every dot is mapped to its own (column, row) up to a common shift.
TEST(GridMapLongChains, TwoThousandSquaredLatticeMapsCompletely) {
  const long side = 2000;
  std::vector<mvVector<2>> points;
  points.reserve(static_cast<std::size_t>(side * side));
  for (long j = 0; j < side; ++j) {
    for (long i = 0; i < side; ++i) {
      points.emplace_back(kPitch * static_cast<double>(i), kPitch * static_cast<double>(j));
    }
  }
  mvPtToGridMapResult result;
  const long count = mfPtToGridMap(
      points,
      mvPtToGridMapRunParams(mvVector<2>(kPitch, 0.0), mvVector<2>(0.0, kPitch), false, kPitch),
      result);
  EXPECT_EQ(count, side * side);
  EXPECT_TRUE(result.valid());
  // Node (0, 0) is one of the first dots (whichever trial fit best); the rest follow.
  const mvPair<long> shift = result.map()[0];
  long wrong = 0;
  for (long k = 0; k < side * side; ++k) {
    if (result.map()[static_cast<std::size_t>(k)] != mvPair<long>(k % side, k / side) + shift) {
      ++wrong;
    }
  }
  EXPECT_EQ(wrong, 0);
}

// One row of a million dots: each dot's only forward link is to the next, so the seed's
// chain is a million links deep.
TEST(GridMapLongChains, MillionDotRowIsOneChain) {
  const long n = 1000000;
  std::vector<mvVector<2>> points;
  points.reserve(static_cast<std::size_t>(n));
  for (long i = 0; i < n; ++i) points.emplace_back(kPitch * static_cast<double>(i), 5.0);
  mvPtToGridMapResult result;
  const long count = mfPtToGridMap(
      points,
      mvPtToGridMapRunParams(mvVector<2>(kPitch, 0.0), mvVector<2>(0.0, kPitch), false, kPitch),
      result);
  EXPECT_EQ(count, n);
  EXPECT_TRUE(result.valid());
  const mvPair<long> shift = result.map()[0];
  long wrong = 0;
  for (long k = 0; k < n; ++k) {
    if (result.map()[static_cast<std::size_t>(k)] != mvPair<long>(k, 0) + shift) ++wrong;
  }
  EXPECT_EQ(wrong, 0);
}
