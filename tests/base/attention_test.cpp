// Interruption: a request from any thread makes the next check() throw, once.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <limits>
#include <string>
#include <thread>

#include "common/expect_throw.h"
#include "mvbase/attention.h"

namespace {

// Every test starts and ends with nothing pending and no poll function.
class Attention : public ::testing::Test {
 protected:
  void SetUp() override {
    mvAttention::clear();
    mvAttention::setPoll(nullptr);
  }
  void TearDown() override { SetUp(); }
};

std::atomic<int> pollCalls{0};
bool pollRequestsOnThirdCall() { return ++pollCalls == 3; }

}  // namespace

TEST_F(Attention, CheckReturnsWhenNothingIsPending) {
  EXPECT_FALSE(mvAttention::isRequested());
  EXPECT_NO_THROW(mvAttention::check());
}

TEST_F(Attention, ARequestIsConsumedByOneCheck) {
  mvAttention::requestInterruption();
  EXPECT_TRUE(mvAttention::isRequested());
  EXPECT_THROW(mvAttention::check(), mvAttention::Interrupted);
  EXPECT_FALSE(mvAttention::isRequested());
  EXPECT_NO_THROW(mvAttention::check());
}

TEST_F(Attention, ClearWithdrawsARequest) {
  mvAttention::requestInterruption();
  mvAttention::clear();
  EXPECT_NO_THROW(mvAttention::check());
}

TEST_F(Attention, InterruptedIsAnMvException) {
  mvAttention::requestInterruption();
  EXPECT_THROW(mvAttention::check(), mvException);
}

TEST_F(Attention, RequestFromAnotherThreadStopsARunningLoop) {
  std::atomic<bool> running{false};
  std::atomic<bool> interrupted{false};
  std::thread worker([&] {
    // A long search checking once per step; the deadline only guards against a hang.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    try {
      while (std::chrono::steady_clock::now() < deadline) {
        running = true;
        mvAttention::check();
      }
    } catch (const mvAttention::Interrupted&) {
      interrupted = true;
    }
  });
  while (!running) std::this_thread::yield();
  std::thread requester([] { mvAttention::requestInterruption(); });
  requester.join();
  worker.join();
  EXPECT_TRUE(interrupted);
  EXPECT_FALSE(mvAttention::isRequested());
}

TEST_F(Attention, PollFunctionIsAskedOnEveryCheck) {
  pollCalls = 0;
  EXPECT_EQ(mvAttention::setPoll(&pollRequestsOnThirdCall), nullptr);
  EXPECT_NO_THROW(mvAttention::check());
  EXPECT_NO_THROW(mvAttention::check());
  EXPECT_THROW(mvAttention::check(), mvAttention::Interrupted);
  EXPECT_NO_THROW(mvAttention::check());
  EXPECT_EQ(pollCalls, 4);
  EXPECT_EQ(mvAttention::setPoll(nullptr), &pollRequestsOnThirdCall);
}

TEST_F(Attention, DeadlineMakesCheckThrowTimedOutOnceItHasPassed) {
  mvAttention::Deadline limit(0.02);
  EXPECT_NO_THROW(mvAttention::check());
  EXPECT_LE(mvAttention::secondsLeft(), 0.02);
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_THROW(mvAttention::check(), mvAttention::TimedOut);
  // It stays passed: every further check throws, and TimedOut is an Interrupted.
  EXPECT_THROW(mvAttention::check(), mvAttention::Interrupted);
}

TEST_F(Attention, TimedOutNamesTheLimit) {
  mvAttention::Deadline limit(0.0);
  EXPECT_THROW_MESSAGE(
      mvAttention::check(), mvAttention::TimedOut,
      "The run took longer than its time limit of 0 s; allow more time or make the "
      "search smaller.");
}

TEST_F(Attention, DeadlineEndsWithItsScopeAndNestedOnesKeepTheEarliest) {
  {
    mvAttention::Deadline outer(0.0);
    {
      mvAttention::Deadline inner(100.0);  // later: the outer one stays in force
      EXPECT_THROW(mvAttention::check(), mvAttention::TimedOut);
    }
    EXPECT_THROW(mvAttention::check(), mvAttention::TimedOut);
  }
  EXPECT_NO_THROW(mvAttention::check());
  EXPECT_EQ(mvAttention::secondsLeft(), std::numeric_limits<double>::infinity());
  mvAttention::Deadline forever(std::numeric_limits<double>::infinity());
  EXPECT_NO_THROW(mvAttention::check());
}

TEST_F(Attention, NegativeOrNaNTimeLimitIsRefused) {
  EXPECT_THROW(mvAttention::Deadline{-1.0}, mvAssertionError);
  EXPECT_THROW(mvAttention::Deadline{std::numeric_limits<double>::quiet_NaN()}, mvAssertionError);
}

TEST_F(Attention, PaceChecksOncePerIntervalOfWork) {
  mvAttention::pace(mvAttention::kPaceInterval);  // spends whatever was left
  mvAttention::requestInterruption();
  mvAttention::pace(mvAttention::kPaceInterval - 1);  // not yet
  EXPECT_TRUE(mvAttention::isRequested());
  EXPECT_THROW(mvAttention::pace(1), mvAttention::Interrupted);
  EXPECT_FALSE(mvAttention::isRequested());
}
