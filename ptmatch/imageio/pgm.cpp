// PGM: binary (P5) and plain (P2), 8 bits (maximum value up to 255) or 16 bits.
#include <cctype>

#include "imageio/internal.h"

namespace ptmatch::detail::imageio {
namespace {

/// Reads the whitespace-separated numbers of a PGM, skipping # comments.
class PgmReader {
 public:
  PgmReader(const std::string& bytes, const std::string& name) : bytes_(bytes), name_(name) {}

  long number(const char* what) {
    skipBlanksAndComments();
    long v = 0;
    bool any = false;
    while (pos_ < bytes_.size() && std::isdigit(static_cast<unsigned char>(bytes_[pos_]))) {
      v = v * 10 + (bytes_[pos_] - '0');
      if (v > mvImageFileDefs::kLargestPels)
        refuse(name_, std::string("PGM ") + what + " too large");
      ++pos_;
      any = true;
    }
    if (!any) refuse(name_, std::string("PGM header: expected the ") + what);
    return v;
  }

  /// Position after the single whitespace byte that ends a binary header.
  std::size_t rasterStart() const { return pos_ + 1; }
  std::size_t left() const { return bytes_.size() - pos_; }

 private:
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

  const std::string& bytes_;
  const std::string& name_;
  std::size_t pos_ = 2;
};

template <typename T>
mvPelBuffer<T> plainRaster(PgmReader& reader, long width, long height, long maxval,
                           const std::string& name) {
  // Every pel needs a digit and a separator: refuse a header that the file cannot fill
  // before allocating for it.
  if (reader.left() / 2 + 1 < static_cast<std::size_t>(width * height)) {
    refuse(name, "the PGM raster is truncated");
  }
  mvPelBuffer<T> image(width, height);
  for (long y = 0; y < height; ++y) {
    T* row = image.pointToRow(y);
    for (long x = 0; x < width; ++x) {
      const long v = reader.number("pel value");
      if (v > maxval) refuse(name, "a pel value exceeds the maximum value");
      row[x] = static_cast<T>(v);
    }
  }
  return image;
}

template <typename T>
mvPelBuffer<T> binaryRaster(const std::string& bytes, std::size_t start, long width, long height,
                            long maxval, const std::string& name) {
  const std::size_t need = static_cast<std::size_t>(width * height) * sizeof(T);
  if (start > bytes.size() || bytes.size() - start < need) {
    refuse(name, "the PGM raster is truncated");
  }
  mvPelBuffer<T> image(width, height);
  const unsigned char* in = reinterpret_cast<const unsigned char*>(bytes.data()) + start;
  for (long y = 0; y < height; ++y) {
    T* row = image.pointToRow(y);
    for (long x = 0; x < width; ++x) {
      long v = *in++;
      if (sizeof(T) == 2) v = (v << 8) | *in++;
      if (v > maxval) refuse(name, "a pel value exceeds the maximum value");
      row[x] = static_cast<T>(v);
    }
  }
  return image;
}

}  // namespace

mvGreyImage decodePgm(const std::string& bytes, const std::string& name) {
  if (bytes.size() < 2 || bytes[0] != 'P' || (bytes[1] != '5' && bytes[1] != '2')) {
    refuse(name, "not a PGM image (expected P5 or P2)");
  }
  const bool plain = bytes[1] == '2';
  PgmReader reader(bytes, name);
  const long width = reader.number("width");
  const long height = reader.number("height");
  const long maxval = reader.number("maximum value");
  if (width < 1 || height < 1 || width > mvImageFileDefs::kLargestSide ||
      height > mvImageFileDefs::kLargestSide || width * height > mvImageFileDefs::kLargestPels) {
    refuse(name, "unsupported PGM size " + std::to_string(width) + " x " + std::to_string(height));
  }
  if (maxval < 1 || maxval > 65535) {
    refuse(name, "unsupported PGM maximum value " + std::to_string(maxval) + " (1 to 65535)");
  }
  if (maxval <= 255) {
    return mvGreyImage(plain ? plainRaster<unsigned char>(reader, width, height, maxval, name)
                             : binaryRaster<unsigned char>(bytes, reader.rasterStart(), width,
                                                           height, maxval, name));
  }
  return mvGreyImage(plain ? plainRaster<unsigned short>(reader, width, height, maxval, name)
                           : binaryRaster<unsigned short>(bytes, reader.rasterStart(), width,
                                                          height, maxval, name));
}

}  // namespace ptmatch::detail::imageio
