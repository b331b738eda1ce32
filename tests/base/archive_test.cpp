// The archive: exact bytes of every primitive and base type, round trips, truncated and
// corrupted data.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "mvbase/archive.h"

using namespace archive_bytes;

// --- primitives ---

TEST(ArchivePrimitives, BoolIsOneByteZeroOrOne) {
  EXPECT_EQ(store(true), Bytes({1}));
  EXPECT_EQ(store(false), Bytes({0}));
}

TEST(ArchivePrimitives, BoolLoadsAnyNonZeroAsTrue) {
  EXPECT_TRUE(load<bool>({7}));
  EXPECT_FALSE(load<bool>({0}, true));
}

TEST(ArchivePrimitives, UnsignedCharIsOneByte) {
  EXPECT_EQ(store<unsigned char>(0xAB), Bytes({0xAB}));
  EXPECT_EQ(load<unsigned char>({0xCD}), 0xCD);
}

TEST(ArchivePrimitives, IntIsFourLittleEndianBytes) {
  EXPECT_EQ(store<int>(0x12345678), Bytes({0x78, 0x56, 0x34, 0x12}));
  EXPECT_EQ(store<int>(-2), Bytes({0xFE, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(load<int>({0xFE, 0xFF, 0xFF, 0xFF}), -2);
}

TEST(ArchivePrimitives, LongIsFourBytesSignExtendedOnLoading) {
  EXPECT_EQ(store<long>(0x12345678L), Bytes({0x78, 0x56, 0x34, 0x12}));
  EXPECT_EQ(store<long>(-1L), Bytes({0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(store<long>(-2147483647L - 1), Bytes({0x00, 0x00, 0x00, 0x80}));
  EXPECT_EQ(load<long>({0xFF, 0xFF, 0xFF, 0xFF}), -1L);
  EXPECT_EQ(load<long>({0x00, 0x00, 0x00, 0x80}), -2147483648L);
  EXPECT_EQ(load<long>({0xFF, 0xFF, 0xFF, 0x7F}), 2147483647L);
}

TEST(ArchivePrimitives, LongOutside32BitsIsRefused) {
  if (sizeof(long) <= 4) GTEST_SKIP() << "long has 32 bits here";
  mvMemoryArchive out;
  long tooBig = 2147483648L;
  long tooSmall = -2147483649L;
  EXPECT_THROW(out || tooBig, mvArchive::BadData);
  EXPECT_THROW(out || tooSmall, mvArchive::BadData);
  EXPECT_TRUE(out.bytes().empty());
}

TEST(ArchivePrimitives, UnsignedLongIsFourBytes) {
  EXPECT_EQ(store<unsigned long>(0xFFFFFFFFul), Bytes({0xFF, 0xFF, 0xFF, 0xFF}));
  EXPECT_EQ(store<unsigned long>(258ul), Bytes({0x02, 0x01, 0x00, 0x00}));
  EXPECT_EQ(load<unsigned long>({0xFF, 0xFF, 0xFF, 0xFF}), 4294967295ul);
}

TEST(ArchivePrimitives, UnsignedLongBeyond32BitsIsRefused) {
  if (sizeof(unsigned long) <= 4) GTEST_SKIP() << "unsigned long has 32 bits here";
  mvMemoryArchive out;
  unsigned long tooBig = 4294967296ul;
  EXPECT_THROW(out || tooBig, mvArchive::BadData);
}

TEST(ArchivePrimitives, DoubleIsItsEightByteBitPattern) {
  EXPECT_EQ(store(1.0), le64(kOne));
  EXPECT_EQ(store(-2.5), le64(kMinusTwoAndHalf));
  EXPECT_EQ(load<double>(le64(kSix)), 6.0);
}

TEST(ArchivePrimitives, DoubleKeepsSpecialValuesBitForBit) {
  EXPECT_TRUE(std::signbit(load<double>(store(-0.0))));
  EXPECT_TRUE(std::isnan(load<double>(store(std::numeric_limits<double>::quiet_NaN()))));
  EXPECT_EQ(load<double>(store(std::numeric_limits<double>::infinity())),
            std::numeric_limits<double>::infinity());
  EXPECT_EQ(load<double>(store(std::numeric_limits<double>::denorm_min())),
            std::numeric_limits<double>::denorm_min());
}

TEST(ArchivePrimitives, ValuesChainInOrder) {
  mvMemoryArchive out;
  bool b = true;
  long l = 3;
  double d = 2.0;
  out || b || l || d;
  EXPECT_EQ(out.bytes(), cat({{1}, le32(3), le64(kTwo)}));
}

TEST(ArchivePrimitives, DirectionIsReported) {
  mvMemoryArchive out;
  mvMemoryArchive in(Bytes{});
  EXPECT_TRUE(out.isStoring());
  EXPECT_FALSE(out.isLoading());
  EXPECT_TRUE(in.isLoading());
  EXPECT_FALSE(in.isStoring());
}

TEST(ArchivePrimitives, ShiftReadsOneUnsignedLong) {
  mvMemoryArchive in(le32(42));
  unsigned long v = 0;
  in >> v;
  EXPECT_EQ(v, 42ul);
  EXPECT_TRUE(in.atEnd());
}

TEST(ArchivePrimitives, ShiftOnAStoringArchiveIsAnAssertion) {
  mvMemoryArchive out;
  unsigned long v = 1;
  EXPECT_THROW(out >> v, mvAssertionError);
}

enum class Colour { eRed = 0, eBlue = 5 };

TEST(ArchivePrimitives, EnumsTravelAsUnsignedLong) {
  mvMemoryArchive out;
  Colour c = Colour::eBlue;
  mfArchiveEnum(out, c);
  EXPECT_EQ(out.bytes(), le32(5));
  mvMemoryArchive in(out.bytes());
  Colour back = Colour::eRed;
  mfArchiveEnum(in, back);
  EXPECT_EQ(back, Colour::eBlue);
}

// --- strings ---

TEST(ArchiveStrings, StringIsCountThenBytes) {
  mvMemoryArchive out;
  std::string s = "ab";
  mfArchiveString(out, s);
  EXPECT_EQ(out.bytes(), cat({le32(2), {'a', 'b'}}));
}

TEST(ArchiveStrings, WideStringTravelsAsUtf8) {
  mvMemoryArchive out;
  std::wstring s = L"h\u00e9";
  mfArchiveString(out, s);
  EXPECT_EQ(out.bytes(), cat({le32(3), {'h', 0xC3, 0xA9}}));
  mvMemoryArchive in(out.bytes());
  std::wstring back;
  mfArchiveString(in, back);
  EXPECT_EQ(back, s);
}

TEST(ArchiveStrings, CountBeyondTheDataIsBadData) {
  mvMemoryArchive in(cat({le32(0x7FFFFFFF), {'a'}}));
  std::string s;
  EXPECT_THROW(mfArchiveString(in, s), mvArchive::BadData);
}

// --- base types ---

TEST(ArchiveBaseTypes, Vector2IsXThenY) {
  EXPECT_EQ(store(mvVector<2>(1.0, -2.5)), cat({le64(kOne), le64(kMinusTwoAndHalf)}));
  EXPECT_EQ(load<mvVector<2>>(cat({le64(kThree), le64(kFour)})), mvVector<2>(3.0, 4.0));
}

TEST(ArchiveBaseTypes, Vector3IsXYZ) {
  EXPECT_EQ(store(mvVector<3>(1.0, 2.0, 3.0)), cat({le64(kOne), le64(kTwo), le64(kThree)}));
  EXPECT_EQ(load<mvVector<3>>(store(mvVector<3>(4.0, 5.0, 6.0))), mvVector<3>(4.0, 5.0, 6.0));
}

TEST(ArchiveBaseTypes, PairIsVersionByteThenXY) {
  EXPECT_EQ(store(mvPair<long>(1, -1)), cat({{0}, le32(1), le32(0xFFFFFFFF)}));
  EXPECT_EQ(load<mvPair<long>>(cat({{0}, le32(7), le32(8)})), mvPair<long>(7, 8));
}

TEST(ArchiveBaseTypes, PairWithNonZeroVersionIsUnknownVersionWithoutPlace) {
  EXPECT_THROW_THAT((load<mvPair<long>>(cat({{1}, le32(7), le32(8)}))), mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) {
                      EXPECT_EQ(e.file(), "");
                      EXPECT_EQ(e.line(), 0);
                    });
}

TEST(ArchiveBaseTypes, RangeIsKindStartEnd) {
  EXPECT_EQ(store(mvRange(1.0, 2.0)), cat({le32(0), le64(kOne), le64(kTwo)}));
  EXPECT_EQ(store(mvRange()), cat({le32(1), le64(kZero), le64(kZero)}));
  EXPECT_EQ(store(mvRange(3.0, 4.0, mvRangeDefs::eFull)),
            cat({le32(2), le64(kThree), le64(kFour)}));
}

TEST(ArchiveBaseTypes, RangeRoundTripKeepsKindStartAndEnd) {
  const mvRange full(5.0, 1.0, mvRangeDefs::eFull);
  const mvRange back = load<mvRange>(store(full));
  EXPECT_EQ(back, full);
  EXPECT_EQ(back.range(), mvRangeDefs::eFull);
  EXPECT_EQ(back.start(), 5.0);
}

TEST(ArchiveBaseTypes, RangeWithUnknownKindIsBadData) {
  EXPECT_THROW(load<mvRange>(cat({le32(3), le64(kOne), le64(kTwo)})), mvArchive::BadData);
  EXPECT_THROW(load<mvAngleRange>(cat({le32(9), le64(kOne), le64(kTwo)})), mvArchive::BadData);
}

TEST(ArchiveBaseTypes, AngleRangeIsKindStartEndInRadians) {
  const mvAngleRange r(mvRadian(1.0), mvRadian(2.0));
  EXPECT_EQ(store(r), cat({le32(0), le64(kOne), le64(kTwo)}));
  EXPECT_EQ(load<mvAngleRange>(store(r)), r);
  EXPECT_EQ(load<mvAngleRange>(store(mvAngleRange::FullRange())), mvAngleRange::FullRange());
}

TEST(ArchiveBaseTypes, XformIsMatrixRowByRowThenTranslation) {
  const mvXform<2> x(mvMatrix<2>(1.0, 2.0, 3.0, 4.0), mvVector<2>(5.0, 6.0));
  EXPECT_EQ(store(x),
            cat({le64(kOne), le64(kTwo), le64(kThree), le64(kFour), le64(kFive), le64(kSix)}));
  EXPECT_EQ(load<mvXform<2>>(store(x)), x);
}

TEST(ArchiveBaseTypes, LongRectangleIsTwoPairs) {
  const mvRectangle<long> r(mvPair<long>(1, 2), mvPair<long>(3, 4));
  EXPECT_EQ(store(r), cat({{0}, le32(1), le32(2), {0}, le32(3), le32(4)}));
  EXPECT_EQ(load<mvRectangle<long>>(store(r)), r);
}

TEST(ArchiveBaseTypes, DoubleRectangleIsFourCorners) {
  const mvRectangle<double> r(1.0, 2.0, 2.0, 2.0);  // corners (1, 2) and (3, 4)
  EXPECT_EQ(store(r), cat({le64(kOne), le64(kTwo), le64(kThree), le64(kFour)}));
  EXPECT_EQ(load<mvRectangle<double>>(store(r)), r);
}

// --- vectors ---

TEST(ArchiveVectors, VectorIsVersionCountElements) {
  EXPECT_EQ(store(std::vector<long>{1, -1}), cat({{0}, le32(2), le32(1), le32(0xFFFFFFFF)}));
  EXPECT_EQ(store(std::vector<long>{}), cat({{0}, le32(0)}));
}

TEST(ArchiveVectors, VectorsRoundTrip) {
  const std::vector<mvVector<2>> points{{1.0, 2.0}, {-3.0, 0.5}};
  EXPECT_EQ(load<std::vector<mvVector<2>>>(store(points)), points);
  const std::vector<bool> flags{true, false, true};
  EXPECT_EQ(store(flags), cat({{0}, le32(3), {1, 0, 1}}));
  EXPECT_EQ(load<std::vector<bool>>(store(flags)), flags);
  const std::vector<std::vector<double>> nested{{1.0}, {}, {2.0, 3.0}};
  EXPECT_EQ(load<std::vector<std::vector<double>>>(store(nested)), nested);
}

TEST(ArchiveVectors, LoadingReplacesTheOldElements) {
  std::vector<long> v{9, 9, 9, 9};
  EXPECT_EQ(load(store(std::vector<long>{5}), v), std::vector<long>{5});
}

TEST(ArchiveVectors, NonZeroContainerVersionIsUnknownVersion) {
  EXPECT_THROW_THAT((load<std::vector<long>>(cat({{1}, le32(0)}))), mvArchive::UnknownVersion,
                    [&](const mvArchive::UnknownVersion& e) {
                      EXPECT_EQ(e.file(), "");
                      EXPECT_EQ(e.line(), 0);
                    });
}

TEST(ArchiveVectors, CorruptedCountIsBadDataBeforeAnyAllocation) {
  // 2^31 - 1 doubles would take 16 GiB; the check against the 8 bytes left refuses it.
  EXPECT_THROW(load<std::vector<double>>(cat({{0}, le32(0x7FFFFFFF), le64(kOne)})),
               mvArchive::BadData);
  EXPECT_THROW(load<std::vector<mvVector<2>>>(cat({{0}, le32(2), le64(kOne), le64(kTwo)})),
               mvArchive::BadData);
}

TEST(ArchiveVectors, CorruptedCountInAStreamIsRefusedToo) {
  std::istringstream in(std::string("\0\xff\xff\xff\x7f", 5) + std::string(8, '\0'));
  mvStreamArchive ar(in);
  std::vector<long> v;
  EXPECT_THROW(ar || v, mvArchive::Errors);
}

// --- truncation ---

TEST(ArchiveTruncation, ReadingPastTheEndIsEndOfDataAndReadsNothing) {
  mvMemoryArchive in(Bytes{1, 2, 3});
  long v = 77;
  EXPECT_THROW(in || v, mvArchive::EndOfData);
  EXPECT_EQ(v, 77);
  EXPECT_EQ(in.bytesLeft(), 3u);  // the position did not move
  unsigned char c = 0;
  in || c;
  EXPECT_EQ(c, 1);
}

TEST(ArchiveTruncation, EmptyArchiveHasNothingToRead) {
  mvMemoryArchive in(Bytes{});
  EXPECT_TRUE(in.atEnd());
  double d = 0;
  EXPECT_THROW(in || d, mvArchive::EndOfData);
}

TEST(ArchiveTruncation, EveryPrefixOfAnArchiveFailsCleanly) {
  mvMemoryArchive out;
  std::vector<mvVector<2>> points{{1.0, 2.0}, {3.0, 4.0}};
  mvXform<2> x(mvMatrix<2>(1.0, 2.0, 3.0, 4.0), mvVector<2>(5.0, 6.0));
  mvPair<long> p(3, 4);
  out || points || x || p;
  const Bytes& all = out.bytes();
  for (std::size_t n = 0; n < all.size(); ++n) {
    mvMemoryArchive in(Bytes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(n)));
    std::vector<mvVector<2>> points2;
    mvXform<2> x2;
    mvPair<long> p2;
    EXPECT_THROW(in || points2 || x2 || p2, mvArchive::Errors) << "prefix of " << n << " bytes";
  }
}

TEST(ArchiveTruncation, EndOfDataIsAnArchiveErrorAndAnException) {
  mvMemoryArchive in(Bytes{});
  int v = 0;
  EXPECT_THROW(in || v, mvArchive::Errors);
  mvMemoryArchive in2(Bytes{});
  EXPECT_THROW(in2 || v, mvException);
  mvMemoryArchive in3(Bytes{});
  EXPECT_THROW(in3 || v, std::exception);
}

TEST(ArchiveTruncation, CheckCountComparesWithTheBytesLeft) {
  mvMemoryArchive in(Bytes(8, 0));
  EXPECT_NO_THROW(in.checkCount(2, 4));
  EXPECT_THROW(in.checkCount(3, 4), mvArchive::BadData);
  mvMemoryArchive out;
  EXPECT_NO_THROW(out.checkCount(0xFFFFFFFFul, 8));  // storing never refuses
}

// --- stream archive ---

TEST(StreamArchive, SameBytesAsTheMemoryArchive) {
  std::ostringstream os;
  {
    mvStreamArchive out(os);
    long l = -1;
    double d = 2.0;
    std::vector<long> v{1};
    out || l || d || v;
  }
  mvMemoryArchive mem;
  long l = -1;
  double d = 2.0;
  std::vector<long> v{1};
  mem || l || d || v;
  const std::string s = os.str();
  EXPECT_EQ(Bytes(s.begin(), s.end()), mem.bytes());
}

TEST(StreamArchive, RoundTripAndEndOfData) {
  std::stringstream ss;
  {
    mvStreamArchive out(static_cast<std::ostream&>(ss));
    mvXform<2> x(mvMatrix<2>(1.0, 2.0, 3.0, 4.0), mvVector<2>(5.0, 6.0));
    out || x;
  }
  mvStreamArchive in(static_cast<std::istream&>(ss));
  EXPECT_EQ(in.bytesLeft(), 48u);
  mvXform<2> x;
  in || x;
  EXPECT_EQ(x, mvXform<2>(mvMatrix<2>(1.0, 2.0, 3.0, 4.0), mvVector<2>(5.0, 6.0)));
  int more = 0;
  EXPECT_THROW(in || more, mvArchive::EndOfData);
}

TEST(StreamArchive, WriteFailureIsAnArchiveError) {
  std::ostringstream os;
  os.setstate(std::ios::badbit);
  mvStreamArchive out(os);
  long v = 1;
  EXPECT_THROW(out || v, mvArchive::Errors);
}
