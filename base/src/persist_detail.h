// Helpers shared by the base library's persisted classes; not installed.
#pragma once

#include <cstddef>

#include "mvbase/archive.h"
#include "mvbase/exception.h"

namespace mvbase_detail {

/// The one-byte class version written by every exception class.
constexpr unsigned char kClassVersion = 0;

/// The class-versioned step of dispatchSerialize: skips an object already visited in this
/// archive, otherwise persists the class version byte, runs serialize(version) and marks
/// the object as visited.
template <typename Serialize>
void dispatchVersioned(mvArchive& ar, const void* self, std::size_t size, Serialize serialize) {
  if (ar.haveVisited(self, size)) return;
  unsigned char version = kClassVersion;
  ar || version;
  serialize(version);
  ar.setVisited(self, size);
}

/// Throws mvArchive::UnknownVersion(className, 0) unless version is the class version.
void requireClassVersion(unsigned char version, const char* className);

/// Registers an archive as the newest live archive of this thread, and withdraws it.
void pushLiveArchive(mvArchive* ar);
void popLiveArchive(mvArchive* ar);
/// The newest live archive of this thread, or null.
mvArchive* currentArchive();

}  // namespace mvbase_detail
