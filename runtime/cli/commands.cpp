// SPDX-License-Identifier: MIT
#include "runtime/cli/commands.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

#include "runtime/corvane/duration.h"

namespace corvane::cli {

std::string CheckDuration(const std::string& text) {
  if (ParseDuration(text)) return {};
  return fmt::format("'{}' is not a duration; write a number and a unit, such as 100ms, 2s or 0",
                     text);
}

std::string CheckNotEmpty(const std::string& text) {
  return text.empty() ? "its value is empty; give one, or leave the option out" : "";
}

CLI::Validator WholeNumber(std::uint64_t lowest, std::uint64_t highest) {
  const auto check = [lowest, highest](const std::string& text) -> std::string {
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const bool whole = error == std::errc() && rest == end;
    if (whole && number >= lowest && number <= highest) return {};
    return fmt::format("'{}' is not a whole number from {} to {}", text, lowest, highest);
  };
  return {check, ""};
}

CLI::Validator OneOf(std::vector<std::string> words) {
  const std::string shown = fmt::format("{{{}}}", fmt::join(words, ","));
  const auto check = [words = std::move(words)](const std::string& text) -> std::string {
    if (std::find(words.begin(), words.end(), text) != words.end()) return {};
    return fmt::format("'{}' is not one of {}", text, fmt::join(words, ", "));
  };
  return {check, shown};
}

}  // namespace corvane::cli
