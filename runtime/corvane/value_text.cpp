// SPDX-License-Identifier: MIT
#include "runtime/corvane/value_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "share/date_time.h"

namespace corvane {

std::string QuotedText(std::string_view text) {
  if (text.size() <= kLongestValueText - 2) return fmt::format("'{}'", text);
  return fmt::format("'{}...", text.substr(0, kLongestValueText - 4));
}

std::optional<std::string> DateText(double seconds) {
  constexpr double kEndOfYear9999 = 253402300800.0;
  if (seconds == 0) return "-";
  if (!(seconds > -static_cast<double>(kUnixEpochSeconds) && seconds < kEndOfYear9999)) {
    return std::nullopt;
  }
  return fmt::format("{:%Y-%m-%d %H:%M:%S} UTC", fmt::gmtime(static_cast<std::time_t>(seconds)));
}

}  // namespace corvane
