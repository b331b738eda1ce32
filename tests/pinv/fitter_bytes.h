// The archive bytes of a pseudo-inverse fitter, spelled out by hand for the tests of the
// numerics kit (the fitter, the matrix and the transforms that hold fitters).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/archive_bytes.h"

namespace fitter_bytes {

/// An empty-sum pseudo-inverse fitter of n parameters.
inline archive_bytes::Bytes emptyFitter(std::uint32_t n) {
  return archive_bytes::ByteWriter()
      .u32(1100)                                              // fitter version
      .u32(1100)                                              // matrix version
      .u32(n)                                                 // cols
      .u32(n)                                                 // rows
      .doubles(std::vector<double>(std::size_t{n} * n, 0.0))  // normal matrix
      .doubles(std::vector<double>(n, 0.0))                   // right-hand side
      .bytes();
}

}  // namespace fitter_bytes
