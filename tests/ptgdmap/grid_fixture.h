// Synthetic dot grids for the point-to-grid mapping tests: a grid of known pose with
// noise, missing dots and clutter, and the check of a mapping against the truth.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <random>
#include <vector>

#include "ptmatch/ptgdmap.h"

namespace grid_fixture {

constexpr double kPi = 3.141592653589793;

/// How to make a grid: nominal grid vectors, the true pose relative to them, and how
/// much to spoil it.
struct GridSpec {
  long columns = 10;
  long rows = 10;
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

/// The nominal grid vectors of a spec: (pitch, 0) and (0, pitch).
inline mvVector<2> nominalX(const GridSpec& s) { return mvVector<2>(s.pitch, 0.0); }
inline mvVector<2> nominalY(const GridSpec& s) { return mvVector<2>(0.0, s.pitch); }

inline Grid makeGrid(const GridSpec& s) {
  std::mt19937 rng(s.seed);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double a = s.rotationDegrees * kPi / 180.0;
  const mvXform<2> linear(mvVector<2>(0.0, 0.0), mvRadian(a), mvRadian(a), s.scale * s.pitch,
                          s.scale * s.pitch);
  Grid g;
  g.trueGrid2point = mvXform<2>(linear.matrix(), s.origin);
  std::vector<std::pair<mvVector<2>, std::optional<mvPair<long>>>> all;
  for (long j = 0; j < s.rows; ++j) {
    for (long i = 0; i < s.columns; ++i) {
      if (s.staggered && (i + j) % 2 != 0) continue;
      if (unit(rng) < s.missing) continue;
      mvVector<2> p = g.trueGrid2point * mvVector<2>(static_cast<double>(i), static_cast<double>(j));
      p += mvVector<2>((2.0 * unit(rng) - 1.0) * s.noise * s.pitch,
                       (2.0 * unit(rng) - 1.0) * s.noise * s.pitch);
      all.emplace_back(p, mvPair<long>(i, j));
    }
  }
  const long clutterCount = static_cast<long>(s.clutter * static_cast<double>(all.size()));
  for (long k = 0; k < clutterCount; ++k) {
    const mvVector<2> g2(unit(rng) * static_cast<double>(s.columns - 1),
                         unit(rng) * static_cast<double>(s.rows - 1));
    all.emplace_back(g.trueGrid2point * g2, std::nullopt);
  }
  std::shuffle(all.begin(), all.end(), rng);
  for (const auto& e : all) {
    g.points.push_back(e.first);
    g.truth.push_back(e.second);
  }
  return g;
}

inline bool isAssigned(const mvPair<long>& n) {
  return n.x() != mvPtToGridMapResult::kUnassigned || n.y() != mvPtToGridMapResult::kUnassigned;
}

/// Checks a mapping against the truth. The mapping fixes the index origin at the point
/// it started from, and keeps the axes of the given grid vectors; so every dot must be
/// assigned its true node plus one common shift (of even index sum for a staggered grid).
/// A clutter point, when assigned, must get a node whose true position is about as near
/// to it as its nearest node (within tieMargin pitches).
inline void expectMatchesTruth(const GridSpec& spec, const Grid& grid,
                               const mvPtToGridMapResult& result, double tieMargin) {
  ASSERT_EQ(result.map().size(), grid.points.size());
  std::optional<mvPair<long>> shift;
  for (std::size_t k = 0; k < grid.points.size(); ++k) {
    const mvPair<long>& got = result.map()[k];
    if (!grid.truth[k]) continue;
    ASSERT_TRUE(isAssigned(got)) << "dot " << k << " was not assigned";
    const mvPair<long> d = got - *grid.truth[k];
    if (!shift) shift = d;
    ASSERT_EQ(d, *shift) << "dot " << k << " at true node (" << grid.truth[k]->x() << ", "
                         << grid.truth[k]->y() << ") got (" << got.x() << ", " << got.y()
                         << ")";
  }
  ASSERT_TRUE(shift.has_value());
  if (spec.staggered) EXPECT_EQ((shift->x() + shift->y()) % 2, 0);
  for (std::size_t k = 0; k < grid.points.size(); ++k) {
    const mvPair<long>& got = result.map()[k];
    if (grid.truth[k] || !isAssigned(got)) continue;
    const mvVector<2> at = grid.trueGrid2point * mvVector<2>(got - *shift);
    // The nearest lattice node by the true pose.
    const mvXform<2> point2grid = grid.trueGrid2point.inverse();
    const mvVector<2> t = point2grid * grid.points[k];
    double best = 1e300;
    for (long dj = -1; dj <= 2; ++dj) {
      for (long di = -1; di <= 2; ++di) {
        const long i = static_cast<long>(std::floor(t.x())) + di;
        const long j = static_cast<long>(std::floor(t.y())) + dj;
        if (spec.staggered && ((i + j) % 2 + 2) % 2 != 0) continue;
        const mvVector<2> n = grid.trueGrid2point * mvVector<2>(static_cast<double>(i),
                                                                static_cast<double>(j));
        best = std::min(best, (n - grid.points[k]).len());
      }
    }
    EXPECT_LE((at - grid.points[k]).len(), best + tieMargin * spec.pitch)
        << "clutter point " << k << " was snapped to a far node";
  }
}

}  // namespace grid_fixture
