// Recovery of known poses: random models of 10 to 100 points at least 8 apart, under
// random similarity poses inside the search ranges, with 0.2 of noise, 30 % of the data
// outliers and 20 % of the model points missing. The best result must map every kept
// model point to its own data point and lie within 0.5 of the true pose over the model.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include "common/seeded_random.h"
#include "ppmatch/search_support.h"

using namespace search_test;

namespace {

constexpr double kMinSpacing = 8.0;
constexpr double kNoise = 0.2;
constexpr double kMissingShare = 0.2;
constexpr double kOutlierShare = 0.3;
// Largest distance allowed between the found and the true pose over the model.
constexpr double kPoseTolerance = 0.5;

struct Ranges {
  double rotationLo, rotationHi;  // degrees
  double scaleLo, scaleHi;        // relative
};

using Random = seeded_random::SeededRandom;

struct Scene {
  Points model;
  std::vector<long> weights;
  mvXform<2> pose;
  Points data;
  std::vector<long> partner;  // data index of each model point, -1 when missing
};

Points randomModel(Random& rng, int n) {
  const double side = std::sqrt(static_cast<double>(n)) * 2.0 * kMinSpacing;
  Points model;
  while (static_cast<int>(model.size()) < n) {
    const double x = rng.uniform(0.0, side);
    const double y = rng.uniform(0.0, side);
    const mvVector<2> p(x, y);
    bool apart = true;
    for (const mvVector<2>& q : model) apart = apart && (p - q).len() >= kMinSpacing;
    if (apart) model.push_back(p);
  }
  return model;
}

double closestSpacing(const Points& points) {
  double closest = 1e300;
  for (std::size_t i = 0; i < points.size(); ++i) {
    for (std::size_t j = i + 1; j < points.size(); ++j) {
      closest = std::min(closest, (points[i] - points[j]).len());
    }
  }
  return closest;
}

// Outliers keep half the model's closest spacing (two capture ranges) away from every
// projected model point, so that no model point can explain them.
Scene randomScene(Random& rng, const Ranges& ranges) {
  Scene s;
  s.model = randomModel(rng, static_cast<int>(rng.between(10, 100)));
  const int n = static_cast<int>(s.model.size());
  auto between = [&](double lo, double hi) { return rng.uniform(lo, hi); };
  const double tx = between(-150, 150);
  const double ty = between(-150, 150);
  const double degrees = between(ranges.rotationLo, ranges.rotationHi);
  const double scale = 1.0 + between(ranges.scaleLo, ranges.scaleHi);
  s.pose = similarity(tx, ty, degrees, scale);
  const Points projected = transformed(s.pose, s.model);

  std::vector<int> order(n);
  for (int i = 0; i < n; ++i) order[i] = i;
  rng.shuffle(order);
  const int missing = static_cast<int>(kMissingShare * n);
  std::vector<bool> kept(n, true);
  for (int i = 0; i < missing; ++i) kept[order[i]] = false;

  struct Tagged {
    mvVector<2> p;
    int model;
  };
  std::vector<Tagged> tagged;
  for (int i = 0; i < n; ++i) {
    if (!kept[i]) continue;
    const double dx = between(-kNoise, kNoise);
    const double dy = between(-kNoise, kNoise);
    tagged.push_back({projected[i] + mvVector<2>(dx, dy), i});
  }
  const int outliers =
      static_cast<int>(std::lround(kOutlierShare / (1.0 - kOutlierShare) * tagged.size()));
  double minX = 1e300, maxX = -1e300, minY = 1e300, maxY = -1e300;
  for (const mvVector<2>& p : projected) {
    minX = std::min(minX, p.x());
    maxX = std::max(maxX, p.x());
    minY = std::min(minY, p.y());
    maxY = std::max(maxY, p.y());
  }
  const double clearance = closestSpacing(s.model) * 0.5;
  for (int added = 0; added < outliers;) {
    const double x = between(minX - 20, maxX + 20);
    const double y = between(minY - 20, maxY + 20);
    const mvVector<2> p(x, y);
    bool clear = true;
    for (const mvVector<2>& q : projected) clear = clear && (p - q).len() >= clearance;
    if (!clear) continue;
    tagged.push_back({p, -1});
    ++added;
  }
  rng.shuffle(tagged);
  s.partner.assign(n, -1);
  for (std::size_t j = 0; j < tagged.size(); ++j) {
    s.data.push_back(tagged[j].p);
    if (tagged[j].model >= 0) s.partner[tagged[j].model] = static_cast<long>(j);
  }
  return s;
}

// Checks the best result against the scene; also that no two results share a map.
void expectRecovered(const Scene& s, const mvPointMatcherResultSet& results) {
  ASSERT_FALSE(results.results().empty());
  const mvPointMatcherResult& best = results.results()[0];
  const std::vector<long>& map = best.modelToDataMap();
  ASSERT_EQ(map.size(), s.model.size());
  for (std::size_t i = 0; i < s.model.size(); ++i) {
    if (s.partner[i] >= 0) {
      EXPECT_EQ(map[i], s.partner[i]) << "model point " << i;
    }
  }
  EXPECT_LT(largestDisplacement(best.modelToDataXform(), s.pose, s.model), kPoseTolerance);
  std::set<std::vector<long>> maps;
  for (const mvPointMatcherResult& r : results.results()) maps.insert(r.modelToDataMap());
  EXPECT_EQ(maps.size(), results.results().size()) << "two results share a map";
}

void runScenes(unsigned seed, int count, const Ranges& ranges) {
  Random rng(seed);
  for (int trial = 0; trial < count; ++trial) {
    SCOPED_TRACE(::testing::Message() << "seed " << seed << " trial " << trial);
    const Scene s = randomScene(rng, ranges);
    mvPointMatcherRunParams params = runParams(degreeRange(ranges.rotationLo, ranges.rotationHi),
                                               mvRange(ranges.scaleLo, ranges.scaleHi), 3);
    if (ranges.rotationHi - ranges.rotationLo >= 360.0) {
      params.rotationUncertainty(mvAngleRange::FullRange());
    }
    mvPointMatcherResultSet results;
    trainedMatcher(s.model).run(s.data, params, results);
    expectRecovered(s, results);
  }
}

}  // namespace

TEST(Recovery, RandomPosesUnderFullRotationAndTenPercentScale) {
  runScenes(20240601u, 6, Ranges{-180.0, 180.0, -0.1, 0.1});
}

TEST(Recovery, RandomPosesUnderARestrictedRotationRange) {
  runScenes(777u, 10, Ranges{-30.0, 30.0, -0.1, 0.1});
}

TEST(Recovery, RandomPosesAtFixedScale) { runScenes(4242u, 10, Ranges{-45.0, 45.0, 0.0, 0.0}); }

TEST(Recovery, RandomPosesUnderAStartPose) {
  Random rng(99u);
  for (int trial = 0; trial < 6; ++trial) {
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    Scene s = randomScene(rng, Ranges{-10.0, 10.0, -0.05, 0.05});
    const mvXform<2> start = similarity(500, -300, 120, 1.5);
    s.pose = start * s.pose;
    s.data = transformed(start, s.data);
    mvPointMatcherRunParams params = runParams(degreeRange(-10, 10), mvRange(-0.05, 0.05), 3);
    params.startPose(start);
    params.xTranslationUncertainty(mvRange(-160, 160));
    params.yTranslationUncertainty(mvRange(-160, 160));
    mvPointMatcherResultSet results;
    trainedMatcher(s.model).run(s.data, params, results);
    // The noise scales with the start pose; so does the tolerance.
    ASSERT_FALSE(results.results().empty());
    const std::vector<long>& map = results.results()[0].modelToDataMap();
    for (std::size_t i = 0; i < s.model.size(); ++i) {
      if (s.partner[i] >= 0) {
        EXPECT_EQ(map[i], s.partner[i]) << "model point " << i;
      }
    }
    EXPECT_LT(largestDisplacement(results.results()[0].modelToDataXform(), s.pose, s.model),
              1.5 * kPoseTolerance);
  }
}

TEST(Recovery, WeightedModelsWithNegativeWeights) {
  // The missing model points carry weight -3 (features that must be absent), the kept ones
  // weights from 1 to 5. Found as they are, the best match covers every positive weight;
  // once a negative point's partner appears in the data, it is matched and costs 3.
  Random rng(31337u);
  for (int trial = 0; trial < 6; ++trial) {
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    Scene s = randomScene(rng, Ranges{-20.0, 20.0, -0.05, 0.05});
    std::vector<long> weights;
    long total = 0;
    std::size_t negative = 0;
    for (std::size_t i = 0; i < s.model.size(); ++i) {
      const long w = s.partner[i] >= 0 ? 1 + static_cast<long>(i % 5) : -3;
      weights.push_back(w);
      if (w > 0) total += w;
      if (w < 0) negative = i;
    }
    const mvPointMatcher matcher = trainedMatcher(s.model, weights);
    const mvPointMatcherRunParams params = runParams(degreeRange(-20, 20), mvRange(-0.05, 0.05), 3);
    mvPointMatcherResultSet results;
    matcher.run(s.data, params, results);
    expectRecovered(s, results);
    ASSERT_FALSE(results.results().empty());
    EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);

    s.partner[negative] = static_cast<long>(s.data.size());
    s.data.push_back(s.pose * s.model[negative]);
    matcher.run(s.data, params, results);
    expectRecovered(s, results);
    ASSERT_FALSE(results.results().empty());
    EXPECT_DOUBLE_EQ(results.results()[0].coverage(),
                     static_cast<double>(total - 3) / static_cast<double>(total));
  }
}
