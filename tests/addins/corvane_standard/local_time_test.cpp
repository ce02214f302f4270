// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/local_time.h"

#include <gtest/gtest.h>

#include "tests/addins/corvane_standard/time_zone.h"

namespace {

using corvane_standard::FirstPointOf;
using corvane_standard::OffsetAt;

TEST(LocalTime, IsAheadOfUtcByItsOffset) {
  const TimeZone zone("Europe/Berlin");
  EXPECT_EQ(OffsetAt(Utc("2026-01-15 12:00")), 3600);
  EXPECT_EQ(OffsetAt(Utc("2026-07-15 12:00")), 7200);
  EXPECT_EQ(FirstPointOf(Utc("2026-07-15 06:30")), Utc("2026-07-15 04:30"));
}

struct Change {
  const char* zone;
  const char* local;  // on the wall
  const char* utc;
};

// A time that comes twice is the first of the two; one that does not exist is the moment of the
// change.
constexpr Change kChanges[] = {
    {"Europe/Berlin", "2026-03-29 01:59", "2026-03-29 00:59"},
    {"Europe/Berlin", "2026-03-29 02:00", "2026-03-29 01:00"},
    {"Europe/Berlin", "2026-03-29 02:30", "2026-03-29 01:00"},
    {"Europe/Berlin", "2026-03-29 02:59", "2026-03-29 01:00"},
    {"Europe/Berlin", "2026-03-29 03:00", "2026-03-29 01:00"},
    {"Europe/Berlin", "2026-03-29 03:01", "2026-03-29 01:01"},
    {"Europe/Berlin", "2026-10-25 01:59", "2026-10-24 23:59"},
    {"Europe/Berlin", "2026-10-25 02:00", "2026-10-25 00:00"},
    {"Europe/Berlin", "2026-10-25 02:30", "2026-10-25 00:30"},
    {"Europe/Berlin", "2026-10-25 03:00", "2026-10-25 02:00"},
    {"America/New_York", "2026-03-08 02:30", "2026-03-08 07:00"},
    {"America/New_York", "2026-11-01 01:30", "2026-11-01 05:30"},
    {"America/New_York", "2026-11-01 02:00", "2026-11-01 07:00"},
    {"Australia/Lord_Howe", "2026-10-04 02:15", "2026-10-03 15:30"},  // half an hour
    {"Australia/Lord_Howe", "2026-04-05 01:45", "2026-04-04 14:45"},
    {"America/Sao_Paulo", "2018-11-04 00:00", "2018-11-04 03:00"},  // at midnight
    {"Pacific/Apia", "2011-12-30 12:00", "2011-12-30 10:00"},       // a day that did not exist
    {"Pacific/Apia", "2011-12-31 00:00", "2011-12-30 10:00"},
    {"Asia/Kolkata", "2026-06-01 06:30", "2026-06-01 01:00"},
    {"UTC", "2026-06-01 06:30", "2026-06-01 06:30"},
};

TEST(LocalTime, IsFoundOnTheDaysOnWhichClocksChange) {
  for (const Change& change : kChanges) {
    const TimeZone zone(change.zone);
    EXPECT_EQ(FirstPointOf(Utc(change.local)), Utc(change.utc))
        << change.zone << " " << change.local << " is " << Local(FirstPointOf(Utc(change.local)));
  }
}

TEST(LocalTime, EveryMinuteOfAYearIsTheFirstAtWhichClocksShowIt) {
  for (const char* name : {"Europe/Berlin", "America/New_York", "Australia/Lord_Howe"}) {
    const TimeZone zone(name);
    std::int64_t highest = Utc("2026-01-01 00:00");
    // Simpler and slower: clocks are watched, minute by minute.
    for (std::int64_t point = highest - OffsetAt(highest); point < Utc("2026-12-31 00:00");
         point += 60) {
      const std::int64_t shown = point + OffsetAt(point);
      for (; highest <= shown; highest += 60) ASSERT_EQ(FirstPointOf(highest), point) << highest;
    }
  }
}

TEST(LocalTime, AYearThatTheSystemCannotCountHasNoOffset) {
  EXPECT_EQ(OffsetAt(std::int64_t{1} << 62), 0);
}

}  // namespace
