// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/rare_warning.h"

#include <gmock/gmock.h>

#include <thread>

#include "tests/support/captured_log.h"

namespace {

using corvane::RareWarning;
using testing::ElementsAre;

TEST(RareWarning, LogsTheSameWarningOnlyOnceInAWhile) {
  test_support::TakeLog();
  RareWarning warning(std::chrono::hours(1));
  for (int i = 0; i < 5; ++i) warning.Log("a", "first");
  warning.Log("b", "second");
  EXPECT_THAT(test_support::TakeLog(), ElementsAre("warning first", "warning second"));
}

TEST(RareWarning, SaysHowOftenItCame) {
  test_support::TakeLog();
  RareWarning warning(std::chrono::milliseconds(50));
  for (int i = 0; i < 5; ++i) warning.Log("a", "first");
  std::this_thread::sleep_for(std::chrono::milliseconds(60));  // the time is what is tested
  warning.Log("a", "first");
  const auto log = test_support::TakeLog();
  EXPECT_EQ(log.front(), "warning first");
  EXPECT_THAT(log.back(), testing::MatchesRegex("warning first; [2-5] times since .*"));
}

TEST(RareWarning, UsesBoundedMemory) {
  test_support::TakeLog();
  RareWarning warning(std::chrono::hours(1));
  for (int i = 0; i < 1000; ++i) warning.Log(std::to_string(i), "x");
  EXPECT_EQ(test_support::TakeLog().size(), 1000u);
}

}  // namespace
