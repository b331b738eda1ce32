#include "image_io.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>

#include "errors.h"
#include "pointfile.h"

#ifdef PTMATCH_HAVE_PNG
#include <png.h>
#endif

namespace ptmatch::cli {

namespace {

// Images larger than this are refused rather than allocated.
constexpr long kLargestSide = 1L << 15;

[[noreturn]] void badImage(const std::string& name, const std::string& why) {
  throw InputError(name + ": " + why);
}

// Reads the whitespace-separated header fields of a PGM, skipping # comments.
class PgmHeader {
 public:
  PgmHeader(const std::string& bytes, const std::string& name) : bytes_(bytes), name_(name) {}

  long number(const char* what) {
    skipBlanksAndComments();
    long v = 0;
    bool any = false;
    while (pos_ < bytes_.size() && std::isdigit(static_cast<unsigned char>(bytes_[pos_]))) {
      v = v * 10 + (bytes_[pos_] - '0');
      if (v > kLargestSide * kLargestSide)
        badImage(name_, std::string("PGM ") + what + " too large");
      ++pos_;
      any = true;
    }
    if (!any) badImage(name_, std::string("PGM header: expected the ") + what);
    return v;
  }

  /// Position after the single whitespace byte that ends a binary header.
  std::size_t rasterStart() const { return pos_ + 1; }
  std::size_t& pos() { return pos_; }

  void skipBlanksAndComments() {
    while (pos_ < bytes_.size()) {
      if (std::isspace(static_cast<unsigned char>(bytes_[pos_]))) {
        ++pos_;
      } else if (bytes_[pos_] == '#') {
        while (pos_ < bytes_.size() && bytes_[pos_] != '\n') ++pos_;
      } else {
        break;
      }
    }
  }

 private:
  const std::string& bytes_;
  const std::string& name_;
  std::size_t pos_ = 2;
};

#ifdef PTMATCH_HAVE_PNG
struct PngReadState {
  const std::string* bytes;
  std::size_t pos;
};

void pngReadBytes(png_structp png, png_bytep out, png_size_t count) {
  auto* state = static_cast<PngReadState*>(png_get_io_ptr(png));
  if (state->pos + count > state->bytes->size()) png_error(png, "the file is truncated");
  std::memcpy(out, state->bytes->data() + state->pos, count);
  state->pos += count;
}

[[noreturn]] void pngFail(png_structp png, png_const_charp message) {
  *static_cast<std::string*>(png_get_error_ptr(png)) = message;
  png_longjmp(png, 1);
}

void pngWarn(png_structp, png_const_charp) {}

// libpng reports errors by longjmp; nothing with a destructor lives between setjmp and
// the calls that may jump, so the jump is safe.
mvPelBuffer<unsigned char> parsePng(const std::string& bytes, const std::string& name) {
  std::string error;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &error, pngFail, pngWarn);
  if (png == nullptr) badImage(name, "cannot start the PNG reader");
  png_infop info = png_create_info_struct(png);
  PngReadState state{&bytes, 0};
  std::vector<png_bytep> rows;
  mvPelBuffer<unsigned char> image;
  if (info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, info != nullptr ? &info : nullptr, nullptr);
    badImage(name,
             "not a readable PNG (" + (error.empty() ? std::string("out of memory") : error) + ")");
  }
  png_set_read_fn(png, &state, pngReadBytes);
  png_read_info(png, info);
  const png_uint_32 width = png_get_image_width(png, info);
  const png_uint_32 height = png_get_image_height(png, info);
  // Everything becomes 8-bit grey: palettes expanded, colour reduced, alpha dropped.
  png_set_expand(png);
  png_set_strip_16(png);
  png_set_strip_alpha(png);
  png_set_rgb_to_gray_fixed(png, 1, -1, -1);
  png_read_update_info(png, info);
  if (width == 0 || height == 0 || width > kLargestSide || height > kLargestSide ||
      png_get_rowbytes(png, info) != width) {
    error = "unsupported size or layout";
    png_longjmp(png, 1);
  }
  image = mvPelBuffer<unsigned char>(static_cast<long>(width), static_cast<long>(height));
  rows.resize(height);
  for (png_uint_32 y = 0; y < height; ++y) rows[y] = image.pointToRow(static_cast<long>(y));
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return image;
}
#endif

}  // namespace

bool pngSupported() {
#ifdef PTMATCH_HAVE_PNG
  return true;
#else
  return false;
#endif
}

mvPelBuffer<unsigned char> parsePgm(const std::string& bytes, const std::string& name) {
  if (bytes.size() < 2 || bytes[0] != 'P' || (bytes[1] != '5' && bytes[1] != '2')) {
    badImage(name, "not a PGM image (expected P5 or P2)");
  }
  const bool plain = bytes[1] == '2';
  PgmHeader header(bytes, name);
  const long width = header.number("width");
  const long height = header.number("height");
  const long maxval = header.number("maximum value");
  if (width < 1 || height < 1 || width > kLargestSide || height > kLargestSide) {
    badImage(name,
             "unsupported PGM size " + std::to_string(width) + " x " + std::to_string(height));
  }
  if (maxval < 1 || maxval > 255) {
    badImage(name, "only 8-bit PGM images are read (maximum value " + std::to_string(maxval) + ")");
  }
  mvPelBuffer<unsigned char> image(width, height);
  if (plain) {
    for (long y = 0; y < height; ++y) {
      for (long x = 0; x < width; ++x) {
        const long v = header.number("pel value");
        if (v > maxval) badImage(name, "a pel value exceeds the maximum value");
        image.pointToRow(y)[x] = static_cast<unsigned char>(v);
      }
    }
    return image;
  }
  const std::size_t start = header.rasterStart();
  const std::size_t need = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  if (start > bytes.size() || bytes.size() - start < need) {
    badImage(name, "the PGM raster is truncated");
  }
  for (long y = 0; y < height; ++y) {
    std::memcpy(image.pointToRow(y), bytes.data() + start + static_cast<std::size_t>(y * width),
                static_cast<std::size_t>(width));
  }
  return image;
}

mvPelBuffer<unsigned char> readGreyImage(const std::string& path) {
  const std::string bytes = readWholeFile(path);
  if (bytes.size() >= 2 && bytes[0] == 'P' && (bytes[1] == '5' || bytes[1] == '2')) {
    return parsePgm(bytes, path);
  }
  if (bytes.size() >= 8 && std::memcmp(bytes.data(), "\x89PNG\r\n\x1a\n", 8) == 0) {
#ifdef PTMATCH_HAVE_PNG
    return parsePng(bytes, path);
#else
    badImage(path, "PNG images are not supported by this build; convert it to PGM");
#endif
  }
  badImage(path, "not a PGM (P5/P2)" + std::string(pngSupported() ? " or PNG" : "") + " image");
}

}  // namespace ptmatch::cli
