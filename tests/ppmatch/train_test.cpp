// The point matcher's life cycle: training from points and what it precomputes,
// untraining, the accessors, copying, and the archive layout of the matcher and its model.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "common/expect_throw.h"
#include "mvbase/archive.h"
#include "ppmatch/matcher_bytes.h"
#include "ptmatch/ppmatch.h"

using namespace matcher_bytes;

namespace {

using Defs = mvPointMatcherDefs;
using Points = std::vector<mvVector<2>>;

const double kInf = std::numeric_limits<double>::infinity();

const wchar_t* const kNotTrained = L"mvPointMatcher tool is not trained\n";
const wchar_t* const kNotTrainedPtToPt =
    L"mvPointMatcher tool is not trained in mode ePointToPoint\n";
const wchar_t* const kBadMode =
    L"mode must be either mvPointMatcherDefs::eExhaustiveMode or mvPointMatcherDefs::eAutoDetect";

const Points kTriangle = {{0, 0}, {10, 0}, {0, 10}};

// The bytes of a point model: version, trained, default grid size, bounding box (upper
// left, lower right), centre, points, radius, and for version 1 the weights and total.
Bytes modelBytes(std::uint32_t version, bool trained, double gridSize, double x0, double y0,
                 double x1, double y1, double cx, double cy, const Bytes& pointBytes, double radius,
                 const Bytes& weightBytes, std::int32_t totalWeight) {
  Bytes b = cat({le32(version), u8(trained ? 1 : 0), f64s({gridSize, x0, y0, x1, y1, cx, cy}),
                 pointBytes, f64(radius)});
  if (version == 1) b = cat({b, weightBytes, s32(totalWeight)});
  return b;
}

// A matcher holding only a point model.
Bytes matcherWithModel(const Bytes& model) {
  return cat({le32(kVersion), s32(1), model, s32(0), s32(0), identity(), s32(0), vectorHeader(0)});
}

// The model bytes of the triangle (0,0), (10,0), (0,10), worked out by hand: closest
// spacing 10 and largest span sqrt(200), so grid size max(10 / 4, 14.14 / 4096) = 2.5;
// box (0,0)-(10,10); centre (5,5); radius sqrt(50).
Bytes triangleModel(const Bytes& weightBytes, std::int32_t totalWeight) {
  return modelBytes(1, true, 2.5, 0, 0, 10, 10, 5, 5, points({{0, 0}, {10, 0}, {0, 10}}),
                    std::sqrt(50.0), weightBytes, totalWeight);
}

}  // namespace

// --- training ---

TEST(Training, NewMatcherIsUntrained) {
  mvPointMatcher m;
  EXPECT_FALSE(m.isTrained());
  EXPECT_THROW_MESSAGE(m.trainMode(), Defs::NotTrained, kNotTrained);
  EXPECT_THROW_MESSAGE(m.modelPoints(), Defs::NotTrained, kNotTrainedPtToPt);
  EXPECT_THROW_MESSAGE(m.weights(), Defs::NotTrained, kNotTrainedPtToPt);
  EXPECT_EQ(storeObject(m), untrainedMatcher());
}

TEST(Training, AutoDetectTrainsAndReportsPointToPoint) {
  mvPointMatcher m;
  m.train(kTriangle, Defs::eAutoDetect);
  EXPECT_TRUE(m.isTrained());
  EXPECT_EQ(m.trainMode(), Defs::ePointToPoint);
  EXPECT_EQ(m.modelPoints(), kTriangle);
  EXPECT_EQ(m.weights(), (std::vector<long>{1, 1, 1}));
}

TEST(Training, TrianglePrecomputesGridSizeBoxCentreAndRadius) {
  mvPointMatcher m;
  m.train(kTriangle, Defs::eAutoDetect);
  EXPECT_EQ(storeObject(m), matcherWithModel(triangleModel(longs({}), 3)));
}

TEST(Training, CoincidentPointsGiveAnInfiniteGridSize) {
  mvPointMatcher m;
  m.train(Points{{2, 3}, {2, 3}, {2, 3}}, Defs::eAutoDetect);
  EXPECT_TRUE(m.isTrained());
  EXPECT_EQ(storeObject(m),
            matcherWithModel(modelBytes(1, true, kInf, 2, 3, 2, 3, 2, 3,
                                        points({{2, 3}, {2, 3}, {2, 3}}), 0.0, longs({}), 3)));
}

TEST(Training, ACoincidentPairAddsNothingToTheSpacing) {
  // (0,0) twice and (8,6): the closest spacing is 10 (from (8,6)), not 0; grid size 2.5.
  // Box (0,0)-(8,6), centre (4,3), radius 5.
  mvPointMatcher m;
  m.train(Points{{0, 0}, {0, 0}, {8, 6}}, Defs::eAutoDetect);
  EXPECT_EQ(storeObject(m),
            matcherWithModel(modelBytes(1, true, 2.5, 0, 0, 8, 6, 4, 3,
                                        points({{0, 0}, {0, 0}, {8, 6}}), 5.0, longs({}), 3)));
}

TEST(Training, AWideModelTakesItsGridSizeFromItsSpan) {
  // Spacing 1 gives 0.25; the span 8192 gives 2, which is larger.
  mvPointMatcher m;
  m.train(Points{{0, 0}, {1, 0}, {8192, 0}}, Defs::eAutoDetect);
  const Bytes bytes = storeObject(m);
  const Bytes gridSize(bytes.begin() + 13, bytes.begin() + 21);  // after version, flag,
                                                                 // model version, trained
  EXPECT_EQ(gridSize, f64(2.0));
}

TEST(Training, BoundingBoxTakesTheExtremesOfAnyOrder) {
  mvPointMatcher m;
  m.train(Points{{5, -1}, {-3, 4}, {9, 2}, {1, -6}}, Defs::eAutoDetect);
  const Bytes bytes = storeObject(m);
  const Bytes box(bytes.begin() + 21, bytes.begin() + 53);
  EXPECT_EQ(box, f64s({-3, -6, 9, 4}));
  const Bytes centre(bytes.begin() + 53, bytes.begin() + 69);
  EXPECT_EQ(centre, f64s({3, -1}));
}

TEST(Training, WeightedTrainingKeepsWeightsAndSumsThePositiveOnes) {
  mvPointMatcher m;
  m.train(kTriangle, std::vector<long>{5, 1, -3}, Defs::eAutoDetect);
  EXPECT_EQ(m.weights(), (std::vector<long>{5, 1, -3}));
  EXPECT_EQ(storeObject(m), matcherWithModel(triangleModel(longs({5, 1, -3}), 6)));
}

TEST(Training, FewerThanTwoPositiveWeightsAreRejected) {
  mvPointMatcher m;
  EXPECT_THROW_MESSAGE(m.train(kTriangle, std::vector<long>{5, 0, -3}, Defs::eAutoDetect),
                       Defs::BadParams, L"At least two weights must be positve.");
  EXPECT_FALSE(m.isTrained());
}

TEST(Training, FewerThanThreePointsAreRejected) {
  mvPointMatcher m;
  EXPECT_THROW_MESSAGE(m.train(Points{{0, 0}, {1, 1}}, Defs::eExhaustiveMode),
                       Defs::InsufficientModelPoints, L"The number of model points must be >= 3\n");
  EXPECT_THROW_MESSAGE(m.train(Points{}, std::vector<long>{}, Defs::eAutoDetect),
                       Defs::InsufficientModelPoints, L"The number of model points must be >= 3\n");
}

TEST(Training, WeightCountMustMatchPointCount) {
  mvPointMatcher m;
  EXPECT_THROW_MESSAGE(m.train(kTriangle, std::vector<long>{1, 1}, Defs::eAutoDetect),
                       Defs::BadParams,
                       L"The number of model points must be equal to the number of weights\n");
}

TEST(Training, ModesPointToPointAndPointToGridAreRejectedWithoutANewline) {
  mvPointMatcher m;
  EXPECT_THROW_MESSAGE(m.train(kTriangle, Defs::ePointToPoint), Defs::BadParams, kBadMode);
  EXPECT_THROW_MESSAGE(m.train(kTriangle, Defs::ePointToGrid), Defs::BadParams, kBadMode);
  EXPECT_THROW_MESSAGE(m.train(kTriangle, std::vector<long>{1, 1, 1}, Defs::ePointToGrid),
                       Defs::BadParams, kBadMode);
}

TEST(Training, ChecksRunInTheirWrittenOrder) {
  mvPointMatcher m;
  // Too few points wins over everything else.
  EXPECT_THROW(m.train(Points{{0, 0}}, std::vector<long>{0, 0, 0}, Defs::ePointToPoint),
               Defs::InsufficientModelPoints);
  // Then the weight count, before the mode.
  EXPECT_THROW_MESSAGE(m.train(kTriangle, std::vector<long>{0}, Defs::ePointToPoint),
                       Defs::BadParams,
                       L"The number of model points must be equal to the number of weights\n");
  // Then the mode, before the positive weights.
  EXPECT_THROW_MESSAGE(m.train(kTriangle, std::vector<long>{0, 0, 0}, Defs::ePointToPoint),
                       Defs::BadParams, kBadMode);
  // Non-finite coordinates are checked after all of those.
  const Points withNaN = {{0, 0}, {std::nan(""), 0}, {0, 10}};
  EXPECT_THROW_MESSAGE(m.train(withNaN, std::vector<long>{0, 0, 0}, Defs::eAutoDetect),
                       Defs::BadParams, L"At least two weights must be positve.");
  EXPECT_THROW_MESSAGE(m.train(withNaN, Defs::ePointToGrid), Defs::BadParams, kBadMode);
}

TEST(Training, NonFiniteCoordinatesAreRejected) {
  mvPointMatcher m;
  m.train(kTriangle, Defs::eAutoDetect);
  EXPECT_THROW_MESSAGE(m.train(Points{{0, 0}, {kInf, 0}, {0, 10}}, Defs::eAutoDetect),
                       Defs::BadParams, L"model point coordinates must be finite\n");
  EXPECT_FALSE(m.isTrained());
  EXPECT_THROW(m.train(Points{{0, 0}, {1, 0}, {0, std::nan("")}}, std::vector<long>{1, 1, 1},
                       Defs::eExhaustiveMode),
               Defs::BadParams);
  EXPECT_FALSE(m.isTrained());
}

TEST(Training, WeightsMustBe32BitNumbers) {
  if (sizeof(long) <= 4) GTEST_SKIP() << "long has 32 bits here";
  mvPointMatcher m;
  EXPECT_THROW_MESSAGE(
      m.train(kTriangle, std::vector<long>{1, 1, static_cast<long>(1) << 40}, Defs::eAutoDetect),
      Defs::BadParams, L"each weight must lie in [-2147483648, 2147483647]\n");
  EXPECT_FALSE(m.isTrained());
}

TEST(Training, PositiveWeightsMustAddUpToA32BitNumber) {
  mvPointMatcher m;
  EXPECT_THROW_MESSAGE(m.train(kTriangle, std::vector<long>{2147483647L, 1, -5}, Defs::eAutoDetect),
                       Defs::BadParams,
                       L"the positive weights must add up to at most 2147483647\n");
  m.train(kTriangle, std::vector<long>{2147483646L, 1, -2147483647L - 1}, Defs::eAutoDetect);
  EXPECT_TRUE(m.isTrained());
}

TEST(Training, AFailedTrainingLeavesTheMatcherUntrained) {
  mvPointMatcher m;
  m.train(kTriangle, Defs::eExhaustiveMode);
  ASSERT_TRUE(m.isTrained());
  EXPECT_THROW(m.train(Points{{0, 0}, {1, 1}}, Defs::eExhaustiveMode),
               Defs::InsufficientModelPoints);
  EXPECT_FALSE(m.isTrained());
  EXPECT_THROW(m.trainMode(), Defs::NotTrained);
}

TEST(Training, ExhaustiveModeGivesModelPointsButNoWeights) {
  mvPointMatcher m;
  m.train(kTriangle, std::vector<long>{2, 2, 1}, Defs::eExhaustiveMode);
  EXPECT_EQ(m.trainMode(), Defs::eExhaustiveMode);
  EXPECT_EQ(m.modelPoints(), kTriangle);
  EXPECT_THROW_MESSAGE(m.weights(), Defs::NotTrained, kNotTrainedPtToPt);
}

TEST(Training, OtherModeValuesAreAcceptedAndRunPointToPoint) {
  mvPointMatcher m;
  m.train(kTriangle, static_cast<Defs::Mode>(7));
  EXPECT_EQ(m.trainMode(), Defs::ePointToPoint);
}

TEST(Training, RetrainingReplacesTheModel) {
  mvPointMatcher m;
  m.train(kTriangle, std::vector<long>{5, 1, -3}, Defs::eAutoDetect);
  const Points square = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  m.train(square, Defs::eAutoDetect);
  EXPECT_EQ(m.modelPoints(), square);
  EXPECT_EQ(m.weights(), (std::vector<long>{1, 1, 1, 1}));
}

TEST(Training, UntrainForgetsTheModel) {
  mvPointMatcher m;
  m.train(kTriangle, Defs::eExhaustiveMode);
  m.untrain();
  EXPECT_FALSE(m.isTrained());
  EXPECT_THROW_MESSAGE(m.trainMode(), Defs::NotTrained, kNotTrained);
  EXPECT_THROW(m.modelPoints(), Defs::NotTrained);
  EXPECT_EQ(storeObject(m), untrainedMatcher());
  m.untrain();  // untraining twice is harmless
  EXPECT_FALSE(m.isTrained());
}

// --- run entry ---

TEST(Running, AnUntrainedMatcherThrowsAndEmptiesTheResultSet) {
  mvMemoryArchive in(cat({le32(kVersion), f64(2.0), vectorHeader(1), le32(kVersion), le32(1),
                          identity(), longs({0}), f64(1), f64(0), unboundImage()}));
  mvPointMatcherResultSet results;
  in || results;
  ASSERT_EQ(results.results().size(), 1u);

  const mvPointMatcher m;
  EXPECT_THROW_MESSAGE(m.run(kTriangle, mvPointMatcherRunParams(), results), Defs::NotTrained,
                       kNotTrained);
  EXPECT_TRUE(results.results().empty());
  EXPECT_EQ(results.time(), 2.0);
}

// --- copying ---

TEST(Copying, CopyConstructionCopiesTheModelButNotTheTrainMode) {
  mvPointMatcher source;
  source.train(kTriangle, std::vector<long>{5, 1, -3}, Defs::eExhaustiveMode);
  const mvPointMatcher copy(source);
  EXPECT_TRUE(copy.isTrained());
  EXPECT_EQ(copy.trainMode(), Defs::ePointToPoint) << "the train mode travels only by training";
  EXPECT_EQ(copy.modelPoints(), kTriangle);
  EXPECT_EQ(copy.weights(), (std::vector<long>{5, 1, -3}));
}

TEST(Copying, ACopyIsIndependentOfItsSource) {
  mvPointMatcher source;
  source.train(kTriangle, Defs::eAutoDetect);
  mvPointMatcher copy(source);
  source.train(Points{{1, 1}, {2, 2}, {3, 1}}, Defs::eAutoDetect);
  EXPECT_EQ(copy.modelPoints(), kTriangle);
  source.untrain();
  EXPECT_TRUE(copy.isTrained());
  EXPECT_EQ(storeObject(copy), matcherWithModel(triangleModel(longs({}), 3)));
}

TEST(Copying, CopyOfAnUntrainedMatcherIsUntrained) {
  const mvPointMatcher source;
  const mvPointMatcher copy(source);
  EXPECT_FALSE(copy.isTrained());
}

TEST(Copying, AssignmentKeepsTheTargetsTrainMode) {
  mvPointMatcher source;
  source.train(kTriangle, Defs::eAutoDetect);
  mvPointMatcher target;
  target.train(Points{{0, 0}, {3, 0}, {0, 3}, {3, 3}}, Defs::eExhaustiveMode);
  target = source;
  EXPECT_EQ(target.trainMode(), Defs::eExhaustiveMode);
  EXPECT_EQ(target.modelPoints(), kTriangle);

  mvPointMatcher autoTarget;
  autoTarget.train(kTriangle, Defs::eAutoDetect);
  mvPointMatcher exhaustiveSource;
  exhaustiveSource.train(Points{{0, 0}, {3, 0}, {0, 3}}, Defs::eExhaustiveMode);
  autoTarget = exhaustiveSource;
  EXPECT_EQ(autoTarget.trainMode(), Defs::ePointToPoint);
  EXPECT_EQ(autoTarget.modelPoints(), (Points{{0, 0}, {3, 0}, {0, 3}}));
}

TEST(Copying, AssigningAnUntrainedMatcherToAnExhaustiveOneLeavesNoPoints) {
  mvPointMatcher target;
  target.train(kTriangle, Defs::eExhaustiveMode);
  target = mvPointMatcher();
  // The train mode stays, so the matcher counts as trained, but it holds no points.
  EXPECT_TRUE(target.isTrained());
  EXPECT_EQ(target.trainMode(), Defs::eExhaustiveMode);
  EXPECT_THROW_MESSAGE(target.modelPoints(), Defs::NotTrained, kNotTrainedPtToPt);
  mvPointMatcherResultSet results;
  EXPECT_THROW_MESSAGE(target.run(kTriangle, mvPointMatcherRunParams(), results), Defs::NotTrained,
                       kNotTrained);
}

TEST(Copying, SelfAssignmentKeepsEverything) {
  mvPointMatcher m;
  m.train(kTriangle, Defs::eExhaustiveMode);
  mvPointMatcher& alias = m;
  m = alias;
  EXPECT_EQ(m.trainMode(), Defs::eExhaustiveMode);
  EXPECT_EQ(m.modelPoints(), kTriangle);
}

// --- archive ---

TEST(MatcherArchive, UntrainedLayoutHasThreeZeroFlags) {
  mvPointMatcher m;
  EXPECT_EQ(storeObject(m), untrainedMatcher());
  mvPointMatcher loaded;
  EXPECT_TRUE(loadInto(untrainedMatcher(), loaded)) << "bytes left over";
  EXPECT_FALSE(loaded.isTrained());
}

TEST(MatcherArchive, RoundTripRestoresTheModelButNotTheTrainMode) {
  mvPointMatcher m;
  m.train(kTriangle, std::vector<long>{5, 1, -3}, Defs::eExhaustiveMode);
  mvPointMatcher loaded;
  EXPECT_TRUE(loadInto(storeObject(m), loaded)) << "bytes left over";
  EXPECT_TRUE(loaded.isTrained());
  EXPECT_EQ(loaded.trainMode(), Defs::ePointToPoint);
  EXPECT_EQ(loaded.modelPoints(), kTriangle);
  EXPECT_EQ(loaded.weights(), (std::vector<long>{5, 1, -3}));
  EXPECT_EQ(storeObject(loaded), storeObject(m));
}

TEST(MatcherArchive, AZeroFlagLeavesTheExistingModelUntouched) {
  mvPointMatcher m;
  m.train(kTriangle, Defs::eAutoDetect);
  EXPECT_TRUE(loadInto(untrainedMatcher(), m)) << "bytes left over";
  EXPECT_TRUE(m.isTrained());
  EXPECT_EQ(m.modelPoints(), kTriangle);
}

TEST(MatcherArchive, LoadingAModelReplacesTheExistingOne) {
  mvPointMatcher m;
  m.train(Points{{0, 0}, {1, 0}, {0, 1}, {1, 1}}, std::vector<long>{1, 2, 3, 4}, Defs::eAutoDetect);
  EXPECT_TRUE(loadInto(matcherWithModel(triangleModel(longs({}), 3)), m)) << "bytes left over";
  EXPECT_EQ(m.modelPoints(), kTriangle);
  EXPECT_EQ(m.weights(), (std::vector<long>{1, 1, 1}));
}

TEST(MatcherArchive, PatternStateIsPersisted) {
  const Bytes bytes = cat({le32(kVersion), s32(0), s32(0), s32(0), xform(2, 0, 0, 2, 1, -1), s32(2),
                           vectorHeader(2), pair(1, 2), pair(-3, 4)});
  mvPointMatcher m;
  EXPECT_TRUE(loadInto(bytes, m)) << "bytes left over";
  EXPECT_FALSE(m.isTrained());
  EXPECT_EQ(storeObject(m), bytes);
  mvPointMatcher copy(m);
  EXPECT_EQ(storeObject(copy), bytes);
  // untrain() clears the cells but keeps the transform and the cell count.
  m.untrain();
  EXPECT_EQ(storeObject(m), cat({le32(kVersion), s32(0), s32(0), s32(0), xform(2, 0, 0, 2, 1, -1),
                                 s32(2), vectorHeader(0)}));
}

TEST(MatcherArchive, ANestedMatcherIsPersistedAndCopiedWithItsOwner) {
  const Bytes nested = matcherWithModel(triangleModel(longs({}), 3));
  const Bytes bytes =
      cat({le32(kVersion), s32(0), s32(0), s32(1), nested, identity(), s32(0), vectorHeader(0)});
  mvPointMatcher m;
  EXPECT_TRUE(loadInto(bytes, m)) << "bytes left over";
  EXPECT_EQ(storeObject(m), bytes);
  mvPointMatcher copy(m);
  mvPointMatcher assigned;
  assigned = m;
  m.untrain();
  EXPECT_EQ(storeObject(copy), bytes);
  EXPECT_EQ(storeObject(assigned), bytes);
  EXPECT_EQ(storeObject(m), untrainedMatcher()) << "untrain() releases the nested matcher";
}

TEST(MatcherArchive, MatchersNestedTooDeeplyAreBadData) {
  Bytes bytes = untrainedMatcher();
  for (int i = 0; i < 70; ++i) {
    bytes =
        cat({le32(kVersion), s32(0), s32(0), s32(1), bytes, identity(), s32(0), vectorHeader(0)});
  }
  mvPointMatcher m;
  mvMemoryArchive in(bytes);
  EXPECT_THROW(in || m, mvArchive::BadData);
}

TEST(MatcherArchive, ANewerVersionIsUnknownAtLine2884) {
  Bytes bytes = untrainedMatcher();
  bytes[0] = 0x4A;  // 200010
  mvPointMatcher m;
  mvMemoryArchive in(bytes);
  EXPECT_THROW_THAT(in || m, mvArchive::UnknownVersion, [&](const mvArchive::UnknownVersion& e) {
    EXPECT_EQ(e.file(), "ptmatch/ppmatch");
    EXPECT_EQ(e.line(), 2884);
  });
}

TEST(MatcherArchive, OlderMatcherVersionsReadTheSameLayout) {
  Bytes bytes = matcherWithModel(triangleModel(longs({}), 3));
  bytes[0] = 1;
  bytes[1] = 0;
  bytes[2] = 0;
  mvPointMatcher m;
  EXPECT_TRUE(loadInto(bytes, m)) << "bytes left over";
  EXPECT_EQ(m.modelPoints(), kTriangle);
}

TEST(ModelArchive, VersionsWithoutWeightsGiveAnUnweightedModel) {
  for (std::uint32_t version : {0u, 200009u}) {
    const Bytes model = modelBytes(version, true, 2.5, 0, 0, 10, 10, 5, 5,
                                   points({{0, 0}, {10, 0}, {0, 10}}), std::sqrt(50.0), {}, 0);
    mvPointMatcher m;
    m.train(Points{{0, 0}, {1, 0}, {0, 1}, {1, 1}}, std::vector<long>{1, 2, 3, 4},
            Defs::eAutoDetect);
    EXPECT_TRUE(loadInto(matcherWithModel(model), m)) << "bytes left over";
    EXPECT_EQ(m.modelPoints(), kTriangle);
    EXPECT_EQ(m.weights(), (std::vector<long>{1, 1, 1})) << version;
    // Stored again, the model is written as version 1 with its total weight.
    EXPECT_EQ(storeObject(m), matcherWithModel(triangleModel(longs({}), 3)));
  }
}

TEST(ModelArchive, OtherVersionsAreUnknownAtLine778) {
  for (std::uint32_t version : {2u, 3u, 200008u, 200010u}) {
    const Bytes model = modelBytes(version, true, 2.5, 0, 0, 10, 10, 5, 5,
                                   points({{0, 0}, {10, 0}, {0, 10}}), std::sqrt(50.0), {}, 0);
    mvPointMatcher m;
    mvMemoryArchive in(matcherWithModel(model));
    EXPECT_THROW_THAT(in || m, mvArchive::UnknownVersion, [&](const mvArchive::UnknownVersion& e) {
      EXPECT_EQ(e.file(), "ptmatch/ppmatch");
      EXPECT_EQ(e.line(), 778);
    });
  }
}

TEST(ModelArchive, AWeightCountThatDiffersFromThePointCountIsBadData) {
  mvPointMatcher m;
  mvMemoryArchive in(matcherWithModel(triangleModel(longs({1, 1}), 2)));
  EXPECT_THROW(in || m, mvArchive::BadData);
}

TEST(ModelArchive, AnUntrainedModelLoadsAsUntrained) {
  const Bytes model = modelBytes(1, false, 0, 0, 0, 0, 0, 0, 0, points({}), 0, longs({}), 0);
  mvPointMatcher m;
  EXPECT_TRUE(loadInto(matcherWithModel(model), m)) << "bytes left over";
  EXPECT_FALSE(m.isTrained());
  EXPECT_EQ(storeObject(m), matcherWithModel(model));
}
