// Reading grey images: every format and depth, colour to grey, and refused files.
#include <gtest/gtest.h>

#include "common/expect_throw.h"
#include "imageio/writers.h"
#include "ptmatch/imageio.h"

using namespace image_writers;

namespace {

// A 3 x 2 ramp of grey values scaled by k.
std::vector<unsigned> ramp(unsigned k) { return {0 * k, 1 * k, 2 * k, 3 * k, 4 * k, 5 * k}; }

template <typename T>
void expectRamp(const mvPelBuffer<T>& image, unsigned k) {
  ASSERT_EQ(image.width(), 3);
  ASSERT_EQ(image.height(), 2);
  for (long y = 0; y < 2; ++y) {
    for (long x = 0; x < 3; ++x) EXPECT_EQ(image.get(x, y), (y * 3 + x) * k) << x << "," << y;
  }
}

// The message of the error that decoding the bytes throws, or "" when none.
std::string problem(const std::string& bytes) {
  return expect_throw::whatOf<mvImageFileDefs::BadFile>([&] { mfDecodeImage(bytes, "f.img"); });
}

bool supports(const std::string& format) {
  for (const auto& f : mfImageFormats()) {
    if (f == format) return true;
  }
  return false;
}

}  // namespace

TEST(PgmFiles, EightAndSixteenBitsBinaryAndPlain) {
  const auto b8 = mfDecodeImage(std::string("P5\n3 2\n255\n\0\x01\x02\x03\x04\x05", 17), "a");
  EXPECT_EQ(b8.bits(), 8);
  expectRamp(b8.pels8(), 1);
  const auto b16 = mfDecodeImage(
      std::string("P5 3 2 65535\n\x00\x00\x01\x00\x02\x00\x03\x00\x04\x00\x05\x00", 25), "a");
  EXPECT_EQ(b16.bits(), 16);
  expectRamp(b16.pels16(), 256);
  const auto p16 = mfDecodeImage("P2 # plain\n3 2\n1000\n0 100 200\n300 400 500\n", "a");
  EXPECT_EQ(p16.bits(), 16);
  expectRamp(p16.pels16(), 100);
  expectRamp(mfDecodeImage("P2 3 2 9 0 1 2 3 4 5", "a").pels8(), 1);
}

TEST(PgmFiles, AWrittenImageReadsBack) {
  mvPelBuffer<unsigned short> image(3, 2);
  for (long i = 0; i < 6; ++i) image.put(i % 3, i / 3, static_cast<unsigned short>(i * 1000));
  const auto back = mfReadImage(writeFile("r.pgm", mfEncodePgm(mvGreyImage(image))));
  expectRamp(back.pels16(), 1000);
}

TEST(PgmFiles, BadFilesNameTheFileAndTheProblem) {
  EXPECT_EQ(problem("P5\n2 2\n255\nab"), "f.img: the PGM raster is truncated");
  EXPECT_EQ(problem("P5\n2 2\n70000\n"), "f.img: unsupported PGM maximum value 70000 (1 to 65535)");
  EXPECT_EQ(problem("P5\n0 2\n255\n"), "f.img: unsupported PGM size 0 x 2");
  EXPECT_EQ(problem("P5\n40000 2\n255\n"), "f.img: unsupported PGM size 40000 x 2");
  EXPECT_EQ(problem("P5\n2\n"), "f.img: PGM header: expected the height");
  EXPECT_EQ(problem("P2\n2 1\n9\n1 10\n"), "f.img: a pel value exceeds the maximum value");
  // A plain header that claims far more pels than the file holds is refused before any
  // allocation.
  EXPECT_EQ(problem("P2 12000 12000 255 1 2 3"), "f.img: the PGM raster is truncated");
  EXPECT_EQ(problem("P5 12000 12000 255 1"), "f.img: the PGM raster is truncated");
  EXPECT_EQ(problem("P5 99999999999999999999 2 255"), "f.img: PGM width too large");
}

TEST(ImageFiles, UnknownMissingAndEmptyFilesAreNamed) {
  EXPECT_EQ(
      problem("GIF89a").rfind("f.img: not an image file of a known kind (this build reads pgm", 0),
      0u);
  EXPECT_EQ(problem("").rfind("f.img: not an image file", 0), 0u);
  EXPECT_THROW_MESSAGE(mfReadImage("/nonexistent/x.png"), mvImageFileDefs::BadFile,
                       "/nonexistent/x.png: cannot open the file");
}

#ifdef PTMATCH_HAVE_PNG
TEST(PngFiles, GreyColourPaletteFreeDepths) {
  EXPECT_TRUE(supports("png"));
  expectRamp(mfDecodeImage(pngFile(3, 2, PNG_COLOR_TYPE_GRAY, 8, ramp(40)), "a").pels8(), 40);
  const auto g16 = mfDecodeImage(pngFile(3, 2, PNG_COLOR_TYPE_GRAY, 16, ramp(10000)), "a");
  EXPECT_EQ(g16.bits(), 16);
  expectRamp(g16.pels16(), 10000);
  // Equal channels stay as they are; alpha is dropped.
  std::vector<unsigned> rgba;
  for (unsigned v : ramp(50)) rgba.insert(rgba.end(), {v, v, v, 128});
  expectRamp(mfDecodeImage(pngFile(3, 2, PNG_COLOR_TYPE_RGBA, 8, rgba), "a").pels8(), 50);
  // Pure red, green and blue weigh as the eye sees them: green brightest, blue darkest.
  const auto rgb =
      mfDecodeImage(pngFile(3, 1, PNG_COLOR_TYPE_RGB, 8, {255, 0, 0, 0, 255, 0, 0, 0, 255}), "a")
          .pels8();
  EXPECT_GT(rgb.get(1, 0), rgb.get(0, 0));
  EXPECT_GT(rgb.get(0, 0), rgb.get(2, 0));
}

TEST(PngFiles, EncodedImagesDecodeToTheSamePels) {
  mvPelBuffer<unsigned char> image(3, 2);
  for (long i = 0; i < 6; ++i) image.put(i % 3, i / 3, static_cast<unsigned char>(i * 7));
  expectRamp(mfDecodeImage(mfEncodePng(image), "a").pels8(), 7);
}

TEST(PngFiles, TruncatedCorruptAndAbsurdFilesAreRefused) {
  const std::string good = pngFile(3, 2, PNG_COLOR_TYPE_GRAY, 8, ramp(40));
  EXPECT_EQ(problem(good.substr(0, good.size() - 20)).rfind("f.img: not a readable PNG (", 0), 0u);
  std::string corrupt = good;
  corrupt[good.size() / 2] ^= 0x55;
  EXPECT_EQ(problem(corrupt).rfind("f.img: not a readable PNG (", 0), 0u);
  // IHDR claiming 12000 x 12000 pels in a file of a hundred bytes (CRC fixed up).
  std::string absurd = good;
  const unsigned char side[4] = {0, 0, 0x2e, 0xe0};
  for (int i = 0; i < 4; ++i) absurd[16 + i] = absurd[20 + i] = static_cast<char>(side[i]);
  const unsigned long crc =
      crc32(0, reinterpret_cast<const unsigned char*>(absurd.data()) + 12, 17);
  for (int i = 0; i < 4; ++i) absurd[29 + i] = static_cast<char>((crc >> (24 - 8 * i)) & 0xff);
  EXPECT_EQ(problem(absurd),
            "f.img: not a readable PNG (the file is too small for an image of "
            "12000 x 12000 pels)");
}
#endif

#ifdef PTMATCH_HAVE_TIFF
TEST(TiffFiles, EightAndSixteenBitsUnderCommonCompressions) {
  EXPECT_TRUE(supports("tiff"));
  for (int compression :
       {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS}) {
    SCOPED_TRACE(compression);
    expectRamp(mfDecodeImage(tiffFile(3, 2, 8, compression, PHOTOMETRIC_MINISBLACK, ramp(30)), "a")
                   .pels8(),
               30);
    const auto t16 =
        mfDecodeImage(tiffFile(3, 2, 16, compression, PHOTOMETRIC_MINISBLACK, ramp(9000)), "a");
    EXPECT_EQ(t16.bits(), 16);
    expectRamp(t16.pels16(), 9000);
  }
  // White stored as 0 is turned round.
  std::vector<unsigned> inverted;
  for (unsigned v : ramp(30)) inverted.push_back(255 - v);
  expectRamp(
      mfDecodeImage(tiffFile(3, 2, 8, COMPRESSION_NONE, PHOTOMETRIC_MINISWHITE, inverted), "a")
          .pels8(),
      30);
}

TEST(TiffFiles, BrokenFilesAreRefused) {
  const std::string good = tiffFile(3, 2, 8, COMPRESSION_LZW, PHOTOMETRIC_MINISBLACK, ramp(30));
  EXPECT_EQ(problem(good.substr(0, 12)).rfind("f.img: not a readable TIFF", 0), 0u);
  EXPECT_EQ(problem(std::string("II*\0\xff\xff\xff\x7f", 8)).rfind("f.img: not a readable TIFF", 0),
            0u);
  EXPECT_EQ(problem(tiffFile(3, 2, 1, COMPRESSION_NONE, PHOTOMETRIC_MINISBLACK, ramp(0))),
            "f.img: unsupported TIFF layout (1 samples of 1 bits; only 8-bit or 16-bit grey is "
            "read)");
}
#endif

#ifdef PTMATCH_HAVE_JPEG
TEST(JpegFiles, GreyAndColourBecomeGrey) {
  EXPECT_TRUE(supports("jpeg"));
  std::vector<unsigned> flat(64, 120);
  const auto grey = mfDecodeImage(jpegFile(8, 8, 1, flat), "a");
  EXPECT_EQ(grey.bits(), 8);
  EXPECT_NEAR(grey.pels8().get(3, 3), 120, 1);
  std::vector<unsigned> colour;
  for (int i = 0; i < 64; ++i) colour.insert(colour.end(), {200, 200, 200});
  EXPECT_NEAR(mfDecodeImage(jpegFile(8, 8, 3, colour), "a").pels8().get(5, 2), 200, 2);
  const std::string good = jpegFile(8, 8, 1, flat);
  EXPECT_EQ(problem(good.substr(0, 40)).rfind("f.img: not a readable JPEG (", 0), 0u);
}
#endif
