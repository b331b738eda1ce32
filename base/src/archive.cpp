// The archive: byte encoding of primitives and strings, the memory and stream
// archives, the archive's errors and the per-thread list of live archives.
#include "mvbase/archive.h"

#include <algorithm>
#include <cstring>
#include <istream>
#include <limits>
#include <ostream>
#include <sstream>

#include "persist_detail.h"

namespace {

constexpr const char* kModule = "mvbase/archive";

// Archives alive on this thread, oldest first; the last is the current archive operation.
thread_local std::vector<mvArchive*> liveArchives;

// Little-endian encoding of the low n bytes of an unsigned 64-bit value.
void toLittleEndian(std::uint64_t value, unsigned char* out, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

std::uint64_t fromLittleEndian(const unsigned char* in, std::size_t n) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < n; ++i) value |= static_cast<std::uint64_t>(in[i]) << (8 * i);
  return value;
}

}  // namespace

// --- live archives ---

void mvbase_detail::pushLiveArchive(mvArchive* ar) { liveArchives.push_back(ar); }

void mvbase_detail::popLiveArchive(mvArchive* ar) {
  const auto it = std::find(liveArchives.rbegin(), liveArchives.rend(), ar);
  if (it != liveArchives.rend()) liveArchives.erase(std::next(it).base());
}

mvArchive* mvbase_detail::currentArchive() {
  return liveArchives.empty() ? nullptr : liveArchives.back();
}

// --- errors ---

mvArchive::Errors::Errors() : mvErrorOf(L"The archive could not be read or written.") {}
mvArchive::Errors::Errors(const std::wstring& message) : mvErrorOf(message) {}

namespace {
std::wstring unknownVersionMessage(const char* file, int line) {
  std::wostringstream os;
  os << L"The archive holds an unknown version";
  if (file != nullptr && *file != '\0') os << L" (" << mfWiden(file) << L", line " << line << L")";
  os << L".";
  return os.str();
}
}  // namespace

mvArchive::UnknownVersion::UnknownVersion() : mvErrorOf(unknownVersionMessage(nullptr, 0)) {}

mvArchive::UnknownVersion::UnknownVersion(const char* file, int line)
    : mvErrorOf(unknownVersionMessage(file, line)),
      file_(file != nullptr ? file : ""),
      line_(line) {}

void mvArchive::UnknownVersion::serialize_(mvArchive& ar, unsigned char version) {
  mvErrorOf::serialize_(ar, version);
  mfArchiveString(ar, file_);
  ar || line_;
}

mvArchive::EndOfData::EndOfData() : mvErrorOf(L"Reading ran past the end of the archive.") {}

mvArchive::BadData::BadData() : mvErrorOf(L"The archive holds data that cannot be used.") {}
mvArchive::BadData::BadData(const std::wstring& message) : mvErrorOf(message) {}

namespace {
const mv_InstantiatorOf<mvArchive::Errors> registerErrors("mvArchive::Errors");
const mv_InstantiatorOf<mvArchive::UnknownVersion> registerUnknownVersion(
    "mvArchive::UnknownVersion");
const mv_InstantiatorOf<mvArchive::EndOfData> registerEndOfData("mvArchive::EndOfData");
const mv_InstantiatorOf<mvArchive::BadData> registerBadData("mvArchive::BadData");
}  // namespace

// --- mvArchive ---

mvArchive::mvArchive(bool loading) : loading_(loading) { mvbase_detail::pushLiveArchive(this); }

mvArchive::~mvArchive() { mvbase_detail::popLiveArchive(this); }

void mvArchive::raw_(unsigned char* bytes, std::size_t n) {
  if (loading_) {
    read_(bytes, n);
  } else {
    write_(bytes, n);
  }
}

mvArchive& mvArchive::operator||(bool& v) {
  unsigned char byte = v ? 1 : 0;
  raw_(&byte, 1);
  if (loading_) v = byte != 0;
  return *this;
}

mvArchive& mvArchive::operator||(int& v) {
  unsigned char bytes[4];
  if (!loading_) toLittleEndian(static_cast<std::uint32_t>(v), bytes, 4);
  raw_(bytes, 4);
  if (loading_)
    v = static_cast<std::int32_t>(static_cast<std::uint32_t>(fromLittleEndian(bytes, 4)));
  return *this;
}

mvArchive& mvArchive::operator||(long& v) {
  unsigned char bytes[4];
  if (!loading_) {
    if (v < std::numeric_limits<std::int32_t>::min() ||
        v > std::numeric_limits<std::int32_t>::max()) {
      throw BadData(L"A long outside the 32-bit range cannot be stored.");
    }
    toLittleEndian(static_cast<std::uint32_t>(v), bytes, 4);
  }
  raw_(bytes, 4);
  if (loading_)
    v = static_cast<std::int32_t>(static_cast<std::uint32_t>(fromLittleEndian(bytes, 4)));
  return *this;
}

mvArchive& mvArchive::operator||(unsigned long& v) {
  unsigned char bytes[4];
  if (!loading_) {
    if (v > std::numeric_limits<std::uint32_t>::max()) {
      throw BadData(L"An unsigned long beyond 32 bits cannot be stored.");
    }
    toLittleEndian(v, bytes, 4);
  }
  raw_(bytes, 4);
  if (loading_) v = static_cast<unsigned long>(fromLittleEndian(bytes, 4));
  return *this;
}

mvArchive& mvArchive::operator||(double& v) {
  unsigned char bytes[8];
  if (!loading_) {
    std::uint64_t pattern = 0;
    std::memcpy(&pattern, &v, sizeof pattern);
    toLittleEndian(pattern, bytes, 8);
  }
  raw_(bytes, 8);
  if (loading_) {
    const std::uint64_t pattern = fromLittleEndian(bytes, 8);
    std::memcpy(&v, &pattern, sizeof v);
  }
  return *this;
}

mvArchive& operator||(mvArchive& ar, unsigned char& v) {
  ar.raw_(&v, 1);
  return ar;
}

mvArchive& mvArchive::operator>>(unsigned long& v) {
  mvAssert(loading_, kModule, __LINE__);
  return *this || v;
}

std::size_t mvArchive::bytesLeft() const { return std::numeric_limits<std::size_t>::max(); }

void mvArchive::checkCount(unsigned long count, std::size_t elementSize) const {
  if (!loading_) return;
  const std::size_t size = std::max<std::size_t>(elementSize, 1);
  if (count > bytesLeft() / size) {
    throw BadData(L"The archive holds a count larger than the data that follow it.");
  }
}

bool mvArchive::haveVisited(const void* object, std::size_t size) const {
  return visited_.count(std::make_pair(object, size)) != 0;
}

void mvArchive::setVisited(const void* object, std::size_t size) {
  visited_.insert(std::make_pair(object, size));
}

// --- strings ---

mvArchive& mfArchiveString(mvArchive& ar, std::string& s) {
  unsigned long count = static_cast<unsigned long>(s.size());
  ar || count;
  if (ar.isLoading()) {
    ar.checkCount(count, 1);
    std::string loaded;
    // Read in bounded pieces so that a stream archive with a bad count fails at its end
    // rather than allocating the count up front.
    constexpr unsigned long kPiece = 4096;
    for (unsigned long done = 0; done < count;) {
      const unsigned long n = std::min(kPiece, count - done);
      const std::size_t old = loaded.size();
      loaded.resize(old + n);
      for (unsigned long i = 0; i < n; ++i) {
        unsigned char c = 0;
        ar || c;
        loaded[old + i] = static_cast<char>(c);
      }
      done += n;
    }
    s.swap(loaded);
  } else {
    for (char ch : s) {
      unsigned char c = static_cast<unsigned char>(ch);
      ar || c;
    }
  }
  return ar;
}

mvArchive& mfArchiveString(mvArchive& ar, std::wstring& s) {
  std::string utf8 = ar.isStoring() ? mfNarrow(s) : std::string();
  mfArchiveString(ar, utf8);
  if (ar.isLoading()) s = mfWiden(utf8);
  return ar;
}

// --- mvMemoryArchive ---

mvMemoryArchive::mvMemoryArchive() : mvArchive(false) {}

mvMemoryArchive::mvMemoryArchive(const std::vector<unsigned char>& bytes)
    : mvArchive(true), bytes_(bytes) {}

mvMemoryArchive::mvMemoryArchive(const unsigned char* bytes, std::size_t n)
    : mvArchive(true), bytes_(bytes, bytes + n) {}

mvMemoryArchive::~mvMemoryArchive() = default;

std::size_t mvMemoryArchive::bytesLeft() const {
  if (isStoring()) return mvArchive::bytesLeft();
  return bytes_.size() - pos_;
}

void mvMemoryArchive::write_(const unsigned char* bytes, std::size_t n) {
  bytes_.insert(bytes_.end(), bytes, bytes + n);
}

void mvMemoryArchive::read_(unsigned char* bytes, std::size_t n) {
  if (n > bytes_.size() - pos_) throw EndOfData();
  std::memcpy(bytes, bytes_.data() + pos_, n);
  pos_ += n;
}

// --- mvStreamArchive ---

mvStreamArchive::mvStreamArchive(std::ostream& out) : mvArchive(false), out_(&out) {}

mvStreamArchive::mvStreamArchive(std::istream& in) : mvArchive(true), in_(&in) {}

mvStreamArchive::~mvStreamArchive() = default;

void mvStreamArchive::write_(const unsigned char* bytes, std::size_t n) {
  out_->write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(n));
  if (!*out_) throw Errors(L"Writing to the archive's stream failed.");
}

void mvStreamArchive::read_(unsigned char* bytes, std::size_t n) {
  const std::istream::pos_type start = in_->tellg();
  in_->read(reinterpret_cast<char*>(bytes), static_cast<std::streamsize>(n));
  if (static_cast<std::size_t>(in_->gcount()) == n) return;
  // Put the stream back where it was when it can be repositioned.
  in_->clear();
  if (start != std::istream::pos_type(-1)) in_->seekg(start);
  throw EndOfData();
}

std::size_t mvStreamArchive::bytesLeft() const {
  if (in_ == nullptr) return mvArchive::bytesLeft();
  const std::istream::pos_type here = in_->tellg();
  if (here == std::istream::pos_type(-1)) return mvArchive::bytesLeft();
  in_->seekg(0, std::ios::end);
  const std::istream::pos_type end = in_->tellg();
  in_->seekg(here);
  if (end == std::istream::pos_type(-1) || end < here) {
    in_->clear();
    return mvArchive::bytesLeft();
  }
  return static_cast<std::size_t>(end - here);
}
