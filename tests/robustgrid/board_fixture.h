// Synthetic dot boards for the robust grid mapping tests: a grid of known pose seen under
// perspective (the board's corners moved), with noise, missing dots and rows, clutter and
// points beside the board, and the strict check of a mapping against the truth.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "ptmatch/robustgrid.h"
#include "ptmatch/tm.h"

namespace board_fixture {

constexpr double kPi = 3.141592653589793;

/// How to make a board.
struct BoardPlan {
  long columns = 12;
  long rows = 9;
  double pitch = 20.0;           ///< pixels between neighbouring nodes, before perspective
  double rotationDegrees = 0.0;  ///< turn of the board
  bool staggered = false;        ///< only nodes with an even index sum carry dots
  double corners = 0.0;          ///< corners moved by up to this part of the board's size
  double noise = 0.0;            ///< Gaussian sigma per axis, in pixels
  double missing = 0.0;          ///< fraction of dots left out
  long missingRow = -1;          ///< a whole row left out (-1: none)
  double clutter = 0.0;          ///< clutter points per dot, inside the board's box
  long outside = 0;              ///< points beside the board (clutter far from it)
  unsigned seed = 1;
};

/// Points with their true nodes (none for clutter), in a shuffled order.
struct Board {
  std::vector<mvVector<2>> points;
  std::vector<std::optional<mvPair<long>>> truth;
  mv2PTm truePose;  ///< node indices to points, without noise
};

inline mvVector<2> at(long i, long j) {
  return mvVector<2>(static_cast<double>(i), static_cast<double>(j));
}

/// The true pose: the board's four corners turned, then each moved at random by up to
/// `corners` of the board's size, and the homography through them.
inline mv2PTm makePose(const BoardPlan& s, std::mt19937& rng) {
  std::uniform_real_distribution<double> unit(-1.0, 1.0);
  const double a = s.rotationDegrees * kPi / 180.0;
  const double w = static_cast<double>(s.columns - 1), h = static_cast<double>(s.rows - 1);
  const double size = std::max(w, h) * s.pitch;
  std::vector<mvVector<2>> grid, image;
  for (const mvVector<2>& c :
       {at(0, 0), at(s.columns - 1, 0), at(0, s.rows - 1), at(s.columns - 1, s.rows - 1)}) {
    const mvVector<2> local((c.x() - 0.5 * w) * s.pitch, (c.y() - 0.5 * h) * s.pitch);
    mvVector<2> turned(std::cos(a) * local.x() - std::sin(a) * local.y(),
                       std::sin(a) * local.x() + std::cos(a) * local.y());
    turned += mvVector<2>(unit(rng), unit(rng)) * (s.corners * size);
    grid.push_back(c);
    image.push_back(turned + mvVector<2>(400.0, 300.0));
  }
  return mv2PTm(grid, image);
}

inline Board makeBoard(const BoardPlan& s) {
  std::mt19937 rng(s.seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::normal_distribution<double> gauss(0.0, 1.0);
  Board b;
  b.truePose = makePose(s, rng);
  std::vector<std::pair<mvVector<2>, std::optional<mvPair<long>>>> all;
  for (long j = 0; j < s.rows; ++j) {
    for (long i = 0; i < s.columns; ++i) {
      if (s.staggered && (i + j) % 2 != 0) continue;
      if (j == s.missingRow || unit(rng) < s.missing) continue;
      const mvVector<2> p =
          b.truePose.a2b(at(i, j)) + mvVector<2>(gauss(rng) * s.noise, gauss(rng) * s.noise);
      all.emplace_back(p, mvPair<long>(i, j));
    }
  }
  // Clutter inside the board, never nearer than 0.35 of the pitch to a node (nearer than
  // that, a point beside a missing dot is the dot as far as anyone can tell).
  const long clutter = static_cast<long>(s.clutter * static_cast<double>(all.size()));
  for (long k = 0; k < clutter;) {
    const mvVector<2> g(unit(rng) * static_cast<double>(s.columns - 1),
                        unit(rng) * static_cast<double>(s.rows - 1));
    double nearest = 1e300;
    for (long dj = -1; dj <= 2; ++dj) {
      for (long di = -1; di <= 2; ++di) {
        const long i = static_cast<long>(std::floor(g.x())) + di;
        const long j = static_cast<long>(std::floor(g.y())) + dj;
        if (s.staggered && ((i + j) % 2 + 2) % 2 != 0) continue;
        nearest = std::min(nearest, (g - at(i, j)).len());
      }
    }
    if (nearest < 0.35) continue;
    all.emplace_back(b.truePose.a2b(g), std::nullopt);
    ++k;
  }
  for (long k = 0; k < s.outside; ++k) {
    const mvVector<2> g(-4.0 - 3.0 * unit(rng), unit(rng) * static_cast<double>(s.rows - 1));
    all.emplace_back(b.truePose.a2b(g), std::nullopt);
  }
  std::shuffle(all.begin(), all.end(), rng);
  for (const auto& e : all) {
    b.points.push_back(e.first);
    b.truth.push_back(e.second);
  }
  return b;
}

inline bool isAssigned(const mvPair<long>& n) {
  return n.x() != mvRobustGridMapResult::kUnassigned || n.y() != mvRobustGridMapResult::kUnassigned;
}

/// How a node map compares with the truth under the most common shift.
struct Strict {
  mvPair<long> shift;
  long unassigned = 0;       ///< dots without a node
  long wrong = 0;            ///< dots off the common shift
  long clutterAssigned = 0;  ///< clutter points given a node
  bool exact() const { return unassigned == 0 && wrong == 0 && clutterAssigned == 0; }
};

/// The dots' true nodes turned or mirrored by one of the 8 signed permutations.
inline mvPair<long> turned(const mvPair<long>& n, int symmetry) {
  const long a = (symmetry & 4) ? n.y() : n.x();
  const long b = (symmetry & 4) ? n.x() : n.y();
  return mvPair<long>((symmetry & 1) ? -a : a, (symmetry & 2) ? -b : b);
}

/// The strict check under one relabelling of the truth (turn or mirror, then shift).
inline Strict checkStrictAs(const Board& board, const std::vector<mvPair<long>>& map,
                            int symmetry) {
  Strict s;
  std::map<std::pair<long, long>, long> shifts;
  long dots = 0;
  for (std::size_t k = 0; k < board.points.size(); ++k) {
    const bool assigned = k < map.size() && isAssigned(map[k]);
    if (!board.truth[k]) {
      if (assigned) ++s.clutterAssigned;
      continue;
    }
    ++dots;
    if (!assigned) {
      ++s.unassigned;
      continue;
    }
    const mvPair<long> d = map[k] - turned(*board.truth[k], symmetry);
    ++shifts[{d.x(), d.y()}];
  }
  long best = 0;
  for (const auto& e : shifts) {
    if (e.second > best) {
      best = e.second;
      s.shift = mvPair<long>(e.first.first, e.first.second);
    }
  }
  s.wrong = dots - s.unassigned - best;
  return s;
}

/// The strict check: every dot at its true node up to one relabelling (the identity, or
/// when `anyTurn` also a turn or mirror of the lattice, and a shift), no clutter on a node.
inline Strict checkStrict(const Board& board, const std::vector<mvPair<long>>& map,
                          bool anyTurn = false) {
  Strict best = checkStrictAs(board, map, 0);
  for (int symmetry = 1; anyTurn && symmetry < 8; ++symmetry) {
    const Strict s = checkStrictAs(board, map, symmetry);
    if (s.wrong < best.wrong) best = s;
  }
  return best;
}

/// The nominal vectors a user states: the pitch along x and y, unturned.
inline mvRobustGridMapParams paramsFor(const BoardPlan& s) {
  return mvRobustGridMapParams(mvVector<2>(s.pitch, 0.0), mvVector<2>(0.0, s.pitch), s.staggered);
}

/// Maps the board and expects every dot at its true node (one common shift) and no
/// clutter on any node.
inline mvRobustGridMapResult expectStrict(const BoardPlan& plan, const mvRobustGridMapParams& p,
                                          bool anyTurn = false) {
  const Board board = makeBoard(plan);
  mvRobustGridMapResult r;
  const long count = mfRobustGridMap(board.points, p, r);
  EXPECT_TRUE(r.valid()) << r.reason();
  const Strict s = checkStrict(board, r.map(), anyTurn);
  EXPECT_EQ(s.unassigned, 0) << "dots left without a node";
  EXPECT_EQ(s.wrong, 0) << "dots off the common shift";
  EXPECT_EQ(s.clutterAssigned, 0) << "clutter points given a node";
  EXPECT_EQ(count, r.count());
  if (plan.staggered) {
    EXPECT_EQ(((s.shift.x() + s.shift.y()) % 2 + 2) % 2, 0);
  }
  return r;
}

}  // namespace board_fixture
