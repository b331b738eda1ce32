// Interruption requests: one process-wide flag, set from any thread, consumed by check();
// and a per-thread deadline, checked by check() as well.
#include "mvbase/attention.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <sstream>

#include "mvbase/archive.h"

namespace {
std::atomic<bool> requested{false};
std::atomic<mvAttention::Poll> pollFunction{nullptr};

using Clock = std::chrono::steady_clock;

// Line reported for a negative or NaN time limit.
constexpr int kDeadlineLine = 1;

// The calling thread's deadline in force, and the limit it was made from.
thread_local bool tHasDeadline = false;
thread_local Clock::time_point tDeadline;
thread_local double tDeadlineSeconds = 0.0;

// Units of work left on the calling thread before pace() checks.
thread_local long tWorkLeft = mvAttention::kPaceInterval;

std::wstring timedOutMessage(double limitSeconds) {
  std::wostringstream text;
  text << L"The run took longer than its time limit of " << limitSeconds
       << L" s; allow more time or make the search smaller.";
  return text.str();
}
}  // namespace

mvAttention::Interrupted::Interrupted() : mvErrorOf(L"The run was interrupted.") {}

mvAttention::Interrupted::Interrupted(const std::wstring& message) : mvErrorOf(message) {}

mvAttention::TimedOut::TimedOut() : mvErrorOf(L"The run took longer than its time limit.") {}

mvAttention::TimedOut::TimedOut(double limitSeconds) : mvErrorOf(timedOutMessage(limitSeconds)) {}

namespace {
const mv_InstantiatorOf<mvAttention::Interrupted> registerInterrupted("mvAttention::Interrupted");
const mv_InstantiatorOf<mvAttention::TimedOut> registerTimedOut("mvAttention::TimedOut");
}  // namespace

mvAttention::Deadline::Deadline(double seconds)
    : seconds_(seconds),
      hadOuter_(tHasDeadline),
      outerWhen_(tDeadline),
      outerSeconds_(tDeadlineSeconds) {
  if (!(seconds >= 0.0)) mfAssertionFailed("seconds >= 0", "mvAttention::Deadline", kDeadlineLine);
  if (std::isinf(seconds)) return;  // never passes; an outer deadline stays in force
  const auto when = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                       std::chrono::duration<double>(std::min(seconds, 1e9)));
  if (!tHasDeadline || when < tDeadline) {
    tHasDeadline = true;
    tDeadline = when;
    tDeadlineSeconds = seconds;
  }
}

mvAttention::Deadline::~Deadline() {
  tHasDeadline = hadOuter_;
  tDeadline = outerWhen_;
  tDeadlineSeconds = outerSeconds_;
}

namespace {
// The request and the deadline, without the poll function.
void checkRequestAndDeadline() {
  if (requested.exchange(false)) throw mvAttention::Interrupted();
  if (tHasDeadline && Clock::now() >= tDeadline) throw mvAttention::TimedOut(tDeadlineSeconds);
}
}  // namespace

void mvAttention::check() {
  const Poll poll = pollFunction.load();
  if (poll != nullptr && poll()) requested.store(true);
  checkRequestAndDeadline();
}

void mvAttention::requestInterruption() { requested.store(true); }

void mvAttention::clear() { requested.store(false); }

bool mvAttention::isRequested() { return requested.load(); }

mvAttention::Poll mvAttention::setPoll(Poll poll) { return pollFunction.exchange(poll); }

double mvAttention::secondsLeft() {
  if (!tHasDeadline) return std::numeric_limits<double>::infinity();
  return std::chrono::duration<double>(tDeadline - Clock::now()).count();
}

void mvAttention::pace(long work) {
  tWorkLeft -= work;
  if (tWorkLeft > 0) return;
  tWorkLeft = kPaceInterval;
  checkRequestAndDeadline();
}
