// SPDX-License-Identifier: MIT
// The scan, with a clock that the test moves.
#include "runtime/corvane/scan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <stdexcept>
#include <vector>

namespace {

using corvane::Scan;
using corvane::ScanClock;
using corvane::ScanLock;
using std::chrono::milliseconds;
using testing::ElementsAre;

/// Time passes only while somebody waits or a cycle runs.
class FakeClock : public ScanClock {
 public:
  TimePoint Now() override { return now_; }
  Wake WaitUntil(TimePoint deadline) override {
    if (!wakes.empty()) {
      const Wake wake = wakes.front();
      wakes.pop_front();
      if (wake != Wake::kDeadline) return wake;
    }
    now_ = std::max(now_, deadline + lateness);
    return Wake::kDeadline;
  }
  void Pass(milliseconds time) { now_ += time; }
  /// Milliseconds since the test began.
  auto Elapsed() const { return std::chrono::duration_cast<milliseconds>(now_ - start_).count(); }

  std::deque<Wake> wakes;  ///< how the next waits end; kDeadline when none is left
  std::chrono::nanoseconds lateness{0};

 private:
  TimePoint start_{std::chrono::hours(1)};
  TimePoint now_ = start_;
};

class ScanTest : public testing::Test {
 protected:
  /// Runs cycles that take `durations` ms, one after another, and keeps their start times.
  void Run(Scan& scan, std::vector<int> durations) {
    std::size_t next = 0;
    scan.Run(
        [&](std::uint64_t number) {
          EXPECT_EQ(number, next + 1);
          starts_.push_back(clock_.Elapsed());
          clock_.Pass(milliseconds(durations.at(next)));
          return ++next < durations.size();
        },
        [&] { ++reports_; });
  }

  FakeClock clock_;
  ScanLock lock_;
  std::vector<milliseconds::rep> starts_;
  int reports_ = 0;
};

TEST_F(ScanTest, KeepsThePeriodWhateverTheCyclesTake) {
  Scan scan({milliseconds(100), 0}, clock_, lock_);
  Run(scan, {10, 90, 0, 50, 99});
  EXPECT_THAT(starts_, ElementsAre(0, 100, 200, 300, 400));
  EXPECT_EQ(scan.statistics().overruns(), 0u);
}

TEST_F(ScanTest, TellsAfterEachCycleWhatItTook) {
  clock_.lateness = milliseconds(5);
  Scan scan({milliseconds(100), 3}, clock_, lock_);
  std::vector<corvane::CycleFacts> cycles;
  const std::deque<int> durations{10, 150, 30};
  scan.Run(
      [&](std::uint64_t number) {
        clock_.Pass(milliseconds(durations.at(static_cast<std::size_t>(number) - 1)));
        return true;
      },
      [] {},
      [&](const corvane::CycleFacts& facts) {
        EXPECT_EQ(facts.end, clock_.Now());
        cycles.push_back(facts);
        clock_.Pass(milliseconds(1));
      });
  ASSERT_EQ(cycles.size(), 3u);
  EXPECT_EQ(cycles[0].duration, milliseconds(10));
  EXPECT_EQ(cycles[0].lateness, milliseconds(5));
  EXPECT_EQ(cycles[1].duration, milliseconds(150));
  EXPECT_EQ(cycles[1].overruns, 0u);
  EXPECT_EQ(cycles[2].overruns, 1u);
}

TEST_F(ScanTest, ALateWakeDoesNotDriftThePeriod) {
  clock_.lateness = milliseconds(5);
  Scan scan({milliseconds(100), 0}, clock_, lock_);
  Run(scan, {10, 10, 10});
  EXPECT_THAT(starts_, ElementsAre(5, 105, 205));
}

TEST_F(ScanTest, AnOverrunIsCountedAndSkipsTheStartsThatItMissed) {
  Scan scan({milliseconds(100), 0}, clock_, lock_);
  Run(scan, {10, 350, 10, 10});
  EXPECT_THAT(starts_, ElementsAre(0, 100, 500, 600)) << "no burst, and the phase is kept";
  EXPECT_EQ(scan.statistics().overruns(), 1u);
}

TEST_F(ScanTest, ACycleThatEndsOnTheNextDeadlineIsNotAnOverrun) {
  Scan scan({milliseconds(100), 0}, clock_, lock_);
  Run(scan, {100, 100, 10});
  EXPECT_THAT(starts_, ElementsAre(0, 100, 200));
  EXPECT_EQ(scan.statistics().overruns(), 0u);
}

TEST_F(ScanTest, AnOverrunThatEndsOnADeadlineContinuesThere) {
  Scan scan({milliseconds(100), 0}, clock_, lock_);
  Run(scan, {200, 10});
  EXPECT_THAT(starts_, ElementsAre(0, 200));
  EXPECT_EQ(scan.statistics().overruns(), 1u);
}

TEST_F(ScanTest, WithoutAPeriodThereIsNoPauseAndNoOverrun) {
  Scan scan({milliseconds(0), 0}, clock_, lock_);
  Run(scan, {7, 7, 7});
  EXPECT_THAT(starts_, ElementsAre(0, 7, 14));
  EXPECT_EQ(scan.statistics().overruns(), 0u);
}

TEST_F(ScanTest, EndsAfterTheGivenNumberOfCycles) {
  Scan scan({milliseconds(100), 3}, clock_, lock_);
  Run(scan, {1, 1, 1, 1, 1});
  EXPECT_EQ(starts_.size(), 3u);
}

TEST_F(ScanTest, EndsWhenTheClockSaysStop) {
  clock_.wakes = {ScanClock::Wake::kDeadline, ScanClock::Wake::kDeadline, ScanClock::Wake::kStop};
  Scan scan({milliseconds(100), 0}, clock_, lock_);
  Run(scan, {1, 1, 1, 1});
  EXPECT_EQ(starts_.size(), 2u);
}

TEST_F(ScanTest, AReportDoesNotShiftTheDeadline) {
  clock_.wakes = {ScanClock::Wake::kDeadline, ScanClock::Wake::kStatistics};
  Scan scan({milliseconds(100), 0}, clock_, lock_);
  Run(scan, {1, 1});
  EXPECT_EQ(reports_, 1);
  EXPECT_THAT(starts_, ElementsAre(0, 100));
}

TEST_F(ScanTest, HoldsTheLockOnlyInsideACycle) {
  Scan scan({milliseconds(100), 2}, clock_, lock_);
  scan.Run([](std::uint64_t) { return true; }, [] {});
  lock_.lock();  // hangs if the scan still holds it
  lock_.unlock();
}

TEST_F(ScanTest, AnExceptionEndsTheScanWithTheCycleCountedAndTheLockReleased) {
  Scan scan({milliseconds(100), 0}, clock_, lock_);
  EXPECT_THROW(scan.Run([](std::uint64_t) -> bool { throw std::runtime_error("x"); }, [] {}),
               std::runtime_error);
  EXPECT_EQ(scan.statistics().cycles(), 1u);
  lock_.lock();
  lock_.unlock();
}

}  // namespace
