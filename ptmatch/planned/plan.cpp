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

struct Box {
  double minX, minY, maxX, maxY;
};

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

}  // namespace

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

mvPointMatcherRunParams finePassParams(const mvPointMatcherRunParams& user, const Neighbourhood& n,
                                       double gridSize, double modelRadius) {
  const double scale = 1.0 + n.scaleChange;
  const double rotationStep =
      std::atan2(2.0 * gridSize, modelRadius * scale) * 180.0 / 3.141592653589793;
  const double scaleStep = 1.5 * gridSize / modelRadius;
  const double reach = kFineTranslationCells * gridSize;
  const double turn = kFineLatticeSteps * rotationStep;
  const double grow = kFineLatticeSteps * scaleStep;

  mvPointMatcherRunParams fine = user;
  fine.xTranslationUncertainty(mvRange(n.offset.x() - reach, n.offset.x() + reach));
  fine.yTranslationUncertainty(mvRange(n.offset.y() - reach, n.offset.y() + reach));
  fine.rotationUncertainty(
      mvAngleRange(mvRadian(mvDegree(n.rotation - turn)), mvRadian(mvDegree(n.rotation + turn))));
  const double lo = std::max(n.scaleChange - grow, kLowestScaleChange);
  const double hi = std::max(n.scaleChange + grow, lo);
  fine.scaleUncertainty(mvRange(lo, hi));
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
