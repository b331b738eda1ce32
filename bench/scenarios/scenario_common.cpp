#include "scenario_common.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace ptmatch_bench {
namespace detail {

double ramp(long index) {
  return static_cast<double>(index % kRampSteps) / static_cast<double>(kRampSteps - 1);
}

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

double sideFor(long n, double spacing) { return 2.0 * spacing * std::sqrt(static_cast<double>(n)); }

mvVector<2> gaussianNoise(Random& rng, double sigma) {
  if (sigma <= 0.0) return mvVector<2>();
  const double x = rng.normal() * sigma;
  return mvVector<2>(x, rng.normal() * sigma);
}

mvVector<2> placeInside(Random& rng, const Points& model, double degrees, double scale,
                        double width, double height, double margin) {
  const Box b = boundsOf(transformed(similarity(degrees, scale, mvVector<2>()), model));
  auto pick = [&](double lo, double hi) {
    return lo <= hi ? rng.uniform(lo, hi) : (lo + hi) / 2.0;
  };
  return mvVector<2>(pick(margin - b.minX, width - margin - b.maxX),
                     pick(margin - b.minY, height - margin - b.maxY));
}

void makeData(Random& rng, PointScenario& s, long missing, long clutter,
              const std::function<bool(const mvVector<2>&)>& keep) {
  struct Tagged {
    mvVector<2> p;
    long model;     // -1 for clutter
    long instance;  // of s.instances
  };
  if (s.instances.empty()) s.instances.push_back(s.truth);
  s.truth = s.instances.front();
  std::vector<Tagged> tagged;
  for (std::size_t k = 0; k < s.instances.size(); ++k) {
    for (std::size_t m = 0; m < s.model.size(); ++m) {
      const mvVector<2> p = s.instances[k] * s.model[m] + gaussianNoise(rng, s.noise);
      if (keep(p)) tagged.push_back(Tagged{p, static_cast<long>(m), static_cast<long>(k)});
    }
  }
  rng.shuffle(tagged);
  tagged.resize(tagged.size() -
                static_cast<std::size_t>(std::min(missing, static_cast<long>(tagged.size()))));
  s.missing = static_cast<long>(s.model.size() * s.instances.size() - tagged.size());
  for (long c = 0; c < clutter; ++c) {
    tagged.push_back(Tagged{
        mvVector<2>(rng.uniform(0.0, s.imageWidth), rng.uniform(0.0, s.imageHeight)), -1, -1});
  }
  s.clutter = clutter;
  rng.shuffle(tagged);
  s.data.clear();
  s.truthMap.assign(s.model.size(), -1);
  for (std::size_t j = 0; j < tagged.size(); ++j) {
    s.data.push_back(tagged[j].p);
    if (tagged[j].model >= 0 && tagged[j].instance == 0) {
      s.truthMap[static_cast<std::size_t>(tagged[j].model)] = static_cast<long>(j);
    }
  }
}

bool anywhere(const mvVector<2>&) { return true; }

SearchRanges similarityRanges(double degrees, double scale, double minCoverage) {
  SearchRanges r;
  r.rotationLo = -degrees;
  r.rotationHi = degrees;
  r.scaleLo = -scale;
  r.scaleHi = scale;
  r.minCoverage = minCoverage;
  return r;
}

}  // namespace detail
}  // namespace ptmatch_bench
