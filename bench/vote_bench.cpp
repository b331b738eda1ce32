// The voting step against its least work. On the occupancy raster and translation window
// of realistic scenes (bench/scenarios), a Voter runs a set of lattice steps of the scene's
// search (projection, clearing, voting, peak collection into a fresh coarse store), once
// with the scatter vote (BM_VoteStep) and once with the reference (BM_VoteStepReference).
// BM_PlainIncrements does, in the same run, the least work those steps need: one 16-bit
// increment per vote at its precomputed place, in the order the votes are cast, into an
// accumulator of the same size. One vote is one model point meeting one occupied cell
// inside its translation window.
//
// Counters: votes (per iteration), cells (accumulator cells), votes_per_second.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "ppmatch/search/grid_space.h"
#include "ppmatch/search/lattice.h"
#include "ppmatch/search/vote.h"
#include "ptmatch/ppmatch.h"
#include "scenarios.h"

namespace {

using ptmatch::detail::CellHypothesis;
using ptmatch::detail::GridSpace;
using ptmatch::detail::HypothesisStore;
using ptmatch::detail::VoteMethod;
using ptmatch::detail::Voter;

constexpr std::uint32_t kSeed = 7;
// Lattice steps voted per iteration, spread evenly over the scene's lattice.
constexpr std::size_t kSteps = 16;

// One lattice step: a scale and a rotation in degrees.
struct Step {
  double scale;
  double rotation;
};

// A scene's grid space, window, model and chosen lattice steps, with its vote count.
struct VoteScene {
  std::string label;
  mv_PointMatcherModel model;
  GridSpace space;
  mvPelRect window;
  std::vector<Step> steps;
  long minScore = 2;
  long capacity = 8;
  // The accumulator index of every vote of the steps, in the order the votes are cast.
  std::vector<std::uint32_t> votes;
};

mv_PointMatcherModel modelOf(const ptmatch_bench::Points& points) {
  // The model as training from points makes it: bounding-box centre, radius, and the
  // default grid size max(least spacing / 4, largest span / 4096).
  mv_PointMatcherModel model;
  model.points = points;
  double minX = points[0].x(), maxX = minX, minY = points[0].y(), maxY = minY;
  for (const mvVector<2>& p : points) {
    minX = std::min(minX, p.x());
    maxX = std::max(maxX, p.x());
    minY = std::min(minY, p.y());
    maxY = std::max(maxY, p.y());
  }
  model.center = mvVector<2>((minX + maxX) / 2.0, (minY + maxY) / 2.0);
  for (const mvVector<2>& p : points)
    model.radius = std::max(model.radius, (p - model.center).len());
  double spacing = 1e300;
  double span = 0.0;
  for (std::size_t i = 0; i < points.size(); ++i) {
    for (std::size_t j = 0; j < points.size(); ++j) {
      if (i == j) continue;
      const double d = (points[i] - points[j]).len();
      if (d > 0.0) spacing = std::min(spacing, d);
      span = std::max(span, d);
    }
  }
  model.defaultGridSize = std::max(spacing / 4.0, span / 4096.0);
  model.totalWeight = static_cast<long>(points.size());
  model.trained = true;
  return model;
}

// Every vote of a model projected to cells: accumulator index v x width + u for each model
// point and each occupied raster cell in its window.
void appendVotes(const VoteScene& s, const std::vector<mvPair<long>>& cells,
                 std::vector<std::uint32_t>& votes) {
  const long width = s.window.width() + 1;
  const long height = s.window.height() + 1;
  const mvPelBuffer_const<unsigned char>& occupancy = s.space.occupancy;
  for (const mvPair<long>& q : cells) {
    const long x0 = s.window.x() + q.x();
    const long y0 = s.window.y() + q.y();
    for (long v = std::max(0L, -y0); v < height && y0 + v < occupancy.height(); ++v) {
      const unsigned char* row = occupancy.pointToRow(y0 + v);
      for (long u = std::max(0L, -x0); u < width && x0 + u < occupancy.width(); ++u) {
        if (row[x0 + u] != 0) votes.push_back(static_cast<std::uint32_t>(v * width + u));
      }
    }
  }
}

VoteScene makeVoteScene(const std::string& label, const ptmatch_bench::PointScenario& scenario) {
  VoteScene s;
  s.label = label;
  s.model = modelOf(scenario.model);
  const mvPointMatcherRunParams params = ptmatch_bench::searchParams(scenario.ranges);
  const double gridSize = s.model.defaultGridSize;
  s.space = ptmatch::detail::mapDataToGridSpace(scenario.data, params.startPose(), gridSize);
  ptmatch::detail::translationWindow(s.space, s.model, params, s.window);
  // The search halves the caller's coverage.
  s.minScore = std::max(2L, static_cast<long>(0.5 * params.minCoverage() *
                                              static_cast<double>(scenario.model.size())));
  std::vector<Step> lattice;
  using ptmatch::detail::walkLattice;
  walkLattice(ptmatch::detail::scaleLattice(params.scaleUncertainty(), gridSize, s.model),
              [&](double scale) {
                walkLattice(ptmatch::detail::rotationLattice(params.rotationUncertainty(), gridSize,
                                                             s.model, scale),
                            [&](double rotation) {
                              lattice.push_back(Step{scale, rotation});
                            });
              });
  for (std::size_t k = 0; k < kSteps && k < lattice.size(); ++k) {
    s.steps.push_back(lattice[k * lattice.size() / std::min(kSteps, lattice.size())]);
  }
  std::vector<mvPair<long>> cells;
  for (const Step& step : s.steps) {
    ptmatch::detail::projectModel(s.model.points,
                                  ptmatch::detail::modelToGrid(s.space.dataToGrid, s.model.center,
                                                               step.scale, mvDegree(step.rotation)),
                                  cells);
    appendVotes(s, cells, s.votes);
  }
  return s;
}

// --- The searches users run widely: any rotation with scale 0.8 to 1.25, and 200 to 2000
// points at +-45 degrees and scale 0.9 to 1.1, the translation free over the whole data.

void appendWideScenes(std::vector<VoteScene>& v) {
  using ptmatch_bench::makePointScenario;
  v.push_back(makeVoteScene("wide: 20-60 points, any rotation, scale 0.8-1.25",
                            makePointScenario("wide", 0, kSeed)));
  v.push_back(makeVoteScene("wide-degraded: 25 % clutter, 15 % missing, noise 0.5 px",
                            makePointScenario("wide-degraded", 0, kSeed)));
  // Larger many cases cast over 10^8 votes in 16 steps: the plain loop's list of them
  // would not fit a small machine.
  v.push_back(makeVoteScene("many: 200 points, +-45 deg, free translation",
                            makePointScenario("many", 0, kSeed)));
  v.push_back(makeVoteScene("many: 500 points, +-45 deg, free translation",
                            makePointScenario("many", 4, kSeed)));
}

// --- end of the wide scenes

const std::vector<VoteScene>& scenes() {
  static const std::vector<VoteScene> all = [] {
    using ptmatch_bench::makePointScenario;
    using ptmatch_bench::makeSizedScenario;
    std::vector<VoteScene> v;
    v.push_back(makeVoteScene("clean: 20-60 points, free translation",
                              makePointScenario("clean", 2, kSeed)));
    v.push_back(makeVoteScene("clutter 50 %", makePointScenario("clutter", 9, kSeed)));
    v.push_back(makeVoteScene("narrow-many: 1000 points, translation +-50 px",
                              makePointScenario("narrow-many", 6, kSeed)));
    v.push_back(makeVoteScene("100-point model, 1000 data points, free translation",
                              makeSizedScenario(100, 1000, kSeed)));
    v.push_back(makeVoteScene("10-point model, 10000 data points, free translation",
                              makeSizedScenario(10, 10000, kSeed)));
    appendWideScenes(v);
    return v;
  }();
  return all;
}

void setCounters(benchmark::State& state, const VoteScene& s) {
  state.SetLabel(s.label);
  state.counters["votes"] = static_cast<double>(s.votes.size());
  state.counters["cells"] = static_cast<double>((s.window.width() + 1) * (s.window.height() + 1));
  state.counters["votes_per_second"] = benchmark::Counter(
      static_cast<double>(s.votes.size()), benchmark::Counter::kIsIterationInvariantRate);
}

void voteSteps(benchmark::State& state, VoteMethod method) {
  const VoteScene& s = scenes()[static_cast<std::size_t>(state.range(0))];
  ptmatch::detail::VoteOptions options;
  options.method = method;
  Voter voter(s.model.points, s.space.dataToGrid, s.model.center, s.space.occupancy, s.window,
              std::vector<std::int16_t>(), options);
  for (auto _ : state) {
    HypothesisStore store(s.model.totalWeight, s.capacity);
    long minScore = s.minScore;
    for (const Step& step : s.steps) {
      voter.voteAndCollect(step.scale, mvDegree(step.rotation), minScore, store);
    }
    benchmark::DoNotOptimize(store.numResults());
  }
  setCounters(state, s);
}

void BM_VoteStep(benchmark::State& state) { voteSteps(state, VoteMethod::eScatter); }

void BM_VoteStepReference(benchmark::State& state) { voteSteps(state, VoteMethod::eReference); }

void BM_PlainIncrements(benchmark::State& state) {
  const VoteScene& s = scenes()[static_cast<std::size_t>(state.range(0))];
  std::vector<std::uint16_t> accumulator(
      static_cast<std::size_t>((s.window.width() + 1) * (s.window.height() + 1)), 0);
  std::uint16_t* cells = accumulator.data();
  const std::uint32_t* at = s.votes.data();
  const std::size_t n = s.votes.size();
  for (auto _ : state) {
    for (std::size_t k = 0; k < n; ++k) cells[at[k]] = static_cast<std::uint16_t>(cells[at[k]] + 1);
    benchmark::ClobberMemory();
  }
  setCounters(state, s);
}

void sceneArguments(benchmark::internal::Benchmark* b) {
  for (std::size_t i = 0; i < scenes().size(); ++i) b->Arg(static_cast<long>(i));
}

BENCHMARK(BM_VoteStep)->Apply(sceneArguments)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_PlainIncrements)->Apply(sceneArguments)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_VoteStepReference)->Apply(sceneArguments)->Unit(benchmark::kMicrosecond);

}  // namespace
