// The stopwatch.
#include "mvbase/timer.h"

mvTimer::mvTimer(bool startNow) {
  if (startNow) start();
}

void mvTimer::start() {
  start_ = std::chrono::steady_clock::now();
  started_ = true;
}

double mvTimer::sec() const {
  if (!started_) return 0.0;
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}
