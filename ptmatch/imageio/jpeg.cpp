// JPEG through libjpeg: decoded to 8-bit grey (colour converted by the library).
#include <csetjmp>
#include <cstdio>
#include <vector>

#include "imageio/internal.h"

#ifdef PTMATCH_HAVE_JPEG
#include <jpeglib.h>
#endif

namespace ptmatch::detail::imageio {

#ifdef PTMATCH_HAVE_JPEG
namespace {

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void exitByJump(j_common_ptr info) {
  auto* e = reinterpret_cast<ErrorManager*>(info->err);
  (*info->err->format_message)(info, e->message);
  std::longjmp(e->jump, 1);
}

void ignoreMessage(j_common_ptr) {}

}  // namespace

// libjpeg reports errors through exitByJump, a longjmp back to the setjmp below in this
// frame; the objects declared before it are alive there and released as refuse() throws.
mvGreyImage decodeJpeg(const std::string& bytes, const std::string& name) {
  jpeg_decompress_struct info;
  ErrorManager error;
  info.err = jpeg_std_error(&error.base);
  error.base.error_exit = exitByJump;
  error.base.output_message = ignoreMessage;
  error.message[0] = '\0';
  mvPelBuffer<unsigned char> image;
  std::string problem;
  if (setjmp(error.jump)) {
    jpeg_destroy_decompress(&info);
    if (problem.empty()) problem = std::string("not a readable JPEG (") + error.message + ")";
    refuse(name, problem);
  }
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, reinterpret_cast<const unsigned char*>(bytes.data()),
               static_cast<unsigned long>(bytes.size()));
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_GRAYSCALE;
  problem = sizeProblem(static_cast<long>(info.image_width), static_cast<long>(info.image_height),
                        8, bytes.size(), true);
  if (!problem.empty()) std::longjmp(error.jump, 1);
  jpeg_start_decompress(&info);
  if (info.output_components != 1) {
    problem = "unsupported JPEG colour space";
    std::longjmp(error.jump, 1);
  }
  image = mvPelBuffer<unsigned char>(static_cast<long>(info.output_width),
                                     static_cast<long>(info.output_height));
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = image.pointToRow(static_cast<long>(info.output_scanline));
    jpeg_read_scanlines(&info, &row, 1);
  }
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return mvGreyImage(image);
}

#else

mvGreyImage decodeJpeg(const std::string&, const std::string& name) {
  refuse(name, "JPEG images are not supported by this build (it lacks libjpeg)");
}

#endif

}  // namespace ptmatch::detail::imageio
