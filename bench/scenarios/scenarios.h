// Seeded point-matching and dot-grid scenarios for the benchmarks and the side-by-side
// comparison (bench/compare.py reads them through the ptmatch_scenarios program).
//
// Every scenario is made from (seed, family, case index) alone, with this file's own random
// numbers, so the same arguments give the same points on every platform and compiler.
//
// Point families (a model, data made from it under a known similarity pose, and the search
// ranges a user would state for such a part). Every family but narrow-many leaves the
// translation free: the model may lie anywhere in the data.
//   clean           20-60 points, no noise; rotation +-45 deg, scale 0.9 to 1.1
//   noise           as clean, with Gaussian noise of 0.1 to 1 px per coordinate
//   clutter         as clean with 0.2 px noise, and 10 to 50 % extra data points
//   missing         as clean with 0.2 px noise, 10 to 30 % of the model points left out
//   partial         30-60 points, the part only 60 to 85 % inside the image, 20 % clutter
//   few             4 to 8 points, 0.1 px noise
//   symmetric       rings, square and hexagonal dot arrays (2- to 8-fold symmetric), any
//                   rotation, scale 0.9 to 1.1
//   wide            20-60 points, any rotation, scale 0.8 to 1.25, 0.2 px noise
//   wide-degraded   30-60 points, any rotation, scale 0.8 to 1.25, 0.5 px noise, 25 %
//                   clutter, 15 % of the model points left out
//   many            200 to 2000 points, rotation +-45 deg, scale 0.9 to 1.1, 0.2 px noise,
//                   5 % missing, 5 % clutter
//   two-instances   20-40 points, twice in the data (each under a pose of its own, rotation
//                   +-45 deg, scale 0.9 to 1.1, 0.2 px noise); two results asked
//   narrow-many     as many, but rotation +-10 deg, scale +-2 % and the placement known to
//                   +-50 px (a start pose and translation ranges, as a fixture gives them)
// Grid families (dot centres of a calibration-style grid, each with its true node):
//   grid-symmetric    6-12 x 5-10 dots, rotation +-10 deg, scale +-5 %, noise 2 % of the pitch
//   grid-staggered    4-8 dots per row, 7-13 rows, every other row shifted by half a pitch
//   grid-perspective  mild perspective: the local pitch grows by 4 to 10 % from the centre
//                     to the farthest dot on one side and shrinks as much on the other
//   grid-noise        noise of 6 % of the pitch
//   grid-missing      5 to 15 % of the dots missing
//   grid-clutter      10 to 30 % extra points, none nearer than 0.35 pitch to a node
//   grid-rotation     any rotation
//   grid-strong-perspective  the local pitch changes by 8 to 15 % from the centre to the
//                     farthest dot each way (the corners move by up to about 15 % of the
//                     board's size; 30 % between the far sides)
//   grid-heavy-noise  Gaussian noise of 0.5 to 2.5 px per axis
//   grid-heavy-clutter 25 to 50 % extra points
//   grid-mixed        perspective as 5 % corner moves, noise 0.5 px, 3 % of the dots
//                     missing, 10 % clutter
// The grid families alternate between symmetric and staggered grids where not named.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "../../tests/common/seeded_random.h"
#include "mvbase/geometry.h"
#include "ptmatch/ppmatch.h"

namespace ptmatch_bench {

using Points = std::vector<mvVector<2>>;

/// The seeded random numbers the tests and the tool's demonstration use too.
using Random = seeded_random::SeededRandom;

/// The search ranges a scenario declares, as a user would state them for the part.
struct SearchRanges {
  /// Any rotation; otherwise rotationLo ... rotationHi degrees.
  bool fullRotation = false;
  double rotationLo = -15.0;
  double rotationHi = 15.0;
  /// Relative scale change scaleLo ... scaleHi (0 is the nominal size).
  double scaleLo = 0.0;
  double scaleHi = 0.0;
  /// Where the model is expected: start pose translation (rotation 0, scale 1).
  mvVector<2> start;
  /// Translation uncertainty about start, +-translation in x and y; 0 means anywhere.
  double translation = 0.0;
  /// Least matched fraction of the model that makes a result.
  double minCoverage = 0.7;
  /// Results asked for: the number of instances of the model in the data.
  long maxResults = 1;
};

/// A model, data made from it under a known pose, and what the search is told.
struct PointScenario {
  std::string family;
  long index = 0;
  Points model;
  Points data;
  /// The model-to-data similarity the data were made with (of the first instance).
  mvXform<2> truth;
  /// The pose of every instance of the model in the data, truth first; one but in the
  /// two-instances family.
  std::vector<mvXform<2>> instances;
  /// Per model point the index of its data point in the first instance, -1 for a point
  /// left out.
  std::vector<long> truthMap;
  /// Order of the model's rotational symmetry about its centre; 1 when it has none. For a
  /// symmetric model every pose that differs by a turn of 360 / symmetry degrees is right.
  long symmetry = 1;
  double noise = 0.0;
  /// Model points left out, over all instances.
  long missing = 0;
  long clutter = 0;
  /// Size of the image the data lie in.
  double imageWidth = 640.0;
  double imageHeight = 480.0;
  SearchRanges ranges;
};

/// Marks a grid point that belongs to no node (clutter).
constexpr long kNoNode = 2147483647;

/// Dot centres of a regular grid, each with its true node.
struct GridScenario {
  std::string family;
  long index = 0;
  /// The dot centres and clutter points, in shuffled order.
  Points points;
  /// Per point its node (column, row); (kNoNode, kNoNode) for clutter. In a staggered grid
  /// row r holds the columns of parity r, so every node has an even index sum.
  std::vector<mvPair<long>> nodes;
  bool staggered = false;
  /// Dots per row and rows of the complete pattern (a staggered row of `columns` dots
  /// spans 2 x columns - 1 node columns).
  long columns = 0;
  long rows = 0;
  /// The grid vectors a user states: the nominal pitch along x and y, unrotated. In a
  /// staggered grid they are half the spacing of the dots within a row.
  mvVector<2> xv;
  mvVector<2> yv;
  /// Nominal pitch (length of xv and yv).
  double pitch = 0.0;
  double rotation = 0.0;     ///< true rotation, degrees
  double scale = 1.0;        ///< true scale against the nominal pitch
  double perspective = 0.0;  ///< half the relative pitch change from the centre to the far edge
  double noise = 0.0;        ///< standard deviation, pixels
  long missing = 0;
  long clutter = 0;
  double imageWidth = 0.0;
  double imageHeight = 0.0;
};

/// Names of the point families, in report order.
const std::vector<std::string>& pointFamilies();
/// Names of the grid families, in report order.
const std::vector<std::string>& gridFamilies();

/// Case `index` of a point family; throws std::invalid_argument for an unknown family.
PointScenario makePointScenario(const std::string& family, long index, std::uint32_t seed);
/// Case `index` of a grid family; throws std::invalid_argument for an unknown family.
GridScenario makeGridScenario(const std::string& family, long index, std::uint32_t seed);

/// A scene for cost sweeps: a model of modelPoints points (at least 10 px apart, at a fixed
/// density) and dataPoints data points at the same density: the model's points under a
/// pose (as many as fit, when dataPoints < modelPoints) and uniform clutter. Rotation
/// +-15 degrees, no scale change, translation anywhere.
PointScenario makeSizedScenario(long modelPoints, long dataPoints, std::uint32_t seed);

/// The point matcher's run parameters for a scenario's declared ranges and results asked.
mvPointMatcherRunParams searchParams(const SearchRanges& ranges);

/// A spoiled grid of side x side dots for cost sweeps: rotation 7 deg, scale 1.05, noise
/// 0.05 pitch, 10 % missing, 10 % clutter; symmetric or staggered.
GridScenario makeSizedGrid(long side, bool staggered, std::uint32_t seed);

}  // namespace ptmatch_bench
