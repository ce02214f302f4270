// SPDX-License-Identifier: MIT
// The commands of one AT command line (ITU-T V.250 clauses 5.2.4, 5.3, 5.4).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace modem_simulator {

enum class CommandForm {
  kExecute,  ///< AT+CMGL, ATZ
  kSet,      ///< AT+CMGL=4, ATE0
  kRead,     ///< AT+CPMS?
  kTest,     ///< AT+CPMS=?
};

struct AtCommand {
  std::string name;  ///< upper case: "+CMGF", "E", "&F", "S0"
  CommandForm form = CommandForm::kExecute;
  /// The values to set, without quotes; "" for a parameter that is left out.
  std::vector<std::string> parameters;

  /// A parameter as a decimal number, 0..999999; `otherwise` if it is left out; nullopt if it is
  /// anything else.
  [[nodiscard]] std::optional<int> Number(std::size_t index, std::optional<int> otherwise) const;
};

/// The commands after the "AT" of a line, in order; nullopt if the line is not a command line.
/// Compound lines ("E0V1+CMEE=1;+CREG?") are split.
[[nodiscard]] std::optional<std::vector<AtCommand>> ParseCommands(std::string_view line);

}  // namespace modem_simulator
