// Pose hypotheses from local shapes: each point with its two nearest neighbours makes a
// triangle whose side ratio and angle do not change under a similarity, so model and data
// triangles of the same shape propose poses, and the poses that many triangles agree on
// are refined by iterated nearest-point fits. The work grows as n log n, so this is how
// the planned search starts on large point sets.
#pragma once

#include <vector>

#include "mvbase/geometry.h"
#include "ptmatch/ppmatch.h"

namespace ptmatch {
namespace detail {
namespace planned {

/// A refined pose hypothesis and the model points it brings within tolerance of data.
struct PoseHypothesis {
  mvXform<2> pose;
  long support = 0;
};

/// Up to maxHypotheses poses within params' rotation and scale ranges (and translation
/// ranges, where bounded), best supported first. tolerance is the distance within which a
/// model point counts as landing on a data point (the model's grid size is a fair choice).
std::vector<PoseHypothesis> shapeHypotheses(const std::vector<mvVector<2>>& model,
                                            const std::vector<mvVector<2>>& data,
                                            const mvPointMatcherRunParams& params, double tolerance,
                                            std::size_t maxHypotheses);

}  // namespace planned
}  // namespace detail
}  // namespace ptmatch
