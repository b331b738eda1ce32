#include "image_io.h"

#include <algorithm>

#include "errors.h"

namespace ptmatch::cli {

namespace {

mvGreyImage decode(const std::string* bytes, const std::string& name) {
  try {
    return bytes != nullptr ? mfDecodeImage(*bytes, name) : mfReadImage(name);
  } catch (const mvImageFileDefs::BadFile& e) {
    throw InputError(e.what());
  }
}

mvPelBuffer<unsigned char> eightBits(const mvGreyImage& image, const std::string& name) {
  if (image.bits() != 8) {
    throw InputError(name + ": only 8-bit images are read (this one has " +
                     std::to_string(image.bits()) + " bits per pel)");
  }
  return image.pels8();
}

}  // namespace

bool pngSupported() {
  const auto formats = mfImageFormats();
  return std::find(formats.begin(), formats.end(), "png") != formats.end();
}

mvGreyImage readImageFile(const std::string& path) { return decode(nullptr, path); }

mvPelBuffer<unsigned char> parsePgm(const std::string& bytes, const std::string& name) {
  if (bytes.size() < 2 || bytes[0] != 'P' || (bytes[1] != '5' && bytes[1] != '2')) {
    throw InputError(name + ": not a PGM image (expected P5 or P2)");
  }
  return eightBits(decode(&bytes, name), name);
}

mvPelBuffer<unsigned char> readGreyImage(const std::string& path) {
  return eightBits(readImageFile(path), path);
}

}  // namespace ptmatch::cli
