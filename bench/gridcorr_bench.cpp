// Speed of the grid corresponder's run: a 10 x 10 dot pattern looked for among the nodes
// of a 100 x 100 grid, for each feature type and for one or several results.
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "ptmatch/gridcorr.h"

namespace {

// A 10 x 10 dot pattern with no symmetry (40 nodes).
const char* const kPattern[10] = {"#.#..##..#", ".#...#.#.#", "##.#....#.", "...##.#..#",
                                  "#......##.", ".#.##.#...", "#...#...##", "..#..#.#..",
                                  ".##....#.#", "#..#.#..##"};

std::vector<mvPair<long>> patternNodes(mvPair<long> at) {
  std::vector<mvPair<long>> nodes;
  for (long y = 0; y < 10; ++y) {
    for (long x = 0; x < 10; ++x) {
      if (kPattern[y][x] == '#') nodes.push_back(mvPair<long>(x, y) + at);
    }
  }
  return nodes;
}

// The pattern at (45, 31) among clutter filling a tenth of a 100 x 100 grid.
std::vector<mvPair<long>> observedGrid() {
  std::vector<mvPair<long>> nodes = patternNodes(mvPair<long>(45, 31));
  std::uint32_t state = 12345;
  for (long y = 0; y < 100; ++y) {
    for (long x = 0; x < 100; ++x) {
      state = state * 1664525u + 1013904223u;
      const bool nearPattern = x >= 44 && x <= 55 && y >= 30 && y <= 41;
      if (!nearPattern && (state >> 8) % 10 == 0) nodes.push_back(mvPair<long>(x, y));
    }
  }
  return nodes;
}

// Arguments: feature type, maxNumResults.
void BM_GridCorrRun(benchmark::State& state) {
  const auto feature = static_cast<mv_PointToGridCorresponderDefs::FeatureType>(state.range(0));
  mv_PointToGridCorresponder corresponder;
  corresponder.train(patternNodes(mvPair<long>(0, 0)),
                     mv_PointToGridCorresponderTrainParams(false, feature), mvXform<2>::I);
  const std::vector<mvPair<long>> observed = observedGrid();
  const mv_PointToGridCorresponderRunParams params(0.7, 1.0, state.range(1));
  mv_PointToGridCorresponderResultSet results;
  for (auto _ : state) {
    benchmark::DoNotOptimize(corresponder.run(observed, params, results));
  }
  if (results.results().empty() || results.results()[0].position() != mvPair<long>(45, 31)) {
    state.SkipWithError("the pattern was not found where it was placed");
  }
}
BENCHMARK(BM_GridCorrRun)
    ->ArgNames({"feature", "results"})
    ->Args({0, 1})
    ->Args({1, 1})
    ->Args({2, 1})
    ->Args({1, 10});

}  // namespace

BENCHMARK_MAIN();
