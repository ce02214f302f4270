// SPDX-License-Identifier: MIT
// The real clock, interrupted by real signals.
#include "runtime/corvane/scan_clock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <thread>

namespace {

using corvane::ScanClock;
using corvane::SystemScanClock;
using Wake = ScanClock::Wake;

ScanClock::TimePoint Never() {
  return std::chrono::steady_clock::now() + std::chrono::hours(24);
}

TEST(SystemScanClock, WaitsUntilTheDeadlineAndNoLess) {
  SystemScanClock clock;
  const auto deadline = clock.Now() + std::chrono::milliseconds(20);
  EXPECT_EQ(clock.WaitUntil(deadline), Wake::kDeadline);
  EXPECT_GE(clock.Now(), deadline);
}

TEST(SystemScanClock, ADeadlineThatHasPassedReturnsAtOnce) {
  SystemScanClock clock;
  EXPECT_EQ(clock.WaitUntil(clock.Now() - std::chrono::hours(1)), Wake::kDeadline);
}

TEST(SystemScanClock, EachStopSignalEndsTheWaitAndStaysSet) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SystemScanClock clock;
    std::thread sender([signal] { kill(getpid(), signal); });
    EXPECT_EQ(clock.WaitUntil(Never()), Wake::kStop);
    sender.join();
    EXPECT_EQ(clock.WaitUntil(Never()), Wake::kStop);
  }
}

TEST(SystemScanClock, ASignalBeforeTheWaitIsNotLost) {
  SystemScanClock clock;
  raise(SIGTERM);
  EXPECT_EQ(clock.WaitUntil(clock.Now() - std::chrono::hours(1)), Wake::kStop);
}

TEST(SystemScanClock, StatisticsAreRequestedOncePerSignal) {
  SystemScanClock clock;
  raise(SIGUSR1);
  EXPECT_EQ(clock.WaitUntil(Never()), Wake::kStatistics);
  EXPECT_EQ(clock.WaitUntil(clock.Now() + std::chrono::milliseconds(5)), Wake::kDeadline);
  raise(SIGUSR1);
  EXPECT_EQ(clock.WaitUntil(Never()), Wake::kStatistics);
}

TEST(SystemScanClock, ManyHangupsDoNotEndTheProcess) {
  SystemScanClock clock;
  for (int i = 0; i < 3; ++i) raise(SIGHUP);
  raise(SIGTERM);  // the first one that counts
  EXPECT_EQ(clock.WaitUntil(Never()), Wake::kStop);
}

TEST(SystemScanClockDeathTest, ASecondStopSignalHasItsOrdinaryEffect) {
  for (const int signal : {SIGINT, SIGTERM}) {
    const auto twice = [signal] {
      std::signal(signal, SIG_DFL);
      const SystemScanClock clock;
      raise(signal);
      raise(signal);
    };
    EXPECT_EXIT(twice(), testing::KilledBySignal(signal), "");
  }
}

TEST(SystemScanClock, LeavesAHangupAloneWhenToldTo) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  {
    SystemScanClock clock(SystemScanClock::Hangup::kNothing);
    raise(SIGHUP);
    EXPECT_EQ(clock.WaitUntil(clock.Now()), Wake::kDeadline);
  }
  EXPECT_EQ(std::signal(SIGHUP, before), SIG_IGN);
}

TEST(SystemScanClock, RestoresTheSignalsWhenItIsDestroyed) {
  const auto before = std::signal(SIGTERM, SIG_IGN);
  { const SystemScanClock clock; }
  EXPECT_EQ(std::signal(SIGTERM, before), SIG_IGN);
}

}  // namespace
