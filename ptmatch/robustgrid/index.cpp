// The bucket index over the points and the dense node table of the growth.
#include <algorithm>
#include <cmath>
#include <utility>

#include "robustgrid/internal.h"

namespace ptmatch::detail::robustgrid {

namespace {

/// At most this many buckets per point (and a few more for tiny inputs).
constexpr double kBucketsPerPoint = 2.0;
/// Largest reach of the node table to either side: (2 * 700 + 1)^2 cells at most.
constexpr double kMaxReach = 700.0;
/// The table's room beyond the points' extent at the seed's pitch.
constexpr double kRoom = 1.5;

}  // namespace

PointIndex::PointIndex(const Points& points) : points_(points) {
  double minX = 0.0, minY = 0.0, maxX = 0.0, maxY = 0.0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    const mvVector<2>& p = points[i];
    minX = i == 0 ? p.x() : std::min(minX, p.x());
    minY = i == 0 ? p.y() : std::min(minY, p.y());
    maxX = i == 0 ? p.x() : std::max(maxX, p.x());
    maxY = i == 0 ? p.y() : std::max(maxY, p.y());
  }
  origin_ = mvVector<2>(minX, minY);
  const double n = std::max<double>(1.0, static_cast<double>(points.size()));
  const double width = maxX - minX, height = maxY - minY;
  // About one point per bucket on an even spread; never more buckets than a few per point.
  cell_ = std::sqrt(width * height / n);
  if (!(cell_ > 0.0)) cell_ = std::max(width, height) / n;
  if (!(cell_ > 0.0)) cell_ = 1.0;
  const double limit = kBucketsPerPoint * n + 16.0;
  while ((width / cell_ + 1.0) * (height / cell_ + 1.0) > limit) cell_ *= 1.5;
  columns_ = static_cast<long>(width / cell_) + 1;
  rows_ = static_cast<long>(height / cell_) + 1;

  std::vector<long> bucket(points.size());
  start_.assign(static_cast<std::size_t>(columns_ * rows_ + 1), 0);
  for (std::size_t i = 0; i < points.size(); ++i) {
    const long b =
        bucketOf_(points[i].y(), minY, rows_) * columns_ + bucketOf_(points[i].x(), minX, columns_);
    bucket[i] = b;
    ++start_[static_cast<std::size_t>(b + 1)];
  }
  for (std::size_t b = 1; b < start_.size(); ++b) start_[b] += start_[b - 1];
  order_.assign(points.size(), 0);
  std::vector<long> fill(start_.begin(), start_.end() - 1);
  for (std::size_t i = 0; i < points.size(); ++i) {
    order_[static_cast<std::size_t>(fill[static_cast<std::size_t>(bucket[i])]++)] =
        static_cast<long>(i);
  }
}

long PointIndex::bucketOf_(double v, double origin, long count) const {
  const double f = std::floor((v - origin) / cell_);
  if (!(f >= 0.0)) return 0;
  return std::min(count - 1, static_cast<long>(std::min(f, 1e9)));
}

void PointIndex::nearest(long i, long k, std::vector<long>& out) const {
  out.clear();
  const mvVector<2>& x = points_[static_cast<std::size_t>(i)];
  const long cx = bucketOf_(x.x(), origin_.x(), columns_);
  const long cy = bucketOf_(x.y(), origin_.y(), rows_);
  std::vector<std::pair<double, long>> found;
  // Rings of buckets until k are found and the next ring cannot hold a nearer one.
  for (long ring = 0; ring <= std::max(columns_, rows_); ++ring) {
    for (long by = cy - ring; by <= cy + ring; ++by) {
      if (by < 0 || by >= rows_) continue;
      for (long bx = cx - ring; bx <= cx + ring; ++bx) {
        if (bx < 0 || bx >= columns_) continue;
        if (std::max(std::labs(bx - cx), std::labs(by - cy)) != ring) continue;
        const long b = by * columns_ + bx;
        for (long e = start_[static_cast<std::size_t>(b)];
             e < start_[static_cast<std::size_t>(b + 1)]; ++e) {
          const long j = order_[static_cast<std::size_t>(e)];
          if (j == i) continue;
          const mvVector<2> d = points_[static_cast<std::size_t>(j)] - x;
          found.emplace_back(d.x() * d.x() + d.y() * d.y(), j);
        }
      }
    }
    // Done when k of them lie within the searched square's inscribed circle.
    const double reach = static_cast<double>(ring) * cell_;
    long within = 0;
    for (const auto& f : found) {
      if (f.first <= reach * reach) ++within;
    }
    if (within >= k) break;
  }
  const std::size_t keep = std::min(found.size(), static_cast<std::size_t>(k));
  std::partial_sort(found.begin(), found.begin() + static_cast<long>(keep), found.end());
  for (std::size_t e = 0; e < found.size() && static_cast<long>(e) < k; ++e) {
    out.push_back(found[e].second);
  }
}

long PointIndex::nearestFree(const mvVector<2>& x, double radius,
                             const std::vector<char>* taken) const {
  if (!(radius > 0.0) || !std::isfinite(x.x()) || !std::isfinite(x.y())) return kNone;
  const long x0 = bucketOf_(x.x() - radius, origin_.x(), columns_);
  const long x1 = bucketOf_(x.x() + radius, origin_.x(), columns_);
  const long y0 = bucketOf_(x.y() - radius, origin_.y(), rows_);
  const long y1 = bucketOf_(x.y() + radius, origin_.y(), rows_);
  long best = kNone;
  double bestD = radius * radius;
  for (long by = y0; by <= y1; ++by) {
    for (long bx = x0; bx <= x1; ++bx) {
      const long b = by * columns_ + bx;
      for (long e = start_[static_cast<std::size_t>(b)];
           e < start_[static_cast<std::size_t>(b + 1)]; ++e) {
        const long j = order_[static_cast<std::size_t>(e)];
        if (taken != nullptr && (*taken)[static_cast<std::size_t>(j)] != 0) continue;
        const mvVector<2> d = points_[static_cast<std::size_t>(j)] - x;
        const double d2 = d.x() * d.x() + d.y() * d.y();
        if (d2 < bestD || (d2 == bestD && best != kNone && j < best)) {
          bestD = d2;
          best = j;
        }
      }
    }
  }
  return best;
}

NodeTable::NodeTable(const NodeBounds& bounds)
    : b_(bounds),
      side_(bounds.p1 - bounds.p0 + 1),
      cells_(static_cast<std::size_t>(side_ * (bounds.q1 - bounds.q0 + 1)), kNone),
      triedSupport_(cells_.size(), -1),
      triedGap_(cells_.size(), 0) {}

long NodeTable::support(long p, long q) const {
  long n = 0;
  for (long dq = -1; dq <= 1; ++dq) {
    for (long dp = -1; dp <= 1; ++dp) {
      if ((dp != 0 || dq != 0) && at(p + dp, q + dq) != kNone) ++n;
    }
  }
  return n;
}

NodeBounds tableBounds(const Points& points, const Seed& seed) {
  // Lattice indices of each point relative to the seed: the inverse of [a b].
  const Lattice& l = seed.local;
  const double det = l.a.x() * l.b.y() - l.a.y() * l.b.x();
  const mvVector<2>& origin = points[static_cast<std::size_t>(seed.point)];
  double p0 = 0.0, p1 = 0.0, q0 = 0.0, q1 = 0.0;
  if (std::fabs(det) > 0.0) {
    for (const mvVector<2>& x : points) {
      const mvVector<2> d = x - origin;
      const double p = (d.x() * l.b.y() - d.y() * l.b.x()) / det;
      const double q = (l.a.x() * d.y() - l.a.y() * d.x()) / det;
      p0 = std::min(p0, p);
      p1 = std::max(p1, p);
      q0 = std::min(q0, q);
      q1 = std::max(q1, q);
    }
  }
  // Perspective may shrink the pitch away from the seed: half again as many nodes, and
  // the growth's two steps across empty nodes.
  const auto widen = [](double v) {
    return static_cast<long>(std::copysign(std::min(std::fabs(v) * kRoom + 4.0, kMaxReach), v));
  };
  return {std::min(-4L, widen(p0)), std::max(4L, widen(p1)), std::min(-4L, widen(q0)),
          std::max(4L, widen(q1))};
}

}  // namespace ptmatch::detail::robustgrid
