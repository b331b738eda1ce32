// Test helpers shared by the numerics kit's tests: expected archive bytes written by hand,
// and storing or loading through a memory archive.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "mvbase/archive.h"

namespace numerics_test {

/// Builds an expected archive byte by byte: little-endian, no padding.
class Bytes {
 public:
  /// One byte (bool, unsigned char, a container version).
  Bytes& u8(unsigned v) {
    bytes_.push_back(static_cast<unsigned char>(v));
    return *this;
  }
  /// Four bytes (int, long, unsigned long).
  Bytes& u32(std::uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes_.push_back(static_cast<unsigned char>(v >> (8 * i)));
    return *this;
  }
  /// Eight bytes, the IEEE-754 pattern of v.
  Bytes& f64(double v) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &v, sizeof bits);
    for (int i = 0; i < 8; ++i) bytes_.push_back(static_cast<unsigned char>(bits >> (8 * i)));
    return *this;
  }
  /// A vector of doubles: container version 0, count, elements.
  Bytes& doubles(const std::vector<double>& values) {
    u8(0).u32(static_cast<std::uint32_t>(values.size()));
    for (double v : values) f64(v);
    return *this;
  }
  /// An empty-sum pseudo-inverse fitter of n parameters.
  Bytes& emptyFitter(std::uint32_t n) {
    u32(1100);                                              // fitter version
    u32(1100).u32(n).u32(n);                                // matrix version, cols, rows
    doubles(std::vector<double>(std::size_t{n} * n, 0.0));  // normal matrix
    return doubles(std::vector<double>(n, 0.0));            // right-hand side
  }
  const std::vector<unsigned char>& get() const { return bytes_; }

 private:
  std::vector<unsigned char> bytes_;
};

/// The bytes of storing value.
template <typename T>
std::vector<unsigned char> store(T value) {
  mvMemoryArchive out;
  out || value;
  return out.bytes();
}

/// Loads into target from bytes; true when every byte was consumed.
template <typename T>
bool load(const std::vector<unsigned char>& bytes, T& target) {
  mvMemoryArchive in(bytes);
  in || target;
  return in.atEnd();
}

}  // namespace numerics_test
