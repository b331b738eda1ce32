// The point matcher's run on threads of its own (mvThreads): several user threads may run
// one matcher at once, each asking for threads, and get what one thread gets; a threaded
// run ends promptly, with every worker joined and no results, when interrupted from another
// thread or when its deadline passes. Built with ThreadSanitizer too (Concurrency.*).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include "common/search_scenes.h"
#include "mvbase/attention.h"
#include "mvbase/threads.h"
#include "ptmatch/ppmatch.h"

namespace {

using Clock = std::chrono::steady_clock;
using search_scenes::Scene;

// Generous: these machines are loaded, and sanitizers slow every step.
constexpr double kPromptSeconds = 2.0;

// A wide search of a few milliseconds: any rotation, scale 0.8-1.25, free translation.
Scene quickWideScene(std::uint32_t seed, long maxResults) {
  search_scenes::SceneRecipe recipe = search_scenes::wideRecipe(30);
  recipe.modelSide = 150.0;
  recipe.dataSide = 400.0;
  recipe.clutter = 0.25;
  recipe.maxResults = maxResults;
  Scene s = search_scenes::makeScene(recipe, seed);
  s.params.autoGridSize(false);
  s.params.gridSize(7.0);
  return s;
}

// A wide search of many seconds: a fine grid over a large data square.
Scene slowWideScene() {
  search_scenes::SceneRecipe recipe = search_scenes::wideRecipe(40);
  recipe.dataSide = 1200.0;
  Scene s = search_scenes::makeScene(recipe, 99u);
  s.params.autoGridSize(false);
  s.params.gridSize(1.0);
  return s;
}

bool sameResults(const mvPointMatcherResultSet& a, const mvPointMatcherResultSet& b) {
  if (a.results().size() != b.results().size()) return false;
  for (std::size_t k = 0; k < a.results().size(); ++k) {
    const mvPointMatcherResult& x = a.results()[k];
    const mvPointMatcherResult& y = b.results()[k];
    if (!(x.modelToDataXform() == y.modelToDataXform()) || x.coverage() != y.coverage() ||
        x.fitError() != y.fitError() || x.modelToDataMap() != y.modelToDataMap()) {
      return false;
    }
  }
  return true;
}

// Runs the slow scene on 4 threads from another thread; stop() is called on this thread
// once the run is under way. Returns the seconds from stop() to the run's end; threw tells
// whether the run ended with an exception of type E, empty whether it left no results.
template <typename E, typename Stop>
double secondsToStop(Stop stop, bool& threw, bool& empty) {
  const Scene s = slowWideScene();
  const mvPointMatcher matcher = search_scenes::trainedOn(s);
  std::atomic<bool> started{false};
  std::atomic<bool> caught{false};
  Clock::time_point end;
  mvPointMatcherResultSet results;
  std::thread runner([&] {
    const mvThreads::Scope threads(4);
    started = true;
    try {
      matcher.run(s.data, s.params, results);
    } catch (const E&) {
      caught = true;
    }
    end = Clock::now();
  });
  while (!started.load()) std::this_thread::yield();
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  const Clock::time_point request = Clock::now();
  stop();
  runner.join();
  threw = caught.load();
  empty = results.results().empty();
  return std::chrono::duration<double>(end - request).count();
}

}  // namespace

TEST(Concurrency, UserThreadsRunOneMatcherOnThreadsAsOneThreadDoes) {
  std::vector<Scene> scenes;
  for (std::uint32_t k = 0; k < 4; ++k) scenes.push_back(quickWideScene(300u + k, k % 2 ? 5 : 1));
  std::vector<mvPointMatcher> matchers;
  std::vector<mvPointMatcherResultSet> serial(scenes.size());
  for (std::size_t j = 0; j < scenes.size(); ++j) {
    matchers.push_back(search_scenes::trainedOn(scenes[j]));
    const mvThreads::Scope one(1);
    matchers[j].run(scenes[j].data, scenes[j].params, serial[j]);
    EXPECT_FALSE(serial[j].results().empty()) << "scene " << j;
  }
  constexpr int kUsers = 4;
  std::vector<int> mismatches(kUsers, 0);
  std::vector<int> failures(kUsers, 0);
  std::vector<std::thread> users;
  for (int t = 0; t < kUsers; ++t) {
    users.emplace_back([&, t] {
      const mvThreads::Scope threads(2 + t);
      for (std::size_t k = 0; k < scenes.size(); ++k) {
        const std::size_t j = (k + static_cast<std::size_t>(t)) % scenes.size();
        mvPointMatcherResultSet results;
        try {
          matchers[j].run(scenes[j].data, scenes[j].params, results);
          if (!sameResults(results, serial[j])) ++mismatches[t];
        } catch (...) {
          ++failures[t];
        }
      }
    });
  }
  for (std::thread& user : users) user.join();
  for (int t = 0; t < kUsers; ++t) {
    EXPECT_EQ(mismatches[t], 0) << "user thread " << t;
    EXPECT_EQ(failures[t], 0) << "user thread " << t;
  }
}

TEST(Concurrency, ThreadedRunIsInterruptedFromAnotherThreadPromptly) {
  mvAttention::clear();
  bool threw = false;
  bool empty = false;
  const double seconds = secondsToStop<mvAttention::Interrupted>(
      [] { mvAttention::requestInterruption(); }, threw, empty);
  EXPECT_TRUE(threw);
  EXPECT_TRUE(empty);
  EXPECT_LT(seconds, kPromptSeconds);
  EXPECT_FALSE(mvAttention::isRequested());  // the request was consumed, once
  mvAttention::clear();
}

TEST(Concurrency, ThreadedRunEndsAtItsDeadline) {
  mvAttention::clear();
  const Scene s = slowWideScene();
  const mvPointMatcher matcher = search_scenes::trainedOn(s);
  mvPointMatcherResultSet results;
  const mvThreads::Scope threads(4);
  const Clock::time_point start = Clock::now();
  {
    const mvAttention::Deadline limit(0.1);
    EXPECT_THROW(matcher.run(s.data, s.params, results), mvAttention::TimedOut);
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_TRUE(results.results().empty());
  EXPECT_LT(seconds, 0.1 + kPromptSeconds);
  EXPECT_FALSE(mvAttention::isRequested());
}
