// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/schedule.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>

#include "addins/corvane_standard/local_time.h"
#include "libs/base/printable.h"

namespace corvane_standard {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr int kDaysPerWeek = 7;
constexpr int kLastMonthDay = 31;
constexpr std::array<std::string_view, kDaysPerWeek> kWeekdays{"sun", "mon", "tue", "wed",
                                                               "thu", "fri", "sat"};
constexpr std::uint8_t kEveryDay = 0x7F;

bool IsDigit(char letter) {
  return letter >= '0' && letter <= '9';
}

bool IsLetter(char letter) {
  return std::isalpha(static_cast<unsigned char>(letter)) != 0;
}

/// Reads a schedule from left to right.
class ScheduleReader {
 public:
  explicit ScheduleReader(std::string_view text) : text_(text) {}

  std::vector<Schedule::Entry> Read() {
    std::vector<Schedule::Entry> entries;
    SkipBlanks();
    if (AtEnd()) return entries;
    while (true) {
      entries.push_back(ReadEntry());
      SkipBlanks();
      if (AtEnd()) return entries;
      if (!Take(';')) Refuse(at_, "';' or the end");
      SkipBlanks();
    }
  }

 private:
  Schedule::Entry ReadEntry() {
    Schedule::Entry entry;
    if (IsLetter(Peek())) {
      ReadList([&] { entry.weekdays |= ReadWeekdays(); });
    } else if (IsDigit(Peek()) && IsMonthDay()) {
      ReadList([&] { entry.month_days |= ReadMonthDay(); });
    } else if (!IsDigit(Peek())) {
      Refuse(at_, "a time, or days and a time, such as 06:30, Mon-Fri 06:30 or 1. 00:00");
    } else {
      entry.weekdays = kEveryDay;
    }
    SkipBlanks();
    entry.second_of_day = ReadTime();
    return entry;
  }

  template <class ReadOne>
  void ReadList(const ReadOne& read_one) {
    do {
      SkipBlanks();
      read_one();
      SkipBlanks();
    } while (Take(','));
  }

  /// "Mon", or "Mon-Fri"; "Sat-Mon" goes on after the end of the week.
  std::uint8_t ReadWeekdays() {
    const int first = ReadWeekday();
    SkipBlanks();
    if (!Take('-')) return static_cast<std::uint8_t>(1 << first);
    SkipBlanks();
    const int last = ReadWeekday();
    unsigned days = 0;
    for (int day = first;; day = (day + 1) % kDaysPerWeek) {
      days |= 1U << day;
      if (day == last) return static_cast<std::uint8_t>(days);
    }
  }

  int ReadWeekday() {
    const std::size_t begin = at_;
    std::string name;
    for (; IsLetter(Peek()); ++at_) {
      name += static_cast<char>(std::tolower(static_cast<unsigned char>(Peek())));
    }
    const auto found = std::find(kWeekdays.begin(), kWeekdays.end(), name);
    if (found == kWeekdays.end()) Refuse(begin, "Mon, Tue, Wed, Thu, Fri, Sat or Sun");
    return static_cast<int>(found - kWeekdays.begin());
  }

  /// Whether the number at which we are ends with a full stop.
  [[nodiscard]] bool IsMonthDay() const {
    const std::size_t end = text_.find_first_not_of("0123456789", at_);
    return end != std::string_view::npos && text_[end] == '.';
  }

  std::uint32_t ReadMonthDay() {
    const std::size_t begin = at_;
    const int day = ReadNumber(1, 2);
    if (day < 1 || day > kLastMonthDay || !Take('.')) {
      Refuse(begin, "a day of the month from 1. to 31.");
    }
    return std::uint32_t{1} << day;
  }

  std::int32_t ReadTime() {
    constexpr const char* kExpected = "a time from 00:00 to 23:59";
    const std::size_t begin = at_;
    const int hour = ReadNumber(1, 2);
    if (hour < 0 || hour > 23 || !Take(':')) Refuse(begin, kExpected);
    const int minute = ReadNumber(2, 2);
    if (minute < 0 || minute > 59) Refuse(begin, kExpected);
    return (hour * 60 + minute) * 60;
  }

  /// A number with this many digits, or -1.
  int ReadNumber(int least_digits, int most_digits) {
    int number = 0;
    int digits = 0;
    for (; IsDigit(Peek()); ++at_) {
      if (++digits > most_digits) return -1;
      number = 10 * number + (Peek() - '0');
    }
    return digits < least_digits ? -1 : number;
  }

  [[noreturn]] void Refuse(std::size_t place, const std::string& expected) const {
    constexpr std::size_t kShownOctets = 20;
    const std::string_view before = text_.substr(0, place);
    const auto column = 1 + std::count_if(before.begin(), before.end(), [](char octet) {
                          return (static_cast<unsigned char>(octet) & 0xC0) != 0x80;
                        });
    std::string_view rest = text_.substr(place);
    rest = rest.substr(0, std::max<std::size_t>(1, rest.find_first_of("; \t\n")));
    const std::string found =
        rest.empty() ? "the end" : "'" + corvane::PrintableBeginning(rest, kShownOctets) + "'";
    throw ScheduleError("column " + std::to_string(column) + ": expected " + expected + ", found " +
                        found);
  }

  [[nodiscard]] bool AtEnd() const { return at_ == text_.size(); }
  [[nodiscard]] char Peek() const { return AtEnd() ? '\0' : text_[at_]; }
  bool Take(char letter) {
    if (AtEnd() || Peek() != letter) return false;
    ++at_;
    return true;
  }
  void SkipBlanks() {
    while (Peek() == ' ' || Peek() == '\t' || Peek() == '\n') ++at_;
  }

  std::string_view text_;
  std::size_t at_ = 0;
};

/// The day on which local clocks are, counted from their 1970-01-01.
std::int64_t LocalDay(std::int64_t point) {
  const std::chrono::seconds local(point + OffsetAt(point));
  return std::chrono::floor<std::chrono::days>(local).count();
}

bool IsDueOn(const Schedule::Entry& entry, std::int64_t day) {
  const std::chrono::sys_days date{std::chrono::days(day)};
  const unsigned weekday = std::chrono::weekday(date).c_encoding();
  const auto month_day = static_cast<unsigned>(std::chrono::year_month_day(date).day());
  return ((entry.weekdays >> weekday) & 1U) != 0 || ((entry.month_days >> month_day) & 1U) != 0;
}

std::int64_t PointOn(const Schedule::Entry& entry, std::int64_t day) {
  return FirstPointOf(day * kSecondsPerDay + entry.second_of_day);
}

}  // namespace

Schedule::Schedule(std::string_view text) : entries_(ScheduleReader(text).Read()) {}

std::optional<std::int64_t> Schedule::NextAfter(std::int64_t point) const {
  // The 31st is at most 62 days from the last one; a change of clocks may move a time to the next
  // day.
  constexpr int kMostDays = 64;
  std::optional<std::int64_t> next;
  const std::int64_t today = LocalDay(point);
  for (const Entry& entry : entries_) {
    for (std::int64_t day = today - 1; day <= today + kMostDays; ++day) {
      if (!IsDueOn(entry, day)) continue;
      const std::int64_t due = PointOn(entry, day);
      if (due <= point) continue;
      next = std::min(next.value_or(due), due);
      break;
    }
  }
  return next;
}

std::optional<std::int64_t> Schedule::LastIn(std::int64_t from, std::int64_t to) const {
  std::optional<std::int64_t> last;
  for (const Entry& entry : entries_) {
    for (std::int64_t day = LocalDay(from) - 1; day <= LocalDay(to) + 1; ++day) {
      if (!IsDueOn(entry, day)) continue;
      const std::int64_t due = PointOn(entry, day);
      if (due > from && due <= to) last = std::max(last.value_or(due), due);
    }
  }
  return last;
}

}  // namespace corvane_standard
