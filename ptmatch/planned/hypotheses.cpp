#include "planned/hypotheses.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <tuple>
#include <unordered_map>

#include "mvbase/attention.h"
#include "planned/plan.h"

namespace ptmatch {
namespace detail {
namespace planned {
namespace {

constexpr double kPi = 3.141592653589793;
constexpr double kDegree = kPi / 180.0;

// Triangle shapes are told apart by the logarithm of their side ratio and by their angle,
// in bins of these widths; a data triangle looks in its own bins and their neighbours, and
// takes model triangles within one bin width.
constexpr double kRatioBin = 0.06;
constexpr double kAngleBin = 5.0 * kDegree;
// Side ratios beyond this say little (a far second neighbour) and are capped.
constexpr double kMaxLogRatio = 1.5;

// Poses agree when they fall in the same bin of rotation, log scale and model-centre
// position; the position bin is this many tolerances wide.
constexpr double kPoseRotationBin = 3.0 * kDegree;
constexpr double kPoseScaleBin = 0.03;
constexpr double kPosePositionTolerances = 6.0;

// Iterated nearest-point fits of a hypothesis: their number and the gate, in tolerances,
// that shrinks from the first to the last.
constexpr int kRefineIterations = 8;
constexpr double kFirstGate = 6.0;
constexpr double kLastGate = 1.5;

// Bins with fewer votes than the best bin's over this are chance agreements, not refined.
constexpr long kWeakestBinShare = 8;
// Bins refined at most per hypothesis asked for.
constexpr std::size_t kRefinedPerHypothesis = 4;

double squaredLength(const mvVector<2>& v) { return v.x() * v.x() + v.y() * v.y(); }

// A uniform bucket grid over a point set, for nearest-point queries.
class BucketGrid {
 public:
  BucketGrid(const std::vector<mvVector<2>>& points, double cell) : points_(points), cell_(cell) {
    minX_ = minY_ = std::numeric_limits<double>::infinity();
    double maxX = -minX_, maxY = -minY_;
    for (const mvVector<2>& p : points) {
      minX_ = std::min(minX_, p.x());
      minY_ = std::min(minY_, p.y());
      maxX = std::max(maxX, p.x());
      maxY = std::max(maxY, p.y());
    }
    width_ = static_cast<long>((maxX - minX_) / cell_) + 1;
    height_ = static_cast<long>((maxY - minY_) / cell_) + 1;
    start_.assign(static_cast<std::size_t>(width_ * height_) + 1, 0);
    for (const mvVector<2>& p : points) ++start_[index(cellX(p.x()), cellY(p.y())) + 1];
    for (std::size_t i = 1; i < start_.size(); ++i) start_[i] += start_[i - 1];
    members_.resize(points.size());
    std::vector<std::size_t> fill(start_.begin(), start_.end() - 1);
    for (std::size_t j = 0; j < points.size(); ++j) {
      members_[fill[index(cellX(points[j].x()), cellY(points[j].y()))]++] = j;
    }
  }

  // The nearest point to q (other than skip) within radius; -1 when none.
  long nearest(const mvVector<2>& q, double radius, long skip = -1) const {
    const long x0 = cellX(q.x() - radius), x1 = cellX(q.x() + radius);
    const long y0 = cellY(q.y() - radius), y1 = cellY(q.y() + radius);
    double best = radius * radius;
    long found = -1;
    for (long y = std::max(y0, 0L); y <= std::min(y1, height_ - 1); ++y) {
      for (long x = std::max(x0, 0L); x <= std::min(x1, width_ - 1); ++x) {
        const std::size_t c = index(x, y);
        for (std::size_t k = start_[c]; k < start_[c + 1]; ++k) {
          const auto j = static_cast<long>(members_[k]);
          const double d = squaredLength(points_[static_cast<std::size_t>(j)] - q);
          if (j != skip && (d < best || (d == best && found >= 0 && j < found))) {
            best = d;
            found = j;
          }
        }
      }
    }
    return found;
  }

  // The two nearest other points of point i, by growing rings; false when there are none.
  bool twoNearest(std::size_t i, std::size_t& a, std::size_t& b) const {
    const mvVector<2>& q = points_[i];
    double da = std::numeric_limits<double>::infinity(), db = da;
    long ia = -1, ib = -1;
    const long cx = cellX(q.x()), cy = cellY(q.y());
    const long reach = std::max(width_, height_);
    for (long r = 0; r <= reach; ++r) {
      for (long y = cy - r; y <= cy + r; ++y) {
        for (long x = cx - r; x <= cx + r; ++x) {
          if (std::max(std::labs(x - cx), std::labs(y - cy)) != r) continue;  // ring only
          if (x < 0 || y < 0 || x >= width_ || y >= height_) continue;
          const std::size_t c = index(x, y);
          for (std::size_t k = start_[c]; k < start_[c + 1]; ++k) {
            const std::size_t j = members_[k];
            if (j == i) continue;
            const double d = squaredLength(points_[j] - q);
            if (d < da) {
              db = da, ib = ia, da = d, ia = static_cast<long>(j);
            } else if (d < db) {
              db = d, ib = static_cast<long>(j);
            }
          }
        }
      }
      // Every point outside the rings searched lies at least r cells away.
      const double clear = static_cast<double>(r) * cell_;
      if (ib >= 0 && clear * clear >= db) break;
    }
    if (ib < 0) return false;
    a = static_cast<std::size_t>(ia);
    b = static_cast<std::size_t>(ib);
    return true;
  }

 private:
  long cellX(double x) const {
    return static_cast<long>(std::floor(std::max(-1.0, (x - minX_) / cell_)));
  }
  long cellY(double y) const {
    return static_cast<long>(std::floor(std::max(-1.0, (y - minY_) / cell_)));
  }
  std::size_t index(long x, long y) const { return static_cast<std::size_t>(y * width_ + x); }

  const std::vector<mvVector<2>>& points_;
  double cell_;
  double minX_, minY_;
  long width_ = 1, height_ = 1;
  std::vector<std::size_t> start_;
  std::vector<std::size_t> members_;
};

// A point with its two nearest neighbours, and the triangle's shape.
struct Triangle {
  std::size_t p, a, b;
  double logRatio;  // log(|pb| / |pa|), capped
  double angle;     // signed angle from pa to pb, radians
};

double sideLength(const std::vector<mvVector<2>>& pts, std::size_t i, std::size_t j) {
  return std::sqrt(squaredLength(pts[j] - pts[i]));
}

std::vector<Triangle> buildTriangles(const std::vector<mvVector<2>>& pts, const BucketGrid& grid) {
  std::vector<Triangle> triangles;
  triangles.reserve(pts.size());
  for (std::size_t i = 0; i < pts.size(); ++i) {
    std::size_t a = 0, b = 0;
    if (!grid.twoNearest(i, a, b)) continue;
    const double la = sideLength(pts, i, a), lb = sideLength(pts, i, b);
    if (!(la > 0.0) || !(lb > 0.0)) continue;
    const mvVector<2> u = pts[a] - pts[i], v = pts[b] - pts[i];
    const double angle = std::atan2(u.x() * v.y() - u.y() * v.x(), u.x() * v.x() + u.y() * v.y());
    triangles.push_back(Triangle{i, a, b, std::min(std::log(lb / la), kMaxLogRatio), angle});
  }
  return triangles;
}

// Shape bin of a triangle.
std::pair<long, long> shapeBin(double logRatio, double angle) {
  return {static_cast<long>(std::floor(logRatio / kRatioBin)),
          static_cast<long>(std::floor((angle + kPi) / kAngleBin))};
}

// The least-squares similarity carrying the model points onto the data points.
bool fitSimilarity(const std::vector<mvVector<2>>& from, const std::vector<mvVector<2>>& to,
                   mvXform<2>& pose) {
  const std::size_t n = from.size();
  if (n < 2) return false;
  mvVector<2> cf, ct;
  for (std::size_t i = 0; i < n; ++i) cf = cf + from[i], ct = ct + to[i];
  cf = cf * (1.0 / static_cast<double>(n));
  ct = ct * (1.0 / static_cast<double>(n));
  double a = 0.0, b = 0.0, den = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const mvVector<2> f = from[i] - cf, t = to[i] - ct;
    a += f.x() * t.x() + f.y() * t.y();
    b += f.x() * t.y() - f.y() * t.x();
    den += squaredLength(f);
  }
  if (!(den > 0.0)) return false;
  const mvMatrix<2> m(a / den, -b / den, b / den, a / den);
  pose = mvXform<2>(m, ct - m * cf);
  return std::isfinite(a / den) && std::isfinite(b / den) && (a != 0.0 || b != 0.0);
}

// Whether a pose lies in the run's ranges about its start pose (scale with a little slack:
// the fine pass decides).
struct RangeCheck {
  mvXform<2> startInverse;
  mvAngleRange rotations;
  mvRange scales;
  mvRange xs, ys;
  mvVector<2> center;

  bool accepts(const mvXform<2>& pose) const {
    const mvXform<2> relative = startInverse * pose;
    const double scale = relative.xScale();
    if (scales.range() == mvRangeDefs::eNormal &&
        (scale < 1.0 + scales.start() - 0.02 || scale > 1.0 + scales.end() + 0.02)) {
      return false;
    }
    if (rotations.range() != mvRangeDefs::eFull && !rotations.isWithin(relative.rotation())) {
      return false;
    }
    const mvVector<2> shift = relative * center - center;
    if (xs.range() == mvRangeDefs::eNormal && !xs.isWithin(shift.x())) return false;
    if (ys.range() == mvRangeDefs::eNormal && !ys.isWithin(shift.y())) return false;
    return true;
  }
};

// A bin of agreeing poses: its count and the first pose that fell in it.
struct PoseBin {
  long count = 0;
  mvXform<2> pose;
};
using PoseKey = std::tuple<long, long, long, long>;

PoseKey poseKey(const mvXform<2>& pose, const mvVector<2>& center, double positionBin) {
  const double rotation = std::atan2(pose.matrix().element(1, 0), pose.matrix().element(0, 0));
  const double scale = std::hypot(pose.matrix().element(0, 0), pose.matrix().element(1, 0));
  const mvVector<2> c = pose * center;
  return PoseKey{static_cast<long>(std::floor(rotation / kPoseRotationBin)),
                 static_cast<long>(std::floor(std::log(scale) / kPoseScaleBin)),
                 static_cast<long>(std::floor(c.x() / positionBin)),
                 static_cast<long>(std::floor(c.y() / positionBin))};
}

// Votes a pose for every pair of model and data triangles of the same shape.
std::map<PoseKey, PoseBin> votePoses(const std::vector<mvVector<2>>& model,
                                     const std::vector<mvVector<2>>& data,
                                     const std::vector<Triangle>& modelTriangles,
                                     const std::vector<Triangle>& dataTriangles,
                                     const RangeCheck& ranges, double positionBin) {
  std::map<std::pair<long, long>, std::vector<std::size_t>> table;
  for (std::size_t i = 0; i < modelTriangles.size(); ++i) {
    table[shapeBin(modelTriangles[i].logRatio, modelTriangles[i].angle)].push_back(i);
  }
  std::map<PoseKey, PoseBin> bins;
  std::vector<mvVector<2>> from(3), to(3);
  for (const Triangle& d : dataTriangles) {
    mvAttention::pace(64);
    const auto [r0, a0] = shapeBin(d.logRatio, d.angle);
    for (long r = r0 - 1; r <= r0 + 1; ++r) {
      for (long a = a0 - 1; a <= a0 + 1; ++a) {
        const auto found = table.find({r, a});
        if (found == table.end()) continue;
        for (std::size_t mi : found->second) {
          const Triangle& m = modelTriangles[mi];
          if (std::fabs(m.logRatio - d.logRatio) > kRatioBin ||
              std::fabs(m.angle - d.angle) > kAngleBin) {
            continue;
          }
          from = {model[m.p], model[m.a], model[m.b]};
          to = {data[d.p], data[d.a], data[d.b]};
          mvXform<2> pose;
          if (!fitSimilarity(from, to, pose) || !ranges.accepts(pose)) continue;
          PoseBin& bin = bins[poseKey(pose, ranges.center, positionBin)];
          if (bin.count++ == 0) bin.pose = pose;
        }
      }
    }
  }
  return bins;
}

// Iterated nearest-point fits from a rough pose; returns the support at the last gate.
long refinePose(const std::vector<mvVector<2>>& model, const std::vector<mvVector<2>>& data,
                const BucketGrid& dataGrid, double tolerance, mvXform<2>& pose) {
  std::vector<mvVector<2>> from, to;
  long support = 0;
  for (int it = 0; it < kRefineIterations; ++it) {
    mvAttention::pace(static_cast<long>(model.size()) * 16);
    const double t = static_cast<double>(it) / (kRefineIterations - 1);
    const double gate = tolerance * (kFirstGate + (kLastGate - kFirstGate) * t);
    from.clear();
    to.clear();
    for (const mvVector<2>& p : model) {
      const long j = dataGrid.nearest(pose * p, gate);
      if (j < 0) continue;
      from.push_back(p);
      to.push_back(data[static_cast<std::size_t>(j)]);
    }
    support = static_cast<long>(from.size());
    mvXform<2> fitted;
    if (!fitSimilarity(from, to, fitted)) return 0;
    pose = fitted;
  }
  return support;
}

double meanSpacing(const std::vector<mvVector<2>>& pts) {
  const Box b = boxOf(pts);
  const double area = std::max(b.maxX - b.minX, 1e-6) * std::max(b.maxY - b.minY, 1e-6);
  return std::max(std::sqrt(area / static_cast<double>(pts.size())), 1e-6);
}

}  // namespace

std::vector<PoseHypothesis> shapeHypotheses(const std::vector<mvVector<2>>& model,
                                            const std::vector<mvVector<2>>& data,
                                            const mvPointMatcherRunParams& params, double tolerance,
                                            std::size_t maxHypotheses) {
  std::vector<PoseHypothesis> hypotheses;
  if (model.size() < 3 || data.size() < 3 || !(tolerance > 0.0)) return hypotheses;
  const BucketGrid modelGrid(model, meanSpacing(model));
  const BucketGrid dataGrid(data, meanSpacing(data));
  const std::vector<Triangle> modelTriangles = buildTriangles(model, modelGrid);
  const std::vector<Triangle> dataTriangles = buildTriangles(data, dataGrid);

  mvVector<2> center;
  for (const mvVector<2>& p : model) center = center + p;
  center = center * (1.0 / static_cast<double>(model.size()));
  const RangeCheck ranges{params.startPose().inverse(),     params.rotationUncertainty(),
                          params.scaleUncertainty(),        params.xTranslationUncertainty(),
                          params.yTranslationUncertainty(), center};
  const std::map<PoseKey, PoseBin> bins = votePoses(model, data, modelTriangles, dataTriangles,
                                                    ranges, kPosePositionTolerances * tolerance);

  // The best supported bins, most votes first (ties in key order: deterministic).
  std::vector<std::pair<long, const PoseBin*>> ranked;
  for (const auto& entry : bins) {
    if (entry.second.count >= 2) ranked.push_back({entry.second.count, &entry.second});
  }
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& x, const auto& y) { return x.first > y.first; });
  std::size_t refined = 0;
  const long leastVotes = ranked.empty() ? 0 : ranked.front().first / kWeakestBinShare;
  for (const auto& entry : ranked) {
    if (entry.first < leastVotes) break;  // chance agreement next to the best bins
    if (hypotheses.size() >= maxHypotheses || refined++ >= kRefinedPerHypothesis * maxHypotheses) {
      break;
    }
    mvAttention::check();
    mvXform<2> pose = entry.second->pose;
    const long support = refinePose(model, data, dataGrid, tolerance, pose);
    if (support < 3 || !ranges.accepts(pose)) continue;
    const bool repeat = std::any_of(hypotheses.begin(), hypotheses.end(), [&](const auto& h) {
      return squaredLength(h.pose * center - pose * center) < tolerance * tolerance &&
             std::fabs(h.pose.xScale() - pose.xScale()) < 0.01;
    });
    if (!repeat) hypotheses.push_back(PoseHypothesis{pose, support});
  }
  std::stable_sort(hypotheses.begin(), hypotheses.end(),
                   [](const auto& x, const auto& y) { return x.support > y.support; });
  return hypotheses;
}

}  // namespace planned
}  // namespace detail
}  // namespace ptmatch
