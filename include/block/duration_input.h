// SPDX-License-Identifier: MIT
// Durations as inputs: LREAL seconds, 0 for the default. Pure functions.
#pragma once

#include <chrono>
#include <cmath>
#include <optional>

/// The duration that an input asks for; `otherwise` for 0. Fractions of a millisecond are rounded
/// up, and anything longer than 100 years counts as 100 years.
/// @return nothing for a negative number, infinity and NaN: ErrorId::kBadValue
inline std::optional<std::chrono::milliseconds> DurationInput(double seconds,
                                                              std::chrono::milliseconds otherwise) {
  // A clock in nanoseconds can still add it to its time.
  constexpr std::chrono::milliseconds kLongest = std::chrono::years(100);
  if (!std::isfinite(seconds) || seconds < 0) return std::nullopt;
  if (seconds == 0) return otherwise;
  const double milliseconds = std::ceil(seconds * 1000);
  if (milliseconds >= static_cast<double>(kLongest.count())) return kLongest;
  return std::chrono::milliseconds(static_cast<std::chrono::milliseconds::rep>(milliseconds));
}
