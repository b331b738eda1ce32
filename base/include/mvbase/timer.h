// A stopwatch on a steady clock.
#pragma once

#include <chrono>

#include "mvbase/export.h"

/// Measures elapsed seconds since start().
class MVBASE_API mvTimer {
 public:
  /// Starts at once when startNow is true.
  explicit mvTimer(bool startNow = true);
  /// Starts (again) from now.
  void start();
  /// Seconds since start(); 0 when never started.
  double sec() const;

 private:
  std::chrono::steady_clock::time_point start_;
  bool started_ = false;
};
