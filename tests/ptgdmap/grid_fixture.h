// Synthetic dot grids for the point-to-grid mapping tests: a grid of known pose with
// noise, missing dots and clutter, and the check of a mapping against the truth.
//
// What the truth allows: node (0, 0) of a mapping is the dot the growth started from, so
// the indices carry an unknown common shift; the axes themselves follow the given grid
// vectors (the first index along xv, the second along yv, no swap or sign change) as long
// as the true rotation lies within the angle tolerance. In a staggered grid the shift has
// an even index sum, like every node.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "common/seeded_random.h"
#include "ptmatch/ptgdmap.h"

namespace grid_fixture {

constexpr double kPi = 3.141592653589793;

/// How to make a grid: nominal grid vectors of length pitch along x and y, the true pose
/// relative to them, and how much to spoil it.
struct GridSpec {
  long columns = 30;
  long rows = 25;
  double pitch = 10.0;               ///< length of the nominal grid vectors
  mvVector<2> origin{100.0, 200.0};  ///< point of node (0, 0)
  double rotationDegrees = 0.0;      ///< true rotation against the nominal vectors
  double scale = 1.0;                ///< true scale against the nominal vectors
  bool staggered = false;            ///< only nodes with an even index sum carry dots
  double noise = 0.0;                ///< per axis, uniform in [-noise, noise] pitches
  double missing = 0.0;              ///< fraction of dots left out
  double clutter = 0.0;              ///< clutter points per dot, anywhere in the grid's box
  unsigned seed = 1;
};

/// Points with their true nodes (none for clutter), in a shuffled order.
struct Grid {
  std::vector<mvVector<2>> points;
  std::vector<std::optional<mvPair<long>>> truth;
  mvXform<2> trueGrid2point;  ///< where node (i, j) lies, without noise
};

inline mvVector<2> nominalX(const GridSpec& s) { return mvVector<2>(s.pitch, 0.0); }
inline mvVector<2> nominalY(const GridSpec& s) { return mvVector<2>(0.0, s.pitch); }

inline mvVector<2> at(long i, long j) {
  return mvVector<2>(static_cast<double>(i), static_cast<double>(j));
}

inline Grid makeGrid(const GridSpec& s) {
  seeded_random::SeededRandom rng(s.seed);
  auto unit = [&rng] { return rng.uniform(); };
  const mvRadian a(s.rotationDegrees * kPi / 180.0);
  const mvXform<2> linear(mvVector<2>(0.0, 0.0), a, a, s.scale * s.pitch, s.scale * s.pitch);
  Grid g;
  g.trueGrid2point = mvXform<2>(linear.matrix(), s.origin);
  std::vector<std::pair<mvVector<2>, std::optional<mvPair<long>>>> all;
  for (long j = 0; j < s.rows; ++j) {
    for (long i = 0; i < s.columns; ++i) {
      if (s.staggered && (i + j) % 2 != 0) continue;
      if (unit() < s.missing) continue;
      mvVector<2> p = g.trueGrid2point * at(i, j);
      const double dx = (2.0 * unit() - 1.0) * s.noise * s.pitch;
      const double dy = (2.0 * unit() - 1.0) * s.noise * s.pitch;
      p += mvVector<2>(dx, dy);
      all.emplace_back(p, mvPair<long>(i, j));
    }
  }
  const long clutterCount = static_cast<long>(s.clutter * static_cast<double>(all.size()));
  for (long k = 0; k < clutterCount; ++k) {
    const double x = unit() * static_cast<double>(s.columns - 1);
    const double y = unit() * static_cast<double>(s.rows - 1);
    const mvVector<2> inGrid(x, y);
    all.emplace_back(g.trueGrid2point * inGrid, std::nullopt);
  }
  rng.shuffle(all);
  for (const auto& e : all) {
    g.points.push_back(e.first);
    g.truth.push_back(e.second);
  }
  return g;
}

/// The run parameters a caller who knows the nominal grid would give, with the snap size
/// in pitches.
inline mvPtToGridMapRunParams paramsFor(const GridSpec& s, double snapPitches) {
  return mvPtToGridMapRunParams(nominalX(s), nominalY(s), s.staggered, snapPitches * s.pitch);
}

inline bool isAssigned(const mvPair<long>& n) {
  return n.x() != mvPtToGridMapResult::kUnassigned || n.y() != mvPtToGridMapResult::kUnassigned;
}

/// How the dots of a mapping compare with the truth: the most common shift between
/// assigned and true nodes, and the dots that are unassigned or off that shift.
struct DotCheck {
  mvPair<long> shift;
  long unassigned = 0;
  long wrong = 0;
  bool exact() const { return unassigned == 0 && wrong == 0; }
};

inline DotCheck checkDots(const Grid& grid, const mvPtToGridMapResult& result) {
  DotCheck check;
  std::map<std::pair<long, long>, long> shifts;
  long dots = 0;
  for (std::size_t k = 0; k < grid.points.size(); ++k) {
    if (!grid.truth[k]) continue;
    ++dots;
    if (result.map().size() != grid.points.size() || !isAssigned(result.map()[k])) {
      ++check.unassigned;
      continue;
    }
    const mvPair<long> d = result.map()[k] - *grid.truth[k];
    ++shifts[{d.x(), d.y()}];
  }
  long best = 0;
  for (const auto& s : shifts) {
    if (s.second > best) {
      best = s.second;
      check.shift = mvPair<long>(s.first.first, s.first.second);
    }
  }
  check.wrong = dots - check.unassigned - best;
  return check;
}

/// Distance from p to the nearest node of the true lattice (even nodes only if staggered).
inline double distanceToNearestNode(const GridSpec& shape, const Grid& grid, const mvVector<2>& p) {
  const mvVector<2> t = grid.trueGrid2point.inverse() * p;
  double best = 1e300;
  for (long dj = -1; dj <= 2; ++dj) {
    for (long di = -1; di <= 2; ++di) {
      const long i = static_cast<long>(std::floor(t.x())) + di;
      const long j = static_cast<long>(std::floor(t.y())) + dj;
      if (shape.staggered && ((i + j) % 2 + 2) % 2 != 0) continue;
      best = std::min(best, (grid.trueGrid2point * at(i, j) - p).len());
    }
  }
  return best;
}

/// Checks a mapping against the truth: every dot is assigned its true node plus one
/// common shift (of even sum when staggered); a clutter point, when assigned, gets a node
/// whose true position is as near to it as its nearest node up to tieMargin pitches; and
/// grid2point puts each node within fitTolerance pitches of its true position.
inline void expectMatchesTruth(const GridSpec& shape, const Grid& grid,
                               const mvPtToGridMapResult& result, double tieMargin,
                               double fitTolerance) {
  ASSERT_EQ(result.map().size(), grid.points.size());
  const DotCheck check = checkDots(grid, result);
  EXPECT_EQ(check.unassigned, 0) << "dots left unassigned";
  EXPECT_EQ(check.wrong, 0) << "dots assigned off the common shift (" << check.shift.x() << ", "
                            << check.shift.y() << ")";
  if (shape.staggered) {
    EXPECT_EQ((check.shift.x() + check.shift.y()) % 2, 0);
  }
  for (std::size_t k = 0; k < grid.points.size(); ++k) {
    const mvPair<long>& got = result.map()[k];
    if (grid.truth[k] || !isAssigned(got)) continue;
    const mvVector<2> node = grid.trueGrid2point * mvVector<2>(got - check.shift);
    EXPECT_LE((node - grid.points[k]).len(),
              distanceToNearestNode(shape, grid, grid.points[k]) + tieMargin * shape.pitch)
        << "clutter point " << k << " was snapped to a far node";
  }
  EXPECT_TRUE(result.valid());
  for (const mvVector<2>& corner : {at(0, 0), at(shape.columns - 1, 0), at(0, shape.rows - 1),
                                    at(shape.columns - 1, shape.rows - 1)}) {
    const mvVector<2> fitted = result.grid2point() * (corner + mvVector<2>(check.shift));
    EXPECT_LE((fitted - grid.trueGrid2point * corner).len(), fitTolerance * shape.pitch)
        << "grid2point is off at corner (" << corner.x() << ", " << corner.y() << ")";
  }
}

}  // namespace grid_fixture
