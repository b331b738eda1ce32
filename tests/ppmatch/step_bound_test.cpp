// The step bound: never below the highest vote of a step (so that skipping the steps it
// rules out is exact), and low enough to rule out steps that miss the data.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include "common/seeded_random.h"
#include "ppmatch/search/grid_space.h"
#include "ppmatch/search/step_bound.h"
#include "ppmatch/search/vote.h"

namespace {

using ptmatch::detail::StepBound;

struct BoundCase {
  mvPelBuffer<unsigned char> occupancy;
  mvPelRect window;
  std::vector<mvPair<long>> projected;
  std::vector<std::int16_t> weights;
};

// A raster of scattered occupied cells (some in 3 x 3 blocks), a window that may start
// left of or above the raster, and points projected around it.
BoundCase randomCase(std::uint32_t seed, bool weighted) {
  seeded_random::SeededRandom random(seed);
  BoundCase c;
  const long width = random.between(3, 60);
  const long height = random.between(3, 60);
  c.occupancy = mvPelBuffer<unsigned char>(width, height);
  const long dots = random.between(1, 40);
  for (long k = 0; k < dots; ++k) {
    const long x = random.between(0, width - 1);
    const long y = random.between(0, height - 1);
    const long reach = random.uniform() < 0.5 ? 1 : 0;
    for (long dy = -reach; dy <= reach; ++dy) {
      for (long dx = -reach; dx <= reach; ++dx) {
        if (x + dx >= 0 && x + dx < width && y + dy >= 0 && y + dy < height) {
          c.occupancy.pointToRow(y + dy)[x + dx] = 1;
        }
      }
    }
  }
  c.window = mvPelRect(random.between(-30, 10), random.between(-30, 10), random.between(0, 70),
                       random.between(0, 70));
  const long points = random.between(2, 30);
  for (long k = 0; k < points; ++k) {
    c.projected.emplace_back(random.between(-20, 40), random.between(-20, 40));
    if (weighted) c.weights.push_back(static_cast<std::int16_t>(random.between(-3, 5)));
  }
  return c;
}

// The highest vote of the case, from the reference vote.
long highestVote(const BoundCase& c) {
  mvPelBuffer<std::int16_t> accumulator(c.window.width() + 1, c.window.height() + 1);
  std::vector<unsigned char> counts;
  ptmatch::detail::voteTranslations(c.occupancy, c.window, c.projected, c.weights, accumulator,
                                    counts);
  long highest = std::numeric_limits<long>::min();
  for (long v = 0; v < accumulator.height(); ++v) {
    for (long u = 0; u < accumulator.width(); ++u) {
      highest = std::max(highest, static_cast<long>(accumulator.pointToRow(v)[u]));
    }
  }
  return highest;
}

TEST(StepBound, NeverBelowTheHighestVote) {
  long ruledOut = 0;
  for (std::uint32_t k = 0; k < 400; ++k) {
    const BoundCase c = randomCase(k, k % 3 == 0);
    const long highest = highestVote(c);
    const long minScore = std::max(1L, highest);
    StepBound bound(c.occupancy, c.window, c.weights);
    // A highest vote below 1 is out of every minimum score's reach (scores are at least 1).
    if (highest >= 1) {
      EXPECT_TRUE(bound.mayReach(c.projected, minScore)) << "case " << k << ", highest " << highest;
    }
    // A fresh bound for the next question, so that every answer is the bound's own.
    StepBound next(c.occupancy, c.window, c.weights);
    if (!next.mayReach(c.projected, minScore + 3)) ++ruledOut;
  }
  EXPECT_GT(ruledOut, 100);  // the bound is not trivially true
}

TEST(StepBound, PointsOffTheRasterReachNothing) {
  BoundCase c = randomCase(7, false);
  for (mvPair<long>& q : c.projected) {
    q = mvPair<long>(ptmatch::detail::kCellLimit, -ptmatch::detail::kCellLimit);
  }
  StepBound bound(c.occupancy, c.window, c.weights);
  EXPECT_FALSE(bound.mayReach(c.projected, 1));
  EXPECT_TRUE(bound.mayReach(c.projected, 0));  // a zero vote reaches 0
}

TEST(StepBound, ScoresBeyondSixteenBitsAreOutOfReach) {
  const BoundCase c = randomCase(11, false);
  StepBound bound(c.occupancy, c.window, c.weights);
  EXPECT_FALSE(bound.mayReach(c.projected, 32768));
}

TEST(StepBound, NarrowWindowsAreNotBounded) {
  // A window of one translation across: the coarse vote has a single column, from which
  // no peak is taken, so every step may reach.
  BoundCase c = randomCase(13, false);
  c.window = mvPelRect(0, 0, 1, 40);
  StepBound bound(c.occupancy, c.window, c.weights);
  EXPECT_TRUE(bound.mayReach(c.projected, 1000));
}

TEST(StepBound, AllOccupiedRasterReachesEveryPointsVote) {
  // Every point meets an occupied cell at every translation: the highest vote is the
  // number of points, and the bound lets exactly that through.
  BoundCase c;
  c.occupancy = mvPelBuffer<unsigned char>(20, 20);
  for (long y = 0; y < 20; ++y)
    std::fill(c.occupancy.pointToRow(y), c.occupancy.pointToRow(y) + 20, 1);
  c.window = mvPelRect(0, 0, 5, 5);
  for (long k = 0; k < 6; ++k) c.projected.emplace_back(k, 2 * k);
  StepBound bound(c.occupancy, c.window, c.weights);
  EXPECT_TRUE(bound.mayReach(c.projected, 6));
  EXPECT_FALSE(bound.mayReach(c.projected, 7));
}

}  // namespace
