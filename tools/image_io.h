// Reading images for the commands through the library's reader (PGM always; PNG, TIFF and
// JPEG when the library was built with them). Its errors become InputError.
#pragma once

#include <string>

#include "mvbase/image.h"
#include "ptmatch/imageio.h"

namespace ptmatch::cli {

/// Reads an 8-bit or 16-bit grey image, choosing the format by its first bytes; throws
/// InputError naming the file (and the problem) when it cannot.
mvGreyImage readImageFile(const std::string& path);
/// Reads an 8-bit grey image (a 16-bit one is refused); for `ptmatch pattern`.
mvPelBuffer<unsigned char> readGreyImage(const std::string& path);
/// Parses the bytes of a PGM file; `name` is used in messages.
mvPelBuffer<unsigned char> parsePgm(const std::string& bytes, const std::string& name);
/// True when this build reads PNG files.
bool pngSupported();

}  // namespace ptmatch::cli
