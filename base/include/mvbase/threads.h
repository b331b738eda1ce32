// How many threads the searches use. One process-wide request (set in code or by the
// PTMATCH_NUM_THREADS environment variable) and a per-thread scope that overrides it.
//
// Searches that a caller writes as synchronous (mvPointMatcher::run) use one thread, the
// caller's, unless threads were asked for; searches built to use the machine
// (mfPlannedMatch, the command-line tool) default to every core. Whatever the count, every
// search gives the same results.
#pragma once

#include "mvbase/export.h"

/// The thread request of the searches.
class MVBASE_API mvThreads {
 public:
  /// Asks every search of the process for n threads (n >= 1), or withdraws the request
  /// (n == 0), so that each search uses its own default again. A negative n fails mvAssert
  /// (mvAssertionError) and changes nothing.
  static void setCount(long n);

  /// The request in force on the calling thread: the innermost Scope's, else setCount's,
  /// else that of PTMATCH_NUM_THREADS (a whole number from 1 to 1024, read once; anything
  /// else is ignored), else 0 (no request).
  static long requested();

  /// The machine's cores, at least 1.
  static long hardware();

  /// Threads for a search whose default is the caller's thread alone: requested() or 1.
  static long forSynchronous();

  /// Threads for a search whose default is the whole machine: requested() or hardware().
  static long forMachine();

  /// A request for the searches run on the calling thread, from construction until
  /// destruction; scopes nest, the innermost applies. Other threads are not affected.
  ///
  ///   mvThreads::Scope threads(4);
  ///   matcher.run(data, params, results);  // votes on 4 threads
  class MVBASE_API Scope {
   public:
    /// n >= 1 threads; a smaller n fails mvAssert (mvAssertionError).
    explicit Scope(long n);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    long outer_;
  };

  /// The most threads a request may name; larger requests are capped to it.
  static constexpr long kMaxThreads = 1024;
};
