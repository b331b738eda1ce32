// The grid map's two value records: defaults, accessors and their exact archive bytes.
#include <gtest/gtest.h>

#include <cstdint>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "ptmatch/ptgdmap.h"

using namespace archive_bytes;

namespace {

/// The version word 1100 = 0x44C.
Bytes version1100() { return le32(1100); }
/// An identity transform: a00 1, a01 0, a10 0, a11 1, tx 0, ty 0.
Bytes identityXform() {
  return cat({le64(kOne), le64(kZero), le64(kZero), le64(kOne), le64(kZero), le64(kZero)});
}
/// mvRangeDefs::eEmpty and eNormal as stored (an unsigned long each).
Bytes emptyKind() { return le32(1); }
Bytes normalKind() { return le32(0); }

void expectSameParams(const mvPtToGridMapRunParams& a, const mvPtToGridMapRunParams& b) {
  EXPECT_EQ(a.xv(), b.xv());
  EXPECT_EQ(a.yv(), b.yv());
  EXPECT_EQ(a.staggered(), b.staggered());
  EXPECT_EQ(a.snapSize(), b.snapSize());
  EXPECT_EQ(a.sizeTol(), b.sizeTol());
  EXPECT_EQ(a.angleTol(), b.angleTol());
}

/// A stored result with valid true, time 2, grid2point (1 2; 3 4) + (5, 6) and the map
/// {(3, -1), unassigned}, written by hand.
Bytes storedResultWithMap() {
  return cat({version1100(),
              {1},
              le64(kTwo),
              le64(kOne),
              le64(kTwo),
              le64(kThree),
              le64(kFour),
              le64(kFive),
              le64(kSix),
              {0},
              le32(2),
              {0},
              le32(3),
              le32(0xFFFFFFFFu),
              {0},
              le32(0x7FFFFFFFu),
              le32(0x7FFFFFFFu)});
}

}  // namespace

// --- run parameters ---

TEST(GridMapRunParams, DefaultsAreZeroVectorsNoStaggerZeroSnapAndEmptyRanges) {
  const mvPtToGridMapRunParams p;
  EXPECT_TRUE(p.xv().isNull());
  EXPECT_TRUE(p.yv().isNull());
  EXPECT_FALSE(p.staggered());
  EXPECT_EQ(p.snapSize(), 0.0);
  EXPECT_EQ(p.sizeTol().range(), mvRangeDefs::eEmpty);
  EXPECT_EQ(p.angleTol().range(), mvRangeDefs::eEmpty);
}

TEST(GridMapRunParams, ConstructorAndSettersStoreWithoutValidating) {
  const mvRange backwards(2.0, 1.0, mvRangeDefs::eNormal);
  mvPtToGridMapRunParams p(mvVector<2>(1.0, 2.0), mvVector<2>(-3.0, 4.0), true, -5.0, backwards,
                           mvAngleRange::FullRange());
  EXPECT_EQ(p.xv(), mvVector<2>(1.0, 2.0));
  EXPECT_EQ(p.yv(), mvVector<2>(-3.0, 4.0));
  EXPECT_TRUE(p.staggered());
  EXPECT_EQ(p.snapSize(), -5.0);
  EXPECT_EQ(p.sizeTol(), backwards);
  EXPECT_EQ(p.angleTol(), mvAngleRange::FullRange());

  p.xv(mvVector<2>(0.0, 0.0));
  p.yv(mvVector<2>(7.0, 0.0));
  p.staggered(false);
  p.snapSize(-1e300);
  p.sizeTol(mvRange());
  p.angleTol(mvAngleRange());
  EXPECT_TRUE(p.xv().isNull());
  EXPECT_EQ(p.yv(), mvVector<2>(7.0, 0.0));
  EXPECT_FALSE(p.staggered());
  EXPECT_EQ(p.snapSize(), -1e300);
  EXPECT_EQ(p.sizeTol().range(), mvRangeDefs::eEmpty);
  EXPECT_EQ(p.angleTol().range(), mvRangeDefs::eEmpty);
}

TEST(GridMapRunParams, CopiesAreIndependent) {
  mvPtToGridMapRunParams a(mvVector<2>(1.0, 0.0), mvVector<2>(0.0, 1.0), true, 2.0);
  mvPtToGridMapRunParams b(a);
  b.snapSize(3.0);
  mvPtToGridMapRunParams c;
  c = a;
  c.staggered(false);
  EXPECT_EQ(a.snapSize(), 2.0);
  EXPECT_TRUE(a.staggered());
  EXPECT_EQ(b.xv(), a.xv());
  EXPECT_EQ(c.snapSize(), 2.0);
}

TEST(GridMapRunParams, DefaultRecordArchivesAsVersionZerosAndEmptyRanges) {
  const Bytes expected = cat({version1100(),
                              le64(kZero),
                              le64(kZero),  // xv
                              le64(kZero),
                              le64(kZero),  // yv
                              {0},          // staggered
                              le64(kZero),  // snapSize
                              emptyKind(),
                              le64(kZero),
                              le64(kZero),  // sizeTol
                              emptyKind(),
                              le64(kZero),
                              le64(kZero)});  // angleTol
  EXPECT_EQ(store(mvPtToGridMapRunParams()), expected);
  EXPECT_EQ(expected.size(), 85u);
}

TEST(GridMapRunParams, FieldsArchiveInDeclarationOrder) {
  const mvPtToGridMapRunParams p(mvVector<2>(1.0, 2.0), mvVector<2>(-2.5, 3.0), true, 4.0,
                                 mvRange(5.0, 6.0), mvAngleRange(mvRadian(1.0), mvRadian(2.0)));
  const Bytes expected = cat({version1100(),
                              le64(kOne),
                              le64(kTwo),
                              le64(kMinusTwoAndHalf),
                              le64(kThree),
                              {1},
                              le64(kFour),
                              normalKind(),
                              le64(kFive),
                              le64(kSix),
                              normalKind(),
                              le64(kOne),
                              le64(kTwo)});
  EXPECT_EQ(store(p), expected);
}

TEST(GridMapRunParams, DefaultRecordReloadsEqual) {
  const mvPtToGridMapRunParams original;
  expectSameParams(load<mvPtToGridMapRunParams>(store(original)), original);
}

TEST(GridMapRunParams, FilledRecordReloadsEqual) {
  const mvPtToGridMapRunParams original(mvVector<2>(0.25, -8.0), mvVector<2>(3.5, 1e-3), true, 1.75,
                                        mvRange(0.9, 1.1),
                                        mvAngleRange(mvRadian(-0.3), mvRadian(0.4)));
  expectSameParams(load<mvPtToGridMapRunParams>(store(original)), original);
}

TEST(GridMapRunParams, OtherVersionThrowsAndLeavesTheRecordAsItWas) {
  Bytes bytes = store(mvPtToGridMapRunParams());
  bytes[0] = 0x4D;  // 1101
  const mvPtToGridMapRunParams before(mvVector<2>(1.0, 2.0), mvVector<2>(3.0, 4.0), true, 5.0);
  mvPtToGridMapRunParams target = before;
  mvMemoryArchive in(bytes);
  EXPECT_THROW_THAT(in || target, mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) {
                      EXPECT_EQ(e.file(), "ptmatch/ptgdmap");
                      EXPECT_GT(e.line(), 0);
                    });
  expectSameParams(target, before);
}

// --- result ---

TEST(GridMapResult, DefaultIsInvalidWithIdentityAndEmptyMap) {
  const mvPtToGridMapResult r;
  EXPECT_FALSE(r.valid());
  EXPECT_EQ(r.grid2point(), mvXform<2>::I);
  EXPECT_TRUE(r.map().empty());
  EXPECT_EQ(r.time(), 0.0);
}

TEST(GridMapResult, UnassignedMarkerIsTheLargest32BitValue) {
  EXPECT_EQ(mvPtToGridMapResult::kUnassigned, 2147483647L);
}

TEST(GridMapResult, EmptyMapArchivesAsVersionFieldsZeroByteAndZeroCount) {
  const Bytes expected = cat({version1100(), {0}, le64(kZero), identityXform(), {0}, le32(0)});
  EXPECT_EQ(store(mvPtToGridMapResult()), expected);
}

TEST(GridMapResult, MapEntriesArchiveAsVersionedPairs) {
  const mvPtToGridMapResult r = load<mvPtToGridMapResult>(storedResultWithMap());
  EXPECT_TRUE(r.valid());
  EXPECT_EQ(r.time(), 2.0);
  EXPECT_EQ(r.grid2point(), mvXform<2>(mvMatrix<2>(1.0, 2.0, 3.0, 4.0), mvVector<2>(5.0, 6.0)));
  ASSERT_EQ(r.map().size(), 2u);
  EXPECT_EQ(r.map()[0], mvPair<long>(3, -1));
  EXPECT_EQ(r.map()[1],
            mvPair<long>(mvPtToGridMapResult::kUnassigned, mvPtToGridMapResult::kUnassigned));
  EXPECT_EQ(store(r), storedResultWithMap());
}

TEST(GridMapResult, CopiesCarryEveryField) {
  const mvPtToGridMapResult r = load<mvPtToGridMapResult>(storedResultWithMap());
  const mvPtToGridMapResult copy(r);
  mvPtToGridMapResult assigned;
  assigned = r;
  EXPECT_EQ(store(copy), storedResultWithMap());
  EXPECT_EQ(store(assigned), storedResultWithMap());
}

TEST(GridMapResult, OtherVersionThrowsAndLeavesTheResultAsItWas) {
  Bytes bytes = storedResultWithMap();
  bytes[0] = 0x4B;  // 1099
  mvPtToGridMapResult target;
  mvMemoryArchive in(bytes);
  EXPECT_THROW_THAT(
      in || target, mvArchive::UnknownVersion,
      [&](const mvArchive::UnknownVersion& e) { EXPECT_EQ(e.file(), "ptmatch/ptgdmap"); });
  EXPECT_FALSE(target.valid());
  EXPECT_TRUE(target.map().empty());
}

TEST(GridMapResult, NonZeroPairVersionThrowsWithoutFileOrLine) {
  Bytes bytes = storedResultWithMap();
  // The first pair's version byte follows version, valid, time, transform, format, count.
  const std::size_t firstPair = 4 + 1 + 8 + 48 + 1 + 4;
  ASSERT_EQ(bytes[firstPair], 0);
  bytes[firstPair] = 1;
  mvPtToGridMapResult target;
  mvMemoryArchive in(bytes);
  EXPECT_THROW_THAT(in || target, mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) {
                      EXPECT_EQ(e.file(), "");
                      EXPECT_EQ(e.line(), 0);
                    });
}

TEST(GridMapResult, TruncatedDataThrowsTheArchivesError) {
  Bytes bytes = storedResultWithMap();
  bytes.resize(10);  // inside the time
  mvPtToGridMapResult target;
  mvMemoryArchive in(bytes);
  EXPECT_THROW(in || target, mvArchive::EndOfData);

  // Inside the map, the base library's count check or end of data reports it.
  Bytes shortMap = storedResultWithMap();
  shortMap.pop_back();
  mvMemoryArchive inMap(shortMap);
  EXPECT_THROW(inMap || target, mvArchive::Errors);
}

// --- error class ---

TEST(GridMapBadInput, IsAnExceptionOfTheLibraryFamilyWithItsMessage) {
  const mvPtToGridMapDefs::BadInput e(L"Point 3 is not finite.");
  const mvException& base = e;
  EXPECT_EQ(base.message(), L"Point 3 is not finite.");
  EXPECT_STREQ(e.what(), "Point 3 is not finite.");
  EXPECT_EQ(e.errorNumber(), 0);
}

TEST(GridMapBadInput, FactoryMakesADefaultInstance) {
  mvPersistent* made = mv_Instantiator::create("mvPtToGridMapDefs::BadInput");
  ASSERT_NE(made, nullptr);
  EXPECT_NE(dynamic_cast<mvPtToGridMapDefs::BadInput*>(made), nullptr);
  delete made;
}

TEST(GridMapBadInput, SuicideAndRethrowThrowsItsOwnType) {
  auto* e = new mvPtToGridMapDefs::BadInput(L"gone");
  EXPECT_THROW_MESSAGE(e->suicideAndRethrow(), mvPtToGridMapDefs::BadInput, L"gone");
}

TEST(GridMapBadInput, ArchivesAndReloadsItsMessage) {
  mvPtToGridMapDefs::BadInput original(L"Point 7 is not finite.");
  EXPECT_EQ(roundTripError(original).message(), L"Point 7 is not finite.");
}
