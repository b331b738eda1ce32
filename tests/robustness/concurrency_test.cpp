// One trained tool, many threads: running is const and keeps no state, so eight threads
// may run the same matcher (or corresponder, or the grid mapping) at once and must each get
// exactly what a serial run gives. And a long run can be interrupted from another thread
// through mvAttention, after which the same matcher runs again as before. These tests are
// also built with ThreadSanitizer (scripts/test.sh --tsan), which must stay silent.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <random>
#include <thread>
#include <vector>

#include "common/seeded_random.h"
#include "mvbase/attention.h"
#include "mvbase/image.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"
#include "robustness_support.h"

namespace {

using namespace robustness;

constexpr int kThreads = 8;

// A model of n points scattered over 200 x 200, at least 8 apart, from a fixed seed.
Points scatteredModel(std::size_t n, unsigned seed) {
  seeded_random::SeededRandom random(seed);
  Points points;
  while (points.size() < n) {
    const double x = random.uniform(0.0, 200.0);
    const double y = random.uniform(0.0, 200.0);
    const mvVector<2> p(x, y);
    bool farEnough = true;
    for (const mvVector<2>& q : points) farEnough = farEnough && (p - q).len() >= 8.0;
    if (farEnough) points.push_back(p);
  }
  return points;
}

// The model under a pose, with clutter mixed in, in shuffled order.
Points dataFor(const Points& model, const mvXform<2>& pose, std::size_t clutter, unsigned seed) {
  Points data = transformed(pose, model);
  seeded_random::SeededRandom random(seed);
  for (std::size_t k = 0; k < clutter; ++k) {
    const double x = random.uniform(-100.0, 400.0);
    const double y = random.uniform(-100.0, 400.0);
    data.emplace_back(x, y);
  }
  random.shuffle(data);
  return data;
}

mvXform<2> similarity(double tx, double ty, double degrees, double scale) {
  const mvRadian a = mvDegree(degrees);
  return mvXform<2>(mvVector<2>(tx, ty), a, a, scale, scale);
}

// Equal in every field a run sets (the time aside).
void expectSameResults(const mvPointMatcherResultSet& a, const mvPointMatcherResultSet& b) {
  ASSERT_EQ(a.results().size(), b.results().size());
  for (std::size_t k = 0; k < a.results().size(); ++k) {
    const mvPointMatcherResult& x = a.results()[k];
    const mvPointMatcherResult& y = b.results()[k];
    EXPECT_EQ(x.runMode(), y.runMode());
    EXPECT_EQ(x.modelToDataXform(), y.modelToDataXform());
    EXPECT_EQ(x.coverage(), y.coverage());
    EXPECT_EQ(x.fitError(), y.fitError());
    if (x.runMode() == mvPointMatcherDefs::ePointToGrid) {
      mvPointMatcherResult cx = x;  // the archive operator takes a mutable object
      mvPointMatcherResult cy = y;
      EXPECT_EQ(storeObject(cx), storeObject(cy));  // the grid-to-data image included
    } else {
      EXPECT_EQ(x.modelToDataMap(), y.modelToDataMap());
    }
  }
}

// One run of a matcher: its data and parameters.
struct Job {
  Points data;
  mvPointMatcherRunParams params;
};

// Runs every job serially, then from kThreads threads at once (each thread takes the jobs
// in its own order), and expects every threaded result to equal the serial one.
void expectThreadedRunsMatchSerialRuns(const mvPointMatcher& matcher,
                                       const std::vector<Job>& jobs) {
  std::vector<mvPointMatcherResultSet> serial(jobs.size());
  for (std::size_t j = 0; j < jobs.size(); ++j)
    matcher.run(jobs[j].data, jobs[j].params, serial[j]);

  std::vector<std::vector<mvPointMatcherResultSet>> threaded(
      kThreads, std::vector<mvPointMatcherResultSet>(jobs.size()));
  std::vector<int> failures(kThreads, 0);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      ++ready;
      while (ready.load() < kThreads) std::this_thread::yield();  // start together
      for (std::size_t k = 0; k < jobs.size(); ++k) {
        const std::size_t j = (k + static_cast<std::size_t>(t)) % jobs.size();
        try {
          matcher.run(jobs[j].data, jobs[j].params, threaded[t][j]);
        } catch (...) {
          ++failures[t];
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();

  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(failures[t], 0) << "thread " << t;
    for (std::size_t j = 0; j < jobs.size(); ++j) {
      SCOPED_TRACE(testing::Message() << "thread " << t << ", job " << j);
      expectSameResults(threaded[t][j], serial[j]);
    }
  }
  // The serial runs found something, so the comparison compared something.
  std::size_t found = 0;
  for (const mvPointMatcherResultSet& s : serial) found += s.results().size();
  EXPECT_GT(found, 0u);
}

mvPointMatcherRunParams searchParams(double degrees, double scale, long maxNumResults) {
  mvPointMatcherRunParams p;
  p.rotationUncertainty(mvAngleRange(mvDegree(-degrees), mvDegree(degrees), false));
  p.scaleUncertainty(mvRange(-scale, scale));
  p.maxNumResults(maxNumResults);
  return p;
}

// Narrows the translation ranges to +-margin around the displacement that the pose gives
// the model's centre, which keeps every vote small (and the test fast under sanitizers).
mvPointMatcherRunParams around(mvPointMatcherRunParams p, const Points& model,
                               const mvXform<2>& pose, double margin) {
  double minX = model[0].x(), maxX = minX, minY = model[0].y(), maxY = minY;
  for (const mvVector<2>& q : model) {
    minX = std::min(minX, q.x());
    maxX = std::max(maxX, q.x());
    minY = std::min(minY, q.y());
    maxY = std::max(maxY, q.y());
  }
  const mvVector<2> centre((minX + maxX) / 2.0, (minY + maxY) / 2.0);
  const mvVector<2> shift = pose * centre - centre;
  p.xTranslationUncertainty(mvRange(shift.x() - margin, shift.x() + margin));
  p.yTranslationUncertainty(mvRange(shift.y() - margin, shift.y() + margin));
  return p;
}

// Counts the polls of mvAttention::check() while alive; never asks for an interruption
// itself.
class PollCounter {
 public:
  PollCounter() {
    polls_ = 0;
    previous_ = mvAttention::setPoll(&PollCounter::poll);
  }
  ~PollCounter() {
    mvAttention::setPoll(previous_);
    mvAttention::clear();
  }
  long polls() const { return polls_.load(); }

 private:
  static bool poll() {
    ++polls_;
    return false;
  }
  static inline std::atomic<long> polls_{0};
  mvAttention::Poll previous_;
};

// Holds the first poll of each thread until a given number of threads have polled, then
// lets them all go on when released; never asks for an interruption itself.
class StartLine {
 public:
  explicit StartLine(long threads) {
    expected_ = threads;
    arrived_ = 0;
    released_ = false;
    ++generation_;
    previous_ = mvAttention::setPoll(&StartLine::poll);
  }
  ~StartLine() {
    release();
    mvAttention::setPoll(previous_);
    mvAttention::clear();
  }
  void waitForAll() const {
    while (arrived_.load() < expected_.load()) std::this_thread::yield();
  }
  void release() { released_ = true; }

 private:
  static bool poll() {
    thread_local long seenGeneration = 0;
    if (seenGeneration != generation_.load()) {
      seenGeneration = generation_.load();
      ++arrived_;
      while (!released_.load()) std::this_thread::yield();
    }
    return false;
  }
  static inline std::atomic<long> expected_{0};
  static inline std::atomic<long> arrived_{0};
  static inline std::atomic<bool> released_{false};
  static inline std::atomic<long> generation_{0};
  mvAttention::Poll previous_;
};

// Runs the matcher on another thread, interrupts it from this thread once it has polled,
// and expects the run to end with mvAttention::Interrupted and an empty result set.
void expectInterruptedFromAnotherThread(const mvPointMatcher& matcher, const Points& data,
                                        const mvPointMatcherRunParams& params) {
  PollCounter counter;
  std::atomic<bool> interrupted{false};
  std::atomic<bool> finished{false};
  mvPointMatcherResultSet results;
  std::thread runner([&] {
    try {
      matcher.run(data, params, results);
    } catch (const mvAttention::Interrupted&) {
      interrupted = true;
    }
    finished = true;
  });
  while (counter.polls() == 0 && !finished.load()) std::this_thread::yield();
  mvAttention::requestInterruption();
  runner.join();
  EXPECT_TRUE(interrupted.load()) << "the run ended before the interruption";
  EXPECT_TRUE(results.results().empty());
  EXPECT_FALSE(mvAttention::isRequested());  // the request was consumed
}

}  // namespace

TEST(Concurrency, EightThreadsRunOnePointMatcherAsASerialRunDoes) {
  const Points model = scatteredModel(12, 7);
  mvPointMatcher trained;
  trained.train(model, mvPointMatcherDefs::eAutoDetect);
  const mvPointMatcher& matcher = trained;
  std::vector<Job> jobs;
  const mvXform<2> poses[] = {similarity(50, 20, 12, 1.0), similarity(-30, 80, -25, 1.05),
                              similarity(10, 10, 3, 0.95)};
  unsigned seed = 1;
  for (const mvXform<2>& pose : poses) {
    jobs.push_back(
        {dataFor(model, pose, 30, seed++), around(searchParams(30, 0.06, 3), model, pose, 40.0)});
  }
  // One job with free translation.
  jobs.push_back({dataFor(model, similarity(5, -5, 2, 1.0), 10, seed), searchParams(5, 0.0, 2)});
  expectThreadedRunsMatchSerialRuns(matcher, jobs);
}

TEST(Concurrency, EightThreadsRunOneWeightedPointMatcherAsASerialRunDoes) {
  const Points model = scatteredModel(12, 11);
  std::vector<long> weights;
  for (std::size_t i = 0; i < model.size(); ++i) weights.push_back(static_cast<long>(i % 4) - 1);
  mvPointMatcher trained;
  trained.train(model, weights, mvPointMatcherDefs::eAutoDetect);
  std::vector<Job> jobs;
  const mvXform<2> first = similarity(5, 5, 8, 1.0);
  const mvXform<2> second = similarity(-5, 9, -8, 1.0);
  jobs.push_back(
      {dataFor(model, first, 20, 3), around(searchParams(20, 0.0, 2), model, first, 30)});
  jobs.push_back(
      {dataFor(model, second, 20, 4), around(searchParams(20, 0.0, 2), model, second, 30)});
  expectThreadedRunsMatchSerialRuns(trained, jobs);
}

TEST(Concurrency, EightThreadsRunOneExhaustiveMatcherAsASerialRunDoes) {
  const Points model = {{0, 0}, {10, 0}, {0, 10}, {7, 7}};
  mvPointMatcher trained;
  trained.train(model, mvPointMatcherDefs::eExhaustiveMode);
  mvPointMatcherRunParams params;
  params.rotationUncertainty(mvAngleRange::FullRange());
  params.scaleUncertainty(mvRange(-0.2, 0.2));
  params.maxNumResults(4);
  std::vector<Job> jobs;
  jobs.push_back({transformed(similarity(3, 4, 30, 1.0), model), params});
  Points withClutter = transformed(similarity(-3, 2, -60, 1.1), model);
  withClutter.emplace_back(50, 50);
  withClutter.emplace_back(-20, 5);
  jobs.push_back({withClutter, params});
  expectThreadedRunsMatchSerialRuns(trained, jobs);
}

TEST(Concurrency, EightThreadsRunOneImageTrainedMatcherAsASerialRunDoes) {
  // A dense pattern (point-to-grid path) and a sparse one (nested point matcher).
  mvPelBuffer<unsigned char> dense(5, 4);
  for (long y = 0; y < 4; ++y) {
    for (long x = 0; x < 5; ++x) {
      if ((x + 2 * y) % 7 != 3) dense.put(x, y, 1);
    }
  }
  mvPelBuffer<unsigned char> sparse(9, 9);
  for (long k = 0; k < 6; ++k) sparse.put((k * 4) % 9, (k * 7) % 9, 1);

  for (const mvPelBuffer<unsigned char>& image : {dense, sparse}) {
    mvPointMatcher trained;
    trained.train(image);
    std::vector<Job> jobs;
    for (int j = 0; j < 2; ++j) {
      Points data;
      for (long y = 0; y < image.height(); ++y) {
        for (long x = 0; x < image.width(); ++x) {
          if (image.get(x, y) != 0)
            data.push_back(similarity(20.0 * j + 3, 7, 4.0 * j, 1.0) * mvVector<2>(x, y));
        }
      }
      mvPointMatcherRunParams params = searchParams(10, 0.0, 2);
      params.autoCaptureRange(false);
      params.captureRange(1.0);  // the pitch: the grid mapping's snap size
      jobs.push_back({data, params});
    }
    expectThreadedRunsMatchSerialRuns(trained, jobs);
  }
}

TEST(Concurrency, EightThreadsMapGridsAndRunOneCorresponderAsSerialCallsDo) {
  Points dots;
  for (int j = 0; j < 12; ++j) {
    for (int i = 0; i < 15; ++i) {
      if ((i * 5 + j * 3) % 11 != 0)
        dots.push_back(similarity(4, 9, 7, 1.0) * mvVector<2>(10.0 * i, 10.0 * j));
    }
  }
  const mvPtToGridMapRunParams params(mvVector<2>(10, 0), mvVector<2>(0, 10), false, 9.0);
  mvPtToGridMapResult serialMap;
  ASSERT_GT(mfPtToGridMap(dots, params, serialMap), 100);

  std::vector<mvPair<long>> nodes;
  for (long y = 0; y < 5; ++y) {
    for (long x = 0; x < 5; ++x) {
      if ((x * 3 + y * 2) % 5 != 1) nodes.emplace_back(x, y);
    }
  }
  mv_PointToGridCorresponder trained;
  trained.train(nodes, mv_PointToGridCorresponderTrainParams(), mvXform<2>());
  const mv_PointToGridCorresponder& corresponder = trained;
  std::vector<mvPair<long>> observed;
  for (const mvPair<long>& n : nodes) observed.push_back(n + mvPair<long>(6, 3));
  observed.emplace_back(0, 0);
  observed.emplace_back(14, 12);
  const mv_PointToGridCorresponderRunParams runParams(0.6, 1.0, 4);
  mv_PointToGridCorresponderResultSet serialFound;
  ASSERT_TRUE(corresponder.run(observed, runParams, serialFound));

  std::vector<mvPtToGridMapResult> maps(kThreads);
  std::vector<mv_PointToGridCorresponderResultSet> found(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      mfPtToGridMap(dots, params, maps[t]);
      corresponder.run(observed, runParams, found[t]);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(maps[t].map(), serialMap.map());
    EXPECT_EQ(maps[t].grid2point(), serialMap.grid2point());
    ASSERT_EQ(found[t].results().size(), serialFound.results().size());
    for (std::size_t k = 0; k < serialFound.results().size(); ++k) {
      EXPECT_EQ(found[t].results()[k].score(), serialFound.results()[k].score());
      EXPECT_EQ(found[t].results()[k].position(), serialFound.results()[k].position());
    }
  }
}

TEST(Concurrency, LongPointSearchIsInterruptedFromAnotherThreadAndRunsAgain) {
  const Points model = scatteredModel(30, 5);
  mvPointMatcher matcher;
  matcher.train(model, mvPointMatcherDefs::eAutoDetect);
  const Bytes before = storeObject(matcher);
  // Full rotation, scale 0.6 to 1.6 and a fine grid: hundreds of lattice steps.
  mvPointMatcherRunParams slow;
  slow.rotationUncertainty(mvAngleRange::FullRange());
  slow.scaleUncertainty(mvRange(-0.4, 0.6));
  slow.autoGridSize(false);
  slow.gridSize(0.5);
  const Points data = dataFor(model, similarity(40, 30, 100, 1.2), 100, 9);
  expectInterruptedFromAnotherThread(matcher, data, slow);

  // The same matcher runs again, as a matcher that was never interrupted does.
  EXPECT_EQ(storeObject(matcher), before);
  const Points quickData = dataFor(model, similarity(40, 30, 10, 1.0), 10, 10);
  const mvPointMatcherRunParams quick = searchParams(20, 0.0, 1);
  mvPointMatcherResultSet again;
  matcher.run(quickData, quick, again);
  mvPointMatcher untouched;
  untouched.train(model, mvPointMatcherDefs::eAutoDetect);
  mvPointMatcherResultSet reference;
  untouched.run(quickData, quick, reference);
  expectSameResults(again, reference);
  ASSERT_EQ(again.results().size(), 1u);
  EXPECT_DOUBLE_EQ(again.results()[0].coverage(), 1.0);
}

TEST(Concurrency, LongExhaustiveSearchIsInterruptedFromAnotherThreadAndRunsAgain) {
  const Points model = scatteredModel(6, 3);
  mvPointMatcher matcher;
  matcher.train(model, mvPointMatcherDefs::eExhaustiveMode);
  const Bytes before = storeObject(matcher);
  mvPointMatcherRunParams params;
  params.rotationUncertainty(mvAngleRange::FullRange());
  params.scaleUncertainty(mvRange(-0.5, 0.5));
  // (14 + 1) ^ 6 pairings: about 11 million fits.
  const Points data = dataFor(model, similarity(5, 5, 20, 1.0), 8, 12);
  expectInterruptedFromAnotherThread(matcher, data, params);

  EXPECT_EQ(storeObject(matcher), before);
  mvPointMatcherResultSet again;
  matcher.run(transformed(similarity(5, 5, 20, 1.0), model), params, again);
  ASSERT_FALSE(again.results().empty());
  EXPECT_DOUBLE_EQ(again.results()[0].coverage(), 1.0);
}

TEST(Concurrency, InterruptionReachesOnlyOneOfSeveralRunningSearches) {
  // The request is one process-wide flag that the first check() consumes: of four long
  // searches running at once, exactly one ends interrupted when one request is made.
  const Points model = scatteredModel(30, 5);
  mvPointMatcher matcher;
  matcher.train(model, mvPointMatcherDefs::eAutoDetect);
  // Full rotation and scale +-0.2 make some hundred lattice steps; the narrow translation
  // range keeps each one cheap.
  const mvXform<2> pose = similarity(40, 30, 100, 1.0);
  mvPointMatcherRunParams slow = searchParams(180, 0.2, 1);
  slow.rotationUncertainty(mvAngleRange::FullRange());
  slow = around(slow, model, pose, 10.0);
  const Points data = dataFor(model, pose, 20, 9);

  StartLine startLine(4);
  std::atomic<int> interrupted{0};
  std::atomic<int> completed{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      mvPointMatcherResultSet results;
      try {
        matcher.run(data, slow, results);
        ++completed;
      } catch (const mvAttention::Interrupted&) {
        ++interrupted;
      }
    });
  }
  // Every search is held at its first poll until all four have reached it, so all four
  // are running when the one request is made.
  startLine.waitForAll();
  mvAttention::requestInterruption();
  startLine.release();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(interrupted.load(), 1);
  EXPECT_EQ(completed.load(), 3);
}
