// The point-to-point search on a realistic scene: a 50-point model (points at least 8
// apart) found among 200 data points of a 640 x 480 image, 45 of them the model under a
// similarity pose with 0.2 of noise and 155 outliers; full rotation range, scale +-10 %.
// And wide searches with the translation free, on one and on two threads.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "../tests/common/search_scenes.h"
#include "../tests/common/seeded_random.h"
#include "mvbase/threads.h"
#include "ptmatch/ppmatch.h"

namespace {

using Points = std::vector<mvVector<2>>;

constexpr int kModelPoints = 50;
constexpr int kKeptPoints = 45;
constexpr int kDataPoints = 200;

struct Scene {
  Points model;
  Points data;
};

Scene makeScene() {
  seeded_random::SeededRandom rng(12345u);
  auto unit = [&rng] { return rng.uniform(); };
  Scene s;
  while (static_cast<int>(s.model.size()) < kModelPoints) {
    const double x = 160.0 * unit();
    const double y = 160.0 * unit();
    const mvVector<2> p(x, y);
    bool apart = true;
    for (const mvVector<2>& q : s.model) apart = apart && (p - q).len() >= 8.0;
    if (apart) s.model.push_back(p);
  }
  const mvRadian angle = mvDegree(37.0);
  const mvXform<2> pose(mvVector<2>(300.0, 180.0), angle, angle, 1.06, 1.06);
  for (int i = 0; i < kKeptPoints; ++i) {
    const double dx = 0.4 * unit() - 0.2;
    const double dy = 0.4 * unit() - 0.2;
    s.data.push_back(pose * s.model[i] + mvVector<2>(dx, dy));
  }
  while (static_cast<int>(s.data.size()) < kDataPoints) {
    const double x = 640.0 * unit();
    const double y = 480.0 * unit();
    s.data.push_back(mvVector<2>(x, y));
  }
  return s;
}

mvPointMatcherRunParams fullRotationParams() {
  mvPointMatcherRunParams params;
  params.minCoverage(0.5);
  params.rotationUncertainty(mvAngleRange::FullRange());
  params.scaleUncertainty(mvRange(-0.1, 0.1));
  params.maxNumResults(1);
  return params;
}

void runScene(benchmark::State& state, const mvPointMatcher& matcher, const Scene& scene) {
  const mvPointMatcherRunParams params = fullRotationParams();
  mvPointMatcherResultSet results;
  for (auto _ : state) {
    matcher.run(scene.data, params, results);
    benchmark::DoNotOptimize(results);
  }
  state.counters["results"] = static_cast<double>(results.results().size());
  state.counters["coverage"] = results.results().empty() ? 0.0 : results.results()[0].coverage();
}

void BM_PointToPointFullRotation(benchmark::State& state) {
  const Scene scene = makeScene();
  mvPointMatcher matcher;
  matcher.train(scene.model, mvPointMatcherDefs::eAutoDetect);
  runScene(state, matcher, scene);
}
BENCHMARK(BM_PointToPointFullRotation)->Unit(benchmark::kMillisecond);

// The same scene with a weighted model (weights 1 to 4, and one negative weight), which
// votes with 16-bit weights instead of counts.
void BM_PointToPointFullRotationWeighted(benchmark::State& state) {
  const Scene scene = makeScene();
  std::vector<long> weights;
  for (int i = 0; i < kModelPoints; ++i) weights.push_back(i == kModelPoints - 1 ? -2 : 1 + i % 4);
  mvPointMatcher matcher;
  matcher.train(scene.model, weights, mvPointMatcherDefs::eAutoDetect);
  runScene(state, matcher, scene);
}
BENCHMARK(BM_PointToPointFullRotationWeighted)->Unit(benchmark::kMillisecond);

// Wide searches as users run them, the translation free over the whole data: the wide
// scene (50 points, any rotation, scale 0.8-1.25) and the many scene (200 points, +-45
// degrees, scale 0.9-1.1), on the number of threads given as the argument.
void runWithThreads(benchmark::State& state, const search_scenes::Scene& scene) {
  const mvPointMatcher matcher = search_scenes::trainedOn(scene);
  const mvThreads::Scope threads(state.range(0));
  mvPointMatcherResultSet results;
  for (auto _ : state) {
    matcher.run(scene.data, scene.params, results);
    benchmark::DoNotOptimize(results);
  }
  state.counters["threads"] = static_cast<double>(state.range(0));
  state.counters["results"] = static_cast<double>(results.results().size());
  state.counters["coverage"] = results.results().empty() ? 0.0 : results.results()[0].coverage();
}

void BM_WideSearch(benchmark::State& state) {
  runWithThreads(state, search_scenes::makeScene(search_scenes::wideRecipe(50), 21u));
}
BENCHMARK(BM_WideSearch)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ManySearch(benchmark::State& state) {
  runWithThreads(state, search_scenes::makeScene(search_scenes::manyRecipe(200), 22u));
}
BENCHMARK(BM_ManySearch)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
