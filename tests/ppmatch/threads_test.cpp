// The written run on several threads gives what it gives on one: the same coarse store
// (entries, scores, order), the same results field by field (poses to the bit, maps,
// coverages, fit errors, order), the same number of interruption checks, for wide searches
// whose store fills so that the rising minimum score decides what enters.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "common/search_scenes.h"
#include "mvbase/attention.h"
#include "mvbase/threads.h"
#include "ppmatch/search/grid_space.h"
#include "ppmatch/search/parallel_lattice.h"
#include "ppmatch/search/vote.h"
#include "ptmatch/ppmatch.h"
#include "search_support.h"
#include "vote_support.h"

namespace {

using ptmatch::detail::CellHypothesis;
using ptmatch::detail::HypothesisStore;
using ptmatch::detail::LatticeStep;
using ptmatch::detail::VoteMethod;
using ptmatch::detail::VoteOptions;
using ptmatch::detail::Voter;
using search_scenes::Scene;
using search_scenes::SceneRecipe;

const long kThreadCounts[] = {2, 3, 8};

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// The six numbers of a pose, to the bit.
bool samePose(const mvXform<2>& a, const mvXform<2>& b) {
  const mvVector<2> origin(0.0, 0.0);
  const mvVector<2> ex(1.0, 0.0);
  const mvVector<2> ey(0.0, 1.0);
  const mvVector<2> pa[] = {a * origin, a * ex, a * ey};
  const mvVector<2> pb[] = {b * origin, b * ex, b * ey};
  for (int k = 0; k < 3; ++k) {
    if (!sameBits(pa[k].x(), pb[k].x()) || !sameBits(pa[k].y(), pb[k].y())) return false;
  }
  return true;
}

void expectSameResults(const mvPointMatcherResultSet& expected, const mvPointMatcherResultSet& got,
                       const std::string& what) {
  ASSERT_EQ(expected.results().size(), got.results().size()) << what;
  for (std::size_t i = 0; i < got.results().size(); ++i) {
    const mvPointMatcherResult& e = expected.results()[i];
    const mvPointMatcherResult& g = got.results()[i];
    EXPECT_TRUE(samePose(e.modelToDataXform(), g.modelToDataXform())) << what << " result " << i;
    EXPECT_EQ(e.modelToDataMap(), g.modelToDataMap()) << what << " result " << i;
    EXPECT_TRUE(sameBits(e.coverage(), g.coverage())) << what << " result " << i;
    EXPECT_TRUE(sameBits(e.fitError(), g.fitError())) << what << " result " << i;
  }
}

mvPointMatcherResultSet runOn(long threads, const mvPointMatcher& matcher, const Scene& s) {
  const mvThreads::Scope scope(threads);
  mvPointMatcherResultSet results;
  matcher.run(s.data, s.params, results);
  return results;
}

// Small wide cases, fast enough by the hundred: a grid size given near the model's spacing
// keeps the lattice at a few hundred steps and the window small.
Scene smallWideCase(int k) {
  SceneRecipe recipe = search_scenes::wideRecipe(20 + (k * 7) % 41);
  recipe.dataSide = 400.0;
  recipe.modelSide = 150.0;
  recipe.sigma = k % 3 == 0 ? 0.5 : 0.2;
  recipe.clutter = k % 4 == 1 ? 0.25 : 0.0;
  recipe.missing = k % 4 == 2 ? 0.15 : 0.0;
  recipe.weighted = k % 5 == 3;
  recipe.maxResults = k % 2 == 0 ? 1 : 5;
  recipe.minCoverage = k % 3 == 1 ? 0.3 : 0.6;
  if (k % 7 == 5) {
    recipe.fullRotation = false;
    recipe.scaleLo = 0.9;
    recipe.scaleHi = 1.1;
  }
  Scene s = search_scenes::makeScene(recipe, 1000u + static_cast<std::uint32_t>(k));
  search_test::useGridSize(s.params, 6.0 + k % 3);
  return s;
}

TEST(ThreadedRun, ResultsIdenticalForEveryThreadCount) {
  for (int k = 0; k < 200; ++k) {
    const Scene s = smallWideCase(k);
    const mvPointMatcher matcher = search_scenes::trainedOn(s);
    const mvPointMatcherResultSet one = runOn(1, matcher, s);
    for (long threads : kThreadCounts) {
      expectSameResults(one, runOn(threads, matcher, s),
                        "case " + std::to_string(k) + ", " + std::to_string(threads) + " threads");
    }
  }
}

TEST(ThreadedRun, WideCasesAtTheAutomaticSizesAreIdenticalAndFound) {
  long found = 0;
  for (int k = 0; k < 4; ++k) {
    SceneRecipe recipe = search_scenes::wideRecipe(24 + 8 * k);
    recipe.dataSide = 360.0;
    recipe.modelSide = 120.0;
    recipe.minSpacing = 10.0;
    const Scene s = search_scenes::makeScene(recipe, 77u + static_cast<std::uint32_t>(k));
    const mvPointMatcher matcher = search_scenes::trainedOn(s);
    const mvPointMatcherResultSet one = runOn(1, matcher, s);
    expectSameResults(one, runOn(2, matcher, s), "automatic sizes, case " + std::to_string(k));
    if (!one.results().empty() &&
        search_test::largestDisplacement(one.results()[0].modelToDataXform(), s.truth, s.model) <
            1.5) {
      ++found;
    }
  }
  EXPECT_EQ(found, 4);  // the cases are real searches, not empty ones
}

void expectSameCandidates(const std::vector<vote_test::Candidate>& one,
                          const std::vector<vote_test::Candidate>& other, const std::string& what) {
  ASSERT_EQ(one.size(), other.size()) << what;
  for (std::size_t i = 0; i < one.size(); ++i) {
    EXPECT_EQ(one[i].score, other[i].score) << what;
    EXPECT_TRUE(samePose(one[i].candidate.pose, other[i].candidate.pose)) << what;
    EXPECT_EQ(one[i].candidate.modelToData, other[i].candidate.modelToData) << what;
  }
}

// The reference vote without the step bound, on threads, against the default vote on one
// thread: the same candidates, scores and order.
TEST(ThreadedRun, ReferenceVoteOnThreadsAgrees) {
  VoteOptions reference;
  reference.method = VoteMethod::eReference;
  reference.boundSteps = false;
  for (int k = 0; k < 24; ++k) {
    const Scene s = smallWideCase(3 * k + 1);
    const mv_PointMatcherModel model = vote_test::trainedModel(search_scenes::trainedOn(s));
    std::vector<vote_test::Candidate> one;
    {
      const mvThreads::Scope scope(1);
      one = vote_test::searchWith(VoteOptions(), model, s.data, s.params);
    }
    const mvThreads::Scope scope(3);
    const std::vector<vote_test::Candidate> threaded =
        vote_test::searchWith(reference, model, s.data, s.params);
    expectSameCandidates(one, threaded, "case " + std::to_string(k));
  }
}

// Skipping the steps the bound rules out changes nothing, on one thread, at the automatic
// sizes and with the store filling: wide cases (some weighted, some cluttered) and many
// points in a narrower range.
TEST(ThreadedRun, StepBoundLeavesTheSearchUnchanged) {
  VoteOptions unbounded;
  unbounded.boundSteps = false;
  const mvThreads::Scope scope(1);
  for (int k = 0; k < 12; ++k) {
    SceneRecipe recipe =
        k < 10 ? search_scenes::wideRecipe(20 + 3 * k) : search_scenes::manyRecipe(60);
    if (k < 10) {
      recipe.modelSide = 120.0;
      recipe.minSpacing = 10.0;
      recipe.dataSide = 300.0;
    }
    recipe.weighted = k % 3 == 1;
    recipe.clutter = k % 4 == 2 ? 0.5 : 0.0;
    recipe.maxResults = k % 2 == 0 ? 1 : 5;
    const Scene s = search_scenes::makeScene(recipe, 500u + static_cast<std::uint32_t>(k));
    const mv_PointMatcherModel model = vote_test::trainedModel(search_scenes::trainedOn(s));
    const std::vector<vote_test::Candidate> bounded =
        vote_test::searchWith(VoteOptions(), model, s.data, s.params);
    EXPECT_FALSE(bounded.empty()) << "case " << k;
    expectSameCandidates(vote_test::searchWith(unbounded, model, s.data, s.params), bounded,
                         "case " + std::to_string(k));
  }
}

// The coarse store itself, for store capacities 1, 2 and 5 (full at once, so that the
// minimum score rises step by step) and a large one.
struct CoarseSetUp {
  mv_PointMatcherModel model;
  ptmatch::detail::GridSpace space;
  mvPelRect window;
  ptmatch::detail::VoteWeights votes;
  std::vector<LatticeStep> steps;
};

CoarseSetUp coarseSetUp(const Scene& s) {
  CoarseSetUp c;
  c.model = vote_test::trainedModel(search_scenes::trainedOn(s));
  const auto sizes = ptmatch::detail::resolveGridSizeAndCaptureRange(s.params, c.model);
  c.space = ptmatch::detail::mapDataToGridSpace(s.data, s.params.startPose(), sizes.gridSize);
  EXPECT_TRUE(ptmatch::detail::translationWindow(c.space, c.model, s.params, c.window));
  c.votes = ptmatch::detail::quantiseWeights(c.model, 0.5 * s.params.minCoverage());
  c.steps = ptmatch::detail::coarseLatticeSteps(s.params, sizes.gridSize, c.model);
  return c;
}

Voter voterFor(const CoarseSetUp& c, const VoteOptions& options) {
  return Voter(c.model.points, c.space.dataToGrid, c.model.center, c.space.occupancy, c.window,
               c.votes.weights, options);
}

struct Entry {
  long score;
  CellHypothesis h;
};

std::vector<Entry> entriesOf(HypothesisStore& store) {
  std::vector<Entry> out;
  CellHypothesis h;
  for (long score = store.first(h); score >= 0; score = store.next(h))
    out.push_back(Entry{score, h});
  return out;
}

void expectSameEntries(const std::vector<Entry>& a, const std::vector<Entry>& b,
                       const std::string& what) {
  ASSERT_EQ(a.size(), b.size()) << what;
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i].score, b[i].score) << what << " entry " << i;
    EXPECT_EQ(a[i].h.offset.x(), b[i].h.offset.x()) << what << " entry " << i;
    EXPECT_EQ(a[i].h.offset.y(), b[i].h.offset.y()) << what << " entry " << i;
    EXPECT_TRUE(sameBits(a[i].h.scale, b[i].h.scale)) << what << " entry " << i;
    EXPECT_TRUE(sameBits(a[i].h.rotation.toDouble(), b[i].h.rotation.toDouble()))
        << what << " entry " << i;
  }
}

TEST(ThreadedRun, CoarseStoreIdenticalWithARisingMinimumScore) {
  for (int k = 0; k < 12; ++k) {
    const Scene s = smallWideCase(k);
    const CoarseSetUp c = coarseSetUp(s);
    ASSERT_GE(c.steps.size(), 16u) << "case " << k;
    for (long capacity : {1L, 2L, 5L, 64L}) {
      Voter serial = voterFor(c, VoteOptions());
      HypothesisStore expected(c.model.totalWeight, capacity);
      long expectedScore = c.votes.minScore;
      for (const LatticeStep& step : c.steps) {
        serial.voteAndCollect(step.scale, mvDegree(step.rotation), expectedScore, expected);
      }
      const std::vector<Entry> want = entriesOf(expected);
      if (capacity >= 2) {
        EXPECT_FALSE(want.empty()) << "case " << k;
      }
      for (long threads : kThreadCounts) {
        for (VoteMethod method : {VoteMethod::eScatter, VoteMethod::eReference}) {
          VoteOptions options;
          options.method = method;
          Voter voter = voterFor(c, options);
          HypothesisStore store(c.model.totalWeight, capacity);
          long minScore = c.votes.minScore;
          ptmatch::detail::voteStepsInParallel(c.steps, threads, voter, options, minScore, store);
          const std::string what = "case " + std::to_string(k) + ", capacity " +
                                   std::to_string(capacity) + ", " + std::to_string(threads) +
                                   " threads";
          EXPECT_EQ(minScore, expectedScore) << what;
          expectSameEntries(want, entriesOf(store), what);
        }
      }
    }
  }
}

TEST(ThreadedRun, SameChecksAsOneThread) {
  const Scene s = smallWideCase(4);
  const mvPointMatcher matcher = search_scenes::trainedOn(s);
  long one = 0;
  {
    search_test::CheckCounter counter;
    runOn(1, matcher, s);
    one = counter.count();
  }
  EXPECT_GT(one, 64);
  for (long threads : kThreadCounts) {
    search_test::CheckCounter counter;
    runOn(threads, matcher, s);
    EXPECT_EQ(counter.count(), one) << threads << " threads";
  }
}

TEST(ThreadedRun, InterruptedAtACheckLeavesNoResults) {
  const Scene s = smallWideCase(6);
  const mvPointMatcher matcher = search_scenes::trainedOn(s);
  for (long threads : kThreadCounts) {
    search_test::CheckCounter counter(20);  // the 20th check, inside the lattice walk
    mvPointMatcherResultSet results;
    const mvThreads::Scope scope(threads);
    EXPECT_THROW(matcher.run(s.data, s.params, results), mvAttention::Interrupted);
    EXPECT_TRUE(results.results().empty());
    // The request the 20th check raised is taken by that check, or, rarely, by a worker's
    // vote in the same instant, after which the caller may check once more.
    EXPECT_GE(counter.count(), 20) << threads << " threads";
    EXPECT_LE(counter.count(), 21) << threads << " threads";
  }
}

TEST(ThreadedRun, ThreadsOnlyForLatticesWorthThem) {
  EXPECT_EQ(ptmatch::detail::coarseVoteThreads(1, 10000), 1);
  EXPECT_EQ(ptmatch::detail::coarseVoteThreads(4, 10000), 4);
  EXPECT_EQ(ptmatch::detail::coarseVoteThreads(8, 16), 2);  // 8 steps a thread at least
  EXPECT_EQ(ptmatch::detail::coarseVoteThreads(8, 15), 1);
  EXPECT_EQ(ptmatch::detail::coarseVoteThreads(8, 1), 1);
  EXPECT_EQ(ptmatch::detail::coarseVoteThreads(8, 0), 1);
}

TEST(ThreadedRun, SmallLatticeVotesOnTheCallersThreadAlone) {
  // A rotation range narrower than a step and one scale: a single lattice step, which no
  // thread is started for; the result is still the one-thread result.
  SceneRecipe recipe = search_scenes::wideRecipe(30);
  recipe.fullRotation = false;
  recipe.rotationDegrees = 0.2;
  recipe.scaleLo = 1.0;
  recipe.scaleHi = 1.0;
  const Scene s = search_scenes::makeScene(recipe, 5u);
  const mvPointMatcher matcher = search_scenes::trainedOn(s);
  const mvPointMatcherResultSet one = runOn(1, matcher, s);
  ASSERT_EQ(one.results().size(), 1u);
  expectSameResults(one, runOn(8, matcher, s), "single step");
}

}  // namespace
