// SPDX-License-Identifier: MIT
// Warnings that a client can cause as often as it likes must not fill the log.
// Threads: one at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace corvane::bench {

class WarningLimit {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::seconds kInterval{10};

  /// What to log for this warning now: empty for all but the first of an interval; the next one
  /// then says how many were left out.
  [[nodiscard]] std::string Pass(const std::string& text, TimePoint now);

 private:
  TimePoint next_{};
  std::uint64_t left_out_ = 0;
};

}  // namespace corvane::bench
