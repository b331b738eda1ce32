// Growing the assignment from the seed. A first transform comes from the seed (or the
// best of its linked neighbours) and the grid vectors rotated by the estimated rotation.
// Then two passes walk the buckets in rings around a centre, snap every point to its
// nearest node when it lies within the snap tolerance, feed the snapped pairs to the
// transform and refit it whenever the count of snapped points passes the next Fibonacci
// mark. The first pass only trains the transform; the second writes the map.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "mvbase/attention.h"
#include "ptgdmap/internal.h"
#include "ptmatch/tm.h"

namespace ptmatch::detail::ptgdmap {
namespace {

/// Node indices beyond this magnitude fail the snapping test instead of overflowing.
constexpr double kMaxNodeIndex = 1073741824.0;  // 2^30

/// Degrees of freedom of every fit of the growth: affine with both grid vectors,
/// similarity with one.
long growthDof(const GridMapContext& ctx) { return !ctx.xv.isNull() && !ctx.yv.isNull() ? 6 : 4; }

/// The node nearest to grid position g.
mvVector<2> nearestNode(const mvVector<2>& g) {
  return mvVector<2>(std::floor(g.x() + 0.5), std::floor(g.y() + 0.5));
}

double squaredDistance(const mvVector<2>& a, const mvVector<2>& b) {
  const mvVector<2> d = a - b;
  return d.x() * d.x() + d.y() * d.y();
}

// --- initial estimate ---

/// The grid vectors rotated by the estimated rotation.
struct RotatedAxes {
  mvVector<2> vx;
  mvVector<2> vy;
};

RotatedAxes rotatedAxes(const GridMapContext& ctx, double thetaDegrees) {
  const mvRadian theta = mvRadian(mvDegree(thetaDegrees));
  const mvXform<2> rotation(mvVector<2>(0.0, 0.0), theta, theta, 1.0, 1.0);
  return RotatedAxes{rotation * ctx.xv, rotation * ctx.yv};
}

/// The trial transform that puts node (0, 0) on record q and the neighbouring nodes one
/// rotated grid vector away.
mv2PtMatchTm trialTransform(const GridMapContext& ctx, long q, const RotatedAxes& axes) {
  mv2PtMatchTm trial;
  trial.identity();
  const mvVector<2>& p = ctx.record(q).point;
  trial.update(mvVector<2>(0.0, 0.0), p);
  if (!ctx.xv.isNull()) trial.update(mvVector<2>(1.0, 0.0), p + axes.vx);
  if (!ctx.yv.isNull()) trial.update(mvVector<2>(0.0, 1.0), p + axes.vy);
  trial.fit(growthDof(ctx));
  return trial;
}

/// Mean squared distance, over q's used links, from the neighbour to the node the trial
/// snaps it to; infinity without a used link.
double trialError(const GridMapContext& ctx, long q, const mv2PtMatchTm& trial) {
  const GridMapRecord& rec = ctx.record(q);
  double sum = 0.0;
  long count = 0;
  for (long l = 0; l < rec.numLinks; ++l) {
    if (!rec.links[l].used) continue;
    const mvVector<2>& p = ctx.record(rec.links[l].neighbour).point;
    sum += squaredDistance(p, trial.a2b(nearestNode(trial.b2a(p))));
    ++count;
  }
  return count == 0 ? std::numeric_limits<double>::infinity() : sum / static_cast<double>(count);
}

/// Makes the trial for the seed, then, depth first, for each used neighbour of the seed
/// and each used neighbour of that neighbour; a trial of strictly smaller error replaces
/// tm (its three pairs included). Returns the record of the kept trial.
long initialEstimate(const GridMapContext& ctx, long seed, double thetaDegrees, mv2PtMatchTm& tm) {
  const RotatedAxes axes = rotatedAxes(ctx, thetaDegrees);
  tm = trialTransform(ctx, seed, axes);
  double bestError = trialError(ctx, seed, tm);
  long kept = seed;
  auto consider = [&](long q) {
    mv2PtMatchTm trial = trialTransform(ctx, q, axes);
    const double error = trialError(ctx, q, trial);
    if (error < bestError) {
      tm = trial;
      bestError = error;
      kept = q;
    }
  };
  const GridMapRecord& s = ctx.record(seed);
  for (long l = 0; l < s.numLinks; ++l) {
    if (!s.links[l].used) continue;
    const long n = s.links[l].neighbour;
    consider(n);
    const GridMapRecord& rn = ctx.record(n);
    for (long m = 0; m < rn.numLinks; ++m) {
      if (rn.links[m].used) consider(rn.links[m].neighbour);
    }
  }
  return kept;
}

// --- growth passes ---

/// One pass over every bucket, in rings around a centre bucket.
class GrowthPass {
 public:
  /// map is null for the pass that only trains the transform.
  GrowthPass(const GridMapContext& ctx, mv2PtMatchTm& tm, std::vector<mvPair<long>>* map)
      : ctx_(ctx), tm_(tm), map_(map), dof_(growthDof(ctx)) {}

  /// Tests the centre bucket, then each ring k = 1 ... K of the bucket grid (K reaching
  /// its farthest corner), refitting after each ring when due. Only occupied buckets are
  /// visited, in the order of the rings; a refit is due only when points were snapped
  /// since the last one, so refitting after the rings that hold points (and after ring 1,
  /// for the centre's points) does what refitting after every ring would. Returns the
  /// count of snapped points.
  long run(long c0, long r0) {
    long K = c0;
    if (r0 > K) K = r0;
    if (ctx_.columns - c0 - 1 > K) K = ctx_.columns - c0 - 1;
    if (ctx_.rows - r0 - 1 > K) K = ctx_.rows - r0 - 1;
    long ring = 0;
    for (const RingBucket& b : ringOrder(c0, r0)) {
      mvAttention::pace(64);
      // Between ring a and a later ring b the rings a .. b - 1 end, each refitting when
      // due, unless only the centre (ring 0) was tested before ring 1.
      if (b.ring != ring && !(ring == 0 && b.ring == 1)) refitIfDue();
      ring = b.ring;
      testBucket(b.column, b.row);
    }
    if (K >= 1) refitIfDue();
    return count_;
  }

 private:
  /// An occupied bucket with its place in the walk: its ring and its position in it.
  struct RingBucket {
    long ring;
    long position;
    long column;
    long row;
  };

  /// The occupied buckets in the order of the walk. Ring k is walked clockwise in four
  /// runs: the top row rightwards (from column c0 - k, short of c0 + k), the right column
  /// downwards (from row r0 - k, short of r0 + k), the bottom row leftwards (from column
  /// c0 + k, down to c0 - k + 1), the left column upwards (from row r0 + k, up to
  /// r0 - k + 1); the grid's edges only clip the runs.
  std::vector<RingBucket> ringOrder(long c0, long r0) const {
    std::vector<RingBucket> order;
    order.reserve(ctx_.occupied.size());
    for (long key : ctx_.occupied) {
      const long c = key % ctx_.columns;
      const long r = key / ctx_.columns;
      const long dc = c - c0;
      const long dr = r - r0;
      const long k = std::max(std::labs(dc), std::labs(dr));
      long position = 0;
      if (dr == -k && dc < k) {
        position = dc + k;
      } else if (dc == k && dr < k) {
        position = 2 * k + dr + k;
      } else if (dr == k && dc > -k) {
        position = 4 * k + k - dc;
      } else {
        position = 6 * k + k - dr;
      }
      order.push_back(RingBucket{k, position, c, r});
    }
    std::sort(order.begin(), order.end(), [](const RingBucket& a, const RingBucket& b) {
      return a.ring != b.ring ? a.ring < b.ring : a.position < b.position;
    });
    return order;
  }

  void testBucket(long column, long row) {
    for (long i = ctx_.head(column, row); i != kNoRecord; i = ctx_.record(i).next) snap(i);
  }

  /// The snapping test: the point is assigned to its nearest node when the node's image
  /// lies within the snap tolerance.
  void snap(long i) {
    const GridMapRecord& rec = ctx_.record(i);
    const mvVector<2> node = nearestNode(tm_.b2a(rec.point));
    if (!(std::fabs(node.x()) <= kMaxNodeIndex && std::fabs(node.y()) <= kMaxNodeIndex)) return;
    if (!(squaredDistance(tm_.a2b(node), rec.point) <= ctx_.snap * ctx_.snap)) return;
    if (map_ != nullptr) {
      (*map_)[static_cast<std::size_t>(rec.index)] =
          mvPair<long>(static_cast<long>(node.x()), static_cast<long>(node.y()));
    }
    tm_.update(node, rec.point);
    ++count_;
  }

  /// Refits once the count has reached the mark, then moves the mark along the Fibonacci
  /// series 3, 5, 8, 13, ... past the count.
  void refitIfDue() {
    if (count_ < mark_) return;
    tm_.fit(dof_);
    while (mark_ <= count_) {
      const long next = mark_ + step_;
      step_ = mark_;
      mark_ = next;
    }
  }

  const GridMapContext& ctx_;
  mv2PtMatchTm& tm_;
  std::vector<mvPair<long>>* map_;
  const long dof_;
  long count_ = 0;  ///< points snapped by this pass
  long mark_ = 3;   ///< count at which the next refit is due
  long step_ = 2;   ///< distance to the mark after it
};

}  // namespace

long growFromSeed(GridMapContext& ctx, long seed, double thetaDegrees,
                  std::vector<mvPair<long>>& map) {
  mv2PtMatchTm tm;
  const long kept = initialEstimate(ctx, seed, thetaDegrees, tm);
  // The first pass, centred where the kept trial starts, only trains tm; its pairs stay.
  GrowthPass(ctx, tm, nullptr).run(ctx.record(kept).column, ctx.record(kept).row);
  // The second pass, centred on the seed, writes the map and gives the count.
  return GrowthPass(ctx, tm, &map).run(ctx.record(seed).column, ctx.record(seed).row);
}

}  // namespace ptmatch::detail::ptgdmap
