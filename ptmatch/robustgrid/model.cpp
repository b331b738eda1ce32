// The local models of the growth: a node's position predicted from the assigned nodes
// around it, by a perspective fit, an affine fit, or the seed's vectors.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

#include "robustgrid/internal.h"
#include "robustgrid/solve.h"

namespace ptmatch::detail::robustgrid {

namespace {

/// Fewest nodes for the perspective fit, and for leaving the nearer window.
constexpr long kPerspectiveNodes = 10;
/// Widest window, in nodes to either side, searched for assigned nodes.
constexpr long kMaxRadius = 4;
/// Nodes for which the window is widened.
constexpr long kAffineNodes = 4;
/// The perspective prediction is kept when it lies this near the affine one (in pitches).
constexpr double kAgreement = 0.25;
/// The affine fit is kept when its residuals lie within this many noise levels.
constexpr double kAffineEnough = 1.25;

/// One assigned node near the predicted one: its index offset and its point.
struct Sample {
  double p;
  double q;
  mvVector<2> x;
};

/// Least-squares affine x = c + p u + q v over the samples; the prediction at (0, 0) is c.
bool fitAffine(const std::vector<Sample>& samples, mvVector<2>& c, mvVector<2>& u, mvVector<2>& v) {
  double m[3][3] = {};
  double bx[3] = {}, by[3] = {};
  for (const Sample& s : samples) {
    const double row[3] = {1.0, s.p, s.q};
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) m[i][j] += row[i] * row[j];
      bx[i] += row[i] * s.x.x();
      by[i] += row[i] * s.x.y();
    }
  }
  double m2[3][3];
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) m2[i][j] = m[i][j];
  }
  // Nodes on one line leave the system singular.
  if (!solve(m, bx) || !solve(m2, by)) return false;
  c = mvVector<2>(bx[0], by[0]);
  u = mvVector<2>(bx[1], by[1]);
  v = mvVector<2>(bx[2], by[2]);
  return true;
}

/// Least-squares perspective fit (linearised) of the samples, whose points are relative
/// to a centre and scaled to about unit pitch; the prediction at (0, 0) is (h2, h5).
bool fitPerspective(const std::vector<Sample>& samples, mvVector<2>& at0) {
  double m[8][8] = {};
  double r[8] = {};
  for (const Sample& s : samples) {
    const double u = s.x.x(), v = s.x.y();
    const double rows[2][8] = {{s.p, s.q, 1.0, 0.0, 0.0, 0.0, -s.p * u, -s.q * u},
                               {0.0, 0.0, 0.0, s.p, s.q, 1.0, -s.p * v, -s.q * v}};
    const double values[2] = {u, v};
    for (int k = 0; k < 2; ++k) {
      for (int i = 0; i < 8; ++i) {
        if (rows[k][i] == 0.0) continue;
        for (int j = 0; j < 8; ++j) m[i][j] += rows[k][i] * rows[k][j];
        r[i] += rows[k][i] * values[k];
      }
    }
  }
  if (!solve(m, r)) return false;
  at0 = mvVector<2>(r[2], r[5]);
  return std::isfinite(at0.x()) && std::isfinite(at0.y());
}

/// The assigned nodes within `radius` of (p, q), as offsets from it.
void gather(const Growth& growth, const Points& points, long p, long q, long radius,
            std::vector<Sample>& out) {
  out.clear();
  for (long dq = -radius; dq <= radius; ++dq) {
    for (long dp = -radius; dp <= radius; ++dp) {
      const long point = growth.nodes.at(p + dp, q + dq);
      if (point == kNone) continue;
      out.push_back({static_cast<double>(dp), static_cast<double>(dq),
                     points[static_cast<std::size_t>(point)]});
    }
  }
}

/// The prediction from the nearest sample and the seed's vectors.
Prediction fromNearest(const std::vector<Sample>& samples, const Lattice& fallback) {
  const Sample* nearest = &samples.front();
  for (const Sample& s : samples) {
    if (std::fabs(s.p) + std::fabs(s.q) < std::fabs(nearest->p) + std::fabs(nearest->q)) {
      nearest = &s;
    }
  }
  Prediction out;
  out.position = nearest->x - fallback.a * nearest->p - fallback.b * nearest->q;
  out.pitch = std::min(fallback.a.len(), fallback.b.len());
  return out;
}

}  // namespace

bool predictNode(const Growth& growth, const Points& points, const Lattice& fallback, long p,
                 long q, double sigma, Prediction& out) {
  static thread_local std::vector<Sample> samples;
  long radius = 2;
  gather(growth, points, p, q, radius, samples);
  // Wider windows only while too few nodes for an affine fit are near.
  while (static_cast<long>(samples.size()) < kAffineNodes && radius < kMaxRadius) {
    gather(growth, points, p, q, ++radius, samples);
  }
  if (samples.empty()) return false;

  mvVector<2> c, u, v;
  if (samples.size() < 3 || !fitAffine(samples, c, u, v)) {
    out = fromNearest(samples, fallback);
    return true;
  }
  out.position = c;
  out.pitch = std::min(u.len(), v.len());
  if (static_cast<long>(samples.size()) < kPerspectiveNodes || !(out.pitch > 0.0)) return true;
  if (sigma > 0.0) {
    double sum = 0.0;
    for (const Sample& s : samples) {
      const mvVector<2> d = s.x - (c + u * s.p + v * s.q);
      sum += d.x() * d.x() + d.y() * d.y();
    }
    // Two coordinates per sample, six parameters: the affine fit's noise per axis.
    const double rms =
        std::sqrt(sum / std::max(1.0, 2.0 * static_cast<double>(samples.size()) - 6.0));
    if (rms <= kAffineEnough * sigma) return true;
  }

  // The perspective fit works on points relative to the affine prediction, in pitches.
  const double scale = 1.0 / out.pitch;
  std::vector<Sample> local(samples);
  for (Sample& s : local) s.x = (s.x - c) * scale;
  mvVector<2> at0;
  if (fitPerspective(local, at0) && at0.len() <= kAgreement) out.position = c + at0 / scale;
  return true;
}

}  // namespace ptmatch::detail::robustgrid
