// Hostile point sets: non-finite and enormous coordinates, coincident and collinear points,
// too few points and very many. Each test states what the library does with them and
// checks that the object involved came through unharmed.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "mvbase/fitter.h"
#include "ptmatch/gridcorr.h"
#include "ptmatch/ppmatch.h"
#include "ptmatch/ptgdmap.h"
#include "ptmatch/tm.h"
#include "robustness_support.h"

namespace {

using namespace robustness;
using Mode = mvPointMatcherDefs::Mode;

// Six by five nodes of pitch 10, offset by (3, 4).
Points gridOfDots() {
  Points points;
  for (int j = 0; j < 5; ++j) {
    for (int i = 0; i < 6; ++i) points.emplace_back(10.0 * i + 3.0, 10.0 * j + 4.0);
  }
  return points;
}

mvPtToGridMapRunParams gridParams() {
  return mvPtToGridMapRunParams(mvVector<2>(10, 0), mvVector<2>(0, 10), false, 9.0);
}

// A grid-map result filled by a successful mapping of gridOfDots().
mvPtToGridMapResult mappedGrid() {
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(gridOfDots(), gridParams(), result), 30);
  return result;
}

// A call that failed or found no seed: valid() is false (a call clears it first), and the
// transform and the map of the earlier call are still there.
void expectSameMapping(const mvPtToGridMapResult& after, const mvPtToGridMapResult& before) {
  EXPECT_FALSE(after.valid());
  EXPECT_EQ(after.grid2point(), before.grid2point());
  EXPECT_EQ(after.map(), before.map());
}

const double kNonFinite[] = {kNaN, kInfinity, -kInfinity};

}  // namespace

// --- NaN and infinite coordinates ---

TEST(HostileNonFinite, DataPointsAreRefusedWithBadParamsAndTheMatcherIsUnharmed) {
  mvPointMatcher matcher = pointMatcher();
  const Bytes before = storeObject(matcher);
  for (double bad : kNonFinite) {
    for (int axis = 0; axis < 2; ++axis) {
      Points data = referenceData();
      data[2] = axis == 0 ? mvVector<2>(bad, 1.0) : mvVector<2>(1.0, bad);
      mvPointMatcherResultSet results;
      matcher.run(referenceData(), referenceParams(), results);  // leaves one result
      expectThrowsWithMessage<mvPointMatcherDefs::BadParams>(
          [&] { matcher.run(data, referenceParams(), results); }, "data points must be finite\n");
      EXPECT_TRUE(results.results().empty());
    }
  }
  expectIntact(matcher, before);
}

TEST(HostileNonFinite, ModelPointsAreRefusedAtTrainingWhichLeavesTheMatcherUntrained) {
  for (double bad : kNonFinite) {
    mvPointMatcher matcher = pointMatcher();
    Points model = referenceModel();
    model[1] = mvVector<2>(bad, 0.0);
    expectThrowsWithMessage<mvPointMatcherDefs::BadParams>(
        [&] { matcher.train(model, mvPointMatcherDefs::eAutoDetect); },
        "model point coordinates must be finite\n");
    EXPECT_FALSE(matcher.isTrained());
    // Training again with good points works.
    matcher.train(referenceModel(), mvPointMatcherDefs::eAutoDetect);
    expectFindsReference(matcher);
  }
}

TEST(HostileNonFinite, StartPoseIsRefusedWithBadParams) {
  mvPointMatcher matcher = pointMatcher();
  const Bytes before = storeObject(matcher);
  for (double bad : kNonFinite) {
    mvPointMatcherRunParams params = referenceParams();
    params.startPose(mvXform<2>(mvMatrix<2>(1, 0, 0, 1), mvVector<2>(bad, 0)));
    mvPointMatcherResultSet results;
    expectThrowsWithMessage<mvPointMatcherDefs::BadParams>(
        [&] { matcher.run(referenceData(), params, results); }, "startPose must be finite\n");
  }
  expectIntact(matcher, before);
}

TEST(HostileNonFinite, ExhaustiveSearchNeverMatchesANonFiniteDataPoint) {
  const Points model = {{0, 0}, {10, 0}, {0, 10}};
  mvPointMatcher matcher = exhaustiveMatcher(model);
  for (double bad : kNonFinite) {
    const Points data = {{3, 4}, {bad, 4}, {3, 14}};
    mvPointMatcherResultSet results;
    matcher.run(data, exhaustiveParams(), results);
    expectValidResults(results, 3, 3, 1, mvPointMatcherDefs::eExhaustiveMode);
    ASSERT_EQ(results.results().size(), 1u);
    EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, -1, 2}));
    EXPECT_NEAR(results.results()[0].coverage(), 2.0 / 3.0, 1e-15);
  }
}

TEST(HostileNonFinite, GridMapRefusesAPointWithBadInputAndLeavesTheResultAlone) {
  for (double bad : kNonFinite) {
    mvPtToGridMapResult result = mappedGrid();
    const mvPtToGridMapResult earlier = result;
    Points points = gridOfDots();
    points[3] = mvVector<2>(bad, 0.0);
    expectThrowsWithMessage<mvPtToGridMapDefs::BadInput>(
        [&] { mfPtToGridMap(points, gridParams(), result); }, "Point 3 is not finite.");
    expectSameMapping(result, earlier);
    EXPECT_GE(result.time(), 0.0);
  }
}

TEST(HostileNonFinite, GridMapRefusesANonFiniteSnapSize) {
  mvPtToGridMapRunParams params = gridParams();
  params.snapSize(kNaN);
  mvPtToGridMapResult result;
  expectThrowsWithMessage<mvPtToGridMapDefs::BadInput>(
      [&] { mfPtToGridMap(gridOfDots(), params, result); }, "The snap size is not finite.");
}

TEST(HostileNonFinite, AffineFitCarriesNaNIntoTheTransformWithoutThrowing) {
  mv2PtMatchTm tm;
  tm.fit(Points{{0, 0}, {1, 0}, {kNaN, 1}}, Points{{0, 0}, {1, 0}, {0, 1}}, 6);
  EXPECT_TRUE(std::isnan(tm.a2bXform().matrix().element(0, 0)));
  // The object is still usable: a later fit with good pairs replaces the NaN.
  tm.fit(Points{{0, 0}, {1, 0}, {0, 1}}, Points{{2, 3}, {3, 3}, {2, 4}}, 6);
  EXPECT_EQ(tm.a2b(mvVector<2>(5, 5)), mvVector<2>(7, 8));
}

TEST(HostileNonFinite, PerspectiveAnd3dFitsReportASingularMatrix) {
  mv2PTm perspective;
  EXPECT_THROW(perspective.fit(Points{{0, 0}, {1, 0}, {0, 1}, {kNaN, 1}},
                               Points{{0, 0}, {1, 0}, {0, 1}, {1, 1}}),
               mvMatrixExt::SingularMatrix);
  EXPECT_EQ(perspective.a2b(mvVector<2>(3, 4)), mvVector<2>(3, 4));  // the identity again

  mv3PtMatchTm tm3;
  using P3 = std::vector<mvVector<3>>;
  EXPECT_THROW(tm3.fit(P3{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, kNaN}},
                       P3{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}}),
               mvMatrixExt::SingularMatrix);
  tm3.fit(P3{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
          P3{{1, 2, 3}, {2, 2, 3}, {1, 3, 3}, {1, 2, 4}});
  const mvVector<3> moved = tm3.a2b(mvVector<3>(1, 1, 1));
  EXPECT_NEAR(moved.x(), 2.0, 1e-9);
  EXPECT_NEAR(moved.y(), 3.0, 1e-9);
  EXPECT_NEAR(moved.z(), 4.0, 1e-9);
}

// --- Coordinates of 1e300 ---

TEST(HostileHugeCoordinates, OneFarDataPointMakesTheRunRefuseItsGrid) {
  mvPointMatcher matcher = pointMatcher();
  const Bytes before = storeObject(matcher);
  Points data = referenceData();
  data.emplace_back(1e300, 0.0);
  mvPointMatcherResultSet results;
  expectThrowsWithMessage<mvPointMatcherDefs::BadParams>(
      [&] { matcher.run(data, referenceParams(), results); },
      "the data points span too many grid cells; use a larger gridSize\n");
  expectIntact(matcher, before);
}

TEST(HostileHugeCoordinates, ModelWhoseSpacingOverflowsTrainsButFindsNothing) {
  // Squared distances of 1e300 overflow: no spacing is taken into account, the automatic
  // grid size is infinite, and the search has nothing to vote on.
  Points model;
  for (const mvVector<2>& p : referenceModel()) model.push_back(p * 1e299);
  mvPointMatcher matcher = pointMatcher(model);
  EXPECT_TRUE(matcher.isTrained());
  mvPointMatcherResultSet results;
  matcher.run(model, referenceParams(), results);
  EXPECT_TRUE(results.results().empty());
  EXPECT_GE(results.time(), 0.0);
}

TEST(HostileHugeCoordinates, ExhaustiveSearchLeavesAFarDataPointUnmatched) {
  mvPointMatcher matcher = exhaustiveMatcher({{0, 0}, {10, 0}, {0, 10}});
  mvPointMatcherResultSet results;
  matcher.run({{3, 4}, {1e300, 4}, {3, 14}}, exhaustiveParams(), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, -1, 2}));
}

TEST(HostileHugeCoordinates, GridMapRefusesPointsSpreadOverTooManyBuckets) {
  mvPtToGridMapResult result = mappedGrid();
  const mvPtToGridMapResult earlier = result;
  Points points = gridOfDots();
  points[3] = mvVector<2>(1e300, 0.0);
  expectThrowsWithMessage<mvPtToGridMapDefs::BadInput>(
      [&] { mfPtToGridMap(points, gridParams(), result); },
      "The points spread over too many buckets of the snap size.");
  expectSameMapping(result, earlier);
}

TEST(HostileHugeCoordinates, AffineFitOverflowsToNaNWithoutThrowing) {
  mv2PtMatchTm tm;
  tm.fit(Points{{0, 0}, {1e300, 0}, {0, 1e300}}, Points{{0, 0}, {1, 0}, {0, 1}}, 6);
  EXPECT_FALSE(std::isfinite(tm.a2bXform().matrix().element(0, 0)));
}

// --- All points coincident ---

TEST(HostileCoincident, CoincidentModelTrainsAndFindsNothing) {
  mvPointMatcher matcher = pointMatcher(Points(4, mvVector<2>(5, 5)));
  EXPECT_TRUE(matcher.isTrained());
  mvPointMatcherResultSet results;
  matcher.run(referenceData(), referenceParams(), results);
  EXPECT_TRUE(results.results().empty());
  matcher.run(Points(4, mvVector<2>(5, 5)), referenceParams(), results);
  EXPECT_TRUE(results.results().empty());
}

TEST(HostileCoincident, CoincidentDataGiveNoResult) {
  mvPointMatcher matcher = pointMatcher();
  const Bytes before = storeObject(matcher);
  mvPointMatcherResultSet results;
  matcher.run(Points(6, mvVector<2>(5, 5)), referenceParams(), results);
  EXPECT_TRUE(results.results().empty());
  expectIntact(matcher, before);
}

TEST(HostileCoincident, ExhaustiveSearchFindsNoPoseForCoincidentData) {
  mvPointMatcher matcher = exhaustiveMatcher({{0, 0}, {10, 0}, {0, 10}});
  mvPointMatcherResultSet results;
  matcher.run(Points(3, mvVector<2>(5, 5)), exhaustiveParams(), results);
  EXPECT_TRUE(results.results().empty());
}

TEST(HostileCoincident, GridMapFindsNoSeed) {
  mvPtToGridMapResult result = mappedGrid();
  const mvPtToGridMapResult earlier = result;
  EXPECT_EQ(mfPtToGridMap(Points(20, mvVector<2>(5, 5)), gridParams(), result), 0);
  expectSameMapping(result, earlier);  // without a seed nothing is rewritten
}

TEST(HostileCoincident, AffineFitThrowsTheFittersErrorAndKeepsTheTransform) {
  mv2PtMatchTm tm(mvXform<2>(mvMatrix<2>(2, 0, 0, 2), mvVector<2>(1, 1)));
  const mvXform<2> a2b = tm.a2bXform();
  const mvXform<2> b2a = tm.b2aXform();
  tm.update(Points(3, mvVector<2>(1, 1)), Points(3, mvVector<2>(0, 0)));
  expectThrowsWithMessage<mvLSPointToPointFitter::Errors>([&] { tm.fit(0); },
                                                          "The points being mapped all coincide.");
  EXPECT_EQ(tm.a2bXform(), a2b);
  EXPECT_EQ(tm.b2aXform(), b2a);
}

// --- Collinear models ---

TEST(HostileCollinear, CollinearModelIsFound) {
  const Points model = {{0, 0}, {10, 0}, {30, 0}, {70, 0}};
  mvPointMatcher matcher = pointMatcher(model);
  const Points data = transformed(referencePose(), model);
  mvPointMatcherResultSet results;
  matcher.run(data, referenceParams(), results);
  expectValidResults(results, 4, 4, 1, mvPointMatcherDefs::ePointToPoint);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, 1, 2, 3}));
  EXPECT_LT(results.results()[0].fitError(), 1e-9);
}

TEST(HostileCollinear, CollinearModelIsFoundByTheExhaustiveSearch) {
  const Points model = {{0, 0}, {10, 0}, {30, 0}};
  mvPointMatcher matcher = exhaustiveMatcher(model);
  mvPointMatcherResultSet results;
  matcher.run(transformed(referencePose(), model), exhaustiveParams(), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, 1, 2}));
}

TEST(HostileCollinear, AffineFitOfCollinearPairsFallsBackToASimilarity) {
  const Points a = {{0, 0}, {1, 0}, {2, 0}};
  const Points b = {{5, 5}, {5, 6}, {5, 7}};
  mv2PtMatchTm tm;
  expectThrowsWithMessage<mvLSPointToPointFitter::Errors>([&] { tm.fit(a, b, 6); },
                                                          "The points being mapped are collinear.");
  EXPECT_EQ(tm.a2bXform(), mvXform<2>());
  tm.fit(a, b, 0);  // 6 and 5 fail, 4 succeeds: a quarter turn
  const mvVector<2> p = tm.a2b(mvVector<2>(2, 0));
  EXPECT_NEAR(p.x(), 5.0, 1e-12);
  EXPECT_NEAR(p.y(), 7.0, 1e-12);
}

TEST(HostileCollinear, GridMapOfOneRowFitsASimilarity) {
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(Points{{1, 1}, {11, 1}, {21, 1}}, gridParams(), result), 3);
  EXPECT_TRUE(result.valid());
  const mvVector<2> node = result.grid2point() * mvVector<2>(result.map()[2]);
  EXPECT_NEAR(node.x(), 21.0, 1e-9);
  EXPECT_NEAR(node.y(), 1.0, 1e-9);
}

TEST(HostileCollinear, ThreeDimensionalFitOfCoplanarPointsReportsASingularMatrix) {
  using P3 = std::vector<mvVector<3>>;
  const P3 plane = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  mv3PtMatchTm tm;
  EXPECT_THROW(tm.fit(plane, plane), mvMatrixExt::SingularMatrix);
}

// --- 1 and 2 points ---

TEST(HostileFewPoints, TrainingWithOneOrTwoPointsThrowsInsufficientModelPoints) {
  for (std::size_t n : {0u, 1u, 2u}) {
    mvPointMatcher matcher = pointMatcher();
    const Points all = referenceModel();
    const Points model(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(n));
    expectThrowsWithMessage<mvPointMatcherDefs::InsufficientModelPoints>(
        [&] { matcher.train(model, mvPointMatcherDefs::eAutoDetect); },
        "The number of model points must be >= 3\n");
    EXPECT_FALSE(matcher.isTrained());
  }
}

TEST(HostileFewPoints, OneDataPointGivesNoResultAndTwoGiveAPartialMatch) {
  mvPointMatcher matcher = pointMatcher();
  const Bytes before = storeObject(matcher);
  mvPointMatcherRunParams params = referenceParams();
  params.minCoverage(0.0);
  const Points data = referenceData();
  mvPointMatcherResultSet results;
  matcher.run({data[0]}, params, results);
  EXPECT_TRUE(results.results().empty());  // one pair fixes no pose

  matcher.run({data[0], data[1]}, params, results);
  expectValidResults(results, 5, 2, 1, mvPointMatcherDefs::ePointToPoint);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 2.0 / 5.0);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, 1, -1, -1, -1}));
  expectIntact(matcher, before);
}

TEST(HostileFewPoints, ExhaustiveSearchNeedsTwoPairs) {
  mvPointMatcher matcher = exhaustiveMatcher({{0, 0}, {10, 0}, {0, 10}});
  mvPointMatcherResultSet results;
  matcher.run({{3, 4}}, exhaustiveParams(), results);
  EXPECT_TRUE(results.results().empty());
  matcher.run({{3, 4}, {13, 4}}, exhaustiveParams(), results);
  ASSERT_EQ(results.results().size(), 1u);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, 1, -1}));
}

TEST(HostileFewPoints, GridMapOfOneOrTwoPointsIsNotValid) {
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(Points{{1, 1}}, gridParams(), result), 0);
  EXPECT_FALSE(result.valid());
  EXPECT_EQ(mfPtToGridMap(Points{{1, 1}, {11, 1}}, gridParams(), result), 2);
  EXPECT_FALSE(result.valid());
  EXPECT_EQ(result.map().size(), 2u);
}

TEST(HostileFewPoints, CorresponderTrainsFromOneNode) {
  mv_PointToGridCorresponder corresponder;
  corresponder.train(std::vector<mvPair<long>>{{3, 3}}, mv_PointToGridCorresponderTrainParams(),
                     mvXform<2>());
  EXPECT_TRUE(corresponder.isTrained());
  mv_PointToGridCorresponderResultSet results;
  EXPECT_FALSE(corresponder.run(std::vector<mvPair<long>>{{7, 7}},
                                mv_PointToGridCorresponderRunParams(), results));
  EXPECT_TRUE(results.results().empty());
}

TEST(HostileFewPoints, AffineFitOfOnePairThrowsAndOfTwoPairsGivesASimilarity) {
  mv2PtMatchTm tm;
  expectThrowsWithMessage<mvLSPointToPointFitter::Errors>(
      [&] {
        tm.fit(Points{{0, 0}}, Points{{1, 1}}, 0);
      },
      "Too few point pairs for the asked family.");
  tm.fit(Points{{0, 0}, {1, 0}}, Points{{1, 1}, {1, 3}}, 0);
  const mvVector<2> p = tm.a2b(mvVector<2>(1, 0));
  EXPECT_NEAR(p.x(), 1.0, 1e-12);
  EXPECT_NEAR(p.y(), 3.0, 1e-12);
}

// --- 70 000 data points ---

// The reference data hidden among 70 000 points: clutter on a lattice of pitch 37 around
// it. The translation range keeps the vote small.
Points seventyThousand(bool modelFirst) {
  Points data;
  if (modelFirst) data = referenceData();
  for (int j = 0; j < 265 && data.size() < 69995 + (modelFirst ? 5u : 0u); ++j) {
    for (int i = 0; i < 265 && data.size() < 69995 + (modelFirst ? 5u : 0u); ++i) {
      data.emplace_back(37.0 * i - 4000.0 + 0.5, 37.0 * j - 4000.0 + 0.5);
    }
  }
  if (!modelFirst) {
    for (const mvVector<2>& p : referenceData()) data.push_back(p);
  }
  return data;
}

mvPointMatcherRunParams aroundTheReferencePose() {
  mvPointMatcherRunParams params = referenceParams();
  params.xTranslationUncertainty(mvRange(90.0, 110.0));
  params.yTranslationUncertainty(mvRange(40.0, 60.0));
  params.maxNumResults(5);
  return params;
}

TEST(HostileManyPoints, SeventyThousandDataPointsAreSearchedAndTheModelFound) {
  const Points data = seventyThousand(true);
  ASSERT_EQ(data.size(), 70000u);
  mvPointMatcher matcher = pointMatcher();
  mvPointMatcherResultSet results;
  matcher.run(data, aroundTheReferencePose(), results);
  expectValidResults(results, 5, data.size(), 5, mvPointMatcherDefs::ePointToPoint);
  ASSERT_FALSE(results.results().empty());
  EXPECT_DOUBLE_EQ(results.results()[0].coverage(), 1.0);
  EXPECT_EQ(results.results()[0].modelToDataMap(), (std::vector<long>{0, 1, 2, 3, 4}));
}

TEST(HostileManyPoints, DataBeyondIndex65535GiveValidResultsThoughTheIndexRastersWrap) {
  // The search's index rasters hold 16-bit data numbers on purpose: beyond 65535 they wrap
  // and name another data point, so a model that sits only there may be missed. Whatever
  // is reported still names valid data points, each at most once.
  const Points data = seventyThousand(false);
  ASSERT_EQ(data.size(), 70000u);
  mvPointMatcher matcher = pointMatcher();
  mvPointMatcherResultSet results;
  matcher.run(data, aroundTheReferencePose(), results);
  expectValidResults(results, 5, data.size(), 5, mvPointMatcherDefs::ePointToPoint);
}

TEST(HostileManyPoints, GridMapAssignsSeventyThousandDots) {
  Points points;
  for (int j = 0; j < 280; ++j) {
    for (int i = 0; i < 250; ++i) points.emplace_back(10.0 * i, 10.0 * j);
  }
  mvPtToGridMapResult result;
  EXPECT_EQ(mfPtToGridMap(points, gridParams(), result), 70000);
  EXPECT_TRUE(result.valid());
  const mvPair<long> shift = result.map()[0];
  EXPECT_EQ(result.map()[69999], mvPair<long>(249, 279) + shift);
}
