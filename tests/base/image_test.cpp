// Image buffers: storage layout, guard rows, windows, offset addressing, sharing, the pel
// functions and the archive form.
#include <gtest/gtest.h>

#include <cstdint>

#include "common/archive_bytes.h"
#include "common/expect_throw.h"
#include "mvbase/image.h"

using namespace archive_bytes;

namespace {

// Fills window pel (x, y) with 10 * y + x + 1 through raw row access.
template <typename T>
void fillCounting(mvPelBuffer<T>& image) {
  for (long y = 0; y < image.height(); ++y) {
    for (long x = 0; x < image.width(); ++x)
      image.pointToRow(y)[x] = static_cast<T>(10 * y + x + 1);
  }
}

}  // namespace

// --- layout ---

TEST(PelBuffer, DefaultIsUnbound) {
  const mvPelBuffer<unsigned char> image;
  EXPECT_FALSE(image.isBound());
  EXPECT_EQ(image.width(), 0);
  EXPECT_EQ(image.height(), 0);
}

TEST(PelBuffer, RowsArePaddedToTheAlignment) {
  EXPECT_EQ(mvPelBuffer<unsigned char>(5, 3, 4).rowUpdate(), 8);
  EXPECT_EQ(mvPelBuffer<unsigned char>(8, 3, 4).rowUpdate(), 8);
  EXPECT_EQ(mvPelBuffer<short>(5, 3, 1).rowUpdate(), 5);
  EXPECT_EQ(mvPelBuffer<short>(5, 3, 0).rowUpdate(), 5);  // below 1 counts as 1
  EXPECT_EQ(mvPelBuffer<long>(5, 3).rowUpdate(), 5);
  const mvPelBuffer<unsigned char> image(5, 3, 4);
  EXPECT_EQ(image.pointToRow(1) - image.pointToRow(0), 8);
  EXPECT_EQ(image.size(), mvPair<long>(5, 3));
  EXPECT_EQ(image.pelSize(), 1u);
}

TEST(PelBuffer, NewStorageIsZeroPaddingIncluded) {
  const mvPelBuffer<long> image(3, 2, 4);
  for (long y = 0; y < 2; ++y) {
    for (long x = 0; x < image.rowUpdate(); ++x) EXPECT_EQ(image.pointToRow(y)[x], 0);
  }
}

TEST(PelBuffer, GuardRowsAndCornerNeighboursReadZero) {
  for (long alignment : {1L, 4L}) {
    mvPelBuffer<unsigned char> image(5, 3, alignment);
    mfPelSet<unsigned char>(image, 255);
    const long stride = image.rowUpdate();
    for (long x = 0; x < stride; ++x) {
      EXPECT_EQ(image.pointToRow(-1)[x], 0) << "above, x " << x;
      EXPECT_EQ(image.pointToRow(3)[x], 0) << "below, x " << x;
    }
    // Diagonal neighbours of the corner pels.
    EXPECT_EQ(image.pointToRow(-1)[-1], 0);
    EXPECT_EQ(image.pointToRow(-1)[5], alignment == 1 ? 255 : 0);  // row 0 follows at once
    EXPECT_EQ(image.pointToRow(3)[-1], alignment == 1 ? 255 : 0);  // row 2's last pel
    EXPECT_EQ(image.pointToRow(3)[5], 0);
    // The pel before row 0 is the guard row's last pel; past the last row's end lies
    // padding or the guard row below.
    EXPECT_EQ(image.pointToRow(0)[-1], 0);
    EXPECT_EQ(image.pointToRow(2)[5], 0);
    // The pel before row 1 is the previous row's last pel (or padding).
    EXPECT_EQ(image.pointToRow(1)[-1], alignment == 1 ? 255 : 0);
  }
}

TEST(PelBuffer, PadsStayZeroAfterSettingEveryPel) {
  mvPelBuffer<short> image(3, 2, 4);
  mfPelSet<short>(image, 7);
  EXPECT_EQ(image.pointToRow(0)[3], 0);
  EXPECT_EQ(image.pointToRow(1)[3], 0);
  EXPECT_EQ(image.get(2, 1), 7);
}

// --- addressing ---

TEST(PelBuffer, GetAndPutAddressTheWindowThroughTheOffset) {
  mvPelBuffer<unsigned char> image(4, 3);
  image.offset(mvPair<long>(10, 20));
  image.put(11, 22, 9);
  EXPECT_EQ(image.pointToRow(2)[1], 9);  // window pel (1, 2)
  EXPECT_EQ(image.get(11, 22), 9);
  EXPECT_EQ(image.get(mvPair<long>(1, 2) + image.offset()), 9);
  image.put(mvPair<long>(10, 20), 4);
  EXPECT_EQ(image.pointToRow(0)[0], 4);
}

TEST(PelBuffer, GetOutsideTheWindowIsAnAssertion) {
  mvPelBuffer<unsigned char> image(4, 3);
  image.offset(mvPair<long>(10, 20));
  EXPECT_THROW(image.get(0, 0), mvAssertionError);
  EXPECT_THROW(image.get(14, 20), mvAssertionError);
  EXPECT_THROW(image.get(10, 23), mvAssertionError);
  EXPECT_THROW(image.get(9, 20), mvAssertionError);
  EXPECT_THROW(image.put(10, 19, 1), mvAssertionError);
  EXPECT_THROW_THAT(image.get(-1, -1), mvAssertionError,
                    [&](const mvAssertionError& e) { EXPECT_EQ(e.module(), "mvbase/image"); });
}

TEST(PelBuffer, UnboundGetIsAnAssertion) {
  const mvPelBuffer<short> image;
  EXPECT_THROW(image.get(0, 0), mvAssertionError);
}

// --- windows ---

TEST(PelBuffer, WindowRestrictsAndKeepsTheFrame) {
  mvPelBuffer<unsigned char> image(5, 4);
  fillCounting(image);  // root pel (x, y) holds 10 y + x + 1
  EXPECT_TRUE(image.window(1, 2, 3, 2));
  EXPECT_EQ(image.width(), 3);
  EXPECT_EQ(image.height(), 2);
  EXPECT_EQ(image.offset(), mvPair<long>(1, 2));
  EXPECT_EQ(image.pointToRow(0)[0], 22);  // root pel (1, 2)
  EXPECT_EQ(image.get(1, 2), 22);         // same pel in the image's own frame
  EXPECT_EQ(image.get(3, 3), 34);
  EXPECT_THROW(image.get(4, 3), mvAssertionError);
  EXPECT_EQ(image.rowUpdate(), 5);
}

TEST(PelBuffer, WindowOutsideTheRootImageChangesNothing) {
  mvPelBuffer<unsigned char> image(5, 4);
  EXPECT_FALSE(image.window(3, 0, 3, 1));
  EXPECT_FALSE(image.window(-1, 0, 1, 1));
  EXPECT_FALSE(image.window(0, 0, 1, -1));
  EXPECT_FALSE(image.window(mvPelRect(0, 2, 5, 3)));
  EXPECT_EQ(image.size(), mvPair<long>(5, 4));
  EXPECT_EQ(image.offset(), mvPair<long>(0, 0));
  EXPECT_TRUE(image.window(mvPelRect(0, 0, 5, 4)));
  EXPECT_FALSE(mvPelBuffer<unsigned char>().window(0, 0, 0, 0));
}

TEST(PelBuffer, WindowIsPlacedInTheRootImageNotTheCurrentWindow) {
  mvPelBuffer<unsigned char> image(5, 4);
  fillCounting(image);
  image.window(2, 2, 2, 2);
  EXPECT_TRUE(image.window(0, 1, 2, 2));
  EXPECT_EQ(image.offset(), mvPair<long>(0, 1));
  EXPECT_EQ(image.pointToRow(0)[0], 11);
}

TEST(PelBuffer, SetEntireWidensBackToTheRootImage) {
  mvPelBuffer<unsigned char> image(5, 4);
  image.offset(mvPair<long>(100, 100));
  image.window(1, 1, 2, 2);
  EXPECT_EQ(image.offset(), mvPair<long>(101, 101));
  image.setEntire();
  EXPECT_EQ(image.size(), mvPair<long>(5, 4));
  EXPECT_EQ(image.offset(), mvPair<long>(100, 100));
}

TEST(PelBuffer, SetUnboundDropsTheImage) {
  mvPelBuffer<unsigned char> image(5, 4);
  image.setUnbound();
  EXPECT_FALSE(image.isBound());
  EXPECT_EQ(image.size(), mvPair<long>(0, 0));
  EXPECT_THROW(image.get(0, 0), mvAssertionError);
}

// --- sharing ---

TEST(PelBuffer, CopiesShareThePels) {
  mvPelBuffer<short> image(3, 3);
  mvPelBuffer<short> copy(image);
  mvPelBuffer<short> assigned;
  assigned = image;
  copy.put(1, 1, -5);
  EXPECT_EQ(image.get(1, 1), -5);
  EXPECT_EQ(assigned.get(1, 1), -5);
  const mvPelBuffer_const<short>& view = image;
  EXPECT_EQ(view.get(1, 1), -5);
}

TEST(PelBuffer, AWindowedCopyLeavesTheOriginalWhole) {
  mvPelBuffer<unsigned char> image(4, 4);
  mvPelBuffer<unsigned char> part(image);
  part.window(2, 2, 2, 2);
  part.put(3, 3, 8);
  EXPECT_EQ(image.size(), mvPair<long>(4, 4));
  EXPECT_EQ(image.get(3, 3), 8);
}

TEST(PelBuffer, ClientFromImageXformIsKept) {
  mvPelBuffer<unsigned char> image(2, 2);
  const mvXform<2> scale(mvMatrix<2>(0.5, 0.0, 0.0, 0.5), mvVector<2>(1.0, 1.0));
  image.clientFromImageXform(scale);
  EXPECT_EQ(image.clientFromImageXform(), scale);
}

// --- pel functions ---

TEST(PelFunctions, SetAndClearCoverTheWindowOnly) {
  mvPelBuffer<unsigned char> image(4, 4);
  mvPelBuffer<unsigned char> part(image);
  part.window(1, 1, 2, 2);
  mfPelSet<unsigned char>(part, 3);
  EXPECT_EQ(image.get(1, 1), 3);
  EXPECT_EQ(image.get(2, 2), 3);
  EXPECT_EQ(image.get(0, 0), 0);
  EXPECT_EQ(image.get(3, 3), 0);
  mfPelClear(part);
  EXPECT_EQ(image.get(1, 1), 0);
}

TEST(PelFunctions, CopyIntoUnboundAllocatesAnIndependentImage) {
  mvPelBuffer<short> source(3, 2);
  fillCounting(source);
  source.offset(mvPair<long>(4, 5));
  mvPelBuffer<short> copy;
  mfPelCopy(source, copy);
  EXPECT_EQ(copy.size(), source.size());
  EXPECT_EQ(copy.offset(), source.offset());
  EXPECT_EQ(copy.get(6, 6), 13);
  copy.put(4, 5, 0);
  EXPECT_EQ(source.get(4, 5), 1);
}

TEST(PelFunctions, CopyBetweenDifferentSizesIsAnAssertion) {
  const mvPelBuffer<short> source(3, 2);
  mvPelBuffer<short> destination(2, 3);
  EXPECT_THROW(mfPelCopy(source, destination), mvAssertionError);
}

TEST(PelFunctions, MapLooksEveryPelUp) {
  mvPelBuffer<unsigned char> source(2, 2);
  source.put(0, 0, 0);
  source.put(1, 0, 1);
  source.put(0, 1, 2);
  source.put(1, 1, 255);
  std::vector<short> table(256, 0);
  table[1] = -1;
  table[2] = 200;
  table[255] = 7;
  const mvPelBuffer<short> mapped = mfPelMap(source, table);
  EXPECT_EQ(mapped.get(0, 0), 0);
  EXPECT_EQ(mapped.get(1, 0), -1);
  EXPECT_EQ(mapped.get(0, 1), 200);
  EXPECT_EQ(mapped.get(1, 1), 7);
  const std::vector<short> tooShort(10, 0);
  EXPECT_THROW(mfPelMap(source, tooShort), mvAssertionError);
}

TEST(PelFunctions, AddAndSubWrapAsShortsDo) {
  mvPelBuffer<short> a(2, 1);
  mvPelBuffer<short> b(2, 1);
  a.put(0, 0, 32767);
  b.put(0, 0, 1);
  a.put(1, 0, -32768);
  b.put(1, 0, 3);
  mvPelBuffer<short> sum;
  mvPelBuffer<short> difference;
  mfPelAdd(a, b, sum);
  mfPelSub(a, b, difference);
  EXPECT_EQ(sum.get(0, 0), -32768);
  EXPECT_EQ(sum.get(1, 0), -32765);
  EXPECT_EQ(difference.get(0, 0), 32766);
  EXPECT_EQ(difference.get(1, 0), 32765);
}

TEST(PelFunctions, AddIntoAnExistingImageAndSizeMismatch) {
  mvPelBuffer<short> a(2, 2);
  mfPelSet<short>(a, 5);
  mvPelBuffer<short> target(2, 2);
  mfPelAdd(a, a, target);
  EXPECT_EQ(target.get(1, 1), 10);
  mfPelSub(a, a, target);
  EXPECT_EQ(target.get(1, 1), 0);
  const mvPelBuffer<short> other(3, 2);
  EXPECT_THROW(mfPelAdd(a, other, target), mvAssertionError);
}

// --- archive ---

TEST(PelArchive, LayoutIsSizeOffsetXformThenPelsRowByRow) {
  mvPelBuffer<unsigned char> image(2, 2, 4);
  image.offset(mvPair<long>(3, 4));
  image.put(3, 4, 7);
  image.put(4, 4, 9);
  image.put(3, 5, 1);
  mvMemoryArchive out;
  out || image;
  const Bytes identity =
      cat({le64(kOne), le64(kZero), le64(kZero), le64(kOne), le64(kZero), le64(kZero)});
  EXPECT_EQ(out.bytes(), cat({le32(2), le32(2), {0}, le32(3), le32(4), identity, {7, 9, 1, 0}}));
}

TEST(PelArchive, WidePelsTakeFourBytes) {
  mvPelBuffer<short> image(1, 1);
  image.put(0, 0, -2);
  mvMemoryArchive out;
  out || image;
  const Bytes& bytes = out.bytes();
  EXPECT_EQ(Bytes(bytes.end() - 4, bytes.end()), le32(0xFFFFFFFE));
  EXPECT_EQ(bytes.size(), 4 + 4 + 9 + 48 + 4u);
}

TEST(PelArchive, UnboundIsZeroWidthAndHeightOnly) {
  mvPelBuffer<unsigned char> image;
  mvMemoryArchive out;
  out || image;
  EXPECT_EQ(out.bytes(), cat({le32(0), le32(0)}));
  mvPelBuffer<unsigned char> loaded(3, 3);
  mvMemoryArchive in(out.bytes());
  in || loaded;
  EXPECT_FALSE(loaded.isBound());
}

TEST(PelArchive, RoundTripKeepsPelsOffsetAndXform) {
  mvPelBuffer<long> image(3, 2, 8);
  fillCounting(image);
  image.put(2, 1, -100000);
  image.offset(mvPair<long>(-5, 6));
  image.clientFromImageXform(mvXform<2>(mvMatrix<2>(2.0, 0.0, 0.0, 2.0), mvVector<2>(1.0, 0.0)));
  const mvPelBuffer<long> loaded = roundTrip(image);
  EXPECT_EQ(loaded.size(), image.size());
  EXPECT_EQ(loaded.offset(), image.offset());
  EXPECT_EQ(loaded.clientFromImageXform(), image.clientFromImageXform());
  EXPECT_EQ(loaded.get(-5, 6), 1);
  EXPECT_EQ(loaded.get(-3, 7), -100000);
}

TEST(PelArchive, AWindowStoresOnlyItsPels) {
  mvPelBuffer<unsigned char> image(4, 4);
  fillCounting(image);
  image.window(1, 1, 2, 2);
  mvMemoryArchive out;
  out || image;
  mvPelBuffer<unsigned char> loaded;
  mvMemoryArchive in(out.bytes());
  in || loaded;
  EXPECT_EQ(loaded.size(), mvPair<long>(2, 2));
  EXPECT_EQ(loaded.offset(), mvPair<long>(1, 1));
  EXPECT_EQ(loaded.get(1, 1), 12);
  EXPECT_EQ(loaded.get(2, 2), 23);
}

TEST(PelArchive, LoadingAllocatesAFreshImage) {
  mvPelBuffer<unsigned char> stored(1, 1);
  stored.put(0, 0, 42);
  mvMemoryArchive out;
  out || stored;

  mvPelBuffer<unsigned char> target(3, 3);
  const mvPelBuffer<unsigned char> sharer(target);
  mvMemoryArchive in(out.bytes());
  in || target;
  EXPECT_EQ(target.get(0, 0), 42);
  EXPECT_EQ(sharer.size(), mvPair<long>(3, 3));
  EXPECT_EQ(sharer.get(0, 0), 0);  // the old pels were not overwritten
}

TEST(PelArchive, TruncatedPelsAreAnArchiveError) {
  mvPelBuffer<short> image(3, 3);
  mvMemoryArchive out;
  out || image;
  const Bytes& all = out.bytes();
  for (std::size_t n = 0; n < all.size(); ++n) {
    mvPelBuffer<short> loaded;
    mvMemoryArchive in(Bytes(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(n)));
    EXPECT_THROW(in || loaded, mvArchive::Errors) << n;
  }
}

TEST(PelArchive, HugeOrNegativeSizesAreBadData) {
  const Bytes rest = cat({{0},
                          le32(0),
                          le32(0),
                          le64(kOne),
                          le64(kZero),
                          le64(kZero),
                          le64(kOne),
                          le64(kZero),
                          le64(kZero),
                          Bytes(16, 0)});
  mvPelBuffer<unsigned char> loaded;
  mvMemoryArchive huge(cat({le32(0x7FFFFFFF), le32(0x7FFFFFFF), rest}));
  EXPECT_THROW(huge || loaded, mvArchive::BadData);
  mvMemoryArchive negative(cat({le32(0xFFFFFFFF), le32(2), rest}));
  EXPECT_THROW(negative || loaded, mvArchive::BadData);
}
