// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/numeric_parameters.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <vector>

namespace modem_simulator {
namespace {

int TakeNumber(std::string_view& text) {
  int number = 0;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), number).ptr;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return number;
}

Result Set(const AtCommand& command, std::span<const std::string_view> offered,
           std::span<int> values, Result refusal) {
  const auto& given = command.parameters;
  if (given.empty() || (given.size() == 1 && given.front().empty())) {
    std::fill(values.begin(), values.end(), 0);
    return kOk;
  }
  if (given.size() > values.size()) return refusal;
  std::vector<int> wanted(values.begin(), values.end());
  for (std::size_t i = 0; i < given.size(); ++i) {
    const auto value = command.Number(i, wanted[i]);
    if (!value || !Offers(offered[i], *value)) return refusal;
    wanted[i] = *value;
  }
  std::copy(wanted.begin(), wanted.end(), values.begin());
  return kOk;
}

}  // namespace

bool Offers(std::string_view choices, int value) {
  while (!choices.empty()) {
    const int lowest = TakeNumber(choices);
    int highest = lowest;
    if (choices.starts_with('-')) {
      choices.remove_prefix(1);
      highest = TakeNumber(choices);
    }
    if (value >= lowest && value <= highest) return true;
    choices.remove_prefix(std::min<std::size_t>(1, choices.size()));  // the comma
  }
  return false;
}

Result NumericParameters(const AtCommand& command, std::span<const std::string_view> offered,
                         std::span<int> values, Result refusal, Answer& answer) {
  switch (command.form) {
    case CommandForm::kTest:
      answer.push_back(fmt::format("{}: ({})", command.name, fmt::join(offered, "),(")));
      return kOk;
    case CommandForm::kRead:
      answer.push_back(fmt::format("{}: {}", command.name, fmt::join(values, ",")));
      return kOk;
    case CommandForm::kExecute:
    case CommandForm::kSet: return Set(command, offered, values, refusal);
  }
  return kError;
}

Result NumericParameter(const AtCommand& command, std::string_view offered, int& value,
                        Result refusal, Answer& answer) {
  return NumericParameters(command, {&offered, 1}, {&value, 1}, refusal, answer);
}

}  // namespace modem_simulator
