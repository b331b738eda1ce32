// Reading grey images from files: PGM (8 and 16 bits, binary P5 and plain P2) always; PNG
// (8 and 16 bits; colour converted to grey, alpha dropped), TIFF (8 and 16 bits grey,
// uncompressed, PackBits, LZW, Deflate and the other compressions of the system's libtiff)
// and JPEG (colour converted to grey) when the library was built with libpng, libtiff and
// libjpeg. mfImageFormats() tells which ones this build reads.
//
// Limits. An image may be at most 32768 pels on a side and 2^28 pels in all; a file may be
// at most 1 GiB; and a compressed image may not claim more than 2000 bytes of pels per
// byte of its file (no real one comes near, a forged header would), so that no file makes
// the reader allocate beyond what its size justifies. Grey values are returned as stored
// (a PGM's maximum value does not rescale them; a TIFF that stores white as 0 is inverted).
#pragma once

#include <string>
#include <vector>

#include "mvbase/archive.h"
#include "mvbase/exception.h"
#include "mvbase/image.h"
#include "ptmatch/export.h"

/// The image reader's error.
class PTMATCH_API mvImageFileDefs {
 public:
  /// A file that cannot be read as an image: missing, of an unknown or unsupported kind,
  /// corrupt, truncated, too large. The message starts with the file's name, then the
  /// problem, as in "dots.png: the file is truncated".
  class PTMATCH_API BadFile : public mvErrorOf<BadFile, mvExceptionWithString> {
   public:
    /// The library's message for the failure.
    explicit BadFile(const std::wstring& message = L"The image file cannot be read.");
  };

  /// Largest accepted width or height, in pels.
  static constexpr long kLargestSide = 32768;
  /// Largest accepted number of pels (width times height).
  static constexpr long kLargestPels = 1L << 28;
};

/// A grey image of 8 or 16 bits per pel, as read from a file.
class PTMATCH_API mvGreyImage {
 public:
  /// An empty image: 0 bits, no pels.
  mvGreyImage() = default;
  /// An 8-bit image holding pels (shared with the caller's buffer, not copied).
  explicit mvGreyImage(const mvPelBuffer<unsigned char>& pels) : pels8_(pels), bits_(8) {}
  /// A 16-bit image holding pels (shared with the caller's buffer, not copied).
  explicit mvGreyImage(const mvPelBuffer<unsigned short>& pels) : pels16_(pels), bits_(16) {}

  /// 8 or 16; 0 when empty.
  int bits() const { return bits_; }
  /// Width in pels; 0 when empty.
  long width() const { return bits_ == 16 ? pels16_.width() : pels8_.width(); }
  /// Height in pels; 0 when empty.
  long height() const { return bits_ == 16 ? pels16_.height() : pels8_.height(); }
  /// The pels of an 8-bit image (unbound for a 16-bit one).
  const mvPelBuffer<unsigned char>& pels8() const { return pels8_; }
  /// The pels of a 16-bit image (unbound for an 8-bit one).
  const mvPelBuffer<unsigned short>& pels16() const { return pels16_; }

 private:
  mvPelBuffer<unsigned char> pels8_;
  mvPelBuffer<unsigned short> pels16_;
  int bits_ = 0;
};

/// Reads the image file at path, choosing the format by its first bytes. Throws
/// mvImageFileDefs::BadFile naming the file and the problem.
PTMATCH_API mvGreyImage mfReadImage(const std::string& path);
/// Decodes the bytes of an image file; name stands for the file in messages.
PTMATCH_API mvGreyImage mfDecodeImage(const std::string& bytes, const std::string& name);
/// The formats this build reads: "pgm" and those of "png", "tiff", "jpeg" it was built with.
PTMATCH_API std::vector<std::string> mfImageFormats();
/// An 8-bit image as the bytes of a PNG file; throws mvImageFileDefs::BadFile when this
/// build has no PNG support.
PTMATCH_API std::string mfEncodePng(const mvPelBuffer_const<unsigned char>& image);
/// An 8-bit or 16-bit image as the bytes of a binary PGM (P5) file.
PTMATCH_API std::string mfEncodePgm(const mvGreyImage& image);
