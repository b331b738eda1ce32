// The scatter vote against the reference vote. Any way of summing the votes is allowed as
// long as it gives the same accumulator, so on hundreds of generated cases both methods
// must give the same accumulator values cell by cell, the same coarse stores (scores,
// offsets, scales, rotations, in the same order) and the same minimum scores, step after
// step on one Voter; and whole point-to-point searches must give the same candidates
// (scores, poses to the last bit, maps). Every other case runs the scatter vote on its
// SSE2 kernels alone, the others on the best the processor has.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ppmatch/search/vote.h"
#include "ppmatch/search/vote_kernels.h"
#include "ppmatch/vote_support.h"
#include "ptmatch/ppmatch.h"

namespace {

using ptmatch::detail::CellHypothesis;
using ptmatch::detail::HypothesisStore;
using ptmatch::detail::VoteKernels;
using ptmatch::detail::VoteMethod;
using ptmatch::detail::VoteOptions;
using ptmatch::detail::Voter;
using Points = std::vector<mvVector<2>>;

constexpr int kVoterCases = 400;
constexpr int kRunCases = 200;

// Odd cases run the scatter vote on the SSE2 kernels only, so that those are tested on a
// processor with AVX2 as well.
VoteKernels kernelsOfCase(int c) {
  return c % 2 == 0 ? VoteKernels::eBest : VoteKernels::eBaseline;
}

class Dice {
 public:
  explicit Dice(std::uint32_t seed) : engine_(seed) {}
  long between(long lo, long hi) { return std::uniform_int_distribution<long>(lo, hi)(engine_); }
  double uniform(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(engine_);
  }
  bool chance(double p) { return uniform(0.0, 1.0) < p; }

 private:
  std::mt19937 engine_;
};

// --- the voter on its own ---

// An occupancy raster as the search makes one: the 3 x 3 blocks around random cells, or
// (now and then) dense blobs and whole rows.
mvPelBuffer<unsigned char> randomOccupancy(Dice& dice) {
  const long width = dice.between(1, 120);
  const long height = dice.between(1, 90);
  mvPelBuffer<unsigned char> raster(width, height);
  mfPelClear(raster);
  const long points = dice.between(0, dice.chance(0.2) ? width * height / 2 : 40);
  for (long k = 0; k < points; ++k) {
    const long cx = dice.between(0, width - 1);
    const long cy = dice.between(0, height - 1);
    for (long y = std::max(0L, cy - 1); y <= std::min(height - 1, cy + 1); ++y) {
      for (long x = std::max(0L, cx - 1); x <= std::min(width - 1, cx + 1); ++x) {
        raster.pointToRow(y)[x] = 1;
      }
    }
  }
  if (dice.chance(0.1)) {
    const long y = dice.between(0, height - 1);
    for (long x = 0; x < width; ++x) raster.pointToRow(y)[x] = 1;
  }
  return raster;
}

// A window of model-centre offsets: the raster and a margin as with a free translation,
// a narrow one, one partly or wholly off the raster, or a single cell.
mvPelRect randomWindow(Dice& dice, const mv_PelBuffer& raster) {
  switch (dice.between(0, 4)) {
    case 0:
      return mvPelRect(-dice.between(0, 40) - 8, -dice.between(0, 40) - 8,
                       raster.width() + dice.between(16, 80),
                       raster.height() + dice.between(16, 80));
    case 1:
      return mvPelRect(dice.between(-20, raster.width()), dice.between(-20, raster.height()),
                       dice.between(0, 12), dice.between(0, 12));
    case 2:
      return mvPelRect(dice.between(-300, 300), dice.between(-300, 300), dice.between(0, 200),
                       dice.between(0, 200));
    case 3:
      return mvPelRect(dice.between(-60, 60), dice.between(-60, 60), 0, 0);
    default:
      return mvPelRect(dice.between(-30, 0), dice.between(-30, 0), dice.between(1, 3),
                       dice.between(60, 160));
  }
}

// Projected model cells: mostly near the model centre, some far off every raster.
std::vector<mvPair<long>> randomCells(Dice& dice, long count) {
  std::vector<mvPair<long>> cells;
  const long reach = dice.between(1, 60);
  for (long i = 0; i < count; ++i) {
    if (dice.chance(0.03)) {
      cells.push_back(mvPair<long>(dice.between(-2000000, 2000000), dice.between(-5, 5)));
    } else {
      cells.push_back(mvPair<long>(dice.between(-reach, reach), dice.between(-reach, reach)));
    }
  }
  return cells;
}

// No weights (unit votes), small ones with zeros and negatives, or large ones whose sums
// wrap at 16 bits.
std::vector<std::int16_t> randomWeights(Dice& dice, long count) {
  std::vector<std::int16_t> weights;
  const long kind = dice.between(0, 2);
  if (kind == 0) return weights;
  for (long i = 0; i < count; ++i) {
    const long w = kind == 1 ? dice.between(-3, 4) : dice.between(-32768, 32767);
    weights.push_back(static_cast<std::int16_t>(w));
  }
  return weights;
}

struct StoredPeak {
  long score;
  CellHypothesis peak;
};

std::vector<StoredPeak> contents(HypothesisStore& store) {
  std::vector<StoredPeak> out;
  CellHypothesis h;
  for (long s = store.first(h); s >= 0; s = store.next(h)) out.push_back(StoredPeak{s, h});
  return out;
}

void expectSameAccumulators(const Voter& reference, const Voter& scatter,
                            const std::string& where) {
  for (long v = 0; v <= reference.window.height(); ++v) {
    for (long u = 0; u <= reference.window.width(); ++u) {
      ASSERT_EQ(reference.accumulatorAt(u, v), scatter.accumulatorAt(u, v))
          << where << " cell (" << u << ", " << v << ")";
    }
  }
}

void expectSameStores(HypothesisStore& reference, HypothesisStore& scatter,
                      const std::string& where) {
  const std::vector<StoredPeak> a = contents(reference);
  const std::vector<StoredPeak> b = contents(scatter);
  ASSERT_EQ(a.size(), b.size()) << where;
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i].score, b[i].score) << where << " entry " << i;
    EXPECT_EQ(a[i].peak.offset, b[i].peak.offset) << where << " entry " << i;
    EXPECT_EQ(a[i].peak.scale, b[i].peak.scale) << where << " entry " << i;
    EXPECT_EQ(a[i].peak.rotation, b[i].peak.rotation) << where << " entry " << i;
  }
}

Voter makeVoter(VoteMethod method, VoteKernels kernels, const Points& noModel,
                const mvPelBuffer<unsigned char>& raster, const mvPelRect& window,
                const std::vector<std::int16_t>& weights) {
  VoteOptions options;
  options.method = method;
  options.kernels = kernels;
  return Voter(noModel, mvXform<2>(), mvVector<2>(), raster, window, weights, options);
}

TEST(VoteDifferential, ScatterVoteGivesTheReferenceAccumulatorsStoresAndScores) {
  Dice dice(20240611u);
  const Points noModel;
  for (int c = 0; c < kVoterCases; ++c) {
    const VoteKernels kernels = kernelsOfCase(c);
    const mvPelBuffer<unsigned char> raster = randomOccupancy(dice);
    const mvPelRect window = randomWindow(dice, raster);
    const long points = dice.between(1, 70);
    const std::vector<std::int16_t> weights = randomWeights(dice, points);
    Voter reference = makeVoter(VoteMethod::eReference, kernels, noModel, raster, window, weights);
    Voter scatter = makeVoter(VoteMethod::eScatter, kernels, noModel, raster, window, weights);
    ASSERT_EQ(reference.method, VoteMethod::eReference);
    ASSERT_EQ(scatter.method, VoteMethod::eScatter);
    const long capacity = dice.between(1, 12);
    HypothesisStore referenceStore(dice.between(1, 40000), capacity);
    HypothesisStore scatterStore(referenceStore.maxScore(), capacity);
    long baseScore = dice.chance(0.1) ? dice.between(-5, 1) : dice.between(2, 12);
    if (dice.chance(0.03)) baseScore = 40000;
    long referenceScore = baseScore;
    long scatterScore = baseScore;
    const long steps = dice.between(1, 4);
    for (long step = 0; step < steps; ++step) {
      const std::string where = "case " + std::to_string(c) + " step " + std::to_string(step);
      reference.projected = randomCells(dice, points);
      scatter.projected = reference.projected;
      const double scale = dice.uniform(0.5, 2.0);
      const mvDegree rotation(dice.uniform(-180.0, 180.0));
      reference.voteProjected(scale, rotation, referenceScore, referenceStore);
      scatter.voteProjected(scale, rotation, scatterScore, scatterStore);
      expectSameAccumulators(reference, scatter, where);
      EXPECT_EQ(referenceScore, scatterScore) << where;
      expectSameStores(referenceStore, scatterStore, where);
      if (HasFailure()) return;
    }
  }
}

TEST(VoteDifferential, AccumulatorsWrapAtSixteenBitsAlike) {
  // 40 points of weight 30000 on one occupied cell: 1 200 000 wraps to 1 200 000 mod 65536
  // = 20 352 in both.
  mvPelBuffer<unsigned char> raster(3, 3);
  mfPelClear(raster);
  raster.pointToRow(1)[1] = 1;
  const Points noModel;
  const mvPelRect window(-1, -1, 2, 2);
  const std::vector<std::int16_t> weights(40, 30000);
  Voter reference =
      makeVoter(VoteMethod::eReference, VoteKernels::eBest, noModel, raster, window, weights);
  Voter scatter =
      makeVoter(VoteMethod::eScatter, VoteKernels::eBest, noModel, raster, window, weights);
  reference.projected.assign(40, mvPair<long>(0, 0));
  scatter.projected = reference.projected;
  HypothesisStore a(30000, 4);
  HypothesisStore b(30000, 4);
  long scoreA = 2;
  long scoreB = 2;
  reference.voteProjected(1.0, mvDegree(0.0), scoreA, a);
  scatter.voteProjected(1.0, mvDegree(0.0), scoreB, b);
  EXPECT_EQ(reference.accumulatorAt(2, 2), 20352);
  EXPECT_EQ(scatter.accumulatorAt(2, 2), 20352);
  expectSameAccumulators(reference, scatter, "wrap");
}

// --- whole runs ---

mvXform<2> similarity(double tx, double ty, double degrees, double scale) {
  const mvRadian a = mvDegree(degrees);
  return mvXform<2>(mvVector<2>(tx, ty), a, a, scale, scale);
}

struct Scene {
  Points model;
  std::vector<long> weights;
  Points data;
  mvPointMatcherRunParams params;
};

Scene randomScene(Dice& dice) {
  Scene s;
  // Points at least `spacing` apart, as a part's features are: the automatic grid size
  // follows the spacing, and so does the cost of the search.
  const long wanted = dice.between(3, 45);
  const double spacing = dice.uniform(8.0, 20.0);
  const double side = spacing * (3.0 + 2.0 * std::sqrt(static_cast<double>(wanted)));
  for (long tries = 0; static_cast<long>(s.model.size()) < wanted && tries < 2000; ++tries) {
    const mvVector<2> p(dice.uniform(0, side), dice.uniform(0, side));
    bool apart = true;
    for (const mvVector<2>& q : s.model) apart = apart && (p - q).len() >= spacing;
    if (apart) s.model.push_back(p);
  }
  const long n = static_cast<long>(s.model.size());
  if (dice.chance(0.3)) {
    for (long i = 0; i < n; ++i) {
      s.weights.push_back(dice.chance(0.1) ? -dice.between(1, 5) : dice.between(1, 20));
    }
    s.weights[0] = dice.chance(0.2) ? 40000 : s.weights[0];
  }
  const double degrees = dice.uniform(-40.0, 40.0);
  const double scale = dice.uniform(0.9, 1.1);
  const mvXform<2> pose =
      similarity(dice.uniform(100, 400), dice.uniform(100, 300), degrees, scale);
  const double noise = dice.uniform(0.0, 0.5);
  for (const mvVector<2>& m : s.model) {
    if (dice.chance(0.15)) continue;
    s.data.push_back(pose * m +
                     mvVector<2>(dice.uniform(-noise, noise), dice.uniform(-noise, noise)));
  }
  const long clutter = dice.between(0, n);
  for (long k = 0; k < clutter; ++k)
    s.data.push_back(mvVector<2>(dice.uniform(0, 640), dice.uniform(0, 480)));
  if (s.data.empty()) s.data.push_back(mvVector<2>(1.0, 2.0));

  s.params.minCoverage(dice.uniform(0.2, 0.9));
  s.params.maxNumResults(dice.between(1, 20));
  // Any rotation, or a scale range, but not both: that lattice is the slowest to run.
  if (dice.chance(0.25)) {
    s.params.rotationUncertainty(mvAngleRange::FullRange());
  } else {
    s.params.rotationUncertainty(mvAngleRange(mvDegree(-45.0), mvDegree(45.0), false));
    if (dice.chance(0.5)) s.params.scaleUncertainty(mvRange(-0.12, 0.12));
  }
  if (dice.chance(0.3)) {
    // A start pose near the truth and a narrow translation range around it.
    s.params.startPose(similarity(pose.trans().x() + dice.uniform(-20, 20),
                                  pose.trans().y() + dice.uniform(-20, 20), 0.0, 1.0));
    const double t = dice.uniform(5.0, 60.0);
    s.params.xTranslationUncertainty(mvRange(-t, t));
    s.params.yTranslationUncertainty(mvRange(-t, dice.uniform(-t, t)));
  }
  if (dice.chance(0.2)) {
    s.params.autoGridSize(false);
    s.params.gridSize(dice.uniform(2.0, 8.0));
  }
  return s;
}

std::vector<vote_test::Candidate> searchWith(VoteMethod method, VoteKernels kernels,
                                             const mv_PointMatcherModel& model, const Scene& s) {
  VoteOptions options;
  options.method = method;
  options.kernels = kernels;
  return vote_test::searchWith(options, model, s.data, s.params);
}

void expectSameCandidates(const std::vector<vote_test::Candidate>& a,
                          const std::vector<vote_test::Candidate>& b, const std::string& where) {
  ASSERT_EQ(a.size(), b.size()) << where;
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i].score, b[i].score) << where << " candidate " << i;
    EXPECT_EQ(a[i].candidate.pose, b[i].candidate.pose) << where << " candidate " << i;
    EXPECT_EQ(a[i].candidate.modelToData, b[i].candidate.modelToData)
        << where << " candidate " << i;
  }
}

mv_PointMatcherModel trainOn(const Scene& s) {
  mvPointMatcher matcher;
  if (s.weights.empty()) {
    matcher.train(s.model, mvPointMatcherDefs::eAutoDetect);
  } else {
    matcher.train(s.model, s.weights, mvPointMatcherDefs::eAutoDetect);
  }
  return vote_test::trainedModel(matcher);
}

TEST(VoteDifferential, WholeSearchesGiveTheSameCandidatesWithEitherVote) {
  Dice dice(77031u);
  long found = 0;
  for (int c = 0; c < kRunCases; ++c) {
    const VoteKernels kernels = kernelsOfCase(c);
    const Scene s = randomScene(dice);
    const mv_PointMatcherModel model = trainOn(s);
    ASSERT_EQ(model.points.size(), s.model.size()) << "case " << c;
    const std::vector<vote_test::Candidate> a =
        searchWith(VoteMethod::eReference, kernels, model, s);
    const std::vector<vote_test::Candidate> b = searchWith(VoteMethod::eScatter, kernels, model, s);
    expectSameCandidates(a, b, "case " + std::to_string(c));
    found += static_cast<long>(a.size());
    if (HasFailure()) return;
  }
  // The scenes are findable: most searches find something, so the candidates compared are
  // real.
  EXPECT_GT(found, kRunCases / 2);
}

TEST(VoteDifferential, VoteOptionsDefaultToTheWayRunsVote) {
  const VoteOptions options;
  EXPECT_EQ(options.method, VoteMethod::eScatter);
  EXPECT_EQ(options.kernels, VoteKernels::eBest);
  // A public run votes that way: its best result is one of the default search's candidates.
  Dice dice(5150u);
  const Scene s = randomScene(dice);
  mvPointMatcher matcher;
  matcher.train(s.model, mvPointMatcherDefs::eAutoDetect);
  mvPointMatcherResultSet results;
  matcher.run(s.data, s.params, results);
  const std::vector<vote_test::Candidate> candidates =
      vote_test::searchWith(options, vote_test::trainedModel(matcher), s.data, s.params);
  ASSERT_FALSE(results.results().empty());
  const mvPointMatcherResult& best = results.results().front();
  bool found = false;
  for (const vote_test::Candidate& c : candidates) {
    found = found || (c.candidate.pose == best.modelToDataXform() &&
                      c.candidate.modelToData == best.modelToDataMap());
  }
  EXPECT_TRUE(found);
}

// Each search votes as its own options say: two threads searching at once, one with the
// reference vote, the other with the scatter vote on its SSE2 kernels, find what each
// finds alone.
TEST(VoteDifferential, SearchesInOtherThreadsKeepTheirOwnWayOfVoting) {
  Dice dice(31337u);
  for (int c = 0; c < 8; ++c) {
    const Scene s = randomScene(dice);
    const mv_PointMatcherModel model = trainOn(s);
    const std::vector<vote_test::Candidate> alone =
        searchWith(VoteMethod::eReference, VoteKernels::eBest, model, s);
    std::vector<vote_test::Candidate> reference;
    std::vector<vote_test::Candidate> scatter;
    std::thread first(
        [&] { reference = searchWith(VoteMethod::eReference, VoteKernels::eBest, model, s); });
    std::thread second(
        [&] { scatter = searchWith(VoteMethod::eScatter, VoteKernels::eBaseline, model, s); });
    first.join();
    second.join();
    expectSameCandidates(alone, reference, "case " + std::to_string(c) + " reference");
    expectSameCandidates(alone, scatter, "case " + std::to_string(c) + " scatter");
    if (HasFailure()) return;
  }
}

}  // namespace
