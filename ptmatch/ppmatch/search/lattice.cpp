#include "ppmatch/search/lattice.h"

#include <cmath>

#include "ppmatch/search/grid_space.h"

namespace ptmatch {
namespace detail {
namespace {

// The lattice's own value of pi, kept so that its steps stay what they always were.
constexpr double kLatticePi = 3.1415926;

// Lowest scale factor searched.
constexpr double kMinScale = 0.1;

// A grid size that is not positive is replaced by the model's default one.
double positiveGridSize(double gridSize, const mv_PointMatcherModel& model) {
  return gridSize > 0.0 ? gridSize : model.defaultGridSize;
}

}  // namespace

Lattice scaleLattice(const mvRange& scaleUncertainty, double gridSize,
                     const mv_PointMatcherModel& model) {
  double lo = 1.0 + scaleUncertainty.start();
  if (lo < kMinScale) lo = kMinScale;
  double hi = 1.0 + scaleUncertainty.end();
  const double step = 1.5 * positiveGridSize(gridSize, model) / model.radius;

  const long n = toCell(std::trunc((hi - lo) / step + 1.0)) / 2;
  const double mid = (lo + hi) / 2.0;
  lo = mid - step * static_cast<double>(n);
  hi = mid + step * static_cast<double>(n);
  if (hi < kMinScale) hi = kMinScale;
  if (hi - lo < step) lo = hi = mid;
  return Lattice{lo, hi, step};
}

double rotationStep(double gridSize, const mv_PointMatcherModel& model, double scale) {
  double step = std::atan2(2.0 * positiveGridSize(gridSize, model), model.radius * scale) * 180.0 /
                kLatticePi;
  if (step < 0.0) step += 360.0;
  return step;
}

Lattice rotationLattice(const mvAngleRange& rotationUncertainty, double gridSize,
                        const mv_PointMatcherModel& model, double scale) {
  double half = 180.0;
  double mid = 0.0;
  if (rotationUncertainty.range() != mvRangeDefs::eFull) {
    half = mvDegree(rotationUncertainty.length()).toDouble() / 2.0;
    mid = mvDegree(rotationUncertainty.middle()).toDouble();
  }
  const double step = rotationStep(gridSize, model, scale);
  const long k = toCell(std::trunc(half / step)) + 1;
  double lo = mid - step * static_cast<double>(k);
  double hi = mid + step * static_cast<double>(k);
  if (2.0 * half < step) lo = hi = mid;
  return Lattice{lo, hi, step};
}

}  // namespace detail
}  // namespace ptmatch
