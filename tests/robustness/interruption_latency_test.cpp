// Interruption inside one long step: a run whose whole work is a single lattice step (or a
// grid mapping of a million dots, which has no steps at all) ends soon after a request
// from another thread, and a deadline ends it with TimedOut. The work itself is seconds
// long; the wait after the request is asserted generously (the machines running these
// tests are loaded), the typical figure being a few milliseconds.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "mvbase/attention.h"
#include "ppmatch/search/vote.h"
#include "ppmatch/vote_support.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"

namespace {

using Clock = std::chrono::steady_clock;

// ThreadSanitizer makes every cell of work some ten times dearer, and the release of a
// large buffer as dear as writing it: there the same steps run on rasters 16 times smaller.
#if defined(__SANITIZE_THREAD__)
constexpr bool kUnderTsan = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool kUnderTsan = true;
#else
constexpr bool kUnderTsan = false;
#endif
#else
constexpr bool kUnderTsan = false;
#endif
constexpr double kExtent = kUnderTsan ? 2000.0 : 8000.0;
constexpr long kGridSide = kUnderTsan ? 250 : 1000;
using Points = std::vector<mvVector<2>>;

// Runs work on another thread; delayMs after it started (inside the raster's set-up or the
// step), requests an interruption and returns the seconds until work ended. interrupted
// tells whether it ended with mvAttention::Interrupted after the request.
double secondsFromRequestToEnd(const std::function<void()>& work, long delayMs, bool& interrupted) {
  mvAttention::clear();
  std::atomic<bool> started{false};
  std::atomic<bool> done{false};
  std::atomic<bool> threw{false};
  Clock::time_point end;
  std::thread worker([&] {
    started = true;
    try {
      work();
    } catch (const mvAttention::Interrupted&) {
      threw = true;
    }
    end = Clock::now();
    done = true;
  });
  while (!started) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
  const bool finishedEarly = done;
  const Clock::time_point request = Clock::now();
  mvAttention::requestInterruption();
  worker.join();
  mvAttention::clear();
  interrupted = threw && !finishedEarly;
  return std::chrono::duration<double>(end - request).count();
}

// A model of n points spread over 200 x 200 pels.
Points spreadModel(std::size_t n) {
  std::mt19937 random(5);
  std::uniform_real_distribution<double> coordinate(0.0, 200.0);
  Points points;
  for (std::size_t i = 0; i < n; ++i) points.emplace_back(coordinate(random), coordinate(random));
  return points;
}

// One lattice step (no scale or rotation range) over a translation window of some
// 8000 x 8000 cells (2000 x 2000 under ThreadSanitizer), voted by 300 model points adding their
// whole window each (the reference vote): about 2 x 10^10 cell additions, seconds of work in one
// step.
struct HugeStep {
  mvPointMatcher matcher;
  Points data;
  mvPointMatcherRunParams params;
  HugeStep() {
    matcher.train(spreadModel(300), mvPointMatcherDefs::eAutoDetect);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> coordinate(0.0, kExtent);
    for (int i = 0; i < 40; ++i) data.emplace_back(coordinate(random), coordinate(random));
    data.emplace_back(0.0, 0.0);
    data.emplace_back(kExtent, kExtent);
    params.minCoverage(0.05);  // 15 votes: the 42 data points can reach it
    params.autoGridSize(false);
    params.gridSize(1.0);
    params.scaleUncertainty(mvRange(0.0, 0.0));
    params.rotationUncertainty(mvAngleRange(mvDegree(0.0), mvDegree(0.0), false));
  }
};

// The search of a run of the step's matcher, voting the reference way: every model point
// adds its whole window.
std::vector<vote_test::Candidate> referenceSearch(const HugeStep& step) {
  ptmatch::detail::VoteOptions reference;
  reference.method = ptmatch::detail::VoteMethod::eReference;
  return vote_test::searchWith(reference, vote_test::trainedModel(step.matcher), step.data,
                               step.params);
}

// A grid of side x side dots of pitch 10, slightly rotated.
Points dotGrid(long side) {
  Points dots;
  const double c = std::cos(0.05) * 10.0;
  const double s = std::sin(0.05) * 10.0;
  for (long j = 0; j < side; ++j) {
    for (long i = 0; i < side; ++i) dots.emplace_back(5.0 + c * i - s * j, 7.0 + s * i + c * j);
  }
  return dots;
}

const mvPtToGridMapRunParams kGridParams(mvVector<2>(10, 0), mvVector<2>(0, 10), false, 9.0);

}  // namespace

TEST(Concurrency, OneHugeVoteStepEndsSoonAfterAnInterruptionRequest) {
  const HugeStep step;
  std::vector<vote_test::Candidate> results;
  bool interrupted = false;
  const double wait =
      secondsFromRequestToEnd([&] { results = referenceSearch(step); }, 300, interrupted);
  EXPECT_TRUE(interrupted) << "the run ended before the request, or without Interrupted";
  EXPECT_LT(wait, 1.0);
  EXPECT_TRUE(results.empty());
  std::printf("vote step: %.1f ms from the request to the end of the run\n", wait * 1e3);
}

TEST(Concurrency, OneHugeScatterVoteStepEndsSoonAfterAnInterruptionRequest) {
  // The default vote over the same window: the raster's set-up, the box sums and the peak
  // scan each cover the window (about two seconds of work in an optimised build).
  const HugeStep step;
  mvPointMatcherResultSet results;
  bool interrupted = false;
  const double wait = secondsFromRequestToEnd(
      [&] { step.matcher.run(step.data, step.params, results); }, 150, interrupted);
  EXPECT_TRUE(interrupted) << "the run ended before the request, or without Interrupted";
  EXPECT_LT(wait, 1.0);
  std::printf("scatter vote step: %.1f ms from the request to the end of the run\n", wait * 1e3);
}

TEST(Concurrency, GridMappingOfManyDotsEndsSoonAfterAnInterruptionRequest) {
  const Points dots = dotGrid(kGridSide);
  mvPtToGridMapResult result;
  bool interrupted = false;
  const double wait =
      secondsFromRequestToEnd([&] { mfPtToGridMap(dots, kGridParams, result); }, 50, interrupted);
  EXPECT_TRUE(interrupted) << "the mapping ended before the request, or without Interrupted";
  EXPECT_LT(wait, 1.0);
  std::printf("grid mapping: %.1f ms from the request to the end of the call\n", wait * 1e3);
}

TEST(Concurrency, DeadlineEndsOneHugeVoteStepWithTimedOut) {
  const HugeStep step;
  const Clock::time_point start = Clock::now();
  try {
    mvAttention::Deadline limit(0.2);
    referenceSearch(step);
    ADD_FAILURE() << "the run ended within its time limit";
  } catch (const mvAttention::TimedOut& e) {
    EXPECT_NE(std::string(e.what()).find("time limit of 0.2 s"), std::string::npos) << e.what();
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_LT(seconds, 1.2);
  // The deadline ended with its scope: the next check passes.
  EXPECT_NO_THROW(mvAttention::check());
}

TEST(Concurrency, DeadlineEndsAGridMappingWithTimedOut) {
  const Points dots = dotGrid(kGridSide);
  mvPtToGridMapResult result;
  mvAttention::Deadline limit(0.05);
  EXPECT_THROW(mfPtToGridMap(dots, kGridParams, result), mvAttention::TimedOut);
}

TEST(Concurrency, DeadlineOnOneThreadLeavesOtherThreadsAlone) {
  mvAttention::Deadline limit(0.0);
  EXPECT_THROW(mvAttention::check(), mvAttention::TimedOut);
  std::atomic<bool> otherThrew{false};
  std::thread other([&] {
    try {
      mvAttention::check();
    } catch (const mvAttention::Interrupted&) {
      otherThrew = true;
    }
  });
  other.join();
  EXPECT_FALSE(otherThrew);
}
