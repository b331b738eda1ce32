// Neighbour links and the direction histogram. Every record looks for neighbours at an
// accepted pitch distance in its own bucket and the 8 around it, in a fixed order, and
// keeps at most 4 of them. Each link counts its direction, rounded to a whole degree, in
// the histogram.
#include <cmath>

#include "mvbase/attention.h"
#include "ptgdmap/internal.h"

namespace ptmatch::detail::ptgdmap {
namespace {

/// Bucket offsets (column, row) scanned for neighbours, in this order.
constexpr long kScanOrder[9][2] = {{0, 0},  {1, 0},  {1, 1},   {1, -1}, {0, 1},
                                   {-1, 0}, {-1, 1}, {-1, -1}, {0, -1}};

/// Links stop being taken from one bucket once a record holds this many.
constexpr long kLinksPerBucket = 3;

/// The closed intervals of accepted squared distances, one per pitch.
struct AcceptedDistances {
  double xLo, xHi, yLo, yHi;
  bool accepts(double d2) const { return (xLo <= d2 && d2 <= xHi) || (yLo <= d2 && d2 <= yHi); }
};

AcceptedDistances acceptedDistances(const GridMapContext& ctx) {
  double lx = ctx.xv.len();
  double ly = ctx.yv.len();
  if (lx == 0.0) lx = ly;
  if (ly == 0.0) ly = lx;
  const double t0 = ctx.sizeTol.start();
  const double t1 = ctx.sizeTol.end();
  return AcceptedDistances{(lx * t0) * (lx * t0), (lx * t1) * (lx * t1), (ly * t0) * (ly * t0),
                           (ly * t1) * (ly * t1)};
}

/// Adds the link a -> b and counts its direction in the histogram.
void addLink(GridMapContext& ctx, GridMapRecord& a, long b, double dx, double dy, double d2) {
  mvAssert(a.numLinks < kMaxLinks, kGridMapModule, __LINE__);
  double phi = std::atan2(dy, dx) * 180.0 / kGridMapPi;
  if (phi < 0.0) phi += 360.0;
  GridMapLink& link = a.links[a.numLinks++];
  link.direction = phi;
  link.distance2 = d2;
  link.used = false;
  link.neighbour = b;
  long bin = static_cast<long>(phi + 0.5);
  mvAssert(bin >= 0 && bin <= kDirectionBins, kGridMapModule, __LINE__);
  if (bin == kDirectionBins) bin = 0;
  ++ctx.histogram[static_cast<std::size_t>(bin)];
}

/// Links record a to the accepted records of one bucket, from its list head, until a
/// holds 3 links.
void scanBucket(GridMapContext& ctx, long a, long column, long row,
                const AcceptedDistances& accepted) {
  for (long b = ctx.head(column, row); b != kNoRecord; b = ctx.record(b).next) {
    GridMapRecord& ra = ctx.record(a);
    const mvVector<2> d = ctx.record(b).point - ra.point;
    const double d2 = d.x() * d.x() + d.y() * d.y();
    // a itself is not skipped: it is linked when the size tolerance admits 0.
    if (!accepted.accepts(d2)) continue;
    addLink(ctx, ra, b, d.x(), d.y(), d2);
    if (ra.numLinks >= kLinksPerBucket) return;
  }
}

}  // namespace

void linkNeighbours(GridMapContext& ctx) {
  ctx.histogram.assign(static_cast<std::size_t>(kDirectionBins), 0);
  const AcceptedDistances accepted = acceptedDistances(ctx);
  ctx.forEachRecordInBucketOrder([&](long a) {
    mvAttention::pace(64);
    const long column = ctx.record(a).column;
    const long row = ctx.record(a).row;
    for (const auto& offset : kScanOrder) {
      if (ctx.record(a).numLinks >= kMaxLinks) break;
      const long c = column + offset[0];
      const long r = row + offset[1];
      if (ctx.inside(c, r)) scanBucket(ctx, a, c, r, accepted);
    }
  });
}

}  // namespace ptmatch::detail::ptgdmap
