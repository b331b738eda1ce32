// The scale and rotation lattices of the coarse search. Both are walked by accumulation
// (value = low; value += step while value <= high), so rounding may drop the last value.
#pragma once

#include "mvbase/geometry.h"
#include "ppmatch/model.h"

namespace ptmatch {
namespace detail {

/// A lattice of values lo, lo + step, ... while the value is at most hi.
struct Lattice {
  double lo;
  double hi;
  double step;
};

/// Calls visit(value) for each value of the lattice, accumulating the step. A step too
/// small to advance the value ends the walk.
template <typename Visit>
void walkLattice(const Lattice& lattice, Visit&& visit) {
  double value = lattice.lo;
  while (value <= lattice.hi) {
    visit(value);
    const double next = value + lattice.step;
    if (!(next > value)) break;
    value = next;
  }
}

/// Like walkLattice, but stops as soon as visit(value) returns false.
template <typename Visit>
void walkLatticeWhile(const Lattice& lattice, Visit&& visit) {
  double value = lattice.lo;
  while (value <= lattice.hi) {
    if (!visit(value)) return;
    const double next = value + lattice.step;
    if (!(next > value)) break;
    value = next;
  }
}

/// The scales: centred on the middle of 1 + scaleUncertainty, step 1.5 x gridSize / radius;
/// a range narrower than one step gives its middle alone.
Lattice scaleLattice(const mvRange& scaleUncertainty, double gridSize,
                     const mv_PointMatcherModel& model);

/// The rotation step in degrees at a scale: the angle under which two grid cells appear at
/// the model radius. Pi is taken as 3.1415926 here, as the lattice always has been.
double rotationStep(double gridSize, const mv_PointMatcherModel& model, double scale);

/// The rotations in degrees at a scale: k steps either side of the range's middle (of 0
/// for the full circle), k = trunc(half range / step) + 1; a range narrower than half a
/// step gives its middle alone.
Lattice rotationLattice(const mvAngleRange& rotationUncertainty, double gridSize,
                        const mv_PointMatcherModel& model, double scale);

}  // namespace detail
}  // namespace ptmatch
