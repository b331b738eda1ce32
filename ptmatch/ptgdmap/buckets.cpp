// Building the mapping's context: input checks, the tolerances and directions derived from
// the grid vectors, and the bucket grid of point records.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "mvbase/attention.h"
#include "ptgdmap/internal.h"

namespace ptmatch::detail::ptgdmap {
namespace {

/// Bucket columns or rows beyond this count are refused, so that a bucket's key (row x
/// columns + column) stays far inside a long. Only occupied buckets take memory.
constexpr double kMaxBuckets = 134217728.0;  // 2^27
/// Angle tolerance ends beyond this many degrees (100 turns) are refused.
constexpr double kMaxToleranceDegrees = 36000.0;

bool isFinite(const mvVector<2>& v) { return std::isfinite(v.x()) && std::isfinite(v.y()); }

[[noreturn]] void rejectInput(const std::wstring& message) {
  throw mvPtToGridMapDefs::BadInput(message);
}

/// Degrees of an angle, through the base library's conversion.
double degrees(const mvRadian& r) { return mvDegree(r).toDouble(); }

/// Direction of a grid vector in degrees, in [0, 360); 0 for a null vector.
double directionDegrees(const mvVector<2>& v) {
  if (v.isNull()) return 0.0;
  double a = degrees(v.angle());
  if (a < 0.0) a += 360.0;
  return a;
}

/// Snap tolerance: snapSize, or 0.2 of the shorter non-zero pitch when that is 0 or less.
double snapTolerance(const GridMapContext& ctx, double snapSize) {
  if (snapSize > 0.0) return snapSize;
  double lx = ctx.xv.len();
  double ly = ctx.yv.len();
  if (lx == 0.0) lx = ly;
  if (ly == 0.0) ly = lx;
  return 0.2 * (lx < ly ? lx : ly);
}

/// Angular snap tolerance in degrees, at least 1.5.
double angularTolerance(const GridMapContext& ctx) {
  double tx = ctx.xv.isNull() ? 0.0 : std::atan2(ctx.snap, ctx.xv.len()) * 180.0 / kGridMapPi;
  double ty = ctx.yv.isNull() ? 0.0 : std::atan2(ctx.snap, ctx.yv.len()) * 180.0 / kGridMapPi;
  if (tx == 0.0) tx = ty;
  if (ty == 0.0) ty = tx;
  double tau = tx < ty ? tx : ty;
  return tau < 1.5 ? 1.5 : tau;
}

/// Bucket count along one axis for a span of the points; throws BadInput when it cannot
/// be held.
long bucketCount(double span, double snap) {
  const double cells = span / snap + 0.5;
  if (!(cells < kMaxBuckets)) {
    rejectInput(L"The points spread over too many buckets of the snap size.");
  }
  return static_cast<long>(cells) + 1;
}

/// Snap tolerance, size and angle tolerances (empty ones replaced by the defaults), axis
/// directions, longest pitch and angular tolerance. False when the snap tolerance is not
/// positive.
bool deriveTolerances(const mvPtToGridMapRunParams& params, GridMapContext& ctx) {
  ctx.snap = snapTolerance(ctx, params.snapSize());
  if (!(ctx.snap > 0.0)) return false;
  ctx.sizeTol =
      params.sizeTol().range() == mvRangeDefs::eEmpty ? mvRange(0.8, 1.2) : params.sizeTol();
  ctx.angleTol = params.angleTol().range() == mvRangeDefs::eEmpty
                     ? mvAngleRange(mvRadian(mvDegree(-20.0)), mvRadian(mvDegree(20.0)), false)
                     : params.angleTol();
  ctx.alphaX = directionDegrees(ctx.xv);
  ctx.alphaY = directionDegrees(ctx.yv);
  ctx.longestPitch = ctx.xv.len();
  if (ctx.yv.len() > ctx.longestPitch) ctx.longestPitch = ctx.yv.len();
  ctx.tau = angularTolerance(ctx);
  ctx.tauComplement = 360.0 - ctx.tau;
  return true;
}

/// The points' bounding box.
struct PointBounds {
  double minX, maxX, minY, maxY;
};

/// Bounding box grown from the first point: a value not below the running minimum may
/// raise the maximum, any other lowers the minimum.
PointBounds boundingBox(const std::vector<mvVector<2>>& points) {
  PointBounds b{points[0].x(), points[0].x(), points[0].y(), points[0].y()};
  for (const mvVector<2>& p : points) {
    if (p.x() >= b.minX) {
      if (p.x() > b.maxX) b.maxX = p.x();
    } else {
      b.minX = p.x();
    }
    if (p.y() >= b.minY) {
      if (p.y() > b.maxY) b.maxY = p.y();
    } else {
      b.minY = p.y();
    }
  }
  return b;
}

/// The bucket grid with cells of the snap size over the bounding box, and one record per
/// point, in input order, pushed on the head of its bucket's list (newest first).
void fillBuckets(const std::vector<mvVector<2>>& points, const PointBounds& b,
                 GridMapContext& ctx) {
  ctx.columns = bucketCount(b.maxX - b.minX, ctx.snap);
  ctx.rows = bucketCount(b.maxY - b.minY, ctx.snap);
  ctx.heads.clear();
  ctx.heads.reserve(points.size());

  // Records are made one by one, so that a million of them are paced as well.
  ctx.records.clear();
  ctx.records.reserve(points.size());
  for (std::size_t i = 0; i < points.size(); ++i) {
    mvAttention::pace(256);
    GridMapRecord& rec = ctx.records.emplace_back();
    rec.point = points[i];
    rec.index = static_cast<long>(i);
    // Monotone in the coordinate, so never beyond the last column or row.
    rec.column = static_cast<long>((rec.point.x() - b.minX) / ctx.snap + 0.5);
    rec.row = static_cast<long>((rec.point.y() - b.minY) / ctx.snap + 0.5);
    const auto bucket = ctx.heads.emplace(ctx.key(rec.column, rec.row), kNoRecord).first;
    rec.next = bucket->second;
    bucket->second = rec.index;
  }
  ctx.occupied.clear();
  ctx.occupied.reserve(ctx.heads.size());
  for (const auto& bucket : ctx.heads) ctx.occupied.push_back(bucket.first);
  std::sort(ctx.occupied.begin(), ctx.occupied.end());
}

}  // namespace

void checkGridMapInput(const std::vector<mvVector<2>>& points,
                       const mvPtToGridMapRunParams& params) {
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (!isFinite(points[i])) {
      std::wostringstream os;
      os << L"Point " << i << L" is not finite.";
      rejectInput(os.str());
    }
  }
  if (!isFinite(params.xv()) || !isFinite(params.yv())) {
    rejectInput(L"A grid vector is not finite.");
  }
  if (!std::isfinite(params.snapSize())) rejectInput(L"The snap size is not finite.");
  const mvAngleRange& angles = params.angleTol();
  if (angles.range() != mvRangeDefs::eEmpty) {
    const double lo = degrees(angles.start());
    const double hi = degrees(angles.end());
    if (!(std::fabs(lo) <= kMaxToleranceDegrees && std::fabs(hi) <= kMaxToleranceDegrees)) {
      rejectInput(L"The angle tolerance is not finite or spans more than 100 turns.");
    }
  }
}

bool buildBuckets(const std::vector<mvVector<2>>& points, const mvPtToGridMapRunParams& params,
                  GridMapContext& ctx) {
  if (!deriveTolerances(params, ctx)) return false;
  fillBuckets(points, boundingBox(points), ctx);
  return true;
}

}  // namespace ptmatch::detail::ptgdmap
