#include "ppmatch/search/grid_space.h"

#include <algorithm>

namespace ptmatch {
namespace detail {
namespace {

// The raster, its two index rasters and the accumulator are allocated per run; beyond
// this many cells a run would need gigabytes, so such a grid is refused.
constexpr double kMaxRasterCells = 268435456.0;  // 2^28

// Margin, in cells, by which the model centre may leave the raster.
constexpr long kWindowMargin = 8;

mvXform<2> translationBy(const mvVector<2>& t) { return mvXform<2>(mvMatrix<2>(), t); }

mvXform<2> uniformScale(double s) { return mvXform<2>(mvMatrix<2>(s, 0.0, 0.0, s), mvVector<2>()); }

mvXform<2> rotationBy(const mvDegree& a) {
  return mvXform<2>(mvVector<2>(), mvRadian(a), mvRadian(a), 1.0, 1.0);
}

// Bounding box of the points, scanned as the model's box is at training: a point lowers
// the minimum, or else raises the maximum.
struct Bounds {
  double minX, maxX, minY, maxY;
};

Bounds boundsOf(const std::vector<mvVector<2>>& points) {
  Bounds b{points[0].x(), points[0].x(), points[0].y(), points[0].y()};
  for (std::size_t i = 1; i < points.size(); ++i) {
    const mvVector<2>& p = points[i];
    if (p.x() < b.minX) {
      b.minX = p.x();
    } else if (p.x() > b.maxX) {
      b.maxX = p.x();
    }
    if (p.y() < b.minY) {
      b.minY = p.y();
    } else if (p.y() > b.maxY) {
      b.maxY = p.y();
    }
  }
  return b;
}

// Number of cells spanned by an extent: trunc(extent / gridSize + 0.5) + 1.
double cellsSpanned(double extent, double inverseGridSize) {
  return std::trunc(extent * inverseGridSize + 0.5) + 1.0;
}

void refuseOversizedRaster(double width, double height) {
  const bool fits = width + 2.0 <= kMaxRasterCells && height + 2.0 <= kMaxRasterCells &&
                    (width + 2.0) * (height + 2.0) <= kMaxRasterCells;
  if (!fits) {  // also catches NaN and infinity
    throw mvPointMatcherDefs::BadParams(
        L"the data points span too many grid cells; use a larger gridSize\n");
  }
}

// Whole-cell offsets [lo, hi] of the model centre along one axis. centre, start and end
// are the grid coordinates of the model centre and of the centre moved by the start and
// end of the uncertainty; extent is the raster's size along the axis.
struct OffsetRange {
  long lo;
  long hi;
};

OffsetRange axisOffsets(const mvRange& uncertainty, double centre, double start, double end,
                        long extent) {
  const OffsetRange limits{toCell(std::floor(0.0 - centre)) - kWindowMargin,
                           toCell(std::ceil(static_cast<double>(extent) - centre)) + kWindowMargin};
  if (uncertainty.range() != mvRangeDefs::eNormal) return limits;
  const OffsetRange wanted{toCell(std::floor(start - centre)), toCell(std::ceil(end - centre))};
  return OffsetRange{std::max(wanted.lo, limits.lo), std::min(wanted.hi, limits.hi)};
}

}  // namespace

ResolvedSizes resolveGridSizeAndCaptureRange(const mvPointMatcherRunParams& params,
                                             const mv_PointMatcherModel& model) {
  ResolvedSizes sizes{params.gridSize(), params.captureRange()};
  if (params.autoGridSize() || !(sizes.gridSize > 0.0)) sizes.gridSize = model.defaultGridSize;
  if (params.autoCaptureRange() || sizes.captureRange < 0.0) sizes.captureRange = sizes.gridSize;
  return sizes;
}

GridSpace mapDataToGridSpace(const std::vector<mvVector<2>>& data, const mvXform<2>& startPose,
                             double gridSize) {
  GridSpace space;
  const mvXform<2> startInverse = startPose.inverse();
  space.mapped.reserve(data.size());
  for (const mvVector<2>& p : data) space.mapped.push_back(startInverse * p);

  const Bounds b = boundsOf(space.mapped);
  const double inverseGridSize = 1.0 / gridSize;
  const double width = cellsSpanned(b.maxX - b.minX, inverseGridSize);
  const double height = cellsSpanned(b.maxY - b.minY, inverseGridSize);
  refuseOversizedRaster(width, height);

  space.dataToGrid = translationBy(mvVector<2>(1.0, 1.0)) * uniformScale(inverseGridSize) *
                     translationBy(mvVector<2>(-b.minX, -b.minY));
  space.occupancy =
      mvPelBuffer<unsigned char>(static_cast<long>(width) + 2, static_cast<long>(height) + 2);
  // A new raster is all zeros.
  for (const mvVector<2>& p : space.mapped) {
    fillNeighbourhood(space.occupancy, dataCell(space.dataToGrid, p),
                      static_cast<unsigned char>(1));
  }
  return space;
}

bool translationWindow(const GridSpace& space, const mv_PointMatcherModel& model,
                       const mvPointMatcherRunParams& params, mvPelRect& window) {
  const mvXform<2>& t = space.dataToGrid;
  const mvVector<2> c = t * model.center;
  const mvRange xRange = params.xTranslationUncertainty();
  const mvRange yRange = params.yTranslationUncertainty();
  const OffsetRange x = axisOffsets(
      xRange, c.x(), (t * (model.center + mvVector<2>(xRange.start(), 0.0))).x(),
      (t * (model.center + mvVector<2>(xRange.end(), 0.0))).x(), space.occupancy.width());
  const OffsetRange y = axisOffsets(
      yRange, c.y(), (t * (model.center + mvVector<2>(0.0, yRange.start()))).y(),
      (t * (model.center + mvVector<2>(0.0, yRange.end()))).y(), space.occupancy.height());
  if (x.lo > x.hi || y.lo > y.hi) return false;
  window = mvPelRect(x.lo, y.lo, x.hi - x.lo, y.hi - y.lo);
  return true;
}

mvXform<2> modelToGrid(const mvXform<2>& dataToGrid, const mvVector<2>& center, double scale,
                       const mvDegree& rotation) {
  return dataToGrid * translationBy(center) * uniformScale(scale) * rotationBy(rotation) *
         translationBy(-center);
}

void projectModel(const std::vector<mvVector<2>>& points, const mvXform<2>& modelToGrid,
                  std::vector<mvPair<long>>& cells) {
  cells.resize(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    const mvVector<2> g = modelToGrid * points[i];
    cells[i] = mvPair<long>(roundToCell(g.x()), roundToCell(g.y()));
  }
}

}  // namespace detail
}  // namespace ptmatch
