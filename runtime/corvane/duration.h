// SPDX-License-Identifier: MIT
// Durations as users write them: "250us", "100ms", "2s", "1.5min".
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

using Nanoseconds = std::chrono::nanoseconds;

/// A number, not negative, and a unit (ns, us, ms, s, min, h) without a space between them; "0"
/// alone is allowed. At most a year; nullopt for everything else.
[[nodiscard]] std::optional<Nanoseconds> ParseDuration(std::string_view text);

/// With three significant digits and the unit that suits: "12.3ms".
[[nodiscard]] std::string FormatDuration(Nanoseconds duration);

}  // namespace corvane
