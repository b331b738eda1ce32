// The point matcher's records: its errors, the run parameters with their validating
// setters, one result and the result set, each with its archive layout.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <typeinfo>

#include "common/expect_throw.h"
#include "mvbase/archive.h"
#include "ppmatch/matcher_bytes.h"
#include "ptmatch/ppmatch.h"

using namespace matcher_bytes;

namespace {

using Defs = mvPointMatcherDefs;

const double kNaN = std::numeric_limits<double>::quiet_NaN();

// Loads bytes and returns the UnknownVersion it throws.
template <typename T>
mvArchive::UnknownVersion unknownVersionOf(const Bytes& bytes) {
  mvMemoryArchive in(bytes);
  T value;
  mvArchive::UnknownVersion thrown;
  EXPECT_THROW_THAT(in || value, mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) { thrown = e; });
  return thrown;
}

// The run parameters used by the layout tests: every field differs from its default.
mvPointMatcherRunParams sampleParams() {
  return mvPointMatcherRunParams(
      0.75, mvXform<2>(mvMatrix<2>(2, 0, 0, 2), mvVector<2>(5, 6)), mvRange(1, 2), mvRange(3, 4),
      mvAngleRange(mvRadian(-0.5), mvRadian(0.5)), mvRange(-0.5, 2), false, 2.0, true, -2.5, 7);
}

Bytes sampleParamsBytes(std::uint32_t version = kVersion) {
  return cat({le32(version), f64(0.75), xform(2, 0, 0, 2, 5, 6), range(0, -0.5, 0.5),
              range(0, 1, 2), range(0, 3, 4), range(0, -0.5, 2), u8(0), f64(2.0), u8(1), f64(-2.5),
              s32(7)});
}

}  // namespace

// --- errors ---

TEST(MatcherErrors, NumbersLeaveAGapAt0x10005f03) {
  EXPECT_EQ(Defs::BadParams().errorNumber(), 0x10005f00);
  EXPECT_EQ(Defs::NotTrained().errorNumber(), 0x10005f01);
  EXPECT_EQ(Defs::NotRun().errorNumber(), 0x10005f02);
  EXPECT_EQ(Defs::InsufficientModelPoints().errorNumber(), 0x10005f04);
}

TEST(MatcherErrors, CarryTheirMessage) {
  const Defs::NotTrained e(L"not trained\n");
  EXPECT_EQ(e.message(), L"not trained\n");
  EXPECT_STREQ(e.what(), "not trained\n");
}

TEST(MatcherErrors, AreCatchableAsEveryBase) {
  EXPECT_THROW(throw Defs::BadParams(L"x"), Defs::Errors);
  EXPECT_THROW(throw Defs::NotTrained(L"x"), mvExceptionWithString);
  EXPECT_THROW(throw Defs::NotRun(L"x"), mvException);
  EXPECT_THROW(throw Defs::InsufficientModelPoints(L"x"), mvPersistent);
  EXPECT_THROW(throw Defs::BadParams(L"x"), std::exception);
}

TEST(MatcherErrors, AreRegisteredByTypeAndName) {
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Defs::Errors)), "mvPointMatcherDefs::Errors");
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Defs::BadParams)), "mvPointMatcherDefs::BadParams");
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Defs::NotTrained)), "mvPointMatcherDefs::NotTrained");
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Defs::NotRun)), "mvPointMatcherDefs::NotRun");
  EXPECT_EQ(mv_Instantiator::nameOf(typeid(Defs::InsufficientModelPoints)),
            "mvPointMatcherDefs::InsufficientModelPoints");

  EXPECT_NE(created<Defs::Errors>("mvPointMatcherDefs::Errors"), nullptr);
  EXPECT_NE(created<Defs::BadParams>("mvPointMatcherDefs::BadParams"), nullptr);
  EXPECT_NE(created<Defs::NotTrained>("mvPointMatcherDefs::NotTrained"), nullptr);
  EXPECT_NE(created<Defs::NotRun>("mvPointMatcherDefs::NotRun"), nullptr);
  EXPECT_NE(created<Defs::InsufficientModelPoints>("mvPointMatcherDefs::InsufficientModelPoints"),
            nullptr);
  std::unique_ptr<mvPersistent> byType(mv_Instantiator::create(typeid(Defs::NotRun)));
  EXPECT_NE(dynamic_cast<Defs::NotRun*>(byType.get()), nullptr);
}

TEST(MatcherErrors, MakeGivesAnEmptyMessage) {
  std::unique_ptr<mvPersistent> made(Defs::BadParams::make());
  const auto* e = dynamic_cast<Defs::BadParams*>(made.get());
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->message(), L"");
  std::unique_ptr<mvPersistent> root(Defs::Errors::make());
  EXPECT_NE(dynamic_cast<Defs::Errors*>(root.get()), nullptr);
}

TEST(MatcherErrors, SuicideAndRethrowThrowsACopyByItsOwnType) {
  auto* e = new Defs::InsufficientModelPoints(L"few\n");
  EXPECT_THROW_THAT(e->suicideAndRethrow(), Defs::InsufficientModelPoints,
                    [&](const Defs::InsufficientModelPoints& copy) {
                      EXPECT_EQ(copy.message(), L"few\n");
                      EXPECT_EQ(copy.errorNumber(), 0x10005f04);
                    });
  mvException* base = new Defs::NotRun(L"not run\n");
  EXPECT_THROW(base->suicideAndRethrow(), Defs::NotRun);
  base = new Defs::BadParams(L"bad\n");
  EXPECT_THROW(base->suicideAndRethrow(), Defs::BadParams);
  base = new Defs::NotTrained(L"untrained\n");
  EXPECT_THROW(base->suicideAndRethrow(), Defs::NotTrained);
}

// Each level writes its class version byte 0: the error, Errors, mvExceptionWithString,
// mvException; then the message as its UTF-8 byte count and bytes.
TEST(MatcherErrors, PersistAClassVersionPerLevelThenTheMessage) {
  Defs::BadParams e(L"ab");
  EXPECT_EQ(storeError(e), cat({u8(0), u8(0), u8(0), u8(0), le32(2), Bytes{'a', 'b'}}));

  auto copy = created<Defs::BadParams>("mvPointMatcherDefs::BadParams");
  ASSERT_NE(copy, nullptr);
  mvMemoryArchive in(storeError(e));
  copy->dispatchSerialize(in);
  EXPECT_TRUE(in.atEnd());
  EXPECT_EQ(copy->message(), L"ab");
}

TEST(MatcherErrors, AreWrittenOncePerArchive) {
  Defs::NotRun e(L"x");
  mvMemoryArchive out;
  e.dispatchSerialize(out);
  const std::size_t once = out.bytes().size();
  e.dispatchSerialize(out);
  EXPECT_EQ(out.bytes().size(), once);
}

// The root of the family is registered and made like every other error, so rethrowing one
// must keep its type: a handler of the family still catches the copy.
TEST(MatcherErrors, TheRootErrorRethrowsACopyOfItsOwnType) {
  std::unique_ptr<mvPersistent> made(mv_Instantiator::create("mvPointMatcherDefs::Errors"));
  auto* root = dynamic_cast<Defs::Errors*>(made.get());
  ASSERT_NE(root, nullptr);
  made.release();  // suicideAndRethrow destroys the object itself
  EXPECT_THROW_MESSAGE(root->suicideAndRethrow(), Defs::Errors, L"");

  mvException* withMessage = new Defs::Errors(L"root\n");
  EXPECT_THROW_MESSAGE(withMessage->suicideAndRethrow(), Defs::Errors, L"root\n");
}

TEST(MatcherErrors, AnUnknownClassVersionNamesTheClass) {
  const Bytes good = cat({u8(0), u8(0), u8(0), u8(0), le32(0)});
  {
    Bytes bytes = good;
    bytes[0] = 1;
    Defs::NotTrained e;
    mvMemoryArchive in(bytes);
    EXPECT_THROW_THAT(e.dispatchSerialize(in), mvArchive::UnknownVersion,
                      [&](const mvArchive::UnknownVersion& u) {
                        EXPECT_EQ(u.file(), "mvPointMatcherDefs::NotTrained");
                        EXPECT_EQ(u.line(), 0);
                      });
  }
  {
    Bytes bytes = good;
    bytes[1] = 1;
    Defs::InsufficientModelPoints e;
    mvMemoryArchive in(bytes);
    EXPECT_THROW_THAT(e.dispatchSerialize(in), mvArchive::UnknownVersion,
                      [&](const mvArchive::UnknownVersion& u) {
                        EXPECT_EQ(u.file(), "mvPointMatcherDefs::Errors");
                        EXPECT_EQ(u.line(), 0);
                      });
  }
}

// --- run parameters ---

TEST(RunParams, DefaultAsksForHalfCoverageAroundTheIdentity) {
  mvPointMatcherRunParams p;
  EXPECT_EQ(p.minCoverage(), 0.5);
  EXPECT_EQ(p.startPose(), mvXform<2>::I);
  EXPECT_EQ(p.xTranslationUncertainty().range(), mvRangeDefs::eFull);
  EXPECT_EQ(p.yTranslationUncertainty().range(), mvRangeDefs::eFull);
  EXPECT_EQ(p.rotationUncertainty(),
            mvAngleRange(mvRadian(mvDegree(-15.0)), mvRadian(mvDegree(15.0)), false));
  EXPECT_EQ(p.scaleUncertainty(), mvRange(0.0, 0.0));
  EXPECT_TRUE(p.autoGridSize());
  EXPECT_EQ(p.gridSize(), 0.0);
  EXPECT_TRUE(p.autoCaptureRange());
  EXPECT_EQ(p.captureRange(), 0.0);
  EXPECT_EQ(p.maxNumResults(), 1);
}

TEST(RunParams, ConstructorSetsEveryField) {
  const mvPointMatcherRunParams p = sampleParams();
  EXPECT_EQ(p.minCoverage(), 0.75);
  EXPECT_EQ(p.startPose(), mvXform<2>(mvMatrix<2>(2, 0, 0, 2), mvVector<2>(5, 6)));
  EXPECT_EQ(p.xTranslationUncertainty(), mvRange(1, 2));
  EXPECT_EQ(p.yTranslationUncertainty(), mvRange(3, 4));
  EXPECT_EQ(p.rotationUncertainty(), mvAngleRange(mvRadian(-0.5), mvRadian(0.5)));
  EXPECT_EQ(p.scaleUncertainty(), mvRange(-0.5, 2));
  EXPECT_FALSE(p.autoGridSize());
  EXPECT_EQ(p.gridSize(), 2.0);
  EXPECT_TRUE(p.autoCaptureRange());
  EXPECT_EQ(p.captureRange(), -2.5);
  EXPECT_EQ(p.maxNumResults(), 7);
}

TEST(RunParams, MinCoverageAcceptsTheClosedUnitInterval) {
  mvPointMatcherRunParams p;
  p.minCoverage(1.0);
  EXPECT_EQ(p.minCoverage(), 1.0);
  p.minCoverage(0.0);
  EXPECT_EQ(p.minCoverage(), 0.0);
  for (double bad : {1.0000001, -1e-300, kNaN}) {
    EXPECT_THROW_MESSAGE(p.minCoverage(bad), Defs::BadParams,
                         L"minCoverage must be in [0.0, 1.0]\n");
    EXPECT_EQ(p.minCoverage(), 0.0) << "unchanged after a rejected value";
  }
}

TEST(RunParams, TranslationRangesMustNotBeEmpty) {
  mvPointMatcherRunParams p;
  EXPECT_THROW_MESSAGE(p.xTranslationUncertainty(mvRange()), Defs::BadParams,
                       L"xTranslationUncertainty range must not be empty\n");
  EXPECT_THROW_MESSAGE(p.yTranslationUncertainty(mvRange(2, 1)), Defs::BadParams,
                       L"yTranslationUncertainty range must not be empty\n");
  EXPECT_EQ(p.xTranslationUncertainty().range(), mvRangeDefs::eFull);
  EXPECT_EQ(p.yTranslationUncertainty().range(), mvRangeDefs::eFull);
  p.xTranslationUncertainty(mvRange(-1, 1));
  p.yTranslationUncertainty(mvRange(5, 5));
  EXPECT_EQ(p.xTranslationUncertainty(), mvRange(-1, 1));
  EXPECT_EQ(p.yTranslationUncertainty(), mvRange(5, 5));
}

TEST(RunParams, RotationRangeMustNotBeEmptyAndItsMessageSaysAngleUncertainty) {
  mvPointMatcherRunParams p;
  const mvAngleRange before = p.rotationUncertainty();
  EXPECT_THROW_MESSAGE(p.rotationUncertainty(mvAngleRange()), Defs::BadParams,
                       L"angleUncertainty range must not be empty\n");
  EXPECT_EQ(p.rotationUncertainty(), before);
  p.rotationUncertainty(mvAngleRange::FullRange());
  EXPECT_EQ(p.rotationUncertainty().range(), mvRangeDefs::eFull);
}

TEST(RunParams, ScaleRangeChecksEmptyThenFullThenStart) {
  mvPointMatcherRunParams p;
  EXPECT_THROW_MESSAGE(p.scaleUncertainty(mvRange()), Defs::BadParams,
                       L"scaleUncertainty range must not be empty\n");
  EXPECT_THROW_MESSAGE(p.scaleUncertainty(mvRange::FullRange()), Defs::BadParams,
                       L"scaleUncertainty range must not be full\n");
  EXPECT_THROW_MESSAGE(p.scaleUncertainty(mvRange(-0.95, 0.5)), Defs::BadParams,
                       L"start of scaleUncertainty scale must be >= -0.9\n");
  EXPECT_EQ(p.scaleUncertainty(), mvRange(0.0, 0.0));
  p.scaleUncertainty(mvRange(-0.9, 0.5));
  EXPECT_EQ(p.scaleUncertainty(), mvRange(-0.9, 0.5));
}

TEST(RunParams, GridSizeZeroIsRejectedUnlessAutomatic) {
  mvPointMatcherRunParams p;
  p.autoGridSize(false);
  EXPECT_THROW_MESSAGE(p.gridSize(0.0), Defs::BadParams,
                       L"if autoGridSize==false, gridSize must be >= 0.0\n");
  EXPECT_THROW(p.gridSize(-1.0), Defs::BadParams);
  EXPECT_THROW(p.gridSize(kNaN), Defs::BadParams);
  EXPECT_EQ(p.gridSize(), 0.0);
  p.gridSize(0.5);
  EXPECT_EQ(p.gridSize(), 0.5);

  p.autoGridSize(true);
  p.gridSize(-5.0);
  EXPECT_EQ(p.gridSize(), -5.0) << "an automatic grid size stores any value";
}

TEST(RunParams, CaptureRangeZeroIsAccepted) {
  mvPointMatcherRunParams p;
  p.autoCaptureRange(false);
  p.captureRange(0.0);
  EXPECT_EQ(p.captureRange(), 0.0);
  EXPECT_THROW_MESSAGE(p.captureRange(-0.1), Defs::BadParams,
                       L"if autoCaptureRange==false, captureRange must be >= 0.0\n");
  EXPECT_THROW(p.captureRange(kNaN), Defs::BadParams);
  EXPECT_EQ(p.captureRange(), 0.0);

  p.autoCaptureRange(true);
  p.captureRange(-3.0);
  EXPECT_EQ(p.captureRange(), -3.0);
}

TEST(RunParams, MaxNumResultsMustBeAtLeastOne) {
  mvPointMatcherRunParams p;
  EXPECT_THROW_MESSAGE(p.maxNumResults(0), Defs::BadParams, L"maxNumResults must be >= 1\n");
  EXPECT_THROW(p.maxNumResults(-4), Defs::BadParams);
  EXPECT_EQ(p.maxNumResults(), 1);
  p.maxNumResults(1);
  p.maxNumResults(1000);
  EXPECT_EQ(p.maxNumResults(), 1000);
}

TEST(RunParams, StartPoseTakesAnyTransform) {
  mvPointMatcherRunParams p;
  const mvXform<2> singular(mvMatrix<2>(0, 0, 0, 0), mvVector<2>(1, 2));
  p.startPose(singular);
  EXPECT_EQ(p.startPose(), singular);
}

TEST(RunParams, ConstructorSizeChecksSeeTheNewAutomaticFlags) {
  const mvPointMatcherRunParams p(0.5, mvXform<2>::I, mvRange::FullRange(), mvRange::FullRange(),
                                  mvAngleRange::FullRange(), mvRange(0, 0), true, -5.0, true, -1.0,
                                  3);
  EXPECT_EQ(p.gridSize(), -5.0);
  EXPECT_EQ(p.captureRange(), -1.0);
  EXPECT_THROW_MESSAGE(
      mvPointMatcherRunParams(0.5, mvXform<2>::I, mvRange::FullRange(), mvRange::FullRange(),
                              mvAngleRange::FullRange(), mvRange(0, 0), false, 0.0, false, 0.0, 3),
      Defs::BadParams, L"if autoGridSize==false, gridSize must be >= 0.0\n");
}

TEST(RunParams, ConstructorReportsTheFirstRejectedSetterInItsOrder) {
  // minCoverage, x, y, rotation, scale, grid size, capture range, count: all bad.
  EXPECT_THROW_MESSAGE(
      mvPointMatcherRunParams(2.0, mvXform<2>::I, mvRange(), mvRange(), mvAngleRange(), mvRange(),
                              false, 0.0, false, -1.0, 0),
      Defs::BadParams, L"minCoverage must be in [0.0, 1.0]\n");
  EXPECT_THROW_MESSAGE(
      mvPointMatcherRunParams(0.5, mvXform<2>::I, mvRange(), mvRange(), mvAngleRange(), mvRange(),
                              false, 0.0, false, -1.0, 0),
      Defs::BadParams, L"xTranslationUncertainty range must not be empty\n");
  EXPECT_THROW_MESSAGE(
      mvPointMatcherRunParams(0.5, mvXform<2>::I, mvRange(0, 1), mvRange(), mvAngleRange(),
                              mvRange(), false, 0.0, false, -1.0, 0),
      Defs::BadParams, L"yTranslationUncertainty range must not be empty\n");
  EXPECT_THROW_MESSAGE(
      mvPointMatcherRunParams(0.5, mvXform<2>::I, mvRange(0, 1), mvRange(0, 1), mvAngleRange(),
                              mvRange(), false, 0.0, false, -1.0, 0),
      Defs::BadParams, L"angleUncertainty range must not be empty\n");
  EXPECT_THROW_MESSAGE(
      mvPointMatcherRunParams(0.5, mvXform<2>::I, mvRange(0, 1), mvRange(0, 1),
                              mvAngleRange::FullRange(), mvRange(), false, 0.0, false, -1.0, 0),
      Defs::BadParams, L"scaleUncertainty range must not be empty\n");
  EXPECT_THROW_MESSAGE(
      mvPointMatcherRunParams(0.5, mvXform<2>::I, mvRange(0, 1), mvRange(0, 1),
                              mvAngleRange::FullRange(), mvRange(0, 0), true, 0.0, false, -1.0, 0),
      Defs::BadParams, L"if autoCaptureRange==false, captureRange must be >= 0.0\n");
  EXPECT_THROW_MESSAGE(
      mvPointMatcherRunParams(0.5, mvXform<2>::I, mvRange(0, 1), mvRange(0, 1),
                              mvAngleRange::FullRange(), mvRange(0, 0), true, 0.0, true, -1.0, 0),
      Defs::BadParams, L"maxNumResults must be >= 1\n");
}

TEST(RunParams, CopiesCompareEqual) {
  const mvPointMatcherRunParams p = sampleParams();
  mvPointMatcherRunParams q;
  q = p;
  EXPECT_TRUE(q == p);
  const mvPointMatcherRunParams r(p);
  EXPECT_TRUE(r == p);
  EXPECT_FALSE(mvPointMatcherRunParams() == p);
}

TEST(RunParams, RealsCompareWithinOneInTenToTheFifteen) {
  mvPointMatcherRunParams a;
  mvPointMatcherRunParams b;
  a.minCoverage(0.25);
  b.minCoverage(0.25 + 1e-16);
  EXPECT_NE(a.minCoverage(), b.minCoverage());
  EXPECT_TRUE(a == b);
  b.minCoverage(0.25 + 1e-14);
  EXPECT_FALSE(a == b);

  mvPointMatcherRunParams c;
  c.gridSize(1e-14);
  EXPECT_FALSE(c == mvPointMatcherRunParams());
  mvPointMatcherRunParams d;
  d.captureRange(1e-16);
  EXPECT_TRUE(d == mvPointMatcherRunParams());
}

TEST(RunParams, EveryFieldTakesPartInEquality) {
  const mvPointMatcherRunParams base;
  auto differs = [&](auto change) {
    mvPointMatcherRunParams p;
    change(p);
    return !(p == base);
  };
  EXPECT_TRUE(differs([](auto& p) { p.startPose(mvXform<2>(mvMatrix<2>(), mvVector<2>(0, 1))); }));
  EXPECT_TRUE(differs([](auto& p) { p.xTranslationUncertainty(mvRange(0, 1)); }));
  EXPECT_TRUE(differs([](auto& p) { p.yTranslationUncertainty(mvRange(0, 1)); }));
  EXPECT_TRUE(differs([](auto& p) { p.rotationUncertainty(mvAngleRange::FullRange()); }));
  EXPECT_TRUE(differs([](auto& p) { p.scaleUncertainty(mvRange(0, 0.5)); }));
  EXPECT_TRUE(differs([](auto& p) { p.autoGridSize(false); }));
  EXPECT_TRUE(differs([](auto& p) { p.autoCaptureRange(false); }));
  EXPECT_TRUE(differs([](auto& p) { p.maxNumResults(2); }));
  EXPECT_FALSE(differs([](auto& p) { p.minCoverage(0.5); }));
}

TEST(RunParams, ArchiveLayoutPutsRotationBeforeTranslation) {
  EXPECT_EQ(store(sampleParams()), sampleParamsBytes());
  EXPECT_TRUE(load<mvPointMatcherRunParams>(sampleParamsBytes()) == sampleParams());
}

TEST(RunParams, OlderVersionsReadTheSameLayout) {
  EXPECT_TRUE(load<mvPointMatcherRunParams>(sampleParamsBytes(200008)) == sampleParams());
  EXPECT_TRUE(load<mvPointMatcherRunParams>(sampleParamsBytes(0)) == sampleParams());
}

TEST(RunParams, ANewerVersionIsUnknownAtLine2226) {
  const auto e = unknownVersionOf<mvPointMatcherRunParams>(sampleParamsBytes(200010));
  EXPECT_EQ(e.file(), "ptmatch/ppmatch");
  EXPECT_EQ(e.line(), 2226);
}

TEST(RunParams, ArchiveKeepsSizesStoredUnderAnAutomaticFlag) {
  mvPointMatcherRunParams p;
  p.gridSize(-5.0);
  p.autoGridSize(false);
  EXPECT_TRUE(load<mvPointMatcherRunParams>(store(p)) == p);
  EXPECT_EQ(load<mvPointMatcherRunParams>(store(p)).gridSize(), -5.0);
}

// --- one result ---

TEST(Result, DefaultIsAnEmptyPointToPointResult) {
  const mvPointMatcherResult r;
  EXPECT_EQ(r.runMode(), Defs::ePointToPoint);
  EXPECT_EQ(r.modelToDataXform(), mvXform<2>::I);
  EXPECT_TRUE(r.modelToDataMap().empty());
  EXPECT_EQ(r.coverage(), 0.0);
  EXPECT_EQ(r.fitError(), 0.0);
  EXPECT_FALSE(r.gridToDataImage().isBound());
  EXPECT_THROW_MESSAGE(r.gridToDataMap(mvPair<long>(0, 0)), Defs::NotRun,
                       L"mvPointMatcherResult was not run in mode ePointToGrid\n");
}

TEST(Result, DefaultArchiveLayout) {
  EXPECT_EQ(store(mvPointMatcherResult()),
            cat({le32(kVersion), le32(1), identity(), longs({}), f64(0), f64(0), unboundImage()}));
}

namespace {
Bytes exhaustiveResultBytes(std::uint32_t version = kVersion) {
  return cat({le32(version), le32(3), xform(1, 0, 0, 1, 10, 5), longs({1, -1, 0}), f64(0.75),
              f64(0.5), unboundImage()});
}

// A 2 x 1 label image at offset (3, 4) holding 7 and 9.
Bytes gridResultBytes() {
  return cat({le32(kVersion), le32(2), identity(), longs({}), f64(1.0), f64(0.25), le32(2), le32(1),
              pair(3, 4), identity(), s32(7), s32(9)});
}
}  // namespace

TEST(Result, ExhaustiveResultRoundTripsByteForByte) {
  const auto r = load<mvPointMatcherResult>(exhaustiveResultBytes());
  EXPECT_EQ(r.runMode(), Defs::eExhaustiveMode);
  EXPECT_EQ(r.modelToDataXform(), mvXform<2>(mvMatrix<2>(), mvVector<2>(10, 5)));
  EXPECT_EQ(r.modelToDataMap(), (std::vector<long>{1, -1, 0}));
  EXPECT_EQ(r.coverage(), 0.75);
  EXPECT_EQ(r.fitError(), 0.5);
  EXPECT_EQ(store(r), exhaustiveResultBytes());
  EXPECT_EQ(store(load<mvPointMatcherResult>(exhaustiveResultBytes(7))), exhaustiveResultBytes())
      << "an older version is read with the same layout and written as the current one";
}

TEST(Result, PointToGridResultAnswersOnlyTheGridMap) {
  const auto r = load<mvPointMatcherResult>(gridResultBytes());
  EXPECT_EQ(r.runMode(), Defs::ePointToGrid);
  EXPECT_EQ(r.gridToDataMap(mvPair<long>(3, 4)), 7);
  EXPECT_EQ(r.gridToDataMap(mvPair<long>(4, 4)), 9);
  EXPECT_THROW(r.gridToDataMap(mvPair<long>(5, 4)), mvAssertionError) << "outside the image";
  EXPECT_THROW_MESSAGE(
      r.modelToDataMap(), Defs::NotRun,
      L"mvPointMatcherResult was not run in mode ePointToGrid or eExhaustiveMode\n");
  EXPECT_EQ(store(r), gridResultBytes());
}

TEST(Result, AnAutoDetectResultHasNoModelToDataMap) {
  Bytes bytes = exhaustiveResultBytes();
  bytes[4] = 4;  // run mode eAutoDetect
  const auto r = load<mvPointMatcherResult>(bytes);
  EXPECT_EQ(r.runMode(), Defs::eAutoDetect);
  EXPECT_THROW(r.modelToDataMap(), Defs::NotRun);
  EXPECT_THROW(r.gridToDataMap(mvPair<long>(0, 0)), Defs::NotRun);
}

TEST(Result, AnUnknownRunModeInAnArchiveIsBadData) {
  for (unsigned char mode : {0, 5, 200}) {
    Bytes bytes = exhaustiveResultBytes();
    bytes[4] = mode;
    mvMemoryArchive in(bytes);
    mvPointMatcherResult r;
    EXPECT_THROW(in || r, mvArchive::BadData) << int(mode);
  }
}

TEST(Result, ANewerVersionIsUnknownAtLine2253) {
  const auto e = unknownVersionOf<mvPointMatcherResult>(exhaustiveResultBytes(200010));
  EXPECT_EQ(e.file(), "ptmatch/ppmatch");
  EXPECT_EQ(e.line(), 2253);
}

TEST(Result, CopiesShareTheGridImageAndKeepEveryField) {
  const auto r = load<mvPointMatcherResult>(gridResultBytes());
  mvPointMatcherResult copy;
  copy = r;
  EXPECT_EQ(copy.runMode(), Defs::ePointToGrid);
  EXPECT_EQ(copy.gridToDataMap(mvPair<long>(4, 4)), 9);
  EXPECT_EQ(copy.coverage(), 1.0);
  EXPECT_EQ(copy.fitError(), 0.25);
  const mvPointMatcherResult constructed(r);
  EXPECT_EQ(store(constructed), gridResultBytes());
}

// --- result set ---

TEST(ResultSet, DefaultIsEmptyWithTimeZero) {
  const mvPointMatcherResultSet s;
  EXPECT_TRUE(s.results().empty());
  EXPECT_EQ(s.time(), 0.0);
  EXPECT_EQ(store(s), cat({le32(kVersion), f64(0.0), vectorHeader(0)}));
}

namespace {
Bytes resultSetBytes(std::uint32_t version = kVersion) {
  return cat(
      {le32(version), f64(1.5), vectorHeader(2), exhaustiveResultBytes(), gridResultBytes()});
}
}  // namespace

TEST(ResultSet, ArchiveHoldsTimeThenEachResultWithItsVersion) {
  const auto s = load<mvPointMatcherResultSet>(resultSetBytes());
  EXPECT_EQ(s.time(), 1.5);
  ASSERT_EQ(s.results().size(), 2u);
  EXPECT_EQ(s.results()[0].runMode(), Defs::eExhaustiveMode);
  EXPECT_EQ(s.results()[1].runMode(), Defs::ePointToGrid);
  EXPECT_EQ(store(s), resultSetBytes());

  mvPointMatcherResultSet copy;
  copy = s;
  EXPECT_EQ(store(copy), resultSetBytes());
  EXPECT_EQ(store(load<mvPointMatcherResultSet>(resultSetBytes(3))), resultSetBytes());
}

TEST(ResultSet, ANewerVersionIsUnknownAtLine2304) {
  const auto e = unknownVersionOf<mvPointMatcherResultSet>(resultSetBytes(200010));
  EXPECT_EQ(e.file(), "ptmatch/ppmatch");
  EXPECT_EQ(e.line(), 2304);
}
