// The lattice vectors from nearest-neighbour statistics, and the seed of the growth.
#include <algorithm>
#include <cmath>

#include "robustgrid/internal.h"

namespace ptmatch::detail::robustgrid {

namespace {

constexpr double kPi = 3.141592653589793;
/// Neighbours per point whose vectors vote.
constexpr long kNeighbours = 6;
/// At most about this many points (every step-th) vote, and as many are tried as seeds.
constexpr long kVotingPoints = 120;
constexpr long kSeedCandidates = 100;
/// Bins of the direction histogram over a half turn.
constexpr long kBins = 180;
/// Half width, in bins, of the triangular vote of one vector.
constexpr long kSpread = 3;
/// Fewest bins between the two axes found without given vectors.
constexpr long kMinSeparation = 25;
/// Bins around the expected angle between the axes where the second axis is looked for.
constexpr long kExpectedWindow = 12;
/// Vectors within this many degrees of an axis measure its length.
constexpr double kAxisDegrees = 10.0;
/// Half width of the length mode's window, in natural log units (about 12 %).
constexpr double kLengthWindow = 0.12;
/// Fewest vectors behind an axis length.
constexpr long kMinVotes = 4;
/// The tolerance of a seed's neighbour, in the shorter lattice step.
constexpr double kSeedTolerance = 0.3;
/// Points sampled, and the tolerance in its length, when a step's support is measured.
constexpr long kSupportSamples = 100;
constexpr double kSupportTolerance = 0.3;
/// A finer step replaces a found one when its support is at least this part of theirs.
constexpr double kFinerSupport = 0.5;

struct Vote {
  double angle;  ///< degrees in [0, 180)
  double length;
};

double foldedDegrees(const mvVector<2>& v) {
  double a = std::atan2(v.y(), v.x()) * 180.0 / kPi;
  while (a < 0.0) a += 180.0;
  while (a >= 180.0) a -= 180.0;
  return a;
}

double binDistance(double a, double b) {
  const double d = std::fabs(a - b);
  return std::min(d, 180.0 - d);
}

/// The neighbour vectors of every point, within the lengths the given vectors allow.
std::vector<Vote> neighbourVotes(const PointIndex& index, double minLength, double maxLength) {
  std::vector<Vote> votes;
  std::vector<long> near;
  const long n = static_cast<long>(index.points().size());
  const long step = std::max(1L, n / kVotingPoints);
  for (long i = 0; i < n; i += step) {
    index.nearest(i, kNeighbours, near);
    for (long j : near) {
      const mvVector<2> d =
          index.points()[static_cast<std::size_t>(j)] - index.points()[static_cast<std::size_t>(i)];
      const double len = d.len();
      if (!(len > minLength) || len > maxLength) continue;
      votes.push_back({foldedDegrees(d), len});
    }
  }
  return votes;
}

std::vector<double> directionHistogram(const std::vector<Vote>& votes) {
  std::vector<double> h(kBins, 0.0);
  for (const Vote& v : votes) {
    const long centre = static_cast<long>(std::floor(v.angle)) % kBins;
    for (long d = -kSpread; d <= kSpread; ++d) {
      h[static_cast<std::size_t>((centre + d + kBins) % kBins)] +=
          static_cast<double>(kSpread + 1 - std::labs(d));
    }
  }
  return h;
}

/// The highest bin among those `accept` allows (the lowest bin on a tie), or -1.
template <typename Accept>
long peakBin(const std::vector<double>& h, Accept accept) {
  long best = -1;
  for (long b = 0; b < kBins; ++b) {
    if (!accept(b)) continue;
    if (best < 0 || h[static_cast<std::size_t>(b)] > h[static_cast<std::size_t>(best)]) best = b;
  }
  return best;
}

/// The axis vector near `degrees`: the mean direction and the median length of the most
/// common length band of the votes near it. False with too few votes.
bool axisVector(const std::vector<Vote>& votes, double degrees, mvVector<2>& axis) {
  std::vector<double> logs;
  double sx = 0.0, sy = 0.0;
  for (const Vote& v : votes) {
    if (binDistance(v.angle, degrees + 0.5) > kAxisDegrees) continue;
    logs.push_back(std::log(v.length));
  }
  if (static_cast<long>(logs.size()) < kMinVotes) return false;
  std::sort(logs.begin(), logs.end());
  std::size_t bestStart = 0, bestEnd = 0;
  for (std::size_t s = 0, e = 0; s < logs.size(); ++s) {
    while (e < logs.size() && logs[e] - logs[s] <= 2.0 * kLengthWindow) ++e;
    if (e - s > bestEnd - bestStart) {
      bestStart = s;
      bestEnd = e;
    }
  }
  if (static_cast<long>(bestEnd - bestStart) < kMinVotes) return false;
  const double length = std::exp(logs[(bestStart + bestEnd) / 2]);
  const double lo = logs[bestStart], hi = logs[bestEnd - 1];
  // Mean direction of the band's vectors, as doubled angles so that opposite ones agree.
  for (const Vote& v : votes) {
    const double l = std::log(v.length);
    if (binDistance(v.angle, degrees + 0.5) > kAxisDegrees || l < lo || l > hi) continue;
    sx += std::cos(2.0 * v.angle * kPi / 180.0);
    sy += std::sin(2.0 * v.angle * kPi / 180.0);
  }
  if (!(std::hypot(sx, sy) > 0.0)) return false;
  const double angle = 0.5 * std::atan2(sy, sx);
  axis = mvVector<2>(length * std::cos(angle), length * std::sin(angle));
  return true;
}

/// The lattice vectors the caller expects: xv and yv, or xv + yv and xv - yv.
Lattice expectedLattice(const mvRobustGridMapParams& params) {
  if (!params.staggered()) return {params.xv(), params.yv()};
  return {params.xv() + params.yv(), params.xv() - params.yv()};
}

/// The share of the points (every step-th, at most kSupportSamples) with a point near x + c.
double support(const PointIndex& index, const mvVector<2>& c) {
  const long n = static_cast<long>(index.points().size());
  const long step = std::max(1L, n / kSupportSamples);
  const double tolerance = kSupportTolerance * c.len();
  long found = 0, tried = 0;
  for (long i = 0; i < n; i += step, ++tried) {
    const long j =
        index.nearestFree(index.points()[static_cast<std::size_t>(i)] + c, tolerance, nullptr);
    if (j != kNone && j != i) ++found;
  }
  return tried > 0 ? static_cast<double>(found) / static_cast<double>(tried) : 0.0;
}

/// Replaces vectors that span a coarser lattice than the points fill (every other node of
/// the true one: its diagonals, or twice a vector) by the finer steps, when those are
/// about as well supported as the found ones.
void refineLattice(const PointIndex& index, Lattice& lattice) {
  for (int round = 0; round < 2; ++round) {
    const double base =
        kFinerSupport * std::min(support(index, lattice.a), support(index, lattice.b));
    const mvVector<2> c1 = (lattice.a + lattice.b) * 0.5, c2 = (lattice.a - lattice.b) * 0.5;
    if (support(index, c1) >= base && support(index, c2) >= base) {
      lattice = {c1, c2};
      continue;
    }
    bool changed = false;
    if (support(index, lattice.a * 0.5) >= base) {
      lattice.a = lattice.a * 0.5;
      changed = true;
    }
    if (support(index, lattice.b * 0.5) >= base) {
      lattice.b = lattice.b * 0.5;
      changed = true;
    }
    if (!changed) return;
  }
}

}  // namespace

bool estimateLattice(const PointIndex& index, const mvRobustGridMapParams& params,
                     Lattice& lattice) {
  double minLength = 0.0, maxLength = 1e300;
  long second = -1;
  const std::vector<Vote> votes = [&] {
    if (!params.hasVectors()) return neighbourVotes(index, minLength, maxLength);
    const Lattice e = expectedLattice(params);
    minLength = 0.6 * std::min(e.a.len(), e.b.len());
    maxLength = 1.6 * std::max(e.a.len(), e.b.len());
    return neighbourVotes(index, minLength, maxLength);
  }();
  if (static_cast<long>(votes.size()) < 2 * kMinVotes) return false;
  const std::vector<double> h = directionHistogram(votes);
  const long first = peakBin(h, [](long) { return true; });
  if (params.hasVectors()) {
    // The second axis lies at the expected angle from the first, to either side.
    const Lattice e = expectedLattice(params);
    const double between = binDistance(foldedDegrees(e.a), foldedDegrees(e.b));
    second = peakBin(h, [&](long b) {
      const double d = binDistance(static_cast<double>(b), static_cast<double>(first));
      return std::fabs(d - between) <= kExpectedWindow && d >= kMinSeparation / 2.0;
    });
  } else {
    second = peakBin(h, [&](long b) {
      return binDistance(static_cast<double>(b), static_cast<double>(first)) >= kMinSeparation;
    });
  }
  if (first < 0 || second < 0) return false;
  if (!axisVector(votes, static_cast<double>(first), lattice.a) ||
      !axisVector(votes, static_cast<double>(second), lattice.b)) {
    return false;
  }
  refineLattice(index, lattice);
  return true;
}

namespace {

/// The 8 neighbour steps of a seed: the four axis steps, then the four diagonals.
constexpr long kSteps[8][2] = {{1, 0}, {-1, 0},  {0, 1},  {0, -1},
                               {1, 1}, {-1, -1}, {1, -1}, {-1, 1}};

struct SeedScore {
  long found = 0;
  double misfit = 0.0;  ///< mean distance over the tolerance, of the found neighbours
  bool bothAxes = false;
};

SeedScore scoreSeed(const PointIndex& index, const Lattice& lattice, long i, double tolerance,
                    long* neighbours) {
  SeedScore s;
  const mvVector<2>& x = index.points()[static_cast<std::size_t>(i)];
  bool alongA = false, alongB = false;
  for (long k = 0; k < 8; ++k) {
    const mvVector<2> expected = x + lattice.a * static_cast<double>(kSteps[k][0]) +
                                 lattice.b * static_cast<double>(kSteps[k][1]);
    const long j = index.nearestFree(expected, tolerance, nullptr);
    if (neighbours != nullptr) neighbours[k] = j;
    if (j == kNone || j == i) continue;
    ++s.found;
    s.misfit += (index.points()[static_cast<std::size_t>(j)] - expected).len() / tolerance;
    if (k < 2) alongA = true;
    if (k >= 2 && k < 4) alongB = true;
  }
  if (s.found > 0) s.misfit /= static_cast<double>(s.found);
  s.bothAxes = alongA && alongB;
  return s;
}

bool better(const SeedScore& a, const SeedScore& b) {
  if (a.found != b.found) return a.found > b.found;
  return a.misfit < b.misfit;
}

/// The lattice vector measured at the seed along one axis, from the neighbours found.
mvVector<2> measuredStep(const PointIndex& index, long seed, long forward, long backward,
                         const mvVector<2>& nominal) {
  const mvVector<2>& x = index.points()[static_cast<std::size_t>(seed)];
  mvVector<2> sum;
  double n = 0.0;
  if (forward != kNone && forward != seed) {
    sum += index.points()[static_cast<std::size_t>(forward)] - x;
    n += 1.0;
  }
  if (backward != kNone && backward != seed) {
    sum += x - index.points()[static_cast<std::size_t>(backward)];
    n += 1.0;
  }
  return n > 0.0 ? sum / n : nominal;
}

}  // namespace

bool findSeed(const PointIndex& index, const Lattice& lattice, Seed& seed) {
  const double tolerance = kSeedTolerance * std::min(lattice.a.len(), lattice.b.len());
  SeedScore best;
  long bestIndex = kNone;
  const long n = static_cast<long>(index.points().size());
  const long step = std::max(1L, n / kSeedCandidates);
  for (long i = 0; i < n; i += step) {
    const SeedScore s = scoreSeed(index, lattice, i, tolerance, nullptr);
    if (!s.bothAxes || s.found < 3) continue;
    if (bestIndex == kNone || better(s, best)) {
      best = s;
      bestIndex = i;
    }
  }
  if (bestIndex == kNone) return false;
  long neighbours[8];
  scoreSeed(index, lattice, bestIndex, tolerance, neighbours);
  seed.point = bestIndex;
  seed.local.a = measuredStep(index, bestIndex, neighbours[0], neighbours[1], lattice.a);
  seed.local.b = measuredStep(index, bestIndex, neighbours[2], neighbours[3], lattice.b);
  return true;
}

}  // namespace ptmatch::detail::robustgrid
