// SPDX-License-Identifier: MIT
#include "runtime/corvane/duration.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>

namespace corvane {
namespace {

struct Unit {
  std::string_view name;
  double nanoseconds;
};

constexpr std::array kUnits{Unit{"ns", 1},  Unit{"us", 1e3},   Unit{"ms", 1e6},
                            Unit{"s", 1e9}, Unit{"min", 60e9}, Unit{"h", 3600e9}};
constexpr double kLongest = 365.0 * 24 * 3600e9;

}  // namespace

std::optional<Nanoseconds> ParseDuration(std::string_view text) {
  if (text == "0") return Nanoseconds(0);
  double number = 0;
  const auto [rest, error] =
      std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  if (error != std::errc() || !(number >= 0)) return std::nullopt;
  const std::string_view name(rest, static_cast<std::size_t>(text.data() + text.size() - rest));
  for (const Unit& unit : kUnits) {
    if (name != unit.name) continue;
    const double nanoseconds = number * unit.nanoseconds;
    if (!(nanoseconds <= kLongest)) return std::nullopt;
    return Nanoseconds(std::llround(nanoseconds));
  }
  return std::nullopt;
}

std::string FormatDuration(Nanoseconds duration) {
  const auto nanoseconds = static_cast<double>(duration.count());
  if (nanoseconds == 0) return "0s";
  Unit best = kUnits.front();
  for (const Unit& unit : kUnits) {
    // A value that three digits round up to 1000 of a unit is shown as 1 of the next one.
    if (unit.nanoseconds <= 1e9 && nanoseconds >= 0.9995 * unit.nanoseconds) best = unit;
  }
  const double shown = nanoseconds / best.nanoseconds;
  return shown < 999.5 ? fmt::format("{:.3g}{}", shown, best.name)
                       : fmt::format("{:.0f}{}", shown, best.name);
}

}  // namespace corvane
