// Helpers for tests that check archive bytes: building expected byte strings by hand and
// storing or loading a value through a memory archive.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "mvbase/archive.h"

namespace testing_bytes {

using Bytes = std::vector<unsigned char>;

/// Concatenates byte strings.
inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

/// The four little-endian bytes of a 32-bit pattern.
inline Bytes le32(std::uint32_t v) {
  return {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
          static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
}

/// The eight little-endian bytes of a 64-bit pattern (for doubles, written by hand).
inline Bytes le64(std::uint64_t v) {
  Bytes out;
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<unsigned char>(v >> (8 * i)));
  return out;
}

/// IEEE-754 patterns of a few doubles, worked out by hand.
constexpr std::uint64_t kOne = 0x3FF0000000000000ull;
constexpr std::uint64_t kTwo = 0x4000000000000000ull;
constexpr std::uint64_t kThree = 0x4008000000000000ull;
constexpr std::uint64_t kFour = 0x4010000000000000ull;
constexpr std::uint64_t kFive = 0x4014000000000000ull;
constexpr std::uint64_t kSix = 0x4018000000000000ull;
constexpr std::uint64_t kMinusTwoAndHalf = 0xC004000000000000ull;
constexpr std::uint64_t kZero = 0;

/// The bytes a value stores as.
template <typename T>
Bytes store(T value) {
  mvMemoryArchive out;
  out || value;
  return out.bytes();
}

/// The value loaded from bytes; requires that every byte is consumed.
template <typename T>
T load(const Bytes& bytes, T start = T()) {
  mvMemoryArchive in(bytes);
  in || start;
  if (!in.atEnd()) throw mvArchive::BadData(L"bytes left over");
  return start;
}

}  // namespace testing_bytes
