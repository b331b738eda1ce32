// Interruption of long searches. An application requests an interruption from any
// thread; the next check() in a running search throws Interrupted and consumes the
// request. A Deadline on the calling thread makes check() throw TimedOut once it passes.
#pragma once

#include <chrono>

#include "mvbase/exception.h"
#include "mvbase/export.h"

/// Lets an application interrupt a long search, or bound its time.
class MVBASE_API mvAttention {
 public:
  /// Thrown by check() once an interruption has been requested.
  class MVBASE_API Interrupted : public mvErrorOf<Interrupted, mvExceptionWithString> {
   public:
    Interrupted();

   protected:
    /// For derived errors: an interruption with their own message.
    explicit Interrupted(const std::wstring& message);
  };

  /// Thrown by check() once the calling thread's Deadline has passed. Its message names
  /// the time limit.
  class MVBASE_API TimedOut : public mvErrorOf<TimedOut, Interrupted> {
   public:
    TimedOut();
    /// limitSeconds: the limit that passed, named in the message.
    explicit TimedOut(double limitSeconds);
  };

  /// A time limit for the searches of the calling thread, from construction until
  /// destruction: once it has passed, every check() on this thread throws TimedOut.
  /// Deadlines nest; the earliest one in force applies. Other threads are not affected.
  ///
  ///   mvAttention::Deadline limit(2.5);  // seconds
  ///   matcher.run(data, params, results);  // throws TimedOut after 2.5 s
  class MVBASE_API Deadline {
   public:
    /// seconds: the time allowed from now; a negative or NaN limit fails mvAssert
    /// (mvAssertionError). An infinite limit never passes.
    explicit Deadline(double seconds);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    /// The limit given at construction, in seconds.
    double seconds() const { return seconds_; }

   private:
    double seconds_;
    bool hadOuter_;
    std::chrono::steady_clock::time_point outerWhen_;
    double outerSeconds_;
  };

  /// A function polled by check(); returning true requests an interruption (for example
  /// a scripting host's pending signal). Null for none.
  using Poll = bool (*)();

  /// Returns at once when nothing is pending; otherwise consumes the request and throws
  /// Interrupted. Throws TimedOut when the calling thread's deadline has passed.
  static void check();
  /// Requests an interruption of the run in progress; safe from any thread.
  static void requestInterruption();
  /// Withdraws a pending request.
  static void clear();
  /// True while a request is pending.
  static bool isRequested();
  /// Installs a poll function (null removes it); returns the previous one.
  static Poll setPoll(Poll poll);
  /// For the inside of one long step (a vote over a huge raster, a scan of millions of
  /// cells): counts units of work done on the calling thread and, once per kPaceInterval
  /// units, does what check() does except calling the poll function (which runs once per
  /// step, from check()), so that a step of any size ends promptly after an interruption
  /// request or a passed deadline. A unit is about a nanosecond of work (a raster cell).
  static void pace(long work);
  /// Units of work between two checks made by pace().
  static constexpr long kPaceInterval = 1L << 16;
  /// Seconds left until the calling thread's deadline; infinity when none is in force.
  static double secondsLeft();
};
