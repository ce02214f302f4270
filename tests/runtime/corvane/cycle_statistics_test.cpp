// SPDX-License-Identifier: MIT
#include "runtime/corvane/cycle_statistics.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using corvane::CycleStatistics;
using corvane::DurationHistogram;
using corvane::Nanoseconds;

TEST(DurationHistogram, WithoutDurationsIsZero) {
  EXPECT_EQ(DurationHistogram().Quantile(0.99), Nanoseconds(0));
}

TEST(DurationHistogram, AQuantileIsAtMostOne32ndTooHigh) {
  for (std::int64_t value = 0; value < std::numeric_limits<std::int64_t>::max() / 3;
       value = value * 3 / 2 + 1) {
    DurationHistogram histogram;
    histogram.Add(Nanoseconds(value));
    const std::int64_t quantile = histogram.Quantile(1).count();
    ASSERT_GE(quantile, value);
    ASSERT_LE(quantile - value, value / 32);
  }
}

TEST(DurationHistogram, TheLongestDurationFits) {
  DurationHistogram histogram;
  histogram.Add(Nanoseconds::max());
  EXPECT_EQ(histogram.Quantile(0.5), Nanoseconds::max());
}

TEST(DurationHistogram, ATimeBeforeItsDeadlineCountsAsZero) {
  DurationHistogram histogram;
  histogram.Add(Nanoseconds(-5));
  EXPECT_EQ(histogram.Quantile(1), Nanoseconds(0));
}

TEST(DurationHistogram, TheQuantileSeparatesTheSlowestHundredth) {
  DurationHistogram histogram;
  for (int i = 0; i < 99; ++i) histogram.Add(Nanoseconds(10));
  histogram.Add(Nanoseconds(1'000'000));
  EXPECT_EQ(histogram.Quantile(0.99), Nanoseconds(10));
  EXPECT_GE(histogram.Quantile(0.995), Nanoseconds(1'000'000));
}

TEST(DurationHistogram, TheQuantileOfFewIsOneOfThem) {
  DurationHistogram histogram;
  for (const int value : {10, 20, 30}) histogram.Add(Nanoseconds(value));
  EXPECT_EQ(histogram.Quantile(0.1), Nanoseconds(10)) << "a tenth of three is the first";
  EXPECT_EQ(histogram.Quantile(0.4), Nanoseconds(20));
  EXPECT_EQ(histogram.Quantile(0), Nanoseconds(10)) << "no class without a duration";
}

TEST(CycleStatistics, IsSummedUpInOneLine) {
  CycleStatistics statistics;
  statistics.AddCycle(std::chrono::milliseconds(1), std::chrono::microseconds(10));
  statistics.AddCycle(std::chrono::milliseconds(3), std::chrono::microseconds(50));
  statistics.AddOverrun();
  EXPECT_EQ(statistics.Summary(),
            "2 cycles, 1 overruns; cycle time min 1ms mean 2ms p99 3ms max 3ms; "
            "started late p99 50us max 50us");
}

TEST(CycleStatistics, WithoutCyclesIsAllZero) {
  EXPECT_EQ(CycleStatistics().Summary(),
            "0 cycles, 0 overruns; cycle time min 0s mean 0s p99 0s max 0s; "
            "started late p99 0s max 0s");
}

}  // namespace
