// SPDX-License-Identifier: MIT
// Line settings and identification (ITU-T V.250; 3GPP TS 27.007 clause 5).
#include <fmt/format.h>

#include <array>

#include "runtime/modem_simulator/handlers.h"
#include "runtime/modem_simulator/numeric_parameters.h"

namespace modem_simulator {
namespace {

/// Sets a flag from "0" or "1"; no number means 0.
Result SetFlag(const AtCommand& command, bool& flag) {
  const auto value = command.Number(0, 0);
  if (!value || *value > 1) return kError;
  flag = *value == 1;
  return kOk;
}

/// Answers AT+CGMI and similar commands.
Result Identify(const AtCommand& command, Answer& answer, std::string_view text) {
  if (command.form != CommandForm::kTest) answer.emplace_back(text);
  return kOk;
}

}  // namespace

Result Echo(ModemState& modem, const AtCommand& command, Answer&) {
  return SetFlag(command, modem.settings.echo);
}

Result Verbose(ModemState& modem, const AtCommand& command, Answer&) {
  return SetFlag(command, modem.settings.format.verbose);
}

Result Quiet(ModemState& modem, const AtCommand& command, Answer&) {
  return SetFlag(command, modem.settings.quiet);
}

Result ResetSettings(ModemState& modem, const AtCommand&, Answer&) {
  modem.settings = Settings{};
  return kOk;
}

Result Accept(ModemState&, const AtCommand&, Answer&) {
  return kOk;
}

Result Dial(ModemState&, const AtCommand&, Answer&) {
  return {ResultKind::kNoCarrier};
}

/// The S registers. The two that end lines (S3, S4) can have only one value here.
Result Register(ModemState& modem, const AtCommand& command, Answer& answer) {
  struct Row {
    std::string_view name;
    std::string_view choices;
    int Registers::*field;
  };
  constexpr std::array kRows{
      Row{"S0", "0-255", &Registers::rings_before_answer}, Row{"S3", "13", &Registers::line_end},
      Row{"S4", "10", &Registers::line_feed}, Row{"S5", "0-127", &Registers::backspace}};
  for (const Row& row : kRows) {
    if (row.name != command.name) continue;
    int& value = modem.settings.registers.*row.field;
    if (command.form == CommandForm::kRead) answer.push_back(fmt::format("{:03}", value));
    const auto wanted = command.Number(0, value);
    if (!wanted || !Offers(row.choices, *wanted)) return kError;
    value = *wanted;
    return kOk;
  }
  return kError;
}

/// The speed of the line (AT+IPR). The simulated line does not depend on it.
Result Speed(ModemState& modem, const AtCommand& command, Answer& answer) {
  constexpr std::string_view kSpeeds =
      "0,1200,2400,4800,9600,19200,38400,57600,115200,230400,460800,921600";
  if (command.form == CommandForm::kTest) {  // detected speeds, then those that must be set
    answer.push_back(fmt::format("+IPR: (),({})", kSpeeds));
    return kOk;
  }
  return NumericParameter(command, kSpeeds, modem.line_speed, kError, answer);
}

Result FlowControl(ModemState& modem, const AtCommand& command, Answer& answer) {
  constexpr std::array<std::string_view, 2> kOffered{"0-3", "0-2"};
  return NumericParameters(command, kOffered, modem.flow_control, kError, answer);
}

Result CharacterFraming(ModemState& modem, const AtCommand& command, Answer& answer) {
  constexpr std::array<std::string_view, 2> kOffered{"0-6", "0-3"};
  return NumericParameters(command, kOffered, modem.character_framing, kError, answer);
}

Result ErrorLevel(ModemState& modem, const AtCommand& command, Answer& answer) {
  return NumericParameter(command, "0-2", modem.settings.format.error_level, kError, answer);
}

Result SelectCharacterSet(ModemState& modem, const AtCommand& command, Answer& answer) {
  CharacterSet& set = modem.settings.character_set;
  switch (command.form) {
    case CommandForm::kTest: answer.emplace_back("+CSCS: (\"GSM\",\"IRA\",\"UCS2\")"); return kOk;
    case CommandForm::kRead:
      answer.push_back(fmt::format("+CSCS: \"{}\"", NameOf(set)));
      return kOk;
    case CommandForm::kExecute: return kError;
    case CommandForm::kSet: break;
  }
  const auto wanted = CharacterSetNamed(command.parameters.front());
  if (!wanted) return kError;
  set = *wanted;
  return kOk;
}

Result Manufacturer(ModemState&, const AtCommand& command, Answer& answer) {
  return Identify(command, answer, "Corvane");
}

Result Model(ModemState&, const AtCommand& command, Answer& answer) {
  return Identify(command, answer, "Simulator");
}

Result Revision(ModemState&, const AtCommand& command, Answer& answer) {
  return Identify(command, answer, "Revision 1");
}

Result SerialNumber(ModemState&, const AtCommand& command, Answer& answer) {
  return Identify(command, answer, "490154203237518");
}

Result Capabilities(ModemState&, const AtCommand& command, Answer& answer) {
  return Identify(command, answer, "+GCAP: +CGSM");
}

Result ProductName(ModemState&, const AtCommand& command, Answer& answer) {
  return Identify(command, answer, "Corvane Simulator");
}

}  // namespace modem_simulator
