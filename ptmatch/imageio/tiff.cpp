// TIFF through libtiff: one grey sample of 8 or 16 bits, in strips, any compression the
// system's libtiff decodes.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vector>

#include "imageio/internal.h"

#ifdef PTMATCH_HAVE_TIFF
#include <tiffio.h>
#endif

namespace ptmatch::detail::imageio {

#ifdef PTMATCH_HAVE_TIFF
namespace {

/// The file's bytes as libtiff reads them, and the first error it reported.
struct Memory {
  const std::string* bytes;
  toff_t pos;
  std::string error;
};

tmsize_t readProc(thandle_t h, void* out, tmsize_t n) {
  auto* m = static_cast<Memory*>(h);
  const toff_t size = m->bytes->size();
  if (n < 0 || m->pos >= size) return 0;
  const toff_t count = std::min<toff_t>(static_cast<toff_t>(n), size - m->pos);
  std::memcpy(out, m->bytes->data() + m->pos, count);
  m->pos += count;
  return static_cast<tmsize_t>(count);
}

tmsize_t writeProc(thandle_t, void*, tmsize_t) { return 0; }

toff_t seekProc(thandle_t h, toff_t offset, int whence) {
  auto* m = static_cast<Memory*>(h);
  toff_t base = 0;
  if (whence == SEEK_CUR) base = m->pos;
  if (whence == SEEK_END) base = m->bytes->size();
  const toff_t to = base + offset;
  if (to < base && offset < (toff_t(1) << 62)) return static_cast<toff_t>(-1);
  m->pos = to;
  return to;
}

int closeProc(thandle_t) { return 0; }
toff_t sizeProc(thandle_t h) { return static_cast<Memory*>(h)->bytes->size(); }
int mapProc(thandle_t, void**, toff_t*) { return 0; }
void unmapProc(thandle_t, void*, toff_t) {}

int recordError(TIFF*, void* user, const char*, const char* format, va_list args) {
  auto* m = static_cast<Memory*>(user);
  if (m->error.empty()) {
    char text[256];
    std::vsnprintf(text, sizeof text, format, args);
    m->error = text;
  }
  return 1;
}

int ignoreWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

/// Closes the TIFF on every way out.
struct TiffCloser {
  TIFF* tiff;
  ~TiffCloser() {
    if (tiff != nullptr) TIFFClose(tiff);
  }
};

template <typename T>
mvPelBuffer<T> readStrips(TIFF* tiff, Memory& memory, long width, long height, bool invert,
                          const std::string& name) {
  if (TIFFScanlineSize(tiff) != static_cast<tmsize_t>(width * sizeof(T))) {
    refuse(name, "unsupported TIFF layout");
  }
  mvPelBuffer<T> image(width, height);
  for (long y = 0; y < height; ++y) {
    T* row = image.pointToRow(y);
    if (TIFFReadScanline(tiff, row, static_cast<std::uint32_t>(y), 0) < 0) {
      refuse(name, "not a readable TIFF (" +
                       (memory.error.empty() ? std::string("a row cannot be read") : memory.error) +
                       ")");
    }
    if (invert) {
      for (long x = 0; x < width; ++x) row[x] = static_cast<T>(~row[x]);
    }
  }
  return image;
}

}  // namespace

mvGreyImage decodeTiff(const std::string& bytes, const std::string& name) {
  Memory memory{&bytes, 0, std::string()};
  TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options, recordError, &memory);
  TIFFOpenOptionsSetWarningHandlerExtR(options, ignoreWarning, nullptr);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options, tmsize_t(1) << 29);
  TiffCloser closer{TIFFClientOpenExt(name.c_str(), "rm", &memory, readProc, writeProc, seekProc,
                                      closeProc, sizeProc, mapProc, unmapProc, options)};
  TIFFOpenOptionsFree(options);
  TIFF* tiff = closer.tiff;
  if (tiff == nullptr) {
    refuse(name, "not a readable TIFF (" +
                     (memory.error.empty() ? std::string("bad header") : memory.error) + ")");
  }
  std::uint32_t width = 0, height = 0;
  std::uint16_t bits = 1, samples = 1, photometric = PHOTOMETRIC_MINISBLACK,
                planar = PLANARCONFIG_CONTIG;
  TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
  if (!TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric)) {
    photometric = PHOTOMETRIC_MINISBLACK;
  }
  if (samples != 1 || (bits != 8 && bits != 16) ||
      (photometric != PHOTOMETRIC_MINISBLACK && photometric != PHOTOMETRIC_MINISWHITE)) {
    refuse(name, "unsupported TIFF layout (" + std::to_string(samples) + " samples of " +
                     std::to_string(bits) + " bits; only 8-bit or 16-bit grey is read)");
  }
  if (TIFFIsTiled(tiff)) refuse(name, "tiled TIFF images are not read");
  checkSize(name, static_cast<long>(width), static_cast<long>(height), bits, bytes.size(), true);
  const bool invert = photometric == PHOTOMETRIC_MINISWHITE;
  if (bits == 16) {
    return mvGreyImage(readStrips<unsigned short>(tiff, memory, width, height, invert, name));
  }
  return mvGreyImage(readStrips<unsigned char>(tiff, memory, width, height, invert, name));
}

#else

mvGreyImage decodeTiff(const std::string&, const std::string& name) {
  refuse(name, "TIFF images are not supported by this build (it lacks libtiff)");
}

#endif

}  // namespace ptmatch::detail::imageio
