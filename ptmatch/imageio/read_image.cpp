// Reading a file, telling its format and the limits every decoder applies.
#include <cstring>
#include <fstream>
#include <typeinfo>

#include "imageio/internal.h"

namespace {

const mv_InstantiatorOf<mvImageFileDefs::BadFile> registerBadFile("mvImageFileDefs::BadFile");

/// Largest file read.
constexpr std::size_t kLargestFile = std::size_t(1) << 30;
/// Bytes of pels a compressed file may claim per byte of file.
constexpr double kLargestRatio = 2000.0;

std::wstring wide(const std::string& s) {
  std::wstring w;
  for (const char c : s) w.push_back(static_cast<wchar_t>(static_cast<unsigned char>(c)));
  return w;
}

bool startsWith(const std::string& bytes, const char* magic, std::size_t n) {
  return bytes.size() >= n && std::memcmp(bytes.data(), magic, n) == 0;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) ptmatch::detail::imageio::refuse(path, "cannot open the file");
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  if (size < 0) ptmatch::detail::imageio::refuse(path, "cannot read the file");
  if (static_cast<std::size_t>(size) > kLargestFile) {
    ptmatch::detail::imageio::refuse(path, "the file is larger than 1 GiB");
  }
  in.seekg(0, std::ios::beg);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  if (!in.read(&bytes[0], size)) ptmatch::detail::imageio::refuse(path, "cannot read the file");
  return bytes;
}

}  // namespace

// --- mvImageFileDefs::BadFile ---

mvImageFileDefs::BadFile::BadFile(const std::wstring& message) : mvErrorOf(message) {}

namespace ptmatch::detail::imageio {

void refuse(const std::string& name, const std::string& problem) {
  throw mvImageFileDefs::BadFile(wide(name + ": " + problem));
}

std::string sizeProblem(long width, long height, int bits, std::size_t fileBytes, bool compressed) {
  const std::string size = std::to_string(width) + " x " + std::to_string(height);
  if (width < 1 || height < 1 || width > mvImageFileDefs::kLargestSide ||
      height > mvImageFileDefs::kLargestSide || width * height > mvImageFileDefs::kLargestPels) {
    return "unsupported image size " + size + " (at most 32768 pels a side, 2^28 in all)";
  }
  const double pelBytes = static_cast<double>(width) * static_cast<double>(height) * (bits / 8);
  if (compressed && pelBytes > kLargestRatio * static_cast<double>(fileBytes) + 65536.0) {
    return "the file is too small for an image of " + size + " pels";
  }
  return std::string();
}

void checkSize(const std::string& name, long width, long height, int bits, std::size_t fileBytes,
               bool compressed) {
  const std::string problem = sizeProblem(width, height, bits, fileBytes, compressed);
  if (!problem.empty()) refuse(name, problem);
}

}  // namespace ptmatch::detail::imageio

mvGreyImage mfDecodeImage(const std::string& bytes, const std::string& name) {
  using namespace ptmatch::detail::imageio;
  if (bytes.size() >= 2 && bytes[0] == 'P' && (bytes[1] == '5' || bytes[1] == '2')) {
    return decodePgm(bytes, name);
  }
  if (startsWith(bytes, "\x89PNG\r\n\x1a\n", 8)) return decodePng(bytes, name);
  if (startsWith(bytes, "II*\0", 4) || startsWith(bytes, "MM\0*", 4)) {
    return decodeTiff(bytes, name);
  }
  if (startsWith(bytes, "\xff\xd8\xff", 3)) return decodeJpeg(bytes, name);
  std::string known;
  for (const std::string& f : mfImageFormats()) known += (known.empty() ? "" : ", ") + f;
  refuse(name, "not an image file of a known kind (this build reads " + known + ")");
}

mvGreyImage mfReadImage(const std::string& path) { return mfDecodeImage(readFile(path), path); }

std::vector<std::string> mfImageFormats() {
  std::vector<std::string> formats{"pgm"};
#ifdef PTMATCH_HAVE_PNG
  formats.push_back("png");
#endif
#ifdef PTMATCH_HAVE_TIFF
  formats.push_back("tiff");
#endif
#ifdef PTMATCH_HAVE_JPEG
  formats.push_back("jpeg");
#endif
  return formats;
}

std::string mfEncodePgm(const mvGreyImage& image) {
  std::string bytes = "P5\n" + std::to_string(image.width()) + " " +
                      std::to_string(image.height()) + "\n" +
                      (image.bits() == 16 ? "65535" : "255") + "\n";
  for (long y = 0; y < image.height(); ++y) {
    for (long x = 0; x < image.width(); ++x) {
      if (image.bits() == 16) {
        const unsigned short v = image.pels16().pointToRow(y)[x];
        bytes.push_back(static_cast<char>(v >> 8));
        bytes.push_back(static_cast<char>(v & 0xff));
      } else {
        bytes.push_back(static_cast<char>(image.pels8().pointToRow(y)[x]));
      }
    }
  }
  return bytes;
}
