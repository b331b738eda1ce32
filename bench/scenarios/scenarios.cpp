#include "scenarios.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "scenario_common.h"

namespace ptmatch_bench {
namespace {

using namespace detail;

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

const std::vector<std::string>& gridFamilies() {
  static const std::vector<std::string> families = {
      "grid-symmetric",   "grid-staggered",     "grid-perspective", "grid-noise",
      "grid-missing",     "grid-clutter",       "grid-rotation",    "grid-strong-perspective",
      "grid-heavy-noise", "grid-heavy-clutter", "grid-mixed"};
  return families;
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
  p.maxNumResults(r.maxResults);
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
