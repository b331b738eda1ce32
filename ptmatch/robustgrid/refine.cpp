// The labelling of the lattice's axes and the refinement over the whole board.
#include "robustgrid/refine.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "robustgrid/solve.h"

namespace ptmatch::detail::robustgrid {

namespace {

constexpr long kUnassigned = mvRobustGridMapResult::kUnassigned;
/// The median distance of a 2-D normal error over its per-axis sigma, sqrt(2 ln 2).
constexpr double kMedianOverSigma = 1.1774100225154747;
/// The rejection distance never falls below, nor rises above, these parts of the local
/// distance between nodes.
constexpr double kSmallestReject = 0.05;
constexpr double kLargestReject = 0.5;
/// Assignment and rejection passes.
constexpr int kPasses = 2;

bool assigned(const mvPair<long>& n) { return n.x() != kUnassigned; }

mvVector<2> at(const mvPair<long>& n) {
  return mvVector<2>(static_cast<double>(n.x()), static_cast<double>(n.y()));
}

double cosine(const mvVector<2>& a, const mvVector<2>& b) {
  const double d = a.len() * b.len();
  return d > 0.0 ? (a.x() * b.x() + a.y() * b.y()) / d : 0.0;
}

/// The box of the nodes, in which points may be reassigned.
struct Box {
  long u0 = 0, u1 = -1, v0 = 0, v1 = -1;
  bool contains(const mvPair<long>& n) const {
    return n.x() >= u0 && n.x() <= u1 && n.y() >= v0 && n.y() <= v1;
  }
  std::size_t slot(const mvPair<long>& n) const {
    return static_cast<std::size_t>((n.y() - v0) * (u1 - u0 + 1) + (n.x() - u0));
  }
  std::size_t size() const { return static_cast<std::size_t>((u1 - u0 + 1) * (v1 - v0 + 1)); }
};

Box boxOf(const std::vector<mvPair<long>>& nodes) {
  Box b;
  bool first = true;
  for (const mvPair<long>& n : nodes) {
    if (!assigned(n)) continue;
    b.u0 = first ? n.x() : std::min(b.u0, n.x());
    b.u1 = first ? n.x() : std::max(b.u1, n.x());
    b.v0 = first ? n.y() : std::min(b.v0, n.y());
    b.v1 = first ? n.y() : std::max(b.v1, n.y());
    first = false;
  }
  return b;
}

/// The nearest node of grid position g (of even index sum when staggered).
mvPair<long> nearestNode(const mvVector<2>& g, bool staggered) {
  const double limit = 1e9;
  if (!(std::fabs(g.x()) < limit && std::fabs(g.y()) < limit)) {
    return mvPair<long>(kUnassigned, kUnassigned);
  }
  if (!staggered) return mvPair<long>(std::lround(g.x()), std::lround(g.y()));
  const long p = std::lround(0.5 * (g.x() + g.y()));
  const long q = std::lround(0.5 * (g.x() - g.y()));
  return mvPair<long>(p + q, p - q);
}

/// The distance from the node's position to its nearest neighbour node's.
double nodeSpacing(const Perspective& h, const mvPair<long>& n, bool staggered) {
  const mvVector<2> g = at(n);
  const mvVector<2> x = h.map(g);
  const mvVector<2> s1 = staggered ? mvVector<2>(1.0, 1.0) : mvVector<2>(1.0, 0.0);
  const mvVector<2> s2 = staggered ? mvVector<2>(1.0, -1.0) : mvVector<2>(0.0, 1.0);
  return std::min((h.map(g + s1) - x).len(), (h.map(g + s2) - x).len());
}

bool fit(const Points& points, const std::vector<mvPair<long>>& nodes, Perspective& h) {
  std::vector<mvVector<2>> grid, image;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    if (!assigned(nodes[i])) continue;
    grid.push_back(at(nodes[i]));
    image.push_back(points[i]);
  }
  return h.fit(grid, image);
}

/// One pass: every point to its nearest node in the box, the nearest point per node kept,
/// then the ones beyond the rejection distance dropped.
void reassign(const Points& points, const Box& box, bool staggered, double rejectSigmas,
              Refined& r) {
  const std::size_t n = points.size();
  std::vector<double> spacing(n, 0.0);
  std::vector<long> owner(box.size(), kNone);
  r.nodes.assign(n, mvPair<long>(kUnassigned, kUnassigned));
  r.residuals.assign(n, -1.0);
  for (std::size_t i = 0; i < n; ++i) {
    const mvPair<long> node = nearestNode(r.homography.unmap(points[i]), staggered);
    if (!assigned(node) || !box.contains(node)) continue;
    const double d = (points[i] - r.homography.map(at(node))).len();
    if (!std::isfinite(d)) continue;
    long& o = owner[box.slot(node)];
    if (o != kNone && r.residuals[static_cast<std::size_t>(o)] <= d) continue;
    if (o != kNone) {
      r.nodes[static_cast<std::size_t>(o)] = mvPair<long>(kUnassigned, kUnassigned);
      r.residuals[static_cast<std::size_t>(o)] = -1.0;
    }
    o = static_cast<long>(i);
    r.nodes[i] = node;
    r.residuals[i] = d;
    spacing[i] = nodeSpacing(r.homography, node, staggered);
  }
  std::vector<double> kept;
  for (double d : r.residuals) {
    if (d >= 0.0) kept.push_back(d);
  }
  r.sigma = 0.0;
  if (!kept.empty()) {
    std::nth_element(kept.begin(), kept.begin() + static_cast<long>(kept.size() / 2), kept.end());
    r.sigma = kept[kept.size() / 2] / kMedianOverSigma;
  }
  r.count = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (r.residuals[i] < 0.0) continue;
    const double limit = std::min(kLargestReject * spacing[i],
                                  std::max(rejectSigmas * r.sigma, kSmallestReject * spacing[i]));
    if (r.residuals[i] > limit) {
      r.nodes[i] = mvPair<long>(kUnassigned, kUnassigned);
      r.residuals[i] = -1.0;
    } else {
      ++r.count;
    }
  }
}

}  // namespace

namespace {

/// How well the grown nodes fill their box once sheared by s and rewritten for staggered
/// grids: nodes over the box's nodes.
double fill(const Growth& growth, const long (&s)[2][2], bool staggered) {
  long u0 = 0, u1 = 0, v0 = 0, v1 = 0;
  bool first = true;
  for (std::size_t i = 0; i < growth.taken.size(); ++i) {
    if (growth.taken[i] == 0) continue;
    const long p = growth.nodeP[i], q = growth.nodeQ[i];
    long u = s[0][0] * p + s[0][1] * q, v = s[1][0] * p + s[1][1] * q;
    if (staggered) {
      const long w = u;
      u = w + v;
      v = w - v;
    }
    u0 = first ? u : std::min(u0, u);
    u1 = first ? u : std::max(u1, u);
    v0 = first ? v : std::min(v0, v);
    v1 = first ? v : std::max(v1, v);
    first = false;
  }
  double area = static_cast<double>((u1 - u0 + 1) * (v1 - v0 + 1));
  if (staggered) area *= 0.5;
  return static_cast<double>(growth.count) / area;
}

/// The unimodular shear of the lattice indices (a product of single shears) that makes
/// the grown nodes fill their box best; the identity unless another fills clearly better.
void straighten(const Growth& growth, bool staggered, long (&s)[2][2]) {
  static constexpr long kShears[4][2][2] = {
      {{1, 1}, {0, 1}}, {{1, -1}, {0, 1}}, {{1, 0}, {1, 1}}, {{1, 0}, {-1, 1}}};
  double best = fill(growth, s, staggered);
  for (int round = 0; round < 3; ++round) {
    long bestNext[2][2] = {{s[0][0], s[0][1]}, {s[1][0], s[1][1]}};
    bool improved = false;
    for (const auto& h : kShears) {
      long next[2][2];
      for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) next[i][j] = h[i][0] * s[0][j] + h[i][1] * s[1][j];
      }
      const double f = fill(growth, next, staggered);
      if (f > 1.2 * best) {
        best = f;
        std::copy(&next[0][0], &next[0][0] + 4, &bestNext[0][0]);
        improved = true;
      }
    }
    if (!improved) return;
    std::copy(&bestNext[0][0], &bestNext[0][0] + 4, &s[0][0]);
  }
}

}  // namespace

namespace {

/// The similarity that moves the points' centroid to 0 and their mean distance from it
/// to 1, as a 3 x 3 matrix, and its inverse.
void normaliser(const std::vector<mvVector<2>>& pts, double (&t)[9], double (&inverse)[9]) {
  mvVector<2> c;
  for (const mvVector<2>& p : pts) c += p;
  c = c / static_cast<double>(pts.size());
  double spread = 0.0;
  for (const mvVector<2>& p : pts) spread += (p - c).len();
  spread /= static_cast<double>(pts.size());
  const double s = spread > 0.0 ? 1.0 / spread : 1.0;
  const double tm[9] = {s, 0, -s * c.x(), 0, s, -s * c.y(), 0, 0, 1};
  const double im[9] = {1 / s, 0, c.x(), 0, 1 / s, c.y(), 0, 0, 1};
  std::copy(tm, tm + 9, t);
  std::copy(im, im + 9, inverse);
}

void multiply(const double (&a)[9], const double (&b)[9], double (&out)[9]) {
  double r[9];
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      r[3 * i + j] = a[3 * i] * b[j] + a[3 * i + 1] * b[3 + j] + a[3 * i + 2] * b[6 + j];
    }
  }
  std::copy(r, r + 9, out);
}

/// The inverse of a 3 x 3 matrix by its adjugate; false when singular.
bool invert(const double (&m)[9], double (&out)[9]) {
  const double a[9] = {
      m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
      m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
      m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
  const double det = m[0] * a[0] + m[1] * a[3] + m[2] * a[6];
  if (!std::isfinite(det) || det == 0.0) return false;
  for (int k = 0; k < 9; ++k) out[k] = a[k] / det;
  return true;
}

}  // namespace

bool Perspective::fit(const std::vector<mvVector<2>>& grid, const std::vector<mvVector<2>>& image) {
  if (grid.size() < 4 || grid.size() != image.size()) return false;
  double tg[9], tgInverse[9], ti[9], tiInverse[9];
  normaliser(grid, tg, tgInverse);
  normaliser(image, ti, tiInverse);
  double m[8][8] = {};
  double r[8] = {};
  for (std::size_t k = 0; k < grid.size(); ++k) {
    const double x = tg[0] * grid[k].x() + tg[2], y = tg[4] * grid[k].y() + tg[5];
    const double u = ti[0] * image[k].x() + ti[2], v = ti[4] * image[k].y() + ti[5];
    const double rows[2][8] = {{x, y, 1.0, 0.0, 0.0, 0.0, -x * u, -y * u},
                               {0.0, 0.0, 0.0, x, y, 1.0, -x * v, -y * v}};
    const double values[2] = {u, v};
    for (int e = 0; e < 2; ++e) {
      for (int i = 0; i < 8; ++i) {
        if (rows[e][i] == 0.0) continue;
        for (int j = 0; j < 8; ++j) m[i][j] += rows[e][i] * rows[e][j];
        r[i] += rows[e][i] * values[e];
      }
    }
  }
  if (!solve(m, r)) return false;
  const double h[9] = {r[0], r[1], r[2], r[3], r[4], r[5], r[6], r[7], 1.0};
  double full[9], inverse[9];
  multiply(tiInverse, h, full);
  multiply(full, tg, full);
  if (!invert(full, inverse)) return false;
  for (double e : full) {
    if (!std::isfinite(e)) return false;
  }
  std::copy(full, full + 9, m_);
  std::copy(inverse, inverse + 9, inverse_);
  return true;
}

std::array<double, 9> Perspective::matrix() const {
  std::array<double, 9> out;
  for (int k = 0; k < 9; ++k) out[static_cast<std::size_t>(k)] = m_[k] / m_[8];
  return out;
}

Labelling chooseLabelling(const Growth& growth, const Lattice& grownLocal,
                          const mvRobustGridMapParams& params) {
  long shear[2][2] = {{1, 0}, {0, 1}};
  straighten(growth, params.staggered(), shear);
  // The lattice vectors per unit of the sheared indices: the inverse shear's columns.
  const double det = static_cast<double>(shear[0][0] * shear[1][1] - shear[0][1] * shear[1][0]);
  const Lattice local = {(grownLocal.a * static_cast<double>(shear[1][1]) -
                          grownLocal.b * static_cast<double>(shear[1][0])) /
                             det,
                         (grownLocal.b * static_cast<double>(shear[0][0]) -
                          grownLocal.a * static_cast<double>(shear[0][1])) /
                             det};
  const mvVector<2> refX = params.hasVectors() ? params.xv() : mvVector<2>(1.0, 0.0);
  const mvVector<2> refY = params.hasVectors() ? params.yv() : mvVector<2>(0.0, 1.0);
  // Steps per unit of the unturned labels: (p, q) itself, or (p + q, p - q) when staggered.
  const mvVector<2> baseX = params.staggered() ? (local.a + local.b) * 0.5 : local.a;
  const mvVector<2> baseY = params.staggered() ? (local.a - local.b) * 0.5 : local.b;
  const long base[2][2] = {{1, params.staggered() ? 1 : 0},
                           {params.staggered() ? 1 : 0, params.staggered() ? -1 : 1}};
  Labelling best;
  double bestScore = -std::numeric_limits<double>::infinity();
  // The 8 turns and mirrors of the axes, as signed permutations t of the base labels.
  for (int swap = 0; swap < 2; ++swap) {
    for (int sx = -1; sx <= 1; sx += 2) {
      for (int sy = -1; sy <= 1; sy += 2) {
        const long t[2][2] = {{swap ? 0 : sx, swap ? sx : 0}, {swap ? sy : 0, swap ? 0 : sy}};
        // The inverse of a signed permutation is its transpose: the image step per unit
        // of the new first label is t[0][0] baseX + t[0][1] baseY.
        const mvVector<2> xv =
            baseX * static_cast<double>(t[0][0]) + baseY * static_cast<double>(t[0][1]);
        const mvVector<2> yv =
            baseX * static_cast<double>(t[1][0]) + baseY * static_cast<double>(t[1][1]);
        const double score = cosine(xv, refX) + cosine(yv, refY);
        if (!(score > bestScore + 1e-12)) continue;
        bestScore = score;
        for (int i = 0; i < 2; ++i) {
          for (int j = 0; j < 2; ++j) best.m[i][j] = t[i][0] * base[0][j] + t[i][1] * base[1][j];
        }
        best.xv = xv;
        best.yv = yv;
        std::copy(&shear[0][0], &shear[0][0] + 4, &best.shear[0][0]);
      }
    }
  }
  return best;
}

bool refine(const Points& points, const std::vector<mvPair<long>>& grown,
            const mvRobustGridMapParams& params, Refined& out) {
  const Box box = boxOf(grown);
  out.nodes = grown;
  if (!fit(points, out.nodes, out.homography)) return false;
  for (int pass = 0; pass < kPasses; ++pass) {
    reassign(points, box, params.staggered(), params.rejectSigmas(), out);
    if (!fit(points, out.nodes, out.homography)) return false;
  }
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (out.residuals[i] >= 0.0) {
      out.residuals[i] = (points[i] - out.homography.map(at(out.nodes[i]))).len();
    }
  }
  return true;
}

mvXform<2> normalise(const Points& points, bool staggered, Refined& refined, mv2PTm& homography) {
  const Box box = boxOf(refined.nodes);
  long du = box.u0, dv = box.v0;
  if (staggered && ((du + dv) % 2 != 0)) --du;
  std::vector<mvVector<2>> grid, image;
  for (std::size_t i = 0; i < points.size(); ++i) {
    mvPair<long>& n = refined.nodes[i];
    if (!assigned(n)) continue;
    n = mvPair<long>(n.x() - du, n.y() - dv);
    grid.push_back(at(n));
    image.push_back(points[i]);
  }
  homography.fit(grid, image);
  // The matrix is found from the images of 9 nodes over the box, so that it is the same
  // transform as `homography`.
  std::vector<mvVector<2>> samples, images;
  const Box shifted = boxOf(refined.nodes);
  for (long k = 0; k < 9; ++k) {
    const double u = static_cast<double>(shifted.u0) +
                     0.5 * static_cast<double>((shifted.u1 - shifted.u0) * (k % 3));
    const double v = static_cast<double>(shifted.v0) +
                     0.5 * static_cast<double>((shifted.v1 - shifted.v0) * (k / 3));
    const mvVector<2> g(u, v);
    samples.push_back(g);
    images.push_back(homography.a2b(g));
  }
  if (!refined.homography.fit(samples, images)) refined.homography.fit(grid, image);
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (refined.residuals[i] >= 0.0) {
      refined.residuals[i] = (points[i] - homography.a2b(at(refined.nodes[i]))).len();
    }
  }
  return mv2PtMatchTm(grid, image, 6).a2bXform();
}

bool unfolded(const Refined& refined) {
  const Box box = boxOf(refined.nodes);
  const Perspective& h = refined.homography;
  double sign = 0.0;
  for (long corner = 0; corner < 4; ++corner) {
    const mvVector<2> g(static_cast<double>(corner % 2 ? box.u1 : box.u0),
                        static_cast<double>(corner / 2 ? box.v1 : box.v0));
    const mvVector<2> x = h.map(g);
    const mvVector<2> du = h.map(g + mvVector<2>(1.0, 0.0)) - x;
    const mvVector<2> dv = h.map(g + mvVector<2>(0.0, 1.0)) - x;
    const double det = du.x() * dv.y() - du.y() * dv.x();
    if (!std::isfinite(det) || det == 0.0) return false;
    if (sign != 0.0 && (det > 0.0) != (sign > 0.0)) return false;
    sign = det;
  }
  return true;
}

}  // namespace ptmatch::detail::robustgrid
