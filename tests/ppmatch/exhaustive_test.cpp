// The exhaustive search of a matcher trained in eExhaustiveMode, on small cases worked
// out by hand: every one-to-one pairing of the smaller point set with the larger one is
// fitted, kept when inside the uncertainty ranges around the start pose, and scored
// greedily in model order.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "common/transform_near.h"
#include "mvbase/archive.h"
#include "mvbase/attention.h"
#include "ppmatch/matcher_bytes.h"
#include "ptmatch/ppmatch.h"

namespace {

using transform_near::isNear;

using Defs = mvPointMatcherDefs;
using Points = std::vector<mvVector<2>>;

// Poses come from least-squares fits over centred coordinates (thirds do not divide
// exactly), so exact poses are compared to this tolerance.
constexpr double kTol = 1e-9;

const Points kTriangle = {{0, 0}, {10, 0}, {0, 10}};

Points moved(const Points& points, double dx, double dy) {
  Points out;
  for (const auto& p : points) out.emplace_back(p.x() + dx, p.y() + dy);
  return out;
}

mvAngleRange degrees(double from, double to) {
  return mvAngleRange(mvRadian(mvDegree(from)), mvRadian(mvDegree(to)), false);
}

// Search ranges around an identity start pose; automatic grid size and capture range.
mvPointMatcherRunParams ranges(const mvRange& x, const mvRange& y, double rotationDegrees,
                               const mvRange& scale, long maxNumResults = 100) {
  return mvPointMatcherRunParams(0.0, mvXform<2>::I, x, y,
                                 degrees(-rotationDegrees, rotationDegrees), scale, true, 0.0, true,
                                 0.0, maxNumResults);
}

// The same with an explicit capture range (the grid size is then unused).
mvPointMatcherRunParams withCaptureRange(mvPointMatcherRunParams p, double captureRange) {
  p.autoGridSize(false);
  p.gridSize(1.0);
  p.autoCaptureRange(false);
  p.captureRange(captureRange);
  return p;
}

const mvPointMatcherRunParams kNearTranslation105 =
    ranges(mvRange(9, 11), mvRange(4, 6), 1.0, mvRange(-0.01, 0.01));
const mvPointMatcherRunParams kNearIdentity =
    ranges(mvRange(-0.1, 0.1), mvRange(-0.1, 0.1), 1.0, mvRange(-0.01, 0.01));

mvPointMatcher exhaustive(const Points& model) {
  mvPointMatcher m;
  m.train(model, Defs::eExhaustiveMode);
  return m;
}

mvPointMatcher exhaustive(const Points& model, const std::vector<long>& weights) {
  mvPointMatcher m;
  m.train(model, weights, Defs::eExhaustiveMode);
  return m;
}

std::vector<mvPointMatcherResult> run(const mvPointMatcher& m, const Points& data,
                                      const mvPointMatcherRunParams& params) {
  mvPointMatcherResultSet set;
  m.run(data, params, set);
  return set.results();
}

void expectPose(const mvXform<2>& pose, double a00, double a01, double a10, double a11, double tx,
                double ty) {
  EXPECT_TRUE(isNear(pose, mvXform<2>(mvMatrix<2>(a00, a01, a10, a11), mvVector<2>(tx, ty)), kTol));
}

void expectTranslation(const mvXform<2>& pose, double tx, double ty) {
  expectPose(pose, 1, 0, 0, 1, tx, ty);
}

// A result set whose time is -1, as a run would never leave it.
mvPointMatcherResultSet setWithTimeMinusOne() {
  using namespace matcher_bytes;
  mvMemoryArchive in(cat({le32(kVersion), f64(-1.0), vectorHeader(0)}));
  mvPointMatcherResultSet set;
  in || set;
  return set;
}

}  // namespace

TEST(Exhaustive, MovedTriangleIsFoundWithFullCoverage) {
  const auto results = run(exhaustive(kTriangle), moved(kTriangle, 10, 5), kNearTranslation105);
  // The pairings {0,1}, {0,2}, {1,2} and {0,1,2} of each model point with its moved copy
  // all give the same pose; every other pairing is rotated by 90 degrees or more.
  ASSERT_EQ(results.size(), 4u);
  for (const auto& r : results) {
    EXPECT_EQ(r.runMode(), Defs::eExhaustiveMode);
    EXPECT_DOUBLE_EQ(r.coverage(), 1.0);
    EXPECT_NEAR(r.fitError(), 0.0, kTol);
    EXPECT_EQ(r.modelToDataMap(), (std::vector<long>{0, 1, 2}));
    expectTranslation(r.modelToDataXform(), 10, 5);
    EXPECT_FALSE(r.gridToDataImage().isBound());
  }
}

TEST(Exhaustive, RecordsTheTimeOfTheRun) {
  mvPointMatcherResultSet set = setWithTimeMinusOne();
  exhaustive(kTriangle).run(moved(kTriangle, 10, 5), kNearTranslation105, set);
  EXPECT_GE(set.time(), 0.0);
  EXPECT_EQ(set.results().size(), 4u);
}

TEST(Exhaustive, MaxNumResultsCutsTheList) {
  auto params = kNearTranslation105;
  params.maxNumResults(2);
  EXPECT_EQ(run(exhaustive(kTriangle), moved(kTriangle, 10, 5), params).size(), 2u);
  params.maxNumResults(1);
  EXPECT_EQ(run(exhaustive(kTriangle), moved(kTriangle, 10, 5), params).size(), 1u);
}

TEST(Exhaustive, ARunReplacesThePreviousResults) {
  mvPointMatcherResultSet set;
  const mvPointMatcher m = exhaustive(kTriangle);
  m.run(moved(kTriangle, 10, 5), kNearTranslation105, set);
  ASSERT_EQ(set.results().size(), 4u);
  m.run(moved(kTriangle, 50, 50), kNearTranslation105, set);
  EXPECT_TRUE(set.results().empty());
}

TEST(Exhaustive, EmptyDataGivesNoResultsAndSetsTheTime) {
  mvPointMatcherResultSet set = setWithTimeMinusOne();
  exhaustive(kTriangle).run(Points{}, kNearTranslation105, set);
  EXPECT_TRUE(set.results().empty());
  EXPECT_GE(set.time(), 0.0);
}

TEST(Exhaustive, ASingleDataPointCannotBeFitted) {
  EXPECT_TRUE(run(exhaustive(kTriangle), Points{{10, 5}}, kNearTranslation105).empty());
}

TEST(Exhaustive, DataSmallerThanTheModelStillMapsModelToData) {
  // Model square; data: corners 3, 0, 1 moved by (10, 5), in that order.
  const Points square = {{0, 0}, {10, 0}, {0, 10}, {10, 10}};
  const Points data = {{20, 15}, {10, 5}, {20, 5}};
  const auto results = run(exhaustive(square), data, kNearTranslation105);
  // The data pairings {0,1}, {0,2}, {1,2}, {0,1,2} with their corners; the other pairings
  // that keep a direction land at (10, -5) or (20, 5), outside the ranges.
  ASSERT_EQ(results.size(), 4u);
  for (const auto& r : results) {
    EXPECT_DOUBLE_EQ(r.coverage(), 0.75);
    EXPECT_NEAR(r.fitError(), 0.0, kTol);
    EXPECT_EQ(r.modelToDataMap(), (std::vector<long>{1, 2, -1, 0}));
    expectTranslation(r.modelToDataXform(), 10, 5);
  }
}

TEST(Exhaustive, MatchedPointsOfWeightZeroCountForNothing) {
  // Only the last two model points have partners; (30, 0) between them is matched by no
  // other model pair.
  const Points model = {{0, 0}, {10, 0}, {0, 20}, {30, 20}};
  const Points data = {{10, 25}, {40, 25}};

  const auto unweighted = run(exhaustive(model), data, kNearTranslation105);
  ASSERT_EQ(unweighted.size(), 1u);
  EXPECT_DOUBLE_EQ(unweighted[0].coverage(), 0.5);
  EXPECT_EQ(unweighted[0].modelToDataMap(), (std::vector<long>{-1, -1, 0, 1}));

  EXPECT_TRUE(run(exhaustive(model, {1, 1, 0, 0}), data, kNearTranslation105).empty())
      << "all matched weights are 0: count 0";
  EXPECT_TRUE(run(exhaustive(model, {1, 1, 1, 0}), data, kNearTranslation105).empty())
      << "count 1 is below 2";

  const auto weighted = run(exhaustive(model, {1, 1, 0, 5}), data, kNearTranslation105);
  ASSERT_EQ(weighted.size(), 1u);
  EXPECT_DOUBLE_EQ(weighted[0].coverage(), 5.0 / 7.0);
}

TEST(Exhaustive, AMatchedNegativeWeightCountsAgainstThePose) {
  // Weights 2, 2, -1: total weight 4.
  const auto m = exhaustive(kTriangle, {2, 2, -1});

  const auto all = run(m, moved(kTriangle, 10, 5), kNearTranslation105);
  ASSERT_EQ(all.size(), 4u);
  EXPECT_DOUBLE_EQ(all[0].coverage(), 0.75);  // (2 + 2 - 1) / 4
  EXPECT_NEAR(all[0].fitError(), 0.0, kTol);

  // Without a partner for the negative point the pose scores 4 / 4.
  const auto withoutNegative = run(m, Points{{10, 5}, {20, 5}}, kNearTranslation105);
  ASSERT_EQ(withoutNegative.size(), 1u);
  EXPECT_DOUBLE_EQ(withoutNegative[0].coverage(), 1.0);
  EXPECT_EQ(withoutNegative[0].modelToDataMap(), (std::vector<long>{0, 1, -1}));
}

TEST(Exhaustive, ANegativeWeightedSumOfSquaresDropsThePose) {
  // The partner of the negative point lies 1 off: count 2 + 2 - 1 = 3 but the sum of
  // squares is 0 + 0 - 1 < 0. Pairings that use that point are rotated by 3 degrees or
  // more, outside the +-1 degree range.
  const auto m = exhaustive(kTriangle, {2, 2, -1});
  EXPECT_TRUE(run(m, Points{{10, 5}, {20, 5}, {11, 15}}, kNearTranslation105).empty());
}

TEST(Exhaustive, ADataPointAtExactlyTheCaptureRangeIsNotMatched) {
  // The third data point lies 2 from where the pose puts model point 2.
  const Points data = {{10, 5}, {20, 5}, {12, 15}};
  const auto atRange = run(exhaustive(kTriangle), data, withCaptureRange(kNearTranslation105, 2.0));
  ASSERT_EQ(atRange.size(), 1u);
  EXPECT_EQ(atRange[0].modelToDataMap(), (std::vector<long>{0, 1, -1}));
  EXPECT_DOUBLE_EQ(atRange[0].coverage(), 2.0 / 3.0);
  EXPECT_NEAR(atRange[0].fitError(), 0.0, kTol);

  const auto beyond =
      run(exhaustive(kTriangle), data, withCaptureRange(kNearTranslation105, 2.0000001));
  ASSERT_EQ(beyond.size(), 1u);
  EXPECT_EQ(beyond[0].modelToDataMap(), (std::vector<long>{0, 1, 2}));
  EXPECT_DOUBLE_EQ(beyond[0].coverage(), 1.0);
  EXPECT_NEAR(beyond[0].fitError(), std::sqrt(4.0 / 3.0), kTol);
  expectTranslation(beyond[0].modelToDataXform(), 10, 5);
}

TEST(Exhaustive, ACaptureRangeOfZeroMatchesNothing) {
  EXPECT_TRUE(run(exhaustive(kTriangle), moved(kTriangle, 10, 5),
                  withCaptureRange(kNearTranslation105, 0.0))
                  .empty());
}

TEST(Exhaustive, TheGridSizeServesAsAnAutomaticCaptureRange) {
  // Model point 2's partner lies 1 off.
  const Points data = {{10, 5}, {20, 5}, {11, 15}};
  auto params = kNearTranslation105;
  params.autoGridSize(false);
  params.gridSize(0.5);
  auto r = run(exhaustive(kTriangle), data, params);
  ASSERT_EQ(r.size(), 1u);
  EXPECT_EQ(r[0].modelToDataMap(), (std::vector<long>{0, 1, -1})) << "capture range 0.5";

  // A grid size not above 0 (kept from an automatic setting) gives way to the model's
  // default grid size, 2.5 for this triangle.
  params.autoGridSize(true);
  params.gridSize(-5.0);
  params.autoGridSize(false);
  r = run(exhaustive(kTriangle), data, params);
  ASSERT_EQ(r.size(), 1u);
  EXPECT_EQ(r[0].modelToDataMap(), (std::vector<long>{0, 1, 2})) << "capture range 2.5";

  // A negative capture range (kept from an automatic setting) gives way to the grid size.
  params = withCaptureRange(kNearTranslation105, 0.0);
  params.gridSize(0.5);
  params.autoCaptureRange(true);
  params.captureRange(-1.0);
  params.autoCaptureRange(false);
  r = run(exhaustive(kTriangle), data, params);
  ASSERT_EQ(r.size(), 1u);
  EXPECT_EQ(r[0].modelToDataMap(), (std::vector<long>{0, 1, -1}));
}

TEST(Exhaustive, ScoringIsGreedyInModelOrder) {
  // Model point 3 at (2, 0) lies 0.5 from data point (1.5, 0), model point 0 lies 1.5 from
  // it; model point 0 comes first and takes it.
  const Points model = {{0, 0}, {10, 0}, {0, 10}, {2, 0}};
  const Points data = {{10, 0}, {0, 10}, {1.5, 0}};
  const auto results = run(exhaustive(model), data, withCaptureRange(kNearIdentity, 2.0));
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].modelToDataMap(), (std::vector<long>{2, 0, 1, -1}));
  EXPECT_DOUBLE_EQ(results[0].coverage(), 0.75);
  EXPECT_NEAR(results[0].fitError(), std::sqrt(2.25 / 3.0), kTol);
  expectTranslation(results[0].modelToDataXform(), 0, 0);
}

TEST(Exhaustive, EqualDistancesKeepTheLowerDataIndex) {
  const Points data = {{10, 0}, {0, 10}, {1, 0}, {-1, 0}};
  const auto results = run(exhaustive(kTriangle), data, withCaptureRange(kNearIdentity, 1.5));
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0].modelToDataMap(), (std::vector<long>{2, 0, 1}));
  EXPECT_NEAR(results[0].fitError(), std::sqrt(1.0 / 3.0), kTol);
}

TEST(Exhaustive, RangesApplyToThePoseRelativeToTheStartPose) {
  // A triangle without two equal sides, so that no rotation by a right angle maps two of
  // its points onto two others. True pose: rotate by 90 degrees, then move by (100, 0). Start pose:
  // the same rotation, moved by (95, 0). Relative to the start the pose is a pure move by (5, 0).
  const mvXform<2> truth(mvVector<2>(100, 0), mvRadian(mvDegree(90.0)), mvRadian(mvDegree(90.0)),
                         1.0, 1.0);
  const mvXform<2> start(mvVector<2>(95, 0), mvRadian(mvDegree(90.0)), mvRadian(mvDegree(90.0)),
                         1.0, 1.0);
  const Points model = {{0, 0}, {10, 0}, {0, 4}};
  Points data;
  for (const auto& p : model) data.push_back(truth * p);

  auto params = ranges(mvRange(4, 6), mvRange(-1, 1), 1.0, mvRange(-0.01, 0.01));
  params.startPose(start);
  const auto results = run(exhaustive(model), data, params);
  ASSERT_FALSE(results.empty());
  EXPECT_DOUBLE_EQ(results[0].coverage(), 1.0);
  EXPECT_EQ(results[0].modelToDataMap(), (std::vector<long>{0, 1, 2}));
  // The result holds the absolute model-to-data pose, not the relative one.
  expectPose(results[0].modelToDataXform(), 0, -1, 1, 0, 100, 0);

  // (0, -5) would be the move for the other order of composition: nothing there.
  params.xTranslationUncertainty(mvRange(-1, 1));
  params.yTranslationUncertainty(mvRange(-6, -4));
  EXPECT_TRUE(run(exhaustive(model), data, params).empty());

  // Around the identity the same pose is 90 degrees off.
  params = ranges(mvRange(99, 101), mvRange(-1, 1), 1.0, mvRange(-0.01, 0.01));
  EXPECT_TRUE(run(exhaustive(model), data, params).empty());
  params.rotationUncertainty(degrees(89, 91));
  EXPECT_FALSE(run(exhaustive(model), data, params).empty());
}

TEST(Exhaustive, ScaleRangeZeroToZeroFitsRigidly) {
  // Data: the triangle doubled, then moved by (10, 5).
  const Points data = {{10, 5}, {30, 5}, {10, 25}};
  const auto full = mvRange::FullRange();

  // Similarity fits find the doubled triangle exactly.
  const auto similar =
      run(exhaustive(kTriangle), data, ranges(full, full, 1.0, mvRange(-0.5, 1.5)));
  ASSERT_EQ(similar.size(), 4u);
  for (const auto& r : similar) {
    EXPECT_DOUBLE_EQ(r.coverage(), 1.0);
    EXPECT_NEAR(r.fitError(), 0.0, kTol);
    expectPose(r.modelToDataXform(), 2, 0, 0, 2, 10, 5);
  }

  // Rigid fits keep the scale at 1: the pairing of model points 0, 1 gives a move by
  // (15, 5) and that of 0, 2 a move by (10, 10); each then matches two points 5 off. The
  // pairing of 1, 2 (move (15, 10)) and the three-point pairings match at most one point
  // within the capture range 6.
  const auto rigid = run(exhaustive(kTriangle), data,
                         withCaptureRange(ranges(full, full, 1.0, mvRange(0.0, 0.0)), 6.0));
  ASSERT_EQ(rigid.size(), 2u);
  for (const auto& r : rigid) {
    EXPECT_DOUBLE_EQ(r.coverage(), 2.0 / 3.0);
    EXPECT_NEAR(r.fitError(), 5.0, kTol);
    EXPECT_EQ(r.modelToDataXform().matrix(), mvMatrix<2>(1, 0, 0, 1));
  }
  const bool first0110 = rigid[0].modelToDataMap() == std::vector<long>{0, 1, -1};
  const auto& move15 = first0110 ? rigid[0] : rigid[1];
  const auto& move10 = first0110 ? rigid[1] : rigid[0];
  EXPECT_EQ(move15.modelToDataMap(), (std::vector<long>{0, 1, -1}));
  expectTranslation(move15.modelToDataXform(), 15, 5);
  EXPECT_EQ(move10.modelToDataMap(), (std::vector<long>{0, -1, 2}));
  expectTranslation(move10.modelToDataXform(), 10, 10);
}

TEST(Exhaustive, ResultsComeInTheResultOrderAndTheCutKeepsTheBest) {
  const Points data = {{10, 5}, {20, 5}, {11, 15}, {3, 4}};
  const auto params =
      ranges(mvRange::FullRange(), mvRange::FullRange(), 180.0, mvRange(-0.9, 3.0), 1000);
  const auto all = run(exhaustive(kTriangle), data, params);
  ASSERT_GT(all.size(), 5u);
  for (std::size_t i = 1; i < all.size(); ++i) {
    const bool ordered =
        all[i - 1].coverage() > all[i].coverage() ||
        (all[i - 1].coverage() == all[i].coverage() && all[i - 1].fitError() <= all[i].fitError());
    EXPECT_TRUE(ordered) << "results " << i - 1 << " and " << i;
  }
  auto cut = params;
  cut.maxNumResults(3);
  const auto best = run(exhaustive(kTriangle), data, cut);
  ASSERT_EQ(best.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(best[i].coverage(), all[i].coverage());
    EXPECT_EQ(best[i].fitError(), all[i].fitError());
  }
}

TEST(Exhaustive, NonFiniteDataPointsNeverMatch) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  Points data = moved(kTriangle, 10, 5);
  data.emplace_back(nan, nan);
  const auto results = run(exhaustive(kTriangle), data, kNearTranslation105);
  ASSERT_EQ(results.size(), 4u);
  EXPECT_EQ(results[0].modelToDataMap(), (std::vector<long>{0, 1, 2}));
}

TEST(Exhaustive, ASingularStartPoseCannotBeInverted) {
  auto params = kNearTranslation105;
  params.startPose(mvXform<2>(mvMatrix<2>(0, 0, 0, 0), mvVector<2>(0, 0)));
  mvPointMatcherResultSet set;
  EXPECT_THROW(exhaustive(kTriangle).run(moved(kTriangle, 10, 5), params, set), mvMathError);
  EXPECT_TRUE(set.results().empty());
}

TEST(Exhaustive, CanBeInterruptedAndStaysUsable) {
  const mvPointMatcher m = exhaustive(kTriangle);
  mvPointMatcherResultSet set;
  mvAttention::requestInterruption();
  EXPECT_THROW(m.run(moved(kTriangle, 10, 5), kNearTranslation105, set), mvAttention::Interrupted);
  mvAttention::clear();
  EXPECT_TRUE(set.results().empty());
  m.run(moved(kTriangle, 10, 5), kNearTranslation105, set);
  EXPECT_EQ(set.results().size(), 4u);
}

TEST(Exhaustive, AnAssignedMatcherRunsExhaustivelyOnItsNewModel) {
  // The target keeps its exhaustive train mode and takes the source's weighted model.
  mvPointMatcher source;
  source.train(kTriangle, std::vector<long>{2, 2, -1}, Defs::eAutoDetect);
  mvPointMatcher target = exhaustive(Points{{0, 0}, {3, 0}, {0, 3}, {3, 3}});
  target = source;
  const auto results = run(target, moved(kTriangle, 10, 5), kNearTranslation105);
  ASSERT_EQ(results.size(), 4u);
  EXPECT_DOUBLE_EQ(results[0].coverage(), 0.75);
}

TEST(Exhaustive, AModelLoadedWithoutWeightsCountsEveryPointOnce) {
  using namespace matcher_bytes;
  // A version-0 point model of the triangle, which holds no weights.
  const Bytes bytes = cat({le32(kVersion), s32(1), le32(0), u8(1), f64s({2.5, 0, 0, 10, 10, 5, 5}),
                           points({{0, 0}, {10, 0}, {0, 10}}), f64(std::sqrt(50.0)), s32(0), s32(0),
                           identity(), s32(0), vectorHeader(0)});
  mvPointMatcher loaded;
  mvMemoryArchive in(bytes);
  in || loaded;
  mvPointMatcher target = exhaustive(Points{{0, 0}, {3, 0}, {0, 3}});
  target = loaded;
  const auto results = run(target, moved(kTriangle, 10, 5), kNearTranslation105);
  ASSERT_EQ(results.size(), 4u);
  EXPECT_DOUBLE_EQ(results[0].coverage(), 1.0) << "total weight 3, the number of points";
}
