// Reading dot-pattern images for `ptmatch pattern`: PGM (binary P5 and plain P2, 8 bits)
// always, PNG when the tool was built with libpng. Every nonzero pel is a dot.
#pragma once

#include <string>

#include "mvbase/image.h"

namespace ptmatch::cli {

/// Reads an 8-bit grey image, choosing the format by its first bytes; throws InputError
/// naming the file (and the problem) when it cannot.
mvPelBuffer<unsigned char> readGreyImage(const std::string& path);
/// Parses the bytes of a PGM file; `name` is used in messages.
mvPelBuffer<unsigned char> parsePgm(const std::string& bytes, const std::string& name);
/// True when this build reads PNG files.
bool pngSupported();

}  // namespace ptmatch::cli
