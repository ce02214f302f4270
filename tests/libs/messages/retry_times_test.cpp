// SPDX-License-Identifier: MIT
#include "libs/messages/retry_times.h"

#include <gtest/gtest.h>

namespace {

using messages::RetryDelay;

TEST(RetryTimes, GrowFromFifteenSecondsToFifteenMinutesAndStayThere) {
  const int seconds[] = {15, 30, 60, 120, 240, 480, 900, 900, 900};
  int failures = 0;
  for (const int expected : seconds) EXPECT_EQ(RetryDelay(++failures).count(), expected);
  EXPECT_EQ(RetryDelay(1'000'000).count(), 900);
}

TEST(RetryTimes, CountAnythingBelowOneAsTheFirstFailure) {
  EXPECT_EQ(RetryDelay(0).count(), 15);
  EXPECT_EQ(RetryDelay(-3).count(), 15);
}

}  // namespace
