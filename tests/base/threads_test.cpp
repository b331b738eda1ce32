// The thread request: the process-wide count, its withdrawal, per-thread scopes, the cap,
// and PTMATCH_NUM_THREADS (read once per process, so each reading runs in a process of its
// own).
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "mvbase/exception.h"
#include "mvbase/threads.h"

namespace {

// Every test starts and ends with no process-wide request.
class Threads : public ::testing::Test {
 protected:
  void SetUp() override { mvThreads::setCount(0); }
  void TearDown() override { mvThreads::setCount(0); }
};

}  // namespace

TEST_F(Threads, HardwareIsAtLeastOne) {
  EXPECT_GE(mvThreads::hardware(), 1);
  EXPECT_LE(mvThreads::hardware(), mvThreads::kMaxThreads);
}

TEST_F(Threads, SetCountIsTheRequestOfEveryThread) {
  mvThreads::setCount(3);
  EXPECT_EQ(mvThreads::requested(), 3);
  EXPECT_EQ(mvThreads::forSynchronous(), 3);
  EXPECT_EQ(mvThreads::forMachine(), 3);
  long seen = 0;
  std::thread other([&seen] { seen = mvThreads::requested(); });
  other.join();
  EXPECT_EQ(seen, 3);
  mvThreads::setCount(1);
  EXPECT_EQ(mvThreads::forSynchronous(), 1);
  EXPECT_EQ(mvThreads::forMachine(), 1);
}

TEST_F(Threads, ZeroWithdrawsTheRequest) {
  mvThreads::setCount(5);
  mvThreads::setCount(0);
  if (std::getenv("PTMATCH_NUM_THREADS") != nullptr) GTEST_SKIP() << "the environment asks";
  EXPECT_EQ(mvThreads::requested(), 0);
  EXPECT_EQ(mvThreads::forSynchronous(), 1);
  EXPECT_EQ(mvThreads::forMachine(), mvThreads::hardware());
}

TEST_F(Threads, NegativeCountFailsAndChangesNothing) {
  mvThreads::setCount(2);
  EXPECT_THROW(mvThreads::setCount(-1), mvAssertionError);
  EXPECT_EQ(mvThreads::requested(), 2);
}

TEST_F(Threads, LargeRequestsAreCapped) {
  mvThreads::setCount(1L << 40);
  EXPECT_EQ(mvThreads::requested(), mvThreads::kMaxThreads);
  const mvThreads::Scope scope(5000);
  EXPECT_EQ(mvThreads::requested(), mvThreads::kMaxThreads);
}

TEST_F(Threads, ScopesNestAndEnd) {
  mvThreads::setCount(2);
  {
    const mvThreads::Scope outer(4);
    EXPECT_EQ(mvThreads::requested(), 4);
    {
      const mvThreads::Scope inner(1);
      EXPECT_EQ(mvThreads::requested(), 1);
      EXPECT_EQ(mvThreads::forMachine(), 1);
    }
    EXPECT_EQ(mvThreads::requested(), 4);
  }
  EXPECT_EQ(mvThreads::requested(), 2);
}

TEST_F(Threads, ScopeLeavesOtherThreadsAlone) {
  mvThreads::setCount(2);
  const mvThreads::Scope scope(7);
  long seen = 0;
  std::thread other([&seen] { seen = mvThreads::requested(); });
  other.join();
  EXPECT_EQ(seen, 2);
  EXPECT_EQ(mvThreads::requested(), 7);
}

TEST_F(Threads, ScopeOfFewerThanOneFails) {
  EXPECT_THROW(mvThreads::Scope(0), mvAssertionError);
  EXPECT_THROW(mvThreads::Scope(-3), mvAssertionError);
  mvThreads::setCount(2);
  EXPECT_EQ(mvThreads::requested(), 2);  // the failed scope left nothing behind
}

// PTMATCH_NUM_THREADS as the process sees it at its first request: the child process of a
// death test starts afresh (threadsafe style), sets the variable and exits with what
// requested() gives.
namespace {

void exitWithRequestFor(const char* text) {
  setenv("PTMATCH_NUM_THREADS", text, 1);
  std::exit(static_cast<int>(mvThreads::requested()));
}

void expectEnvironmentGives(const char* text, int expected) {
  EXPECT_EXIT(exitWithRequestFor(text), ::testing::ExitedWithCode(expected), "") << text;
}

}  // namespace

TEST_F(Threads, EnvironmentCountIsRead) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  expectEnvironmentGives("4", 4);
  expectEnvironmentGives("1", 1);
  expectEnvironmentGives("200", 200);
}

TEST_F(Threads, EnvironmentCountOutsideOneTo1024IsIgnored) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  expectEnvironmentGives("0", 0);
  expectEnvironmentGives("-2", 0);
  expectEnvironmentGives("1025", 0);
  expectEnvironmentGives("3x", 0);
  expectEnvironmentGives("many", 0);
  expectEnvironmentGives("", 0);
  expectEnvironmentGives("99999999999999999999999", 0);
}

TEST_F(Threads, SetCountAndScopesOverrideTheEnvironment) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        setenv("PTMATCH_NUM_THREADS", "6", 1);
        const bool environment = mvThreads::requested() == 6;
        mvThreads::setCount(2);
        const bool set = mvThreads::requested() == 2;
        long scoped = 0;
        {
          const mvThreads::Scope scope(3);
          scoped = mvThreads::requested();
        }
        mvThreads::setCount(0);
        const bool back = mvThreads::requested() == 6;
        std::exit(environment && set && scoped == 3 && back ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}
