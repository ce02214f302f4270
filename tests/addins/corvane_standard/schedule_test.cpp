// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/schedule.h"

#include <gtest/gtest.h>

#include "tests/addins/corvane_standard/time_zone.h"

namespace {

using corvane_standard::Schedule;
using corvane_standard::ScheduleError;

/// "Tue 2026-11-24 06:30"
std::string Shown(std::optional<std::int64_t> point) {
  if (!point) return "never";
  const auto time = static_cast<std::time_t>(*point);
  std::tm local{};
  localtime_r(&time, &local);
  char text[64];
  std::strftime(text, sizeof text, "%a %Y-%m-%d %H:%M", &local);
  return text;
}

/// When it is due, from a Sunday on, in UTC.
std::string Dues(const std::string& text, int count) {
  const TimeZone zone("UTC");
  const Schedule schedule(text);
  std::string dues;
  std::optional<std::int64_t> at = Utc("2026-11-22 12:00");
  for (int i = 0; i < count && at; ++i) {
    at = schedule.NextAfter(*at);
    dues += (i == 0 ? "" : "; ") + Shown(at);
  }
  return dues;
}

std::string ErrorOf(const std::string& text) {
  try {
    const Schedule schedule(text);
  } catch (const ScheduleError& error) {
    return error.what();
  }
  return "no error";
}

TEST(Schedule, HasATimeOfEveryDay) {
  EXPECT_EQ(Dues("06:30", 2), "Mon 2026-11-23 06:30; Tue 2026-11-24 06:30");
  EXPECT_EQ(Dues("13:00", 2), "Sun 2026-11-22 13:00; Mon 2026-11-23 13:00");
  EXPECT_EQ(Dues("12:00", 1), "Mon 2026-11-23 12:00");  // after, not at
  EXPECT_EQ(Dues("6:05", 1), "Mon 2026-11-23 06:05");
}

TEST(Schedule, HasWeekdays) {
  EXPECT_EQ(Dues("Wed 06:30", 2), "Wed 2026-11-25 06:30; Wed 2026-12-02 06:30");
  EXPECT_EQ(Dues("Thu-Fri 23:59", 3),
            "Thu 2026-11-26 23:59; Fri 2026-11-27 23:59; Thu 2026-12-03 23:59");
  EXPECT_EQ(Dues("Sat-Mon 00:00", 4),
            "Mon 2026-11-23 00:00; Sat 2026-11-28 00:00; Sun 2026-11-29 00:00; "
            "Mon 2026-11-30 00:00");
  EXPECT_EQ(Dues("MON, fri 1:00", 2), "Mon 2026-11-23 01:00; Fri 2026-11-27 01:00");
  EXPECT_EQ(Dues("Tue-Tue 1:00", 2), "Tue 2026-11-24 01:00; Tue 2026-12-01 01:00");
}

TEST(Schedule, HasDaysOfTheMonth) {
  EXPECT_EQ(Dues("1. 00:00", 2), "Tue 2026-12-01 00:00; Fri 2027-01-01 00:00");
  EXPECT_EQ(Dues("31. 12:00", 2), "Thu 2026-12-31 12:00; Sun 2027-01-31 12:00");
  EXPECT_EQ(Dues("1.,15. 06:00", 2), "Tue 2026-12-01 06:00; Tue 2026-12-15 06:00");
  EXPECT_EQ(Dues("30. 06:00", 4),
            "Mon 2026-11-30 06:00; Wed 2026-12-30 06:00; Sat 2027-01-30 06:00; "
            "Tue 2027-03-30 06:00");
}

TEST(Schedule, HasSeveralEntries) {
  EXPECT_EQ(Dues("18:00; Mon 06:00 ;1. 00:00", 4),
            "Sun 2026-11-22 18:00; Mon 2026-11-23 06:00; Mon 2026-11-23 18:00; "
            "Tue 2026-11-24 18:00");
}

TEST(Schedule, WithoutEntriesIsNeverDue) {
  EXPECT_EQ(Dues("", 1), "never");
  EXPECT_EQ(Dues(" \t", 1), "never");
  EXPECT_FALSE(Schedule().LastIn(0, 86400));
}

TEST(Schedule, FindsTheLastTimeThatWasDue) {
  const TimeZone zone("UTC");
  const Schedule schedule("06:10; 06:30");
  EXPECT_EQ(Shown(schedule.LastIn(Utc("2026-11-22 06:00"), Utc("2026-11-22 07:00"))),
            "Sun 2026-11-22 06:30");
  EXPECT_EQ(Shown(schedule.LastIn(Utc("2026-11-22 06:00"), Utc("2026-11-22 06:30"))),
            "Sun 2026-11-22 06:30");
  EXPECT_EQ(Shown(schedule.LastIn(Utc("2026-11-22 06:00"), Utc("2026-11-22 06:29"))),
            "Sun 2026-11-22 06:10");
  EXPECT_FALSE(schedule.LastIn(Utc("2026-11-22 06:30"), Utc("2026-11-22 07:00")));
  const Schedule midnight("00:00");
  EXPECT_EQ(Shown(midnight.LastIn(Utc("2026-11-22 23:30"), Utc("2026-11-23 00:15"))),
            "Mon 2026-11-23 00:00");
}

TEST(Schedule, AMistakeIsReportedWithItsPlace) {
  const struct {
    const char* text;
    const char* error;
  } cases[] = {
      {"25:00", "column 1: expected a time from 00:00 to 23:59, found '25:00'"},
      {"06:60", "column 1: expected a time from 00:00 to 23:59, found '06:60'"},
      {"6.30", "column 3: expected a time from 00:00 to 23:59, found '30'"},
      {"06:5", "column 1: expected a time from 00:00 to 23:59, found '06:5'"},
      {"0630", "column 1: expected a time from 00:00 to 23:59, found '0630'"},
      {"06:30:15", "column 6: expected ';' or the end, found ':15'"},
      {"06:30 18:00", "column 7: expected ';' or the end, found '18:00'"},
      {"06:30;",
       "column 7: expected a time, or days and a time, such as 06:30, Mon-Fri 06:30 or 1. 00:00, "
       "found the end"},
      {"06:30;; 07:00",
       "column 7: expected a time, or days and a time, such as 06:30, Mon-Fri 06:30 or 1. 00:00, "
       "found ';'"},
      {"06:30; Mo 07:00", "column 8: expected Mon, Tue, Wed, Thu, Fri, Sat or Sun, found 'Mo'"},
      {"Mon-Fry 07:00", "column 5: expected Mon, Tue, Wed, Thu, Fri, Sat or Sun, found 'Fry'"},
      {"Mon-Fri", "column 8: expected a time from 00:00 to 23:59, found the end"},
      {"Mon,", "column 5: expected Mon, Tue, Wed, Thu, Fri, Sat or Sun, found the end"},
      {"0. 00:00", "column 1: expected a day of the month from 1. to 31., found '0.'"},
      {"32. 00:00", "column 1: expected a day of the month from 1. to 31., found '32.'"},
      {"1.,x 00:00", "column 4: expected a day of the month from 1. to 31., found 'x'"},
      {"täglich 06:30", "column 1: expected Mon, Tue, Wed, Thu, Fri, Sat or Sun, found 'täglich'"},
      {"06:30 – 07:00", "column 7: expected ';' or the end, found '–'"},
      {"06:30; ü 07:00",
       "column 8: expected a time, or days and a time, such as 06:30, Mon-Fri 06:30 or 1. 00:00, "
       "found 'ü'"},
      {"*/5 * * * *",
       "column 1: expected a time, or days and a time, such as 06:30, Mon-Fri 06:30 or 1. 00:00, "
       "found '*/5'"},
  };
  for (const auto& each : cases) EXPECT_EQ(ErrorOf(each.text), each.error) << each.text;
  EXPECT_NE(ErrorOf(std::string("06:30\0", 6)), "no error");
  EXPECT_LT(ErrorOf(std::string(100000, '9')).size(), 200U);
}

}  // namespace
