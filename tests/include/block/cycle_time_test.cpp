// SPDX-License-Identifier: MIT
#include "block/cycle_time.h"

#include <gtest/gtest.h>

#include "runtime/corvane/cycle_time.h"

namespace {

TEST(BlockCycleTime, IsThatOfTheRuntimesCycle) {
  const corvane::StandingTime time;
  corvane::SetCycleTime({12.5, 1800000000});
  EXPECT_EQ(CycleClock(), 12.5);
  EXPECT_EQ(CycleNow(), 1800000000);
}

}  // namespace
