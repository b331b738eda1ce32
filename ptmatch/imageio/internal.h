// Names shared by the image reader's source files: its size checks and its per-format
// decoders.
#pragma once

#include <cstddef>
#include <string>

#include "ptmatch/imageio.h"

namespace ptmatch::detail::imageio {

/// Throws BadFile with "name: problem".
[[noreturn]] void refuse(const std::string& name, const std::string& problem);
/// What is wrong with the size of an image (empty when nothing is): beyond the limits, or a
/// compressed image that claims more pels than its file of fileBytes could hold.
std::string sizeProblem(long width, long height, int bits, std::size_t fileBytes, bool compressed);
/// Refuses sizes beyond the limits, or a compressed image that claims more pels than its
/// file of fileBytes could hold.
void checkSize(const std::string& name, long width, long height, int bits, std::size_t fileBytes,
               bool compressed);

mvGreyImage decodePgm(const std::string& bytes, const std::string& name);
mvGreyImage decodePng(const std::string& bytes, const std::string& name);
mvGreyImage decodeTiff(const std::string& bytes, const std::string& name);
mvGreyImage decodeJpeg(const std::string& bytes, const std::string& name);

}  // namespace ptmatch::detail::imageio
