// Interruption requests: one process-wide flag, set from any thread, consumed by check().
#include "mvbase/attention.h"

#include <atomic>

#include "mvbase/archive.h"

namespace {
std::atomic<bool> requested{false};
std::atomic<mvAttention::Poll> pollFunction{nullptr};
}  // namespace

mvAttention::Interrupted::Interrupted() : mvExceptionWithString(L"The run was interrupted.") {}

void mvAttention::Interrupted::suicideAndRethrow() { rethrowCopy_(this); }

void mvAttention::Interrupted::dispatchSerialize(mvArchive& ar) {
  dispatchVersioned_(ar, this, sizeof(Interrupted),
                     [&](unsigned char version) { Interrupted::serialize_(ar, version); });
}

void mvAttention::Interrupted::serialize_(mvArchive& ar, unsigned char version) {
  requireClassVersion_(version, "mvAttention::Interrupted");
  mvExceptionWithString::dispatchSerialize(ar);
}

mvPersistent* mvAttention::Interrupted::make() { return new Interrupted(); }

namespace {
const mv_Instantiator registerInterrupted(typeid(mvAttention::Interrupted),
                                          &mvAttention::Interrupted::make,
                                          "mvAttention::Interrupted");
}  // namespace

void mvAttention::check() {
  const Poll poll = pollFunction.load();
  if (poll != nullptr && poll()) requested.store(true);
  if (requested.exchange(false)) throw Interrupted();
}

void mvAttention::requestInterruption() { requested.store(true); }

void mvAttention::clear() { requested.store(false); }

bool mvAttention::isRequested() { return requested.load(); }

mvAttention::Poll mvAttention::setPoll(Poll poll) { return pollFunction.exchange(poll); }
