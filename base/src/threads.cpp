// The thread request: a process-wide count (atomic, set from any thread), the environment's
// count read once, and a per-thread scope.
#include "mvbase/threads.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <thread>

#include "mvbase/exception.h"

namespace {

// Lines reported for a negative count and for a scope of fewer than one thread.
constexpr int kCountLine = 1;
constexpr int kScopeLine = 2;

std::atomic<long> processCount{0};

// The innermost scope's count on this thread; 0 outside every scope.
thread_local long tScopeCount = 0;

// PTMATCH_NUM_THREADS as a count from 1 to kMaxThreads, or 0 when unset or not such a
// number.
long environmentCount() {
  const char* text = std::getenv("PTMATCH_NUM_THREADS");
  if (text == nullptr || *text == '\0') return 0;
  char* end = nullptr;
  errno = 0;
  const long n = std::strtol(text, &end, 10);
  if (errno != 0 || *end != '\0' || n < 1 || n > mvThreads::kMaxThreads) return 0;
  return n;
}

}  // namespace

void mvThreads::setCount(long n) {
  if (n < 0) mfAssertionFailed("n >= 0", "mvThreads", kCountLine);
  processCount.store(std::min(n, kMaxThreads));
}

long mvThreads::requested() {
  if (tScopeCount > 0) return tScopeCount;
  const long set = processCount.load();
  if (set > 0) return set;
  static const long environment = environmentCount();
  return environment;
}

long mvThreads::hardware() {
  const unsigned cores = std::thread::hardware_concurrency();
  return cores == 0 ? 1 : std::min(static_cast<long>(cores), kMaxThreads);
}

long mvThreads::forSynchronous() {
  const long n = requested();
  return n > 0 ? n : 1;
}

long mvThreads::forMachine() {
  const long n = requested();
  return n > 0 ? n : hardware();
}

mvThreads::Scope::Scope(long n) : outer_(tScopeCount) {
  if (n < 1) mfAssertionFailed("n >= 1", "mvThreads::Scope", kScopeLine);
  tScopeCount = std::min(n, kMaxThreads);
}

mvThreads::Scope::~Scope() { tScopeCount = outer_; }
