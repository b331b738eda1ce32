// Interruption of long searches. An application requests an interruption from any
// thread; the next check() in a running search throws Interrupted and consumes the
// request.
#pragma once

#include "mvbase/exception.h"
#include "mvbase/export.h"

/// Lets an application interrupt a long search.
class MVBASE_API mvAttention {
 public:
  /// Thrown by check() once an interruption has been requested.
  class MVBASE_API Interrupted : public mvExceptionWithString {
   public:
    Interrupted();
    void suicideAndRethrow() override;
    void dispatchSerialize(mvArchive& ar) override;
    static mvPersistent* make();

   protected:
    void serialize_(mvArchive& ar, unsigned char version) override;
  };

  /// A function polled by check(); returning true requests an interruption (for example
  /// a scripting host's pending signal). Null for none.
  using Poll = bool (*)();

  /// Returns at once when nothing is pending; otherwise consumes the request and throws
  /// Interrupted.
  static void check();
  /// Requests an interruption of the run in progress; safe from any thread.
  static void requestInterruption();
  /// Withdraws a pending request.
  static void clear();
  /// True while a request is pending.
  static bool isRequested();
  /// Installs a poll function (null removes it); returns the previous one.
  static Poll setPoll(Poll poll);
};
