// SPDX-License-Identifier: MIT
#include "runtime/bench/server/modem_facts.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

namespace corvane::bench {
namespace {

constexpr std::size_t kLongestOperator = 64;

/// The parameters of "+CSQ: 20,99"; commas within quotes separate, too, which none of these has.
std::vector<std::string_view> Parameters(std::string_view text) {
  std::vector<std::string_view> all;
  for (;;) {
    const std::size_t end = std::min(text.find(','), text.size());
    std::string_view one = text.substr(0, end);
    while (one.starts_with(' ')) one.remove_prefix(1);
    all.push_back(one);
    if (end == text.size()) return all;
    text.remove_prefix(end + 1);
  }
}

std::optional<int> Number(std::string_view text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<int> SignalOf(std::string_view parameter) {
  constexpr int kStrongest = 31;  // 99: not known
  const auto value = Number(parameter);
  if (!value || *value < 0 || *value > kStrongest) return std::nullopt;
  return 2 * *value - 113;
}

std::string RegistrationOf(std::string_view parameter) {
  switch (Number(parameter).value_or(-1)) {
    case 0: return "none";
    case 1:
    case 6: return "home";  // 6: for SMS only
    case 2: return "searching";
    case 3: return "denied";
    case 5:
    case 7: return "roaming";
    default: return {};
  }
}

}  // namespace

void ModemFacts::Take(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const std::string_view name = line.substr(0, colon);
  const auto parameters = Parameters(line.substr(colon + 1));
  if (name == "+CSQ") {
    signal_ = SignalOf(parameters[0]);
  } else if (name == "+CREG") {
    // An answer begins with the setting of the announcements; an announcement does not, and may
    // have the cell, in quotes.
    const bool is_answer = parameters.size() > 1 && Number(parameters[1]).has_value();
    registration_ = RegistrationOf(parameters[is_answer ? 1 : 0]);
  } else if (name == "+COPS") {
    std::string_view network = parameters.size() > 2 ? parameters[2] : "";
    if (network.starts_with('"')) network.remove_prefix(1);
    if (network.ends_with('"')) network.remove_suffix(1);
    network_ = network.substr(0, kLongestOperator);
  }
}

}  // namespace corvane::bench
