// SPDX-License-Identifier: MIT
#include "libs/gsm/receivers.h"

#include <algorithm>

#include "libs/base/printable.h"

namespace gsm {
namespace {

constexpr std::size_t kMaxDigits = 20;  // 3GPP TS 23.040 clause 9.1.2.5
constexpr std::string_view kSeparators = ";,\n";
constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kIgnored = " \t\r-/().";

/// A number without what is ignored; empty for an empty entry.
std::string Compact(std::string_view entry) {
  std::string number;
  for (const char c : entry) {
    if (kIgnored.find(c) == kIgnored.npos) number += c;
  }
  return number;
}

/// What is wrong with a number; empty: nothing.
std::string Problem(std::string_view number) {
  const bool international = number.starts_with('+');
  const std::string_view digits = number.substr(international ? 1 : 0);
  const std::string_view allowed = international ? "0123456789" : "0123456789*#";
  if (digits.empty()) return "has no digits";
  if (digits.find_first_not_of(allowed) != digits.npos) return "is not a telephone number";
  if (digits.size() > kMaxDigits) return "has more than 20 digits";
  return {};
}

std::string Shown(std::string_view entry) {
  constexpr std::size_t kLongest = 40;
  entry.remove_prefix(std::min(entry.find_first_not_of(kBlanks), entry.size()));
  entry.remove_suffix(entry.size() - 1 - entry.find_last_not_of(kBlanks));
  return "'" + corvane::PrintableBeginning(entry, kLongest) + "'";
}

}  // namespace

Receivers ReadReceivers(std::string_view text) {
  Receivers receivers;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find_first_of(kSeparators), text.size());
    const std::string_view entry = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    std::string number = Compact(entry);
    if (number.empty()) continue;
    if (const std::string problem = Problem(number); !problem.empty()) {
      receivers.problem = "Receiver: " + Shown(entry) + " " + problem +
                          "; correct it (nothing was queued for anybody)";
      return receivers;
    }
    auto& numbers = receivers.numbers;
    if (std::find(numbers.begin(), numbers.end(), number) != numbers.end()) continue;
    if (numbers.size() == kMaxReceivers) {
      receivers.problem =
          "Receiver: there are more than 100 numbers; use several jobs (nothing was "
          "queued for anybody)";
      return receivers;
    }
    numbers.push_back(std::move(number));
  }
  if (receivers.numbers.empty())
    receivers.problem = "Receiver: there is no number; give at least one";
  return receivers;
}

}  // namespace gsm
