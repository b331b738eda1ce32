// PNG through libpng: 8 and 16 bits, palettes expanded, colour converted to grey, alpha
// dropped; and 8-bit grey PNG files written for pictures.
#include <cstring>
#include <vector>

#include "imageio/internal.h"

#ifdef PTMATCH_HAVE_PNG
#include <png.h>
#endif

namespace ptmatch::detail::imageio {

#ifdef PTMATCH_HAVE_PNG
namespace {

struct ReadState {
  const std::string* bytes;
  std::size_t pos;
};

void readBytes(png_structp png, png_bytep out, png_size_t count) {
  auto* state = static_cast<ReadState*>(png_get_io_ptr(png));
  if (count > state->bytes->size() - state->pos) png_error(png, "the file is truncated");
  std::memcpy(out, state->bytes->data() + state->pos, count);
  state->pos += count;
}

[[noreturn]] void fail(png_structp png, png_const_charp message) {
  *static_cast<std::string*>(png_get_error_ptr(png)) = message;
  png_longjmp(png, 1);
}

void warn(png_structp, png_const_charp) {}

/// Converts the PNG to grey of its own depth (8 or 16) and returns that depth.
int requestGrey(png_structp png, png_infop info) {
  const int depth = png_get_bit_depth(png, info);
  png_set_expand(png);
  png_set_strip_alpha(png);
  const int colour = png_get_color_type(png, info);
  if ((colour & PNG_COLOR_MASK_COLOR) != 0) png_set_rgb_to_gray_fixed(png, 1, -1, -1);
  png_set_interlace_handling(png);
  if (depth == 16) {
    png_set_swap(png);  // to the host's order on little-endian machines
    return 16;
  }
  return 8;
}

}  // namespace

// libpng reports errors by longjmp back to the setjmp below, in this same frame: the
// objects declared before it are still alive there and are released as refuse() throws.
mvGreyImage decodePng(const std::string& bytes, const std::string& name) {
  std::string error;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &error, fail, warn);
  if (png == nullptr) refuse(name, "cannot start the PNG reader");
  png_infop info = png_create_info_struct(png);
  ReadState state{&bytes, 0};
  std::vector<png_bytep> rows;
  mvPelBuffer<unsigned char> image8;
  mvPelBuffer<unsigned short> image16;
  if (info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, info != nullptr ? &info : nullptr, nullptr);
    refuse(name,
           "not a readable PNG (" + (error.empty() ? std::string("out of memory") : error) + ")");
  }
  png_set_user_limits(png, mvImageFileDefs::kLargestSide, mvImageFileDefs::kLargestSide);
  png_set_read_fn(png, &state, readBytes);
  png_read_info(png, info);
  const long width = static_cast<long>(png_get_image_width(png, info));
  const long height = static_cast<long>(png_get_image_height(png, info));
  const int bits = requestGrey(png, info);
  png_read_update_info(png, info);
  error = sizeProblem(width, height, bits, bytes.size(), true);
  if (!error.empty()) png_longjmp(png, 1);
  if (png_get_rowbytes(png, info) != static_cast<png_size_t>(width * (bits / 8))) {
    error = "unsupported layout";
    png_longjmp(png, 1);
  }
  rows.resize(static_cast<std::size_t>(height));
  if (bits == 16) {
    image16 = mvPelBuffer<unsigned short>(width, height);
    for (long y = 0; y < height; ++y) rows[y] = reinterpret_cast<png_bytep>(image16.pointToRow(y));
  } else {
    image8 = mvPelBuffer<unsigned char>(width, height);
    for (long y = 0; y < height; ++y) rows[y] = image8.pointToRow(y);
  }
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return bits == 16 ? mvGreyImage(image16) : mvGreyImage(image8);
}

namespace {
void appendBytes(png_structp png, png_bytep data, png_size_t count) {
  static_cast<std::string*>(png_get_io_ptr(png))
      ->append(reinterpret_cast<const char*>(data), count);
}
void flushNothing(png_structp) {}
}  // namespace

#else

mvGreyImage decodePng(const std::string&, const std::string& name) {
  refuse(name, "PNG images are not supported by this build (it lacks libpng)");
}

#endif

}  // namespace ptmatch::detail::imageio

std::string mfEncodePng(const mvPelBuffer_const<unsigned char>& image) {
#ifdef PTMATCH_HAVE_PNG
  using namespace ptmatch::detail::imageio;
  std::string out;
  std::string error;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, fail, warn);
  if (png == nullptr) refuse("PNG", "cannot start the PNG writer");
  png_infop info = png_create_info_struct(png);
  std::vector<png_bytep> rows;
  if (info == nullptr || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, info != nullptr ? &info : nullptr);
    refuse("PNG", "cannot write the image (" + error + ")");
  }
  png_set_write_fn(png, &out, appendBytes, flushNothing);
  png_set_IHDR(png, info, static_cast<png_uint_32>(image.width()),
               static_cast<png_uint_32>(image.height()), 8, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  rows.resize(static_cast<std::size_t>(image.height()));
  for (long y = 0; y < image.height(); ++y) {
    rows[y] = const_cast<png_bytep>(image.pointToRow(y));
  }
  png_set_rows(png, info, rows.data());
  png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  png_destroy_write_struct(&png, &info);
  return out;
#else
  (void)image;
  ptmatch::detail::imageio::refuse("PNG", "this build cannot write PNG images (it lacks libpng)");
#endif
}
