// Hand-built archive bytes of the point matcher's records, for tests that check layouts.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <utility>

#include "common/archive_bytes.h"

namespace matcher_bytes {

using namespace archive_bytes;

/// The version word of the matcher's records and of the matcher.
constexpr std::uint32_t kVersion = 200009;

/// A vector of longs.
inline Bytes longs(std::initializer_list<std::int32_t> values) {
  ByteWriter out;
  out.vectorHeader(static_cast<std::uint32_t>(values.size()));
  for (std::int32_t v : values) out.i32(v);
  return out.bytes();
}

/// A vector of points.
inline Bytes points(std::initializer_list<std::pair<double, double>> values) {
  ByteWriter out;
  out.vectorHeader(static_cast<std::uint32_t>(values.size()));
  for (const auto& p : values) out.f64(p.first).f64(p.second);
  return out.bytes();
}

/// An untrained matcher: no model, corresponder or nested matcher, identity pattern
/// transform, no pattern cells.
inline Bytes untrainedMatcher() {
  return cat({le32(kVersion), s32(0), s32(0), s32(0), identity(), s32(0), vectorHeader(0)});
}

}  // namespace matcher_bytes
