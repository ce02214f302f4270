// SPDX-License-Identifier: MIT
// Another time zone for a test, and the points at which its clocks show a time.
#pragma once

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "addins/corvane_standard/local_time.h"

/// The zone of this process while it lives.
class TimeZone {
 public:
  explicit TimeZone(const char* name) {
    if (const char* before = std::getenv("TZ")) before_ = before;  // NOLINT(concurrency-mt-unsafe)
    Use(name);
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
  ~TimeZone() {
    if (before_) {
      Use(before_->c_str());
    } else {
      unsetenv("TZ");  // NOLINT(concurrency-mt-unsafe)
      tzset();         // NOLINT(concurrency-mt-unsafe)
    }
  }

  static void Use(const char* name) {
    setenv("TZ", name, 1);  // NOLINT(concurrency-mt-unsafe)
    tzset();                // NOLINT(concurrency-mt-unsafe)
  }

 private:
  std::optional<std::string> before_;
};

/// "2026-03-29 01:30" in UTC, as seconds since 1970.
inline std::int64_t Utc(const std::string& text) {
  std::tm time{};
  strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &time);
  if (text.size() < 19) strptime(text.c_str(), "%Y-%m-%d %H:%M", &time);
  return timegm(&time);
}

/// The reverse, in local time.
inline std::string Local(std::int64_t point) {
  const auto time = static_cast<std::time_t>(point);
  std::tm local{};
  localtime_r(&time, &local);
  char text[64];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M %Z", &local);
  return text;
}
