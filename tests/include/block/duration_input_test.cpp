// SPDX-License-Identifier: MIT
#include "block/duration_input.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace std::chrono_literals;

TEST(DurationInput, ZeroIsTheDefault) {
  EXPECT_EQ(DurationInput(0, 24h), 24h);
  EXPECT_EQ(DurationInput(-0.0, 24h), 24h);
}

TEST(DurationInput, SecondsBecomeMillisecondsRoundedUp) {
  EXPECT_EQ(DurationInput(2.5, 1s), 2500ms);
  EXPECT_EQ(DurationInput(1e-9, 1s), 1ms) << "a short time is not the default";
  EXPECT_EQ(DurationInput(86400, 1s), 24h);
}

TEST(DurationInput, VeryLongTimesAreAHundredYearsWhichAClockCanAdd) {
  EXPECT_EQ(DurationInput(1e300, 1s), std::chrono::years(100));
  EXPECT_EQ(DurationInput(std::numeric_limits<double>::max(), 1s), std::chrono::years(100));
  const auto now = std::chrono::steady_clock::now();
  EXPECT_GT(now + *DurationInput(1e12, 1s), now) << "a message would have expired at once";
}

TEST(DurationInput, NegativeInfiniteAndNanAreNoDuration) {
  EXPECT_EQ(DurationInput(-1e-9, 1s), std::nullopt);
  EXPECT_EQ(DurationInput(std::numeric_limits<double>::infinity(), 1s), std::nullopt);
  EXPECT_EQ(DurationInput(-std::numeric_limits<double>::infinity(), 1s), std::nullopt);
  EXPECT_EQ(DurationInput(std::numeric_limits<double>::quiet_NaN(), 1s), std::nullopt);
}

}  // namespace
