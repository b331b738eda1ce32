// Shared bodies of the error classes of the numerics kit (mvMatrixExt's and the
// transforms' errors): rethrowing by the most derived type and the class-versioned
// persistence step.
#pragma once

#include <cstddef>

#include "mvbase/archive.h"
#include "mvbase/exception.h"

namespace ptmatch {
namespace detail {

/// Copies the heap-allocated error, destroys the original and throws the copy by its own
/// type E.
template <typename E>
[[noreturn]] void suicideAndRethrowAs(E* self) {
  E copy(*self);
  delete self;
  throw copy;
}

/// The class-versioned step of an error's dispatchSerialize: skips an object already
/// visited in this archive, otherwise persists the class version byte 0, runs
/// serialize(version) and marks the object as visited.
template <typename Serialize>
void dispatchClassVersioned(mvArchive& ar, const void* self, std::size_t size,
                            Serialize serialize) {
  if (ar.haveVisited(self, size)) return;
  unsigned char version = 0;
  ar || version;
  serialize(version);
  ar.setVisited(self, size);
}

/// Throws mvArchive::UnknownVersion naming the class (line 0) unless version is 0.
inline void requireClassVersion(unsigned char version, const char* className) {
  if (version != 0) throw mvArchive::UnknownVersion(className, 0);
}

}  // namespace detail
}  // namespace ptmatch
