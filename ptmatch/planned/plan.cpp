#include "planned/plan.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ptmatch {
namespace detail {
namespace planned {
namespace {

// Share of occupied cells the coarse grid aims at: -ln(1 - 1/3).
constexpr double kOccupancyExponent = 0.405;
// Cells each data point occupies.
constexpr double kCellsPerPoint = 9.0;

// Translation cells, and rotation and scale lattice steps, either side of a coarse match
// that a fine pass searches.
constexpr double kFineTranslationCells = 3.0;
constexpr double kFineLatticeSteps = 2.0;
// Smallest relative scale change a run accepts.
constexpr double kLowestScaleChange = -0.9;

double squaredDistance(const mvVector<2>& a, const mvVector<2>& b) {
  const mvVector<2> d = a - b;
  return d.x() * d.x() + d.y() * d.y();
}

}  // namespace

Box boxOf(const std::vector<mvVector<2>>& points) {
  Box b{points[0].x(), points[0].y(), points[0].x(), points[0].y()};
  for (const mvVector<2>& p : points) {
    b.minX = std::min(b.minX, p.x());
    b.maxX = std::max(b.maxX, p.x());
    b.minY = std::min(b.minY, p.y());
    b.maxY = std::max(b.maxY, p.y());
  }
  return b;
}

double densityGridSize(const std::vector<mvVector<2>>& dataPoints) {
  if (dataPoints.size() < 2) return 0.0;
  const Box b = boxOf(dataPoints);
  const double area = std::max(b.maxX - b.minX, 1e-9) * std::max(b.maxY - b.minY, 1e-9);
  const double n = static_cast<double>(dataPoints.size());
  return std::sqrt(kOccupancyExponent * area / (kCellsPerPoint * n));
}

std::vector<std::size_t> spreadSubset(const std::vector<mvVector<2>>& points, std::size_t count) {
  std::vector<std::size_t> chosen;
  if (points.size() <= count) {
    for (std::size_t i = 0; i < points.size(); ++i) chosen.push_back(i);
    return chosen;
  }
  mvVector<2> centroid;
  for (const mvVector<2>& p : points) centroid = centroid + p;
  centroid = centroid * (1.0 / static_cast<double>(points.size()));
  std::vector<double> nearest(points.size(), std::numeric_limits<double>::infinity());
  std::size_t next = 0;
  for (std::size_t i = 1; i < points.size(); ++i) {
    if (squaredDistance(points[i], centroid) < squaredDistance(points[next], centroid)) next = i;
  }
  while (chosen.size() < count) {
    chosen.push_back(next);
    const mvVector<2>& c = points[next];
    std::size_t farthest = 0;
    double farthestDistance = -1.0;
    for (std::size_t i = 0; i < points.size(); ++i) {
      nearest[i] = std::min(nearest[i], squaredDistance(points[i], c));
      if (nearest[i] > farthestDistance) {
        farthestDistance = nearest[i];
        farthest = i;
      }
    }
    next = farthest;
  }
  std::sort(chosen.begin(), chosen.end());
  return chosen;
}

Neighbourhood neighbourhoodOf(const mvXform<2>& pose, const mvXform<2>& startPose,
                              const mvVector<2>& center) {
  const mvXform<2> relative = startPose.inverse() * pose;
  Neighbourhood n;
  n.offset = relative * center - center;
  n.rotation = mvDegree(relative.rotation()).toDouble();
  n.scaleChange = relative.xScale() - 1.0;
  return n;
}

namespace {

// The written run's lattice keeps its own value of pi.
constexpr double kLatticePi = 3.1415926;
constexpr double kLowestScale = 0.1;

// The fine pass's scale range: the written run's scale lattice values nearest the match and
// up to kFineLatticeSteps either side (within the written lattice), as relative changes; a
// range the written run searches at one scale stays as it is.
mvRange fineScales(const mvRange& user, double scaleChange, double gridSize, double radius) {
  const double lo = std::max(1.0 + user.start(), kLowestScale);
  const double hi = 1.0 + user.end();
  const double step = 1.5 * gridSize / radius;
  const long n = static_cast<long>(std::trunc((hi - lo) / step + 1.0)) / 2;
  if (n == 0 || hi - lo < step) return user;
  const double mid = (lo + hi) / 2.0;
  const long j0 = std::clamp(std::lround((1.0 + scaleChange - mid) / step), -n, n);
  const long w = std::min<long>(static_cast<long>(kFineLatticeSteps), n - std::labs(j0));
  const double centre = mid + static_cast<double>(j0) * step;
  if (w == 0) return mvRange(centre - 1.0, centre - 1.0);
  const double reach = static_cast<double>(w) * step;
  return mvRange(std::max(centre - reach - 1.0, kLowestScaleChange), centre + reach - 1.0);
}

// The fine pass's rotation range: the written run's rotation lattice values (at the match's
// scale) nearest the match and kFineLatticeSteps either side.
mvAngleRange fineRotations(const mvAngleRange& user, double rotation, double scale, double gridSize,
                           double radius) {
  const double step = std::atan2(2.0 * gridSize, radius * scale) * 180.0 / kLatticePi;
  const double mid = user.range() == mvRangeDefs::eFull ? 0.0 : mvDegree(user.middle()).toDouble();
  double offset = std::remainder(rotation - mid, 360.0);
  const long i0 = std::lround(offset / step);
  const double centre = mid + static_cast<double>(i0) * step;
  // Just under the steps, so that the lattice holds kFineLatticeSteps values either side.
  const double half = (kFineLatticeSteps - 0.01) * step;
  return mvAngleRange(mvRadian(mvDegree(centre - half)), mvRadian(mvDegree(centre + half)));
}

}  // namespace

mvPointMatcherRunParams finePassParams(const mvPointMatcherRunParams& user, const Neighbourhood& n,
                                       double gridSize, double modelRadius) {
  const double reach = kFineTranslationCells * gridSize;
  mvPointMatcherRunParams fine = user;
  fine.xTranslationUncertainty(mvRange(n.offset.x() - reach, n.offset.x() + reach));
  fine.yTranslationUncertainty(mvRange(n.offset.y() - reach, n.offset.y() + reach));
  fine.rotationUncertainty(fineRotations(user.rotationUncertainty(), n.rotation,
                                         1.0 + n.scaleChange, gridSize, modelRadius));
  fine.scaleUncertainty(fineScales(user.scaleUncertainty(), n.scaleChange, gridSize, modelRadius));
  fine.autoGridSize(true);
  return fine;
}

std::vector<std::size_t> dataNear(const std::vector<mvVector<2>>& dataPoints,
                                  const std::vector<mvVector<2>>& modelPoints,
                                  const mvXform<2>& pose, double margin) {
  std::vector<mvVector<2>> corners;
  const Box m = boxOf(modelPoints);
  for (const mvVector<2>& c : {mvVector<2>(m.minX, m.minY), mvVector<2>(m.maxX, m.minY),
                               mvVector<2>(m.minX, m.maxY), mvVector<2>(m.maxX, m.maxY)}) {
    corners.push_back(pose * c);
  }
  const Box b = boxOf(corners);
  std::vector<std::size_t> near;
  for (std::size_t j = 0; j < dataPoints.size(); ++j) {
    const mvVector<2>& p = dataPoints[j];
    if (p.x() >= b.minX - margin && p.x() <= b.maxX + margin && p.y() >= b.minY - margin &&
        p.y() <= b.maxY + margin) {
      near.push_back(j);
    }
  }
  return near;
}

}  // namespace planned
}  // namespace detail
}  // namespace ptmatch
