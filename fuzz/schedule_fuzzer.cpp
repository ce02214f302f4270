// SPDX-License-Identifier: MIT
// The times of SCHEDULE: what is accepted is what a regular expression accepts, means the same when
// it is written in its longest form, and its times follow each other.
#include <cstdlib>
#include <regex>
#include <string>

#include "addins/corvane_standard/schedule.h"

namespace {

using corvane_standard::Schedule;

void Check(bool holds) {
  if (!holds) std::abort();
}

bool IsSchedule(const std::string& text) {
  const std::string blank = R"([ \t\n]*)";
  const std::string weekday = "(?:sun|mon|tue|wed|thu|fri|sat)";
  const std::string weekdays = weekday + "(?:" + blank + "-" + blank + weekday + ")?";
  const std::string month_day = R"((?:0?[1-9]|[12]\d|3[01])\.)";
  const auto list = [&blank](const std::string& one) {
    return one + "(?:" + blank + "," + blank + one + ")*" + blank;
  };
  const std::string entry =
      "(?:" + list(weekdays) + "|" + list(month_day) + ")?" + R"((?:[01]?\d|2[0-3]):[0-5]\d)";
  static const std::regex schedule(
      blank + "(?:" + entry + "(?:" + blank + ";" + blank + entry + ")*" + blank + ")?",
      std::regex::icase | std::regex::optimize);
  return std::regex_match(text, schedule);
}

/// Each entry with all of its days.
std::string Written(const Schedule& schedule) {
  static constexpr const char* kNames[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  std::string text;
  for (const Schedule::Entry& entry : schedule.entries()) {
    std::string days;
    for (int day = 0; day < 7; ++day) {
      if (((entry.weekdays >> day) & 1) != 0)
        days += std::string(days.empty() ? "" : ",") + kNames[day];
    }
    for (int day = 1; day < 32; ++day) {
      if (((entry.month_days >> day) & 1U) == 0) continue;
      days += (days.empty() ? "" : ",") + std::to_string(day) + ".";
    }
    const int minute = entry.second_of_day / 60;
    text += (text.empty() ? "" : ";") + days + " " + std::to_string(minute / 60) + ":" +
            std::to_string(minute % 60 / 10) + std::to_string(minute % 10);
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLongest = 200;  // the regular expression needs a stack
  if (size > kLongest) return 0;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const bool expected = IsSchedule(text);
  try {
    const Schedule schedule(text);
    Check(expected);
    Check(Schedule(Written(schedule)).entries() == schedule.entries());
    std::int64_t point = 1'774'700'000;  // a day before clocks change in Europe
    for (int i = 0; i < 3 && !schedule.entries().empty(); ++i) {
      const auto next = schedule.NextAfter(point);
      Check(next && *next > point);
      Check(schedule.LastIn(*next - 3600, *next) == next);
      Check(!schedule.LastIn(std::max(point, *next - 3600), *next - 1));
      point = *next;
    }
  } catch (const corvane_standard::ScheduleError& error) {
    Check(!expected);
    Check(std::string(error.what()).size() < 200);
  }
  return 0;
}
