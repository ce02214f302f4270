// SPDX-License-Identifier: MIT
// Times of day at which something is due: "06:30; Mon-Fri 12:00; 1.,15. 00:00", in local time.
// Immutable after it was read.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace corvane_standard {

/// A text that is not a schedule; what() says at which column, and what is expected there.
class ScheduleError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

class Schedule {
 public:
  /// A time of some days. A day is one of them if its bit is set in either set.
  struct Entry {
    std::uint8_t weekdays = 0;     ///< bit 0: Sunday
    std::uint32_t month_days = 0;  ///< bit 1: the first day of a month
    std::int32_t second_of_day = 0;

    bool operator==(const Entry&) const = default;
  };

  Schedule() = default;
  /// Reads entries, separated by ";": a time (H:MM or HH:MM), in front of it the days, separated by
  /// ",": weekdays (Mon, Mon-Fri), or days of the month (1.). Without days: every day. A text of
  /// blanks is a schedule without entries. Throws ScheduleError.
  explicit Schedule(std::string_view text);

  /// The first time that is due after this point, both in seconds since 1970-01-01 UTC; nothing for
  /// a schedule without entries.
  [[nodiscard]] std::optional<std::int64_t> NextAfter(std::int64_t point) const;
  /// The last time that is due after `from`, and not after `to`, which is at most a day later.
  [[nodiscard]] std::optional<std::int64_t> LastIn(std::int64_t from, std::int64_t to) const;

  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

 private:
  std::vector<Entry> entries_;
};

}  // namespace corvane_standard
