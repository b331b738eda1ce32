// Hand-built archive bytes of the point matcher's records, for tests that check layouts.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

#include "base/bytes_helpers.h"

namespace matcher_bytes {

using testing_bytes::Bytes;
using testing_bytes::cat;
using testing_bytes::le32;

/// The version word of the matcher's records and of the matcher.
constexpr std::uint32_t kVersion = 200009;

/// One byte.
inline Bytes u8(unsigned char v) { return {v}; }

/// A signed 32-bit number as its four little-endian bytes.
inline Bytes s32(std::int32_t v) { return le32(static_cast<std::uint32_t>(v)); }

/// The eight bytes of a double (its IEEE-754 pattern, little-endian).
inline Bytes f64(double v) {
  std::uint64_t bits = 0;
  std::memcpy(&bits, &v, sizeof bits);
  return testing_bytes::le64(bits);
}

/// Several doubles in a row.
inline Bytes f64s(std::initializer_list<double> values) {
  Bytes out;
  for (double v : values) {
    const Bytes b = f64(v);
    out.insert(out.end(), b.begin(), b.end());
  }
  return out;
}

/// A transform: a00, a01, a10, a11, tx, ty.
inline Bytes xform(double a00, double a01, double a10, double a11, double tx, double ty) {
  return f64s({a00, a01, a10, a11, tx, ty});
}

/// The identity transform.
inline Bytes identity() { return xform(1, 0, 0, 1, 0, 0); }

/// A range or angle range: kind (0 normal, 1 empty, 2 full), start, end.
inline Bytes range(std::uint32_t kind, double start, double end) {
  return cat({le32(kind), f64s({start, end})});
}

/// A vector's header: container version 0 and element count.
inline Bytes vectorHeader(std::uint32_t count) { return cat({u8(0), le32(count)}); }

/// A vector of longs.
inline Bytes longs(std::initializer_list<std::int32_t> values) {
  Bytes out = vectorHeader(static_cast<std::uint32_t>(values.size()));
  for (std::int32_t v : values) {
    const Bytes b = s32(v);
    out.insert(out.end(), b.begin(), b.end());
  }
  return out;
}

/// A vector of points.
inline Bytes points(std::initializer_list<std::pair<double, double>> values) {
  Bytes out = vectorHeader(static_cast<std::uint32_t>(values.size()));
  for (const auto& p : values) {
    const Bytes b = f64s({p.first, p.second});
    out.insert(out.end(), b.begin(), b.end());
  }
  return out;
}

/// An integer pair: version byte 0, x, y.
inline Bytes pair(std::int32_t x, std::int32_t y) { return cat({u8(0), s32(x), s32(y)}); }

/// An unbound pel buffer: width 0, height 0.
inline Bytes unboundImage() { return cat({le32(0), le32(0)}); }

/// An untrained matcher: no model, corresponder or nested matcher, identity pattern
/// transform, no pattern cells.
inline Bytes untrainedMatcher() {
  return cat({le32(kVersion), s32(0), s32(0), s32(0), identity(), s32(0), vectorHeader(0)});
}

}  // namespace matcher_bytes
