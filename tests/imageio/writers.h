// Writers of small PNG, TIFF and JPEG files for the reader's tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#ifdef PTMATCH_HAVE_PNG
#include <png.h>
#include <zlib.h>
#endif
#ifdef PTMATCH_HAVE_TIFF
#include <tiffio.h>
#endif
#ifdef PTMATCH_HAVE_JPEG
#include <jpeglib.h>
#endif

namespace image_writers {

/// A temporary file's path, unique per test and name.
inline std::string tempPath(const std::string& name) {
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  return ::testing::TempDir() + "ptmatch-imageio-" + (info ? info->name() : "x") + "-" + name;
}

inline std::string fileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

inline std::string writeFile(const std::string& name, const std::string& bytes) {
  const std::string path = tempPath(name);
  std::ofstream(path, std::ios::binary) << bytes;
  return path;
}

#ifdef PTMATCH_HAVE_PNG
/// A PNG of the given colour type and depth; samples row by row, channel by channel,
/// 16-bit samples as host numbers.
inline std::string pngFile(long w, long h, int colourType, int depth,
                           const std::vector<unsigned>& samples) {
  const std::string path = tempPath("w.png");
  std::FILE* f = std::fopen(path.c_str(), "wb");
  png_structp p = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(p);
  png_init_io(p, f);
  png_set_IHDR(p, info, w, h, depth, colourType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(p, info);
  const long channels = static_cast<long>(samples.size()) / (w * h);
  std::vector<unsigned char> row(static_cast<std::size_t>(w * channels * (depth / 8)));
  for (long y = 0; y < h; ++y) {
    for (long i = 0; i < w * channels; ++i) {
      const unsigned v = samples[static_cast<std::size_t>(y * w * channels + i)];
      if (depth == 16) {
        row[2 * i] = static_cast<unsigned char>(v >> 8);
        row[2 * i + 1] = static_cast<unsigned char>(v & 0xff);
      } else {
        row[i] = static_cast<unsigned char>(v);
      }
    }
    png_write_row(p, row.data());
  }
  png_write_end(p, nullptr);
  png_destroy_write_struct(&p, &info);
  std::fclose(f);
  return fileBytes(path);
}
#endif

#ifdef PTMATCH_HAVE_TIFF
/// A grey TIFF of 8 or 16 bits with the given compression and photometric.
inline std::string tiffFile(long w, long h, int bits, int compression, int photometric,
                            const std::vector<unsigned>& pels) {
  const std::string path = tempPath("w.tif");
  TIFF* t = TIFFOpen(path.c_str(), "w");
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(w));
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(h));
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
  TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 2);
  std::vector<unsigned char> row8(static_cast<std::size_t>(w));
  std::vector<std::uint16_t> row16(static_cast<std::size_t>(w));
  for (long y = 0; y < h; ++y) {
    for (long x = 0; x < w; ++x) {
      row8[x] = static_cast<unsigned char>(pels[y * w + x]);
      row16[x] = static_cast<std::uint16_t>(pels[y * w + x]);
    }
    TIFFWriteScanline(t, bits == 16 ? static_cast<void*>(row16.data()) : row8.data(),
                      static_cast<std::uint32_t>(y), 0);
  }
  TIFFClose(t);
  return fileBytes(path);
}
#endif

#ifdef PTMATCH_HAVE_JPEG
/// A JPEG of quality 100, grey (1 component) or colour (3).
inline std::string jpegFile(long w, long h, int components, const std::vector<unsigned>& samples) {
  jpeg_compress_struct c;
  jpeg_error_mgr e;
  c.err = jpeg_std_error(&e);
  jpeg_create_compress(&c);
  unsigned char* out = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&c, &out, &size);
  c.image_width = static_cast<JDIMENSION>(w);
  c.image_height = static_cast<JDIMENSION>(h);
  c.input_components = components;
  c.in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, 100, TRUE);
  jpeg_start_compress(&c, TRUE);
  std::vector<unsigned char> row(static_cast<std::size_t>(w * components));
  for (long y = 0; y < h; ++y) {
    for (long i = 0; i < w * components; ++i)
      row[i] = static_cast<unsigned char>(samples[y * w * components + i]);
    JSAMPROW r = row.data();
    jpeg_write_scanlines(&c, &r, 1);
  }
  jpeg_finish_compress(&c);
  jpeg_destroy_compress(&c);
  std::string bytes(reinterpret_cast<const char*>(out), size);
  std::free(out);
  return bytes;
}
#endif

}  // namespace image_writers
