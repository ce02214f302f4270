// SPDX-License-Identifier: MIT
// Values of variables in a form that people read. Pure functions.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

/// Longer values are cut.
inline constexpr std::size_t kLongestValueText = 1024;
/// In place of a secret that is set.
inline constexpr const char* kHiddenValue = "......";

/// A text in quotation marks, cut with three dots if nobody would read it to its end: copying a
/// program's longest texts would take time from its cycle.
[[nodiscard]] std::string QuotedText(std::string_view text);

/// A DATE_AND_TIME, in seconds since 1970, as "2026-11-21 03:00:00 UTC", or "-" for 0. Nothing
/// outside the years 1601 to 9999: such a number is shown as one.
[[nodiscard]] std::optional<std::string> DateText(double seconds);

}  // namespace corvane
