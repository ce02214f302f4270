// SPDX-License-Identifier: MIT
#include "share/file_time.h"

#include <gtest/gtest.h>

namespace {

constexpr std::int64_t kSecond = 10'000'000;

std::int64_t Ticks(RTime time) {
  return RTimeToFileTime(&time);
}

TEST(FileTime, CountsFrom1601) {
  EXPECT_EQ(Ticks({1601, 1, 1, 0, 0, 0, 0}), 0);
  EXPECT_EQ(Ticks({1601, 1, 1, 0, 0, 1, 0}), kSecond);
  EXPECT_EQ(Ticks({1601, 1, 2, 0, 0, 0, 1}), 86400 * kSecond + 10'000);
}

TEST(FileTime, OfTheUnixEpoch) {
  EXPECT_EQ(Ticks({1970, 1, 1, 0, 0, 0, 0}), 116'444'736'000'000'000);
}

TEST(FileTime, OfDaysAround2038And2100) {
  EXPECT_EQ(Ticks({2038, 1, 19, 3, 14, 8, 0}), (11'644'473'600 + 2'147'483'648) * kSecond);
  EXPECT_EQ(Ticks({2099, 12, 31, 23, 59, 59, 999}),
            (11'644'473'600 + 4'102'444'799) * kSecond + 9'990'000);
  // 2100 is not a leap year; 2000 was one.
  EXPECT_EQ(Ticks({2100, 3, 1, 0, 0, 0, 0}) - Ticks({2100, 2, 28, 0, 0, 0, 0}), 86400 * kSecond);
  EXPECT_EQ(Ticks({2000, 3, 1, 0, 0, 0, 0}) - Ticks({2000, 2, 28, 0, 0, 0, 0}),
            2 * 86400 * kSecond);
}

TEST(FileTime, EveryDayFollowsTheOneBefore) {
  static const std::uint16_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  std::int64_t expected = 0;
  for (std::uint16_t year = 1601; year < 2200; ++year) {
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    for (std::uint16_t month = 1; month <= 12; ++month) {
      const int days = kDays[month - 1] + (leap && month == 2 ? 1 : 0);
      for (int day = 1; day <= days; ++day) {
        ASSERT_EQ(Ticks({year, month, static_cast<std::uint16_t>(day), 0, 0, 0, 0}), expected);
        expected += 86400 * kSecond;
      }
    }
  }
}

TEST(FileTime, FieldsOutOfRangeCarryOver) {
  EXPECT_EQ(Ticks({2011, 13, 1, 0, 0, 0, 0}), Ticks({2012, 1, 1, 0, 0, 0, 0}));
  EXPECT_EQ(Ticks({2012, 0, 1, 0, 0, 0, 0}), Ticks({2011, 12, 1, 0, 0, 0, 0}));
  EXPECT_EQ(Ticks({2012, 3, 0, 0, 0, 0, 0}), Ticks({2012, 2, 29, 0, 0, 0, 0}));
  EXPECT_EQ(Ticks({2012, 1, 1, 24, 60, 60, 1000}), Ticks({2012, 1, 2, 1, 1, 1, 0}));
}

TEST(FileTime, Before1601IsTheNullTime) {
  EXPECT_EQ(Ticks({1600, 12, 31, 0, 0, 0, 0}), 0);
  EXPECT_EQ(Ticks({0, 0, 0, 0, 0, 0, 0}), 0);
}

TEST(FileTime, TheLargestFieldsDoNotOverflow) {
  EXPECT_GT(Ticks({65535, 65535, 65535, 65535, 65535, 65535, 65535}), 0);
}

}  // namespace
