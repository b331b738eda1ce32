// The archive: one symmetric stream that either stores values or loads them back.
// Encoding: little-endian, no padding, no type tags; bool and unsigned char 1 byte,
// int, long and unsigned long 4 bytes, double the 8-byte IEEE-754 pattern.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "mvbase/exception.h"
#include "mvbase/export.h"
#include "mvbase/geometry.h"

/// A persistence stream, storing or loading. Values pass through operator|| in both
/// directions, so one routine per class serves both.
class MVBASE_API mvArchive {
 public:
  /// Root of the archive's own errors.
  class MVBASE_API Errors : public mvErrorOf<Errors, mvExceptionWithString> {
   public:
    Errors();
    /// With the library's message.
    explicit Errors(const std::wstring& message);
  };

  /// The archive holds a version that the reading code does not know.
  class MVBASE_API UnknownVersion : public mvErrorOf<UnknownVersion, Errors> {
   public:
    UnknownVersion();
    /// Names where the unknown version was met: a module (or class name) and a line.
    UnknownVersion(const char* file, int line);
    /** @name Values and operators */
    ///@{
    /// Where the unknown version was met.
    const std::string& file() const { return file_; }
    int line() const { return line_; }
    ///@}

   protected:
    /// Persists the file (byte count and bytes) and the line after the base class.
    void serialize_(mvArchive& ar, unsigned char version) override;

   private:
    friend class mvErrorOf<UnknownVersion, Errors>;
    std::string file_;
    int line_ = 0;
  };

  /// Loading ran past the end of the data.
  class MVBASE_API EndOfData : public mvErrorOf<EndOfData, Errors> {
   public:
    EndOfData();
  };

  /// A value cannot be stored in the archive's encoding (a long outside 32 bits), or the
  /// data are inconsistent (a count larger than the bytes left).
  class MVBASE_API BadData : public mvErrorOf<BadData, Errors> {
   public:
    BadData();
    /// With the library's message.
    explicit BadData(const std::wstring& message);
  };

  virtual ~mvArchive();
  mvArchive(const mvArchive&) = delete;
  mvArchive& operator=(const mvArchive&) = delete;

  /** @name Values and operators */
  ///@{
  /// Whether the archive reads (loads) or writes (stores).
  bool isLoading() const { return loading_; }
  bool isStoring() const { return !loading_; }
  ///@}

  /** @name Values and operators */
  ///@{
  /// Stores or loads one value in the archive's encoding (a long as 32 bits).
  mvArchive& operator||(bool& v);
  mvArchive& operator||(int& v);
  mvArchive& operator||(long& v);
  mvArchive& operator||(unsigned long& v);
  mvArchive& operator||(double& v);
  ///@}
  friend MVBASE_API mvArchive& operator||(mvArchive& ar, unsigned char& v);
  /// Reads one unsigned long (loading only).
  mvArchive& operator>>(unsigned long& v);

  /// Bytes left to read when loading (the maximum of size_t when unknown or storing).
  virtual std::size_t bytesLeft() const;
  /// Throws BadData when loading and fewer than count * elementSize bytes are left; loaders
  /// call it before allocating for a count read from the archive.
  void checkCount(unsigned long count, std::size_t elementSize) const;

  /// Visited marks of this archive operation (see mvPersistent). While an archive lives it
  /// is the current archive operation of its thread, unless a newer archive lives too.
  bool haveVisited(const void* object, std::size_t size) const;
  /// Marks an object as visited by this archive operation.
  void setVisited(const void* object, std::size_t size);

 protected:
  /// A loading or a storing archive.
  explicit mvArchive(bool loading);
  /// Writes n bytes.
  virtual void write_(const unsigned char* bytes, std::size_t n) = 0;
  /// Reads n bytes or throws EndOfData, leaving the position unchanged.
  virtual void read_(unsigned char* bytes, std::size_t n) = 0;

 private:
  void raw_(unsigned char* bytes, std::size_t n);
  bool loading_;
  std::set<std::pair<const void*, std::size_t>> visited_;
};

/// An archive over bytes in memory.
class MVBASE_API mvMemoryArchive : public mvArchive {
 public:
  /// A storing archive.
  mvMemoryArchive();
  /// A loading archive over a copy of the bytes.
  explicit mvMemoryArchive(const std::vector<unsigned char>& bytes);
  /// A loading archive over a copy of n bytes.
  mvMemoryArchive(const unsigned char* bytes, std::size_t n);
  ~mvMemoryArchive() override;

  /// The bytes stored so far (or the bytes being loaded).
  const std::vector<unsigned char>& bytes() const { return bytes_; }
  /// True when loading has consumed every byte.
  bool atEnd() const { return pos_ >= bytes_.size(); }
  std::size_t bytesLeft() const override;

 protected:
  void write_(const unsigned char* bytes, std::size_t n) override;
  void read_(unsigned char* bytes, std::size_t n) override;

 private:
  std::vector<unsigned char> bytes_;
  std::size_t pos_ = 0;
};

/// An archive over a standard stream, with the same encoding; files are the caller's.
class MVBASE_API mvStreamArchive : public mvArchive {
 public:
  /// Stores into the stream.
  explicit mvStreamArchive(std::ostream& out);
  /// Loads from the stream.
  explicit mvStreamArchive(std::istream& in);
  ~mvStreamArchive() override;
  /// Bytes left in a seekable input stream; the maximum of size_t otherwise.
  std::size_t bytesLeft() const override;

 protected:
  void write_(const unsigned char* bytes, std::size_t n) override;
  void read_(unsigned char* bytes, std::size_t n) override;

 private:
  std::ostream* out_ = nullptr;
  std::istream* in_ = nullptr;
};

/// Persists one unsigned char.
MVBASE_API mvArchive& operator||(mvArchive& ar, unsigned char& v);

/// Persists a string: its byte count (unsigned long), then the bytes.
MVBASE_API mvArchive& mfArchiveString(mvArchive& ar, std::string& s);
/// Persists a wide string as its UTF-8 form: byte count (unsigned long), then the bytes.
MVBASE_API mvArchive& mfArchiveString(mvArchive& ar, std::wstring& s);

/// Persists an enumeration as an unsigned long.
template <typename E, typename = std::enable_if_t<std::is_enum<E>::value>>
mvArchive& mfArchiveEnum(mvArchive& ar, E& e) {
  if (ar.isStoring()) {
    unsigned long v = static_cast<unsigned long>(e);
    ar || v;
  } else {
    unsigned long v = 0;
    ar >> v;
    e = static_cast<E>(v);
  }
  return ar;
}

namespace mvbase_detail {
/// Smallest number of bytes an element of type T takes in the archive; used to bound
/// counts before allocating.
template <typename T>
constexpr std::size_t minArchivedSize() {
  return std::is_same<T, bool>::value || std::is_same<T, unsigned char>::value ? 1
         : std::is_same<T, double>::value                                      ? 8
                                                                               : 1;
}
template <>
constexpr std::size_t minArchivedSize<long>() {
  return 4;
}
template <>
constexpr std::size_t minArchivedSize<int>() {
  return 4;
}
template <>
constexpr std::size_t minArchivedSize<unsigned long>() {
  return 4;
}
template <>
constexpr std::size_t minArchivedSize<mvVector<2>>() {
  return 16;
}
template <>
constexpr std::size_t minArchivedSize<mvVector<3>>() {
  return 24;
}
template <>
constexpr std::size_t minArchivedSize<mvPair<long>>() {
  return 9;
}
/// Most elements reserved ahead when the archive cannot tell how many bytes are left.
constexpr unsigned long kBlindReserve = 4096;
}  // namespace mvbase_detail

/// Persists a vector: container version byte 0, count (unsigned long), elements in order.
/// Loading checks the count against the bytes left before reserving, and grows the vector
/// element by element, so a corrupted count never causes a huge allocation.
template <typename T>
mvArchive& operator||(mvArchive& ar, std::vector<T>& v) {
  unsigned char version = 0;
  ar || version;
  if (version != 0) throw mvArchive::UnknownVersion(nullptr, 0);
  unsigned long count = static_cast<unsigned long>(v.size());
  ar || count;
  if (ar.isStoring()) {
    for (std::size_t i = 0; i < v.size(); ++i) {
      if constexpr (std::is_same<T, bool>::value) {
        bool b = v[i];
        ar || b;
      } else {
        ar || v[i];
      }
    }
    return ar;
  }
  ar.checkCount(count, mvbase_detail::minArchivedSize<T>());
  v.clear();
  const bool sizeKnown = ar.bytesLeft() != std::numeric_limits<std::size_t>::max();
  v.reserve(sizeKnown ? count : std::min(count, mvbase_detail::kBlindReserve));
  for (unsigned long i = 0; i < count; ++i) {
    if constexpr (std::is_same<T, bool>::value) {
      bool b = false;
      ar || b;
      v.push_back(b);
    } else {
      v.emplace_back();
      ar || v.back();
    }
  }
  return ar;
}

MVBASE_API mvArchive& operator||(mvArchive& ar, mvVector<2>& v);
MVBASE_API mvArchive& operator||(mvArchive& ar, mvVector<3>& v);
/// Version byte 0, x, y.
MVBASE_API mvArchive& operator||(mvArchive& ar, mvPair<long>& p);
MVBASE_API mvArchive& operator||(mvArchive& ar, mvRange& r);
MVBASE_API mvArchive& operator||(mvArchive& ar, mvAngleRange& r);
MVBASE_API mvArchive& operator||(mvArchive& ar, mvXform<2>& x);
MVBASE_API mvArchive& operator||(mvArchive& ar, mvRectangle<long>& r);
MVBASE_API mvArchive& operator||(mvArchive& ar, mvRectangle<double>& r);

// --- the class-versioned persistence step of the exception classes ---

template <typename Serialize>
void mvException::dispatchVersioned_(mvArchive& ar, const void* self, std::size_t size,
                                     Serialize serialize) {
  if (ar.haveVisited(self, size)) return;
  unsigned char version = 0;  // the one class version of every exception class
  ar || version;
  serialize(version);
  ar.setVisited(self, size);
}
