// Speed of mfPtToGridMap on a 100 x 100 dot grid, turned by 7 degrees and scaled by 1.05,
// with noise of 0.1 pitch, a fifth of the dots missing and clutter of a fifth of the dots;
// staggered and not. The snap size is 0.9 pitch.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "../tests/common/seeded_random.h"
#include "ptmatch/ptgdmap.h"

namespace {

constexpr double kPitch = 10.0;
constexpr double kPi = 3.141592653589793;

std::vector<mvVector<2>> spoiledGrid(long side, bool staggered) {
  seeded_random::SeededRandom rng(7);
  auto unit = [&rng] { return rng.uniform(); };
  const double a = 7.0 * kPi / 180.0;
  const double step = 1.05 * kPitch;
  const mvVector<2> ex(step * std::cos(a), step * std::sin(a));
  const mvVector<2> ey(-step * std::sin(a), step * std::cos(a));
  const mvVector<2> origin(50.0, 80.0);
  std::vector<mvVector<2>> points;
  for (long j = 0; j < side; ++j) {
    for (long i = 0; i < side; ++i) {
      if (staggered && (i + j) % 2 != 0) continue;
      if (unit() < 0.2) continue;
      const double dx = (2.0 * unit() - 1.0) * 0.1 * kPitch;
      const double dy = (2.0 * unit() - 1.0) * 0.1 * kPitch;
      const mvVector<2> noise(dx, dy);
      points.push_back(origin + ex * static_cast<double>(i) + ey * static_cast<double>(j) + noise);
    }
  }
  const std::size_t dots = points.size();
  for (std::size_t k = 0; k < dots / 5; ++k) {
    const double u = unit() * static_cast<double>(side - 1);
    const double v = unit() * static_cast<double>(side - 1);
    points.push_back(origin + ex * u + ey * v);
  }
  rng.shuffle(points);
  return points;
}

// Argument: 1 for a staggered grid.
void BM_PtToGridMap(benchmark::State& state) {
  const bool staggered = state.range(0) != 0;
  const std::vector<mvVector<2>> points = spoiledGrid(100, staggered);
  const mvPtToGridMapRunParams params(mvVector<2>(kPitch, 0.0), mvVector<2>(0.0, kPitch), staggered,
                                      0.9 * kPitch);
  mvPtToGridMapResult result;
  long assigned = 0;
  for (auto _ : state) {
    assigned = mfPtToGridMap(points, params, result);
    benchmark::DoNotOptimize(assigned);
  }
  state.counters["points"] = static_cast<double>(points.size());
  state.counters["assigned"] = static_cast<double>(assigned);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(points.size()));
}
BENCHMARK(BM_PtToGridMap)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
