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
  /// What is set, quotes taken off; "" for a parameter that is left out.
  std::vector<std::string> parameters;

  /// A parameter that is a decimal number, 0..999999; `otherwise` where it is left out; nullopt
  /// where it is something else.
  [[nodiscard]] std::optional<int> Number(std::size_t index, std::optional<int> otherwise) const;
};

/// The commands after the "AT" of a line, in their order; nullopt where the line is no command
/// line. Compound lines ("E0V1+CMEE=1;+CREG?") are taken apart.
[[nodiscard]] std::optional<std::vector<AtCommand>> ParseCommands(std::string_view line);

}  // namespace modem_simulator
