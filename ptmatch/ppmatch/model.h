// The point model a matcher keeps after training from points.
#pragma once

#include <vector>

#include "mvbase/archive.h"
#include "mvbase/geometry.h"

/// The model points and the numbers the searches derive from them at training.
class mv_PointMatcherModel {
 public:
  bool trained = false;
  /// Grid size used when the run asks for an automatic one.
  double defaultGridSize = 0.0;
  /// Axis-aligned bounding box of the points.
  mvRectangle<double> boundingBox;
  /// Centre of the bounding box.
  mvVector<2> center;
  /// The model points, in the caller's order.
  std::vector<mvVector<2>> points;
  /// The caller's weights, one per point; empty when trained without weights.
  std::vector<long> weights;
  /// Largest distance from center to a point.
  double radius = 0.0;
  /// Number of points when unweighted; sum of the positive weights when weighted.
  long totalWeight = 0;
};

/// Persists the point model (version word 1; 0, 1 and 200009 are read).
mvArchive& operator||(mvArchive& ar, mv_PointMatcherModel& model);
