// Cost growth: the point search over model size (10 to 1000 points, 1000 data points) and
// over data size (10 to 10 000 points, a 10-point model), and mfPtToGridMap over grid size
// (10 x 10 to 300 x 300 nodes). Points keep one density throughout (bench/scenarios:
// makeSizedScenario, makeSizedGrid), so a bigger set also covers a bigger area. The
// search runs with rotation +-15 degrees, no scale change, free translation and coverage
// 0.5. bench/sweep_fit.py fits the log-log slopes and draws the plot.
#include <cstdint>

#include <benchmark/benchmark.h>

#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"
#include "scenarios.h"

namespace {

constexpr std::uint32_t kSeed = 2024;
constexpr long kSweepData = 1000;
constexpr long kSweepModel = 10;

void searchScene(benchmark::State& state, long modelPoints, long dataPoints) {
  const ptmatch_bench::PointScenario scene =
      ptmatch_bench::makeSizedScenario(modelPoints, dataPoints, kSeed);
  mvPointMatcher matcher;
  matcher.train(scene.model, mvPointMatcherDefs::eAutoDetect);
  const mvPointMatcherRunParams params = ptmatch_bench::searchParams(scene.ranges);
  mvPointMatcherResultSet results;
  for (auto _ : state) {
    matcher.run(scene.data, params, results);
    benchmark::DoNotOptimize(results);
  }
  state.counters["model"] = static_cast<double>(scene.model.size());
  state.counters["data"] = static_cast<double>(scene.data.size());
  state.counters["coverage"] = results.results().empty() ? 0.0 : results.results()[0].coverage();
}

// Argument: model points; 1000 data points.
void BM_SearchModelSize(benchmark::State& state) {
  searchScene(state, static_cast<long>(state.range(0)), kSweepData);
}
BENCHMARK(BM_SearchModelSize)
    ->Arg(10)
    ->Arg(20)
    ->Arg(50)
    ->Arg(100)
    ->Arg(200)
    ->Arg(500)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond);

// Argument: data points; a 10-point model.
void BM_SearchDataSize(benchmark::State& state) {
  searchScene(state, kSweepModel, static_cast<long>(state.range(0)));
}
BENCHMARK(BM_SearchDataSize)
    ->Arg(10)
    ->Arg(30)
    ->Arg(100)
    ->Arg(300)
    ->Arg(1000)
    ->Arg(3000)
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond);

// Arguments: grid side (nodes per row and column), 1 for a staggered grid. The snap size
// is 0.9 of the pitch the mapping links along.
void BM_GridMapSize(benchmark::State& state) {
  const bool staggered = state.range(1) != 0;
  const ptmatch_bench::GridScenario grid =
      ptmatch_bench::makeSizedGrid(static_cast<long>(state.range(0)), staggered, kSeed);
  const double linkPitch = staggered ? (grid.xv + grid.yv).len() : grid.pitch;
  const mvPtToGridMapRunParams params(grid.xv, grid.yv, staggered, 0.9 * linkPitch);
  mvPtToGridMapResult result;
  long assigned = 0;
  for (auto _ : state) {
    assigned = mfPtToGridMap(grid.points, params, result);
    benchmark::DoNotOptimize(assigned);
  }
  state.counters["points"] = static_cast<double>(grid.points.size());
  state.counters["assigned"] = static_cast<double>(assigned);
}
BENCHMARK(BM_GridMapSize)
    ->ArgsProduct({{10, 20, 50, 100, 200, 300}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

}  // namespace
