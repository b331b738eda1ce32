// The bucket index over the points and the dense node table of the growth.
#include <algorithm>
#include <cmath>
#include <utility>

#include "robustgrid/context.h"

namespace ptmatch {
namespace robustgrid {

namespace {

/// At most this many buckets per point (and a few more for tiny inputs).
constexpr double kBucketsPerPoint = 2.0;
/// Largest reach of the node table: (2 * 700 + 1)^2 cells at most.
constexpr long kMaxReach = 700;

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

NodeTable::NodeTable(long reach)
    : reach_(reach),
      side_(2 * reach + 1),
      cells_(static_cast<std::size_t>(side_ * side_), kNone),
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

long tableReach(const Points& points, const Lattice& lattice) {
  double minX = points[0].x(), maxX = minX, minY = points[0].y(), maxY = minY;
  for (const mvVector<2>& p : points) {
    minX = std::min(minX, p.x());
    maxX = std::max(maxX, p.x());
    minY = std::min(minY, p.y());
    maxY = std::max(maxY, p.y());
  }
  const double diagonal = mvVector<2>(maxX - minX, maxY - minY).len();
  // The lattice's smallest step across: the area per node over the longer vector.
  const double cross = std::fabs(lattice.a.x() * lattice.b.y() - lattice.a.y() * lattice.b.x());
  const double across = cross / std::max(lattice.a.len(), lattice.b.len());
  // Perspective may shrink the pitch to half of the seed's.
  const double reach = 2.0 * diagonal / std::max(across, 1e-12) + 4.0;
  return static_cast<long>(std::min<double>(reach, kMaxReach));
}

}  // namespace robustgrid
}  // namespace ptmatch
