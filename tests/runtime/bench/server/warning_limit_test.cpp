// SPDX-License-Identifier: MIT
#include "runtime/bench/server/warning_limit.h"

#include <gtest/gtest.h>

namespace {

using corvane::bench::WarningLimit;
using namespace std::chrono_literals;

TEST(WarningLimitTest, LogsOneOfManyAndHowManyThereWere) {
  WarningLimit limit;
  auto now = std::chrono::steady_clock::now();
  EXPECT_EQ(limit.Pass("slow", now), "slow");
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(limit.Pass("slow", now += 1ms), "");
  now += WarningLimit::kInterval;
  EXPECT_EQ(limit.Pass("slow again", now), "slow again (1000 more since the last such line)");
  now += WarningLimit::kInterval;
  EXPECT_EQ(limit.Pass("slow", now), "slow");
}

}  // namespace
