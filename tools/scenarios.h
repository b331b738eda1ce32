// The demo's built-in scenarios, made from a fixed seed so every run (and every platform)
// sees the same points: a fiducial-like model found again in noisy, cluttered data, and a
// staggered dot grid to be mapped onto its nodes.
#pragma once

#include <string>
#include <vector>

#include "mvbase/geometry.h"

namespace ptmatch::cli {

/// A model and data made from it under a known pose.
struct FiducialScenario {
  std::vector<mvVector<2>> model;
  std::vector<mvVector<2>> data;
  mvXform<2> truth;           ///< the model-to-data pose the data was made with
  double rotationDeg = 0.0;   ///< the truth's rotation
  double scale = 1.0;         ///< the truth's scale factor
  double noise = 0.0;         ///< standard deviation of each coordinate's noise
  long missing = 0;           ///< model points left out of the data
  long clutter = 0;           ///< data points that belong to no model point
  std::vector<long> trueMap;  ///< per model point the index of its data point, or -1
};

/// A staggered dot grid: node (u, v), u + v even, lies at truth * (u, v).
struct GridScenario {
  std::vector<mvVector<2>> points;
  std::vector<mvPair<long>> trueNodes;  ///< per point its node
  mvXform<2> truth;                     ///< node indices to point coordinates
  mvVector<2> nominalXv;                ///< the pitch vectors a user would state
  mvVector<2> nominalYv;
  double rotationDeg = 0.0;
  double scale = 1.0;
  double noise = 0.0;
  long missing = 0;
};

/// About 40 model points: a ring, four arms of different lengths and an orientation tab;
/// data rotated 37.5 degrees, scaled 1.035, moved, with 0.2 px noise, 3 points missing and
/// 12 clutter points (30 % of the model), in shuffled order.
FiducialScenario makeFiducialScenario();
/// A staggered grid of pitch 10 (nodes with u + v even), rotated 6 degrees, scaled 1.03,
/// with 0.2 px noise and 3 nodes missing.
GridScenario makeGridScenario();

}  // namespace ptmatch::cli
