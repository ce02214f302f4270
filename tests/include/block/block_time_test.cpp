// SPDX-License-Identifier: MIT
#include "block/block_time.h"

#include <gtest/gtest.h>

#include "share/file_time.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::sys_days;

TEST(BlockTime, IsTheTimeThatTheHostCounts) {
  using namespace std::chrono_literals;
  const std::chrono::sys_time<milliseconds> time =
      sys_days(std::chrono::year(2026) / 11 / 22) + 13h + 45min + 5s + 250ms;
  const RTime fields{2026, 11, 22, 13, 45, 5, 250};
  EXPECT_EQ(ToDateTime(time), RTimeToFileTime(&fields));
  EXPECT_EQ(FromDateTime(RTimeToFileTime(&fields)), BlockTime(time));
}

TEST(BlockTime, NothingIsTheNullTime) {
  EXPECT_EQ(ToDateTime(std::nullopt), 0);
  EXPECT_EQ(FromDateTime(0), std::nullopt);
  EXPECT_EQ(FromDateTime(-1), std::nullopt);
}

TEST(BlockTime, TimesOutsideTheRangeAreTheNullTime) {
  EXPECT_EQ(ToDateTime(sys_days(std::chrono::year(1600) / 12 / 31)), 0);
  EXPECT_EQ(ToDateTime(BlockTime::max()), 0);
  EXPECT_EQ(ToDateTime(BlockTime::min()), 0);
}

TEST(BlockTime, EveryTickComesBack) {
  for (const OpcUa_DateTime ticks : {OpcUa_DateTime{1}, corvane::kUnixEpochTicks - 1,
                                     corvane::kUnixEpochTicks, OpcUa_DateTime{INT64_MAX}}) {
    EXPECT_EQ(ToDateTime(FromDateTime(ticks)), ticks);
  }
}

}  // namespace
