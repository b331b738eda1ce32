// The per-thread list of live archives, shared by the archive and the persistence root;
// not installed.
#pragma once

#include "mvbase/archive.h"

namespace mvbase_detail {

/// Registers an archive as the newest live archive of this thread, and withdraws it.
void pushLiveArchive(mvArchive* ar);
void popLiveArchive(mvArchive* ar);
/// The newest live archive of this thread, or null.
mvArchive* currentArchive();

}  // namespace mvbase_detail
