// SPDX-License-Identifier: MIT
// Calendar arithmetic in 64 bits: time_t has 32 bits on some ARM systems.
#include "share/file_time.h"

#include <limits>

#include "share/date_time.h"

namespace {

/// Days since 1970-01-01 of the first day of `month` (1..12), in the proleptic Gregorian calendar.
/// The year is counted from March, so that the leap day is its last.
std::int64_t DaysToMonth(std::int64_t year, std::int64_t month) {
  const std::int64_t march_year = month <= 2 ? year - 1 : year;
  const std::int64_t march_month = (month + 9) % 12;
  const std::int64_t days_before_month = (153 * march_month + 2) / 5;
  const std::int64_t leap_days = march_year / 4 - march_year / 100 + march_year / 400;
  constexpr std::int64_t kDaysToEpoch = 719'468;  // 0000-03-01 to 1970-01-01
  return 365 * march_year + leap_days + days_before_month - kDaysToEpoch;
}

}  // namespace

std::int64_t RTimeToFileTime(const RTime* time) {
  // Months are counted from 0 so that those beyond December carry over; month 0 is the December
  // before.
  const std::int64_t months = std::int64_t{time->year} * 12 + time->month - 1;
  if (months < 0) return 0;
  const std::int64_t days = DaysToMonth(months / 12, months % 12 + 1) + time->day - 1;
  const std::int64_t seconds = ((days * 24 + time->hour) * 60 + time->minute) * 60 + time->second;
  constexpr std::int64_t kLast =
      (std::numeric_limits<std::int64_t>::max() - corvane::kUnixEpochTicks) /
          corvane::kTicksPerSecond -
      std::numeric_limits<std::uint16_t>::max();
  if (seconds > kLast) return std::numeric_limits<std::int64_t>::max();
  const std::int64_t ticks = seconds * corvane::kTicksPerSecond +
                             std::int64_t{10'000} * time->millisecond + corvane::kUnixEpochTicks;
  return ticks < 0 ? 0 : ticks;
}
