// The grid corresponder's records: feature types, errors, parameters, results and their
// archive layouts, byte for byte.
#include <memory>
#include <typeinfo>

#include <gtest/gtest.h>

#include "common/expect_throw.h"
#include "gridcorr/gridcorr_support.h"
#include "ptmatch/gridcorr.h"

namespace {

using namespace archive_bytes;
using namespace gridcorr_test;
using Defs = mv_PointToGridCorresponderDefs;
using TrainParams = mv_PointToGridCorresponderTrainParams;
using RunParams = mv_PointToGridCorresponderRunParams;
using Result = mv_PointToGridCorresponderResult;
using ResultSet = mv_PointToGridCorresponderResultSet;

// --- definitions ---

TEST(GridCorrRecords, FeatureTypesHaveTheirValues) {
  EXPECT_EQ(Defs::ePointFeatures, 0);
  EXPECT_EQ(Defs::eBoundaryFeatures, 1);
  EXPECT_EQ(Defs::eThickBoundaryFeatures, 2);
}

TEST(GridCorrRecords, ErrorsCarryTheirNumbers) {
  EXPECT_EQ(Defs::InsufficientModelPoints().errorNumber(), 0x10005f06);
  EXPECT_EQ(Defs::InsufficientMemory().errorNumber(), 0x10005f07);
}

TEST(GridCorrRecords, ErrorsAreRegisteredUnderTheirClassNames) {
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Defs::Errors)),
            "mv_PointToGridCorresponderDefs::Errors");
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Defs::InsufficientModelPoints)),
            "mv_PointToGridCorresponderDefs::InsufficientModelPoints");
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Defs::InsufficientMemory)),
            "mv_PointToGridCorresponderDefs::InsufficientMemory");
  std::unique_ptr<mvPersistent> made(
      mv_Instantiator::create("mv_PointToGridCorresponderDefs::InsufficientMemory"));
  EXPECT_NE(dynamic_cast<Defs::InsufficientMemory*>(made.get()), nullptr);
}

TEST(GridCorrRecords, ErrorsAreCaughtByEveryBaseClass) {
  EXPECT_THROW(throw Defs::InsufficientModelPoints(), Defs::Errors);
  EXPECT_THROW(throw Defs::InsufficientMemory(), mvExceptionWithString);
  EXPECT_THROW(throw Defs::InsufficientModelPoints(), mvException);
  EXPECT_THROW(throw Defs::InsufficientMemory(), mvPersistent);
  EXPECT_THROW(throw Defs::Errors(), std::exception);
}

TEST(GridCorrRecords, SuicideAndRethrowThrowsACopyOfTheMostDerivedClass) {
  Defs::Errors* error = new Defs::InsufficientModelPoints(L"gone");
  EXPECT_THROW_MESSAGE(error->suicideAndRethrow(), Defs::InsufficientModelPoints, L"gone");
}

TEST(GridCorrRecords, ErrorsPersistTheirMessage) {
  Defs::InsufficientMemory original(L"no room");
  mvMemoryArchive out;
  original.dispatchSerialize(out);
  // Class version bytes 0 of the class, of Errors, of the string exception and of the root.
  ASSERT_GE(out.bytes().size(), 4u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(out.bytes()[i], 0) << i;

  EXPECT_EQ(roundTripError(original).message(), L"no room");
}

TEST(GridCorrRecords, ErrorWithAnUnknownClassVersionIsRefused) {
  mvMemoryArchive in(ByteWriter().u8(1).bytes());
  Defs::InsufficientModelPoints error;
  EXPECT_THROW_THAT(error.dispatchSerialize(in), mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) {
                      EXPECT_EQ(e.file(),
                                "mv_PointToGridCorresponderDefs::InsufficientModelPoints");
                      EXPECT_EQ(e.line(), 0);
                    });
}

// --- parameters and results ---

TEST(GridCorrRecords, TrainParamsDefaultToASquareGridWithBoundaryFeatures) {
  TrainParams p;
  EXPECT_FALSE(p.staggered());
  EXPECT_EQ(p.featureType(), Defs::eBoundaryFeatures);
  p.staggered(true);
  p.featureType(Defs::eThickBoundaryFeatures);
  EXPECT_TRUE(p.staggered());
  EXPECT_EQ(p.featureType(), Defs::eThickBoundaryFeatures);
}

TEST(GridCorrRecords, RunParamsTakeTheCountLast) {
  const RunParams defaults;
  EXPECT_EQ(defaults.accept(), 0.5);
  EXPECT_EQ(defaults.confusion(), 1.0);
  EXPECT_EQ(defaults.maxNumResults(), 1);

  RunParams p(0.75, 2.5, 9);
  EXPECT_EQ(p.accept(), 0.75);
  EXPECT_EQ(p.confusion(), 2.5);
  EXPECT_EQ(p.maxNumResults(), 9);
  // Setters do not validate.
  p.accept(7.0);
  p.maxNumResults(-3);
  EXPECT_EQ(p.accept(), 7.0);
  EXPECT_EQ(p.maxNumResults(), -3);
}

TEST(GridCorrRecords, DefaultResultIsNotFoundAtTheOrigin) {
  const Result r;
  EXPECT_EQ(r.score(), 0.0);
  EXPECT_EQ(r.position(), mvPair<long>(0, 0));
  const ResultSet s;
  EXPECT_EQ(s.time(), 0.0);
  EXPECT_TRUE(s.results().empty());
}

// --- archive layouts ---

TEST(GridCorrArchive, FeatureTypeIsAVersionAndALong) {
  EXPECT_EQ(store(Defs::eThickBoundaryFeatures), ByteWriter().i32(kVersion).i32(2).bytes());
  EXPECT_EQ(
      load<Defs::FeatureType>(ByteWriter().i32(kVersion).i32(0).bytes(), Defs::eBoundaryFeatures),
      Defs::ePointFeatures);
  EXPECT_EQ(load<Defs::FeatureType>(ByteWriter().i32(kVersion).i32(9).bytes()),
            static_cast<Defs::FeatureType>(9));
}

TEST(GridCorrArchive, TrainParamsLayout) {
  const auto bytes = ByteWriter().i32(kVersion).boolean(true).i32(kVersion).i32(0).bytes();
  EXPECT_EQ(store(TrainParams(true, Defs::ePointFeatures)), bytes);
  EXPECT_EQ(load<TrainParams>(bytes), TrainParams(true, Defs::ePointFeatures));
}

TEST(GridCorrArchive, RunParamsStoreTheCountFirst) {
  const auto bytes = ByteWriter().i32(kVersion).i32(7).f64(0.25).f64(3.0).bytes();
  EXPECT_EQ(store(RunParams(0.25, 3.0, 7)), bytes);
  const RunParams p = load<RunParams>(bytes);
  EXPECT_EQ(p.maxNumResults(), 7);
  EXPECT_EQ(p.accept(), 0.25);
  EXPECT_EQ(p.confusion(), 3.0);
}

TEST(GridCorrArchive, DefaultResultLayout) {
  EXPECT_EQ(store(Result()), ByteWriter().i32(kVersion).boolean(false).f64(0.0).pair(0, 0).bytes());
}

// A run's single result: the model "##" found at (7, -3) with both probes agreeing.
ResultSet foundAtSevenMinusThree() {
  const auto corresponder = trainedOn({"##"}, Defs::ePointFeatures);
  ResultSet results;
  corresponder.run(nodesOf({"##"}, mvPair<long>(7, -3)), RunParams(), results);
  return results;
}

TEST(GridCorrArchive, ReportedResultLayout) {
  const ResultSet results = foundAtSevenMinusThree();
  ASSERT_EQ(results.results().size(), 1u);
  const auto bytes = ByteWriter().i32(kVersion).boolean(true).f64(1.0).pair(7, -3).bytes();
  EXPECT_EQ(store(results.results()[0]), bytes);
  const Result back = load<Result>(bytes);
  EXPECT_EQ(back.score(), 1.0);
  EXPECT_EQ(back.position(), mvPair<long>(7, -3));
}

TEST(GridCorrArchive, ResultPositionWithANonzeroVersionByteIsRefused) {
  const auto bytes = ByteWriter().i32(kVersion).boolean(true).f64(1.0).u8(1).i32(7).i32(-3).bytes();
  mvMemoryArchive in(bytes);
  Result r;
  EXPECT_THROW_THAT(in || r, mvArchive::UnknownVersion, [&](const mvArchive::UnknownVersion& e) {
    EXPECT_EQ(e.file(), "");
    EXPECT_EQ(e.line(), 0);
  });
}

TEST(GridCorrArchive, ResultSetLayout) {
  EXPECT_EQ(store(ResultSet()), ByteWriter().i32(kVersion).f64(0.0).u8(0).i32(0).bytes());

  const ResultSet results = foundAtSevenMinusThree();
  const auto bytes = ByteWriter()
                         .i32(kVersion)
                         .f64(results.time())
                         .u8(0)
                         .i32(1)
                         .i32(kVersion)
                         .boolean(true)
                         .f64(1.0)
                         .pair(7, -3)
                         .bytes();
  EXPECT_EQ(store(results), bytes);
  const ResultSet back = load<ResultSet>(bytes);
  EXPECT_EQ(back.time(), results.time());
  ASSERT_EQ(back.results().size(), 1u);
  EXPECT_EQ(back.results()[0].position(), mvPair<long>(7, -3));
}

TEST(GridCorrArchive, UntrainedCorresponderLayout) {
  // clang-format off
  const auto bytes = ByteWriter()
                         .i32(kVersion)                                      // corresponder
                         .i32(kVersion).boolean(false).i32(kVersion).i32(1)  // train params
                         .i32(0).i32(0)                                      // unbound pattern
                         .pair(0, 0).pair(0, 0)                              // pattern rectangle
                         .i32(0)                                             // no probes
                         .bytes();
  // clang-format on
  EXPECT_EQ(store(mv_PointToGridCorresponder()), bytes);
  EXPECT_FALSE(load<mv_PointToGridCorresponder>(bytes).isTrained());
}

TEST(GridCorrArchive, TrainedCorresponderLayout) {
  // Nodes (4, 5), (5, 5) and (4, 6) with point features: a 2 x 2 pattern at (4, 5).
  mv_PointToGridCorresponder corresponder;
  corresponder.train(nodesOf({"##", "#."}, mvPair<long>(4, 5)),
                     TrainParams(false, Defs::ePointFeatures), mvXform<2>::I);
  // clang-format off
  const auto bytes = ByteWriter()
                         .i32(kVersion)
                         .i32(kVersion).boolean(false).i32(kVersion).i32(0)
                         .i32(2).i32(2).pair(4, 5).identity().u8(1).u8(1).u8(1).u8(0)
                         .pair(4, 5).pair(5, 6)
                         .i32(3)
                         .pair(0, 0).u8(1)
                         .pair(1, 0).u8(1)
                         .pair(0, 1).u8(1)
                         .bytes();
  // clang-format on
  EXPECT_EQ(store(corresponder), bytes);
}

TEST(GridCorrArchive, LoadedCorresponderRunsLikeTheOriginal) {
  const auto original = trainedOn({"##.#", "#...", ".##."}, Defs::eBoundaryFeatures, true);
  const auto copy = load<mv_PointToGridCorresponder>(store(original));
  EXPECT_EQ(store(copy), store(original));
  EXPECT_EQ(copy.trainParams(), original.trainParams());
  EXPECT_EQ(copy.pattern().offset(), original.pattern().offset());

  ResultSet a;
  ResultSet b;
  const auto observed = nodesOf({"##.#", "#...", ".##."}, mvPair<long>(3, 1));
  EXPECT_TRUE(original.run(observed, RunParams(0.5, 1.0, 3), a));
  EXPECT_TRUE(copy.run(observed, RunParams(0.5, 1.0, 3), b));
  ASSERT_EQ(a.results().size(), b.results().size());
  for (std::size_t i = 0; i < a.results().size(); ++i) {
    EXPECT_EQ(a.results()[i].position(), b.results()[i].position());
    EXPECT_EQ(a.results()[i].score(), b.results()[i].score());
  }
}

TEST(GridCorrArchive, LoadingReplacesAProbeListOfAnotherLength) {
  auto target = trainedOn({"###", "###", "###"}, Defs::ePointFeatures);
  const auto source = trainedOn({"#.#"}, Defs::ePointFeatures);
  mvMemoryArchive in(store(source));
  in || target;
  EXPECT_EQ(probesOf(target), (Probes{{0, 0, 1}, {2, 0, 1}}));
}

// Loads bytes into a corresponder and returns the UnknownVersion thrown, or fails.
template <typename T>
void expectUnknownVersion(const std::vector<unsigned char>& bytes) {
  mvMemoryArchive in(bytes);
  T value{};
  EXPECT_THROW_THAT(in || value, mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) {
                      EXPECT_EQ(e.file(), "ptmatch/gridcorr");
                      EXPECT_GT(e.line(), 0);
                    });
}

TEST(GridCorrArchive, EveryRecordRefusesAnyVersionButItsOwn) {
  for (long version : {1099L, 1101L, 0L}) {
    expectUnknownVersion<Defs::FeatureType>(ByteWriter().i32(version).i32(0).bytes());
    expectUnknownVersion<RunParams>(ByteWriter().i32(version).i32(1).f64(0.5).f64(1).bytes());
    expectUnknownVersion<Result>(ByteWriter().i32(version).bytes());
    expectUnknownVersion<ResultSet>(ByteWriter().i32(version).bytes());
    expectUnknownVersion<mv_PointToGridCorresponder>(ByteWriter().i32(version).bytes());
  }
}

TEST(GridCorrArchive, TrainParamsRefuseAnUnknownFeatureTypeVersion) {
  expectUnknownVersion<TrainParams>(ByteWriter().i32(1101).bytes());
  expectUnknownVersion<TrainParams>(
      ByteWriter().i32(kVersion).boolean(false).i32(1101).i32(0).bytes());
}

TEST(GridCorrArchive, ProbeOutsideThePatternRectangleIsRefused) {
  // clang-format off
  const auto bytes = ByteWriter()
                         .i32(kVersion)
                         .i32(kVersion).boolean(false).i32(kVersion).i32(0)
                         .i32(2).i32(1).pair(0, 0).identity().u8(1).u8(1)
                         .pair(0, 0).pair(1, 0)
                         .i32(1)
                         .pair(2, 0).u8(1)
                         .bytes();
  // clang-format on
  mvMemoryArchive in(bytes);
  mv_PointToGridCorresponder corresponder;
  EXPECT_THROW(in || corresponder, mvArchive::BadData);
}

TEST(GridCorrArchive, NegativeProbeCountIsRefused) {
  // clang-format off
  const auto bytes = ByteWriter()
                         .i32(kVersion)
                         .i32(kVersion).boolean(false).i32(kVersion).i32(0)
                         .i32(0).i32(0)
                         .pair(0, 0).pair(0, 0)
                         .i32(-1)
                         .bytes();
  // clang-format on
  mvMemoryArchive in(bytes);
  mv_PointToGridCorresponder corresponder;
  EXPECT_THROW(in || corresponder, mvArchive::BadData);
}

}  // namespace
