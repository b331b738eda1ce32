#include "scenarios.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <stdexcept>

namespace ptmatch_bench {
namespace {

constexpr double kPi = 3.141592653589793;

// Families whose parameters ramp over the cases do so in ten steps, case 0 to case 9,
// and start again at case 10.
constexpr long kRampSteps = 10;

double ramp(long index) {
  return static_cast<double>(index % kRampSteps) / static_cast<double>(kRampSteps - 1);
}

// The seed of one case: FNV-1a over the family name, mixed with the run's seed and the
// case index, so that families and cases are independent of each other.
std::uint32_t caseSeed(std::uint32_t seed, const std::string& family, long index) {
  std::uint32_t h = 2166136261u;
  auto mix = [&h](std::uint32_t byte) {
    h ^= byte;
    h *= 16777619u;
  };
  for (char c : family) mix(static_cast<unsigned char>(c));
  for (int shift = 0; shift < 32; shift += 8) {
    mix((seed >> shift) & 0xffu);
    mix((static_cast<std::uint32_t>(index) >> shift) & 0xffu);
  }
  return h;
}

mvXform<2> similarity(double degrees, double scale, const mvVector<2>& translation) {
  const mvRadian a = mvDegree(degrees);
  return mvXform<2>(translation, a, a, scale, scale);
}

struct Box {
  double minX, minY, maxX, maxY;
  mvVector<2> center() const { return mvVector<2>((minX + maxX) / 2.0, (minY + maxY) / 2.0); }
};

Box boundsOf(const Points& points) {
  Box b{points[0].x(), points[0].y(), points[0].x(), points[0].y()};
  for (const mvVector<2>& p : points) {
    b.minX = std::min(b.minX, p.x());
    b.minY = std::min(b.minY, p.y());
    b.maxX = std::max(b.maxX, p.x());
    b.maxY = std::max(b.maxY, p.y());
  }
  return b;
}

Points transformed(const mvXform<2>& pose, const Points& points) {
  Points out;
  out.reserve(points.size());
  for (const mvVector<2>& p : points) out.push_back(pose * p);
  return out;
}

// Up to n points uniform in a side x side square, none nearer than spacing to another
// (dart throwing, checked against a bucket grid of the spacing).
Points spacedPoints(Random& rng, long n, double spacing, double side) {
  const long cells = std::max(1L, static_cast<long>(side / spacing) + 1);
  std::vector<std::vector<std::size_t>> buckets(static_cast<std::size_t>(cells * cells));
  auto bucketOf = [&](double v) {
    return std::min(cells - 1, std::max(0L, static_cast<long>(v / spacing)));
  };
  Points points;
  for (long tries = 0; static_cast<long>(points.size()) < n && tries < 1000 * n; ++tries) {
    const mvVector<2> p(rng.uniform(0.0, side), rng.uniform(0.0, side));
    const long bx = bucketOf(p.x());
    const long by = bucketOf(p.y());
    bool apart = true;
    for (long y = std::max(0L, by - 1); apart && y <= std::min(cells - 1, by + 1); ++y) {
      for (long x = std::max(0L, bx - 1); apart && x <= std::min(cells - 1, bx + 1); ++x) {
        for (std::size_t i : buckets[static_cast<std::size_t>(y * cells + x)]) {
          if ((points[i] - p).len() < spacing) {
            apart = false;
            break;
          }
        }
      }
    }
    if (!apart) continue;
    buckets[static_cast<std::size_t>(by * cells + bx)].push_back(points.size());
    points.push_back(p);
  }
  return points;
}

// Side of the square that holds n points spaced `spacing` apart at a comfortable density
// (one point per (2 spacing)^2 on average).
double sideFor(long n, double spacing) { return 2.0 * spacing * std::sqrt(static_cast<double>(n)); }

mvVector<2> gaussianNoise(Random& rng, double sigma) {
  if (sigma <= 0.0) return mvVector<2>();
  const double x = rng.normal() * sigma;
  return mvVector<2>(x, rng.normal() * sigma);
}

// A translation that puts the model, turned and scaled, wholly inside the image with a
// margin; the image centre when the model does not fit.
mvVector<2> placeInside(Random& rng, const Points& model, double degrees, double scale,
                        double width, double height, double margin) {
  const Box b = boundsOf(transformed(similarity(degrees, scale, mvVector<2>()), model));
  auto pick = [&](double lo, double hi) {
    return lo <= hi ? rng.uniform(lo, hi) : (lo + hi) / 2.0;
  };
  return mvVector<2>(pick(margin - b.minX, width - margin - b.maxX),
                     pick(margin - b.minY, height - margin - b.maxY));
}

// Fills data, truthMap, missing and clutter: the model under the truth with noise, except
// for the points that `keep` rejects and `missing` of the others, plus `clutter` uniform
// points in the image; shuffled.
void makeData(Random& rng, PointScenario& s, long missing, long clutter,
              const std::function<bool(const mvVector<2>&)>& keep) {
  struct Tagged {
    mvVector<2> p;
    long model;
  };
  std::vector<Tagged> tagged;
  for (std::size_t m = 0; m < s.model.size(); ++m) {
    const mvVector<2> p = s.truth * s.model[m] + gaussianNoise(rng, s.noise);
    if (keep(p)) tagged.push_back(Tagged{p, static_cast<long>(m)});
  }
  rng.shuffle(tagged);
  tagged.resize(tagged.size() -
                static_cast<std::size_t>(std::min(missing, static_cast<long>(tagged.size()))));
  s.missing = static_cast<long>(s.model.size() - tagged.size());
  for (long c = 0; c < clutter; ++c) {
    tagged.push_back(
        Tagged{mvVector<2>(rng.uniform(0.0, s.imageWidth), rng.uniform(0.0, s.imageHeight)), -1});
  }
  s.clutter = clutter;
  rng.shuffle(tagged);
  s.data.clear();
  s.truthMap.assign(s.model.size(), -1);
  for (std::size_t j = 0; j < tagged.size(); ++j) {
    s.data.push_back(tagged[j].p);
    if (tagged[j].model >= 0) {
      s.truthMap[static_cast<std::size_t>(tagged[j].model)] = static_cast<long>(j);
    }
  }
}

bool anywhere(const mvVector<2>&) { return true; }

// A random model of n points spaced `spacing` apart, placed wholly inside the image under
// a rotation and scale drawn from the declared ranges.
void randomPlacedModel(Random& rng, PointScenario& s, long n, double spacing) {
  s.model = spacedPoints(rng, n, spacing, sideFor(n, spacing));
  const SearchRanges& r = s.ranges;
  const double degrees =
      r.fullRotation ? rng.uniform(-180.0, 180.0) : rng.uniform(r.rotationLo, r.rotationHi);
  const double scale = 1.0 + rng.uniform(r.scaleLo, r.scaleHi);
  s.truth = similarity(
      degrees, scale, placeInside(rng, s.model, degrees, scale, s.imageWidth, s.imageHeight, 10.0));
}

SearchRanges similarityRanges(double degrees, double scale, double minCoverage) {
  SearchRanges r;
  r.rotationLo = -degrees;
  r.rotationHi = degrees;
  r.scaleLo = -scale;
  r.scaleHi = scale;
  r.minCoverage = minCoverage;
  return r;
}

// --- point families ---

void cleanFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(30.0, 0.05, 0.7);
  randomPlacedModel(rng, s, rng.between(20, 40), 12.0);
  makeData(rng, s, 0, 0, anywhere);
}

void noiseFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(30.0, 0.05, 0.7);
  s.noise = 0.1 + 0.9 * ramp(s.index);
  randomPlacedModel(rng, s, rng.between(20, 40), 15.0);
  makeData(rng, s, 0, 0, anywhere);
}

void clutterFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(30.0, 0.05, 0.7);
  s.noise = 0.2;
  randomPlacedModel(rng, s, rng.between(20, 40), 12.0);
  const double fraction = 0.1 + 0.4 * ramp(s.index);
  makeData(rng, s, 0, std::lround(fraction * static_cast<double>(s.model.size())), anywhere);
}

void missingFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(30.0, 0.05, 0.5);
  s.noise = 0.2;
  randomPlacedModel(rng, s, rng.between(20, 40), 12.0);
  const double fraction = 0.1 + 0.2 * ramp(s.index);
  makeData(rng, s, std::lround(fraction * static_cast<double>(s.model.size())), 0, anywhere);
}

void partialFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(30.0, 0.05, 0.4);
  s.noise = 0.2;
  const long n = rng.between(30, 50);
  s.model = spacedPoints(rng, n, 12.0, sideFor(n, 12.0));
  const double degrees = rng.uniform(-30.0, 30.0);
  const double scale = 1.0 + rng.uniform(-0.05, 0.05);
  const double wanted = rng.uniform(0.6, 0.85);
  auto inside = [&s](const mvVector<2>& p) {
    return p.x() >= 0.0 && p.x() < s.imageWidth && p.y() >= 0.0 && p.y() < s.imageHeight;
  };
  // Slide the part over the image edge until about the wanted share of it is visible.
  const Points turned = transformed(similarity(degrees, scale, mvVector<2>()), s.model);
  const Box b = boundsOf(turned);
  double bestGap = 2.0;
  for (long tries = 0; tries < 2000 && bestGap > 0.03; ++tries) {
    const mvVector<2> t(rng.uniform(-b.maxX + 20.0, s.imageWidth - b.minX - 20.0),
                        rng.uniform(-b.maxY + 20.0, s.imageHeight - b.minY - 20.0));
    long visible = 0;
    for (const mvVector<2>& p : turned) visible += inside(p + t) ? 1 : 0;
    const double gap = std::fabs(static_cast<double>(visible) / static_cast<double>(n) - wanted);
    if (gap < bestGap) {
      bestGap = gap;
      s.truth = similarity(degrees, scale, t);
    }
  }
  makeData(rng, s, 0, std::lround(0.2 * static_cast<double>(n)), inside);
}

void fewFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(30.0, 0.05, 0.75);
  s.noise = 0.1;
  s.model = spacedPoints(rng, 4 + s.index % 5, 25.0, 120.0);
  const double degrees = rng.uniform(-30.0, 30.0);
  const double scale = 1.0 + rng.uniform(-0.05, 0.05);
  s.truth = similarity(
      degrees, scale, placeInside(rng, s.model, degrees, scale, s.imageWidth, s.imageHeight, 10.0));
  makeData(rng, s, 0, 0, anywhere);
}

void manyFamily(Random& rng, PointScenario& s) {
  static const long sizes[kRampSteps] = {200, 250, 300, 400, 500, 700, 1000, 1200, 1500, 2000};
  const long n = sizes[s.index % kRampSteps];
  const double spacing = 10.0;
  s.model = spacedPoints(rng, n, spacing, sideFor(n, spacing));
  const double side = sideFor(n, spacing);
  s.imageWidth = std::ceil(side * 1.25 + 100.0);
  s.imageHeight = s.imageWidth;
  s.noise = 0.2;
  // The part's placement is known to +-50 px, as on a fixture: the start pose puts the
  // model's centre on the image centre.
  const mvVector<2> imageCenter(s.imageWidth / 2.0, s.imageHeight / 2.0);
  const mvVector<2> modelCenter = boundsOf(s.model).center();
  s.ranges = similarityRanges(10.0, 0.02, 0.6);
  s.ranges.start = imageCenter - modelCenter;
  s.ranges.translation = 50.0;
  const double degrees = rng.uniform(-8.0, 8.0);
  const double scale = 1.0 + rng.uniform(-0.015, 0.015);
  const mvVector<2> shift(rng.uniform(-40.0, 40.0), rng.uniform(-40.0, 40.0));
  const mvXform<2> turn = similarity(degrees, scale, mvVector<2>());
  s.truth = similarity(degrees, scale, imageCenter + shift - turn * modelCenter);
  const double five = 0.05 * static_cast<double>(n);
  makeData(rng, s, std::lround(five), std::lround(five), anywhere);
}

// Rings of k points (k-fold), square arrays (4-fold), hexagonal patches (6-fold) and
// rectangular arrays (2-fold), centred on the origin.
Points symmetricPattern(long index, long& symmetry) {
  Points p;
  const long kind = index % 4;
  const long size = (index / 4) % 6;
  if (kind == 0) {
    const long k = 3 + size;
    symmetry = k;
    for (long ring = 0; ring < 2; ++ring) {
      const double radius = ring == 0 ? 70.0 : 35.0;
      const double phase = ring == 0 ? 0.0 : kPi / static_cast<double>(k);
      for (long i = 0; i < k; ++i) {
        const double a = phase + 2.0 * kPi * static_cast<double>(i) / static_cast<double>(k);
        p.push_back(mvVector<2>(radius * std::cos(a), radius * std::sin(a)));
      }
    }
  } else if (kind == 1) {
    const long n = 4 + size % 3;
    symmetry = 4;
    for (long y = 0; y < n; ++y) {
      for (long x = 0; x < n; ++x) {
        p.push_back(mvVector<2>(20.0 * (static_cast<double>(x) - (n - 1) / 2.0),
                                20.0 * (static_cast<double>(y) - (n - 1) / 2.0)));
      }
    }
  } else if (kind == 2) {
    symmetry = 6;
    const long radius = 2 + size % 2;
    for (long q = -radius; q <= radius; ++q) {
      for (long r = std::max(-radius, -q - radius); r <= std::min(radius, -q + radius); ++r) {
        p.push_back(mvVector<2>(20.0 * (static_cast<double>(q) + static_cast<double>(r) / 2.0),
                                20.0 * std::sqrt(3.0) / 2.0 * static_cast<double>(r)));
      }
    }
  } else {
    symmetry = 2;
    for (long y = 0; y < 3; ++y) {
      for (long x = 0; x < 5 + size % 2; ++x) {
        p.push_back(mvVector<2>(24.0 * static_cast<double>(x), 18.0 * static_cast<double>(y)));
      }
    }
    const mvVector<2> c = boundsOf(p).center();
    for (mvVector<2>& q : p) q = q - c;
  }
  return p;
}

void symmetricFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(0.0, 0.05, 0.8);
  s.ranges.fullRotation = true;
  s.noise = 0.1;
  s.model = symmetricPattern(s.index, s.symmetry);
  rng.shuffle(s.model);
  const double degrees = rng.uniform(-180.0, 180.0);
  const double scale = 1.0 + rng.uniform(-0.05, 0.05);
  s.truth = similarity(
      degrees, scale, placeInside(rng, s.model, degrees, scale, s.imageWidth, s.imageHeight, 10.0));
  makeData(rng, s, 0, 0, anywhere);
}

void rotationScaleFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(0.0, 0.0, 0.7);
  s.ranges.fullRotation = true;
  s.ranges.scaleLo = -0.2;
  s.ranges.scaleHi = 0.25;
  s.noise = 0.2;
  randomPlacedModel(rng, s, rng.between(20, 40), 12.0);
  makeData(rng, s, 0, 0, anywhere);
}

using PointMaker = void (*)(Random&, PointScenario&);

const std::map<std::string, PointMaker>& pointMakers() {
  static const std::map<std::string, PointMaker> makers = {{"clean", cleanFamily},
                                                           {"noise", noiseFamily},
                                                           {"clutter", clutterFamily},
                                                           {"missing", missingFamily},
                                                           {"partial", partialFamily},
                                                           {"few", fewFamily},
                                                           {"many", manyFamily},
                                                           {"symmetric", symmetricFamily},
                                                           {"rotation-scale", rotationScaleFamily}};
  return makers;
}

// --- grids ---

struct GridPose {
  double pitch;
  double rotation;
  double scale;
  double perspective;  // k: the homogeneous weight runs from 1 - k to 1 + k, so the local
                       // pitch runs from about 1 + 2k to 1 - 2k
  double direction;    // of the perspective tilt, radians
  double noise;
};

// The nodes of the complete pattern, in row order.
std::vector<mvPair<long>> patternNodes(long columns, long rows, bool staggered) {
  std::vector<mvPair<long>> nodes;
  for (long r = 0; r < rows; ++r) {
    for (long c = 0; c < columns; ++c) {
      nodes.push_back(staggered ? mvPair<long>(2 * c + r % 2, r) : mvPair<long>(c, r));
    }
  }
  return nodes;
}

// Positions of nodes (or fractional node coordinates) under the grid's pose: centred, in
// pitch units, tilted by the perspective, then turned, scaled and moved to the image centre.
class GridGeometry {
 public:
  GridGeometry(const GridPose& pose, const std::vector<mvPair<long>>& nodes) : pose_(pose) {
    double maxA = 0.0;
    double maxB = 0.0;
    for (const mvPair<long>& n : nodes) {
      maxA = std::max(maxA, static_cast<double>(n.x()));
      maxB = std::max(maxB, static_cast<double>(n.y()));
    }
    center_ = mvVector<2>(maxA / 2.0, maxB / 2.0);
    reach_ = std::max(1.0, mvVector<2>(maxA / 2.0, maxB / 2.0).len() * pose.pitch);
    const double extent = 2.0 * reach_ * pose.scale / (1.0 - pose.perspective) + 6.0 * pose.pitch;
    width_ = std::ceil(extent);
    height_ = std::ceil(extent);
  }

  mvVector<2> place(const mvVector<2>& node) const {
    const mvVector<2> local = (node - center_) * pose_.pitch;
    const double k = pose_.perspective / reach_;
    const double w =
        1.0 + k * (std::cos(pose_.direction) * local.x() + std::sin(pose_.direction) * local.y());
    const mvXform<2> turn =
        similarity(pose_.rotation, pose_.scale, mvVector<2>(width_ / 2.0, height_ / 2.0));
    return turn * (local / w);
  }

  double width() const { return width_; }
  double height() const { return height_; }
  const mvVector<2>& center() const { return center_; }

 private:
  GridPose pose_;
  mvVector<2> center_;
  double reach_ = 1.0;
  double width_ = 0.0;
  double height_ = 0.0;
};

// Distance, in pitches, from fractional node coordinates to the nearest lattice node (of
// even index sum when staggered).
double distanceToLattice(const mvVector<2>& q, bool staggered) {
  double best = 1e300;
  const long a0 = static_cast<long>(std::floor(q.x()));
  const long b0 = static_cast<long>(std::floor(q.y()));
  for (long b = b0 - 1; b <= b0 + 2; ++b) {
    for (long a = a0 - 1; a <= a0 + 2; ++a) {
      if (staggered && ((a + b) % 2 + 2) % 2 != 0) continue;
      best =
          std::min(best, (q - mvVector<2>(static_cast<double>(a), static_cast<double>(b))).len());
    }
  }
  return best;
}

// Fills the points of a grid scenario: the pattern's dots under the pose with noise,
// `missing` of them dropped, `clutter` points at least 0.35 pitch from every lattice node
// within the pattern's extent; shuffled.
void makeGridPoints(Random& rng, GridScenario& g, const GridPose& pose, long missing,
                    long clutter) {
  std::vector<mvPair<long>> nodes = patternNodes(g.columns, g.rows, g.staggered);
  const GridGeometry geometry(pose, nodes);
  g.imageWidth = geometry.width();
  g.imageHeight = geometry.height();
  rng.shuffle(nodes);
  const long kept = std::max(0L, static_cast<long>(nodes.size()) - missing);
  g.missing = static_cast<long>(nodes.size()) - kept;
  struct Tagged {
    mvVector<2> p;
    mvPair<long> node;
  };
  std::vector<Tagged> tagged;
  for (long i = 0; i < kept; ++i) {
    const mvPair<long>& n = nodes[static_cast<std::size_t>(i)];
    tagged.push_back(Tagged{geometry.place(mvVector<2>(n)) + gaussianNoise(rng, pose.noise), n});
  }
  const mvVector<2> span = geometry.center() * 2.0;
  for (long c = 0, tries = 0; c < clutter && tries < 10000 * (clutter + 1); ++tries) {
    const mvVector<2> q(rng.uniform(-0.5, span.x() + 0.5), rng.uniform(-0.5, span.y() + 0.5));
    if (distanceToLattice(q, g.staggered) < 0.35) continue;
    tagged.push_back(Tagged{geometry.place(q), mvPair<long>(kNoNode, kNoNode)});
    ++c;
  }
  g.clutter = static_cast<long>(tagged.size()) - kept;
  rng.shuffle(tagged);
  g.points.clear();
  g.nodes.clear();
  for (const Tagged& t : tagged) {
    g.points.push_back(t.p);
    g.nodes.push_back(t.node);
  }
}

void setNominal(GridScenario& g, const GridPose& pose) {
  g.pitch = pose.pitch;
  g.xv = mvVector<2>(pose.pitch, 0.0);
  g.yv = mvVector<2>(0.0, pose.pitch);
  g.rotation = pose.rotation;
  g.scale = pose.scale;
  g.perspective = pose.perspective;
  g.noise = pose.noise;
}

// Pattern size and pose of an ordinary case: 6-12 x 5-10 dots at a pitch of 20-36 px, or 4-8
// dots per row in 7-13 staggered rows at a half spacing of 15-28 px; rotation +-10 degrees,
// scale +-5 %, noise 2 % of the pitch, no perspective.
GridPose ordinaryGrid(Random& rng, GridScenario& g, bool staggered) {
  g.staggered = staggered;
  GridPose pose{};
  if (staggered) {
    g.columns = rng.between(4, 8);
    g.rows = rng.between(7, 13);
    pose.pitch = rng.uniform(15.0, 28.0);
  } else {
    g.columns = rng.between(6, 12);
    g.rows = rng.between(5, 10);
    pose.pitch = rng.uniform(20.0, 36.0);
  }
  pose.rotation = rng.uniform(-10.0, 10.0);
  pose.scale = rng.uniform(0.95, 1.05);
  pose.direction = rng.uniform(-kPi, kPi);
  pose.noise = 0.02 * pose.pitch;
  return pose;
}

long dotCount(const GridScenario& g) { return g.columns * g.rows; }

GridScenario makeGrid(const std::string& family, long index, Random& rng) {
  GridScenario g;
  g.family = family;
  g.index = index;
  const bool alternate = index % 2 == 1;
  long missing = 0;
  long clutter = 0;
  GridPose pose{};
  if (family == "grid-symmetric") {
    pose = ordinaryGrid(rng, g, false);
  } else if (family == "grid-staggered") {
    pose = ordinaryGrid(rng, g, true);
  } else if (family == "grid-perspective") {
    pose = ordinaryGrid(rng, g, alternate);
    pose.perspective = rng.uniform(0.02, 0.05);
  } else if (family == "grid-noise") {
    pose = ordinaryGrid(rng, g, alternate);
    pose.noise = 0.06 * pose.pitch;
  } else if (family == "grid-missing") {
    pose = ordinaryGrid(rng, g, alternate);
    missing = std::max(1L, std::lround(rng.uniform(0.05, 0.15) * dotCount(g)));
  } else if (family == "grid-clutter") {
    pose = ordinaryGrid(rng, g, alternate);
    clutter = std::max(1L, std::lround(rng.uniform(0.1, 0.3) * dotCount(g)));
  } else if (family == "grid-rotation") {
    pose = ordinaryGrid(rng, g, alternate);
    pose.rotation = rng.uniform(-180.0, 180.0);
  } else if (family == "grid-strong-perspective") {
    pose = ordinaryGrid(rng, g, alternate);
    pose.perspective = rng.uniform(0.04, 0.075);
  } else if (family == "grid-heavy-noise") {
    pose = ordinaryGrid(rng, g, alternate);
    pose.noise = rng.uniform(0.5, 2.5);
  } else if (family == "grid-heavy-clutter") {
    pose = ordinaryGrid(rng, g, alternate);
    clutter = std::max(1L, std::lround(rng.uniform(0.25, 0.5) * dotCount(g)));
  } else if (family == "grid-mixed") {
    pose = ordinaryGrid(rng, g, alternate);
    pose.perspective = 0.025;
    pose.noise = 0.5;
    missing = std::max(1L, std::lround(0.03 * dotCount(g)));
    clutter = std::max(1L, std::lround(0.1 * dotCount(g)));
  } else {
    throw std::invalid_argument("unknown grid family: " + family);
  }
  setNominal(g, pose);
  makeGridPoints(rng, g, pose, missing, clutter);
  return g;
}

}  // namespace

const std::vector<std::string>& pointFamilies() {
  static const std::vector<std::string> families = {"clean",   "noise",     "clutter",
                                                    "missing", "partial",   "few",
                                                    "many",    "symmetric", "rotation-scale"};
  return families;
}

const std::vector<std::string>& gridFamilies() {
  static const std::vector<std::string> families = {
      "grid-symmetric",   "grid-staggered",     "grid-perspective", "grid-noise",
      "grid-missing",     "grid-clutter",       "grid-rotation",    "grid-strong-perspective",
      "grid-heavy-noise", "grid-heavy-clutter", "grid-mixed"};
  return families;
}

PointScenario makePointScenario(const std::string& family, long index, std::uint32_t seed) {
  const auto maker = pointMakers().find(family);
  if (maker == pointMakers().end()) throw std::invalid_argument("unknown point family: " + family);
  Random rng(caseSeed(seed, family, index));
  PointScenario s;
  s.family = family;
  s.index = index;
  maker->second(rng, s);
  return s;
}

GridScenario makeGridScenario(const std::string& family, long index, std::uint32_t seed) {
  Random rng(caseSeed(seed, family, index));
  return makeGrid(family, index, rng);
}

PointScenario makeSizedScenario(long modelPoints, long dataPoints, std::uint32_t seed) {
  Random rng(caseSeed(seed, "sized", modelPoints * 100003L + dataPoints));
  PointScenario s;
  s.family = "sized";
  s.ranges = similarityRanges(15.0, 0.0, 0.5);
  s.noise = 0.2;
  const double spacing = 10.0;
  s.model = spacedPoints(rng, modelPoints, spacing, sideFor(modelPoints, spacing));
  const double side = sideFor(std::max(modelPoints, dataPoints), spacing);
  s.imageWidth = side;
  s.imageHeight = side;
  const double degrees = rng.uniform(-12.0, 12.0);
  const double modelSide = sideFor(modelPoints, spacing);
  // A model larger than the data's image lies over its centre; as many of its points as
  // fall inside are data.
  const double reach = modelSide * 0.75;
  const mvVector<2> center = boundsOf(s.model).center();
  const mvXform<2> turn = similarity(degrees, 1.0, mvVector<2>());
  const mvVector<2> place(
      rng.uniform(std::min(reach, side / 2.0), std::max(side - reach, side / 2.0)),
      rng.uniform(std::min(reach, side / 2.0), std::max(side - reach, side / 2.0)));
  s.truth = similarity(degrees, 1.0, place - turn * center);
  auto inside = [side](const mvVector<2>& p) {
    return p.x() >= 0.0 && p.x() < side && p.y() >= 0.0 && p.y() < side;
  };
  long visible = 0;
  for (const mvVector<2>& m : s.model) visible += inside(s.truth * m) ? 1 : 0;
  const long missing = std::max(0L, visible - dataPoints);
  makeData(rng, s, missing, std::max(0L, dataPoints - (visible - missing)), inside);
  return s;
}

mvPointMatcherRunParams searchParams(const SearchRanges& r) {
  mvPointMatcherRunParams p;
  p.minCoverage(r.minCoverage);
  p.rotationUncertainty(r.fullRotation
                            ? mvAngleRange::FullRange()
                            : mvAngleRange(mvDegree(r.rotationLo), mvDegree(r.rotationHi), false));
  p.scaleUncertainty(mvRange(r.scaleLo, r.scaleHi));
  if (r.translation > 0.0) {
    p.startPose(mvXform<2>(mvMatrix<2>(), r.start));
    p.xTranslationUncertainty(mvRange(-r.translation, r.translation));
    p.yTranslationUncertainty(mvRange(-r.translation, r.translation));
  }
  p.maxNumResults(1);
  return p;
}

GridScenario makeSizedGrid(long side, bool staggered, std::uint32_t seed) {
  Random rng(caseSeed(seed, staggered ? "sized-staggered" : "sized-grid", side));
  GridScenario g;
  g.family = staggered ? "sized-staggered" : "sized-grid";
  g.staggered = staggered;
  g.columns = staggered ? (side + 1) / 2 : side;
  g.rows = side;
  GridPose pose{};
  pose.pitch = 20.0;
  pose.rotation = 7.0;
  pose.scale = 1.05;
  pose.noise = 0.05 * pose.pitch;
  setNominal(g, pose);
  const long dots = dotCount(g);
  makeGridPoints(rng, g, pose, dots / 10, dots / 10);
  return g;
}

}  // namespace ptmatch_bench
