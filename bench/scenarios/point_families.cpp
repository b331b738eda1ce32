// The point families: a model, data made from it under known poses, and the search ranges
// a user would state for such a part (see scenarios.h for the list).
#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

#include "scenario_common.h"
#include "scenarios.h"

namespace ptmatch_bench {
namespace {

using namespace detail;

// The ranges of the ordinary families: rotation +-45 degrees, scale 0.9 to 1.1.
constexpr double kRotation = 45.0;
constexpr double kScale = 0.1;

// Any rotation, scale 0.8 to 1.25.
SearchRanges wideRanges(double minCoverage) {
  SearchRanges r = similarityRanges(0.0, 0.0, minCoverage);
  r.fullRotation = true;
  r.scaleLo = -0.2;
  r.scaleHi = 0.25;
  return r;
}

long fractionOf(double fraction, long n) { return std::lround(fraction * static_cast<double>(n)); }

// The truth: a rotation and scale drawn from the declared ranges, and a place that puts
// the model wholly inside the image.
void placeModel(Random& rng, PointScenario& s) {
  const SearchRanges& r = s.ranges;
  const double degrees =
      r.fullRotation ? rng.uniform(-180.0, 180.0) : rng.uniform(r.rotationLo, r.rotationHi);
  const double scale = 1.0 + rng.uniform(r.scaleLo, r.scaleHi);
  s.truth = similarity(
      degrees, scale, placeInside(rng, s.model, degrees, scale, s.imageWidth, s.imageHeight, 10.0));
}

// A random model of n points spaced `spacing` apart, placed by placeModel.
void randomPlacedModel(Random& rng, PointScenario& s, long n, double spacing) {
  s.model = spacedPoints(rng, n, spacing, sideFor(n, spacing));
  placeModel(rng, s);
}

void cleanFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(kRotation, kScale, 0.7);
  randomPlacedModel(rng, s, rng.between(20, 60), 12.0);
  makeData(rng, s, 0, 0, anywhere);
}

void noiseFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(kRotation, kScale, 0.7);
  s.noise = 0.1 + 0.9 * ramp(s.index);
  randomPlacedModel(rng, s, rng.between(20, 60), 15.0);
  makeData(rng, s, 0, 0, anywhere);
}

void clutterFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(kRotation, kScale, 0.7);
  s.noise = 0.2;
  randomPlacedModel(rng, s, rng.between(20, 60), 12.0);
  const double fraction = 0.1 + 0.4 * ramp(s.index);
  makeData(rng, s, 0, fractionOf(fraction, static_cast<long>(s.model.size())), anywhere);
}

void missingFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(kRotation, kScale, 0.5);
  s.noise = 0.2;
  randomPlacedModel(rng, s, rng.between(20, 60), 12.0);
  const double fraction = 0.1 + 0.2 * ramp(s.index);
  makeData(rng, s, fractionOf(fraction, static_cast<long>(s.model.size())), 0, anywhere);
}

void partialFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(kRotation, kScale, 0.4);
  s.noise = 0.2;
  const long n = rng.between(30, 60);
  s.model = spacedPoints(rng, n, 12.0, sideFor(n, 12.0));
  const double degrees = rng.uniform(-kRotation, kRotation);
  const double scale = 1.0 + rng.uniform(-kScale, kScale);
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
  makeData(rng, s, 0, fractionOf(0.2, n), inside);
}

void fewFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(kRotation, kScale, 0.75);
  s.noise = 0.1;
  s.model = spacedPoints(rng, 4 + s.index % 5, 25.0, 120.0);
  const double degrees = rng.uniform(-kRotation, kRotation);
  const double scale = 1.0 + rng.uniform(-kScale, kScale);
  s.truth = similarity(
      degrees, scale, placeInside(rng, s.model, degrees, scale, s.imageWidth, s.imageHeight, 10.0));
  makeData(rng, s, 0, 0, anywhere);
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
  s.ranges = similarityRanges(0.0, kScale, 0.8);
  s.ranges.fullRotation = true;
  s.noise = 0.1;
  s.model = symmetricPattern(s.index, s.symmetry);
  rng.shuffle(s.model);
  const double degrees = rng.uniform(-180.0, 180.0);
  const double scale = 1.0 + rng.uniform(-kScale, kScale);
  s.truth = similarity(
      degrees, scale, placeInside(rng, s.model, degrees, scale, s.imageWidth, s.imageHeight, 10.0));
  makeData(rng, s, 0, 0, anywhere);
}

void wideFamily(Random& rng, PointScenario& s) {
  s.ranges = wideRanges(0.7);
  s.noise = 0.2;
  randomPlacedModel(rng, s, rng.between(20, 60), 12.0);
  makeData(rng, s, 0, 0, anywhere);
}

void wideDegradedFamily(Random& rng, PointScenario& s) {
  s.ranges = wideRanges(0.7);
  s.noise = 0.5;
  randomPlacedModel(rng, s, rng.between(30, 60), 12.0);
  const long n = static_cast<long>(s.model.size());
  makeData(rng, s, fractionOf(0.15, n), fractionOf(0.25, n), anywhere);
}

// Model sizes of the large families, case 0 to case 9.
long manySize(long index) {
  static const long sizes[kRampSteps] = {200, 250, 300, 400, 500, 700, 1000, 1200, 1500, 2000};
  return sizes[index % kRampSteps];
}

// A model of n points 10 px apart in a square image that holds it under any pose of the
// family's ranges, with a margin.
void manyModel(Random& rng, PointScenario& s, long n, double reach) {
  const double spacing = 10.0;
  const double side = sideFor(n, spacing);
  s.model = spacedPoints(rng, n, spacing, side);
  s.imageWidth = std::ceil(side * reach + 100.0);
  s.imageHeight = s.imageWidth;
  s.noise = 0.2;
}

void manyFamily(Random& rng, PointScenario& s) {
  const long n = manySize(s.index);
  // Turned by 45 degrees and grown by 10 %, the model's square spans 1.56 times its side.
  manyModel(rng, s, n, 1.6);
  s.ranges = similarityRanges(kRotation, kScale, 0.7);
  placeModel(rng, s);
  const long five = fractionOf(0.05, n);
  makeData(rng, s, five, five, anywhere);
}

void narrowManyFamily(Random& rng, PointScenario& s) {
  const long n = manySize(s.index);
  manyModel(rng, s, n, 1.25);
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
  const long five = fractionOf(0.05, n);
  makeData(rng, s, five, five, anywhere);
}

// The model twice, one instance in each half of the image, each under a pose of its own.
void twoInstancesFamily(Random& rng, PointScenario& s) {
  s.ranges = similarityRanges(kRotation, kScale, 0.7);
  s.ranges.maxResults = 2;
  s.noise = 0.2;
  const long n = rng.between(20, 40);
  s.model = spacedPoints(rng, n, 12.0, sideFor(n, 12.0));
  const double half = s.imageWidth / 2.0;
  for (int k = 0; k < 2; ++k) {
    const double degrees = rng.uniform(-kRotation, kRotation);
    const double scale = 1.0 + rng.uniform(-kScale, kScale);
    const mvVector<2> place = placeInside(rng, s.model, degrees, scale, half, s.imageHeight, 10.0) +
                              mvVector<2>(k * half, 0.0);
    s.instances.push_back(similarity(degrees, scale, place));
  }
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
                                                           {"symmetric", symmetricFamily},
                                                           {"wide", wideFamily},
                                                           {"wide-degraded", wideDegradedFamily},
                                                           {"many", manyFamily},
                                                           {"two-instances", twoInstancesFamily},
                                                           {"narrow-many", narrowManyFamily}};
  return makers;
}

}  // namespace

const std::vector<std::string>& pointFamilies() {
  static const std::vector<std::string> families = {
      "clean",     "noise", "clutter",       "missing", "partial",       "few",
      "symmetric", "wide",  "wide-degraded", "many",    "two-instances", "narrow-many"};
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

}  // namespace ptmatch_bench
