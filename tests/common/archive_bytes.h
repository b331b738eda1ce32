// Archive bytes for tests that check layouts: the encoding spelled out by hand, storing
// or loading a value through a memory archive, and the persisted form of errors.
//
// The encoding: little-endian, no padding, no type tags; bool and unsigned char 1 byte,
// int, long and unsigned long 4 bytes, double the 8 bytes of its IEEE-754 pattern.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "mvbase/archive.h"
#include "mvbase/exception.h"

namespace archive_bytes {

using Bytes = std::vector<unsigned char>;

/// Writes an expected archive value by value; every appender returns the writer, so that
/// a layout reads as one chain.
class ByteWriter {
 public:
  /// One byte: an unsigned char or a version byte.
  ByteWriter& u8(unsigned v) {
    bytes_.push_back(static_cast<unsigned char>(v));
    return *this;
  }
  /// A bool: 1 or 0.
  ByteWriter& boolean(bool v) { return u8(v ? 1 : 0); }
  /// A 32-bit pattern in four bytes: an unsigned long.
  ByteWriter& u32(std::uint32_t v) {
    for (int i = 0; i < 4; ++i) u8((v >> (8 * i)) & 0xffu);
    return *this;
  }
  /// An int or a long: two's complement in four bytes.
  ByteWriter& i32(long v) { return u32(static_cast<std::uint32_t>(v)); }
  /// A 64-bit pattern in eight bytes (a double's pattern worked out by hand).
  ByteWriter& u64(std::uint64_t v) {
    for (int i = 0; i < 8; ++i) u8(static_cast<unsigned>((v >> (8 * i)) & 0xffu));
    return *this;
  }
  /// A double: its IEEE-754 pattern.
  ByteWriter& f64(double v) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &v, sizeof bits);
    return u64(bits);
  }
  /// Several doubles in a row.
  ByteWriter& f64s(std::initializer_list<double> values) {
    for (double v : values) f64(v);
    return *this;
  }
  /// The header of a vector: container version 0, then the element count.
  ByteWriter& vectorHeader(std::uint32_t count) { return u8(0).u32(count); }
  /// A vector of doubles: its header, then the elements.
  ByteWriter& doubles(const std::vector<double>& values) {
    vectorHeader(static_cast<std::uint32_t>(values.size()));
    for (double v : values) f64(v);
    return *this;
  }
  /// An mvPair<long>: version byte 0, x, y.
  ByteWriter& pair(long x, long y) { return u8(0).i32(x).i32(y); }
  /// A transform: a00, a01, a10, a11, tx, ty.
  ByteWriter& xform(double a00, double a01, double a10, double a11, double tx, double ty) {
    return f64s({a00, a01, a10, a11, tx, ty});
  }
  /// The identity transform.
  ByteWriter& identity() { return xform(1, 0, 0, 1, 0, 0); }
  /// A range or an angle range: kind (0 normal, 1 empty, 2 full), start, end.
  ByteWriter& range(std::uint32_t kind, double start, double end) {
    return u32(kind).f64(start).f64(end);
  }
  /// Bytes made elsewhere, as they are.
  ByteWriter& append(const Bytes& more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }
  /// The bytes written so far.
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
};

// --- the same values as byte strings, for layouts written as a concatenation ---

/// Concatenates byte strings.
inline Bytes cat(std::initializer_list<Bytes> parts) {
  ByteWriter out;
  for (const Bytes& p : parts) out.append(p);
  return out.bytes();
}

/// One byte.
inline Bytes u8(unsigned char v) { return ByteWriter().u8(v).bytes(); }
/// The four little-endian bytes of a 32-bit pattern.
inline Bytes le32(std::uint32_t v) { return ByteWriter().u32(v).bytes(); }
/// A signed 32-bit number as its four little-endian bytes.
inline Bytes s32(std::int32_t v) { return ByteWriter().i32(v).bytes(); }
/// The eight little-endian bytes of a 64-bit pattern (for doubles, written by hand).
inline Bytes le64(std::uint64_t v) { return ByteWriter().u64(v).bytes(); }
/// The eight bytes of a double (its IEEE-754 pattern, little-endian).
inline Bytes f64(double v) { return ByteWriter().f64(v).bytes(); }
/// Several doubles in a row.
inline Bytes f64s(std::initializer_list<double> values) {
  return ByteWriter().f64s(values).bytes();
}
/// A transform: a00, a01, a10, a11, tx, ty.
inline Bytes xform(double a00, double a01, double a10, double a11, double tx, double ty) {
  return ByteWriter().xform(a00, a01, a10, a11, tx, ty).bytes();
}
/// The identity transform.
inline Bytes identity() { return ByteWriter().identity().bytes(); }
/// A range or angle range: kind (0 normal, 1 empty, 2 full), start, end.
inline Bytes range(std::uint32_t kind, double start, double end) {
  return ByteWriter().range(kind, start, end).bytes();
}
/// A vector's header: container version 0 and element count.
inline Bytes vectorHeader(std::uint32_t count) { return ByteWriter().vectorHeader(count).bytes(); }
/// An integer pair: version byte 0, x, y.
inline Bytes pair(std::int32_t x, std::int32_t y) { return ByteWriter().pair(x, y).bytes(); }
/// An unbound pel buffer: width 0, height 0.
inline Bytes unboundImage() { return ByteWriter().i32(0).i32(0).bytes(); }

/// IEEE-754 patterns of a few doubles, worked out by hand.
constexpr std::uint64_t kOne = 0x3FF0000000000000ull;
constexpr std::uint64_t kTwo = 0x4000000000000000ull;
constexpr std::uint64_t kThree = 0x4008000000000000ull;
constexpr std::uint64_t kFour = 0x4010000000000000ull;
constexpr std::uint64_t kFive = 0x4014000000000000ull;
constexpr std::uint64_t kSix = 0x4018000000000000ull;
constexpr std::uint64_t kMinusTwoAndHalf = 0xC004000000000000ull;
constexpr std::uint64_t kZero = 0;

// --- storing and loading through a memory archive ---

/// The bytes that storing object itself writes.
template <typename T>
Bytes storeObject(T& object) {
  mvMemoryArchive out;
  out || object;
  return out.bytes();
}

/// The bytes that storing a copy of value writes (so value may be const or a temporary).
template <typename T>
Bytes store(T value) {
  return storeObject(value);
}

/// Loads into target from bytes; true when every byte was used.
template <typename T>
bool loadInto(const Bytes& bytes, T& target) {
  mvMemoryArchive in(bytes);
  in || target;
  return in.atEnd();
}

/// The value loaded from bytes over start; bytes left over throw mvArchive::BadData.
template <typename T>
T load(const Bytes& bytes, T start = T()) {
  if (!loadInto(bytes, start)) throw mvArchive::BadData(L"bytes left over");
  return start;
}

/// What a reader of the archive gets back: value stored through a memory archive and the
/// bytes loaded over start. Bytes left over throw mvArchive::BadData.
template <typename T>
T roundTrip(T value, T start = T()) {
  return load(store(std::move(value)), std::move(start));
}

// --- persisted errors ---

/// The bytes of an error's persisted form.
inline Bytes storeError(mvException& e) {
  mvMemoryArchive out;
  e.dispatchSerialize(out);
  return out.bytes();
}

/// A new instance of the class registered under name, when it is an E; null otherwise.
template <typename E>
std::unique_ptr<E> created(const std::string& name) {
  std::unique_ptr<mvPersistent> p(mv_Instantiator::create(name));
  E* e = dynamic_cast<E*>(p.get());
  if (e != nullptr) p.release();
  return std::unique_ptr<E>(e);
}

/// An error stored through its persisted form and loaded back into a fresh E; bytes left
/// over throw mvArchive::BadData.
template <typename E>
E roundTripError(E& error) {
  mvMemoryArchive in(storeError(error));
  E copy;
  copy.dispatchSerialize(in);
  if (!in.atEnd()) throw mvArchive::BadData(L"bytes left over");
  return copy;
}

}  // namespace archive_bytes
