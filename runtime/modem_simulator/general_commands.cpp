// SPDX-License-Identifier: MIT
// Line settings and identification (ITU-T V.250; 3GPP TS 27.007 clause 5).
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "runtime/modem_simulator/commands.h"

namespace modem_simulator {
namespace {

/// Sets a flag from "0" or "1"; no number means 0.
Result SetFlag(const AtCommand& command, bool& flag) {
  const auto value = command.Number(0, 0);
  if (!value || *value > 1) return kError;
  flag = *value == 1;
  return kOk;
}

Result Echo(ModemState& modem, const AtCommand& command, Answer&) {
  return SetFlag(command, modem.settings.echo);
}

Result Verbose(ModemState& modem, const AtCommand& command, Answer&) {
  return SetFlag(command, modem.settings.format.verbose);
}

Result Quiet(ModemState& modem, const AtCommand& command, Answer&) {
  return SetFlag(command, modem.settings.quiet);
}

Result Reset(ModemState& modem, const AtCommand&, Answer&) {
  modem.settings = Settings{};
  return kOk;
}

/// A setting that changes nothing here: flow control, carrier detect, speed.
Result Accept(ModemState&, const AtCommand&, Answer&) {
  return kOk;
}

Result Dial(ModemState&, const AtCommand&, Answer&) {
  return {ResultKind::kNoCarrier};
}

Result ErrorLevel(ModemState& modem, const AtCommand& command, Answer& answer) {
  int& level = modem.settings.format.error_level;
  switch (command.form) {
    case CommandForm::kTest: answer.emplace_back("+CMEE: (0-2)"); return kOk;
    case CommandForm::kRead: answer.push_back(fmt::format("+CMEE: {}", level)); return kOk;
    case CommandForm::kExecute:
    case CommandForm::kSet: break;
  }
  const auto value = command.Number(0, 0);
  if (!value || *value > 2) return kError;
  level = *value;
  return kOk;
}

Result CharacterSet(ModemState& modem, const AtCommand& command, Answer& answer) {
  std::string& set = modem.settings.character_set;
  switch (command.form) {
    case CommandForm::kTest: answer.emplace_back("+CSCS: (\"GSM\",\"UCS2\")"); return kOk;
    case CommandForm::kRead: answer.push_back(fmt::format("+CSCS: \"{}\"", set)); return kOk;
    case CommandForm::kExecute: return kError;
    case CommandForm::kSet: break;
  }
  const std::string& wanted = command.parameters.front();
  if (wanted != "GSM" && wanted != "UCS2") return kError;
  set = wanted;
  return kOk;
}

struct FixedAnswer {
  std::string_view name;
  std::string_view text;
};

/// Identification, asked for by AT+CGMI and the like.
constexpr std::array kIdentification{
    FixedAnswer{"+CGMI", "Corvane"},         FixedAnswer{"+GMI", "Corvane"},
    FixedAnswer{"+CGMM", "Simulator"},       FixedAnswer{"+GMM", "Simulator"},
    FixedAnswer{"+CGMR", "Revision 1"},      FixedAnswer{"+GMR", "Revision 1"},
    FixedAnswer{"+CGSN", "490154203237518"}, FixedAnswer{"+GSN", "490154203237518"},
    FixedAnswer{"+GCAP", "+GCAP: +CGSM"},    FixedAnswer{"I", "Corvane Simulator"}};

const FixedAnswer* FindIdentification(std::string_view name) {
  const auto row = std::find_if(kIdentification.begin(), kIdentification.end(),
                                [name](const FixedAnswer& f) { return f.name == name; });
  return row == kIdentification.end() ? nullptr : &*row;
}

Result Identify(ModemState&, const AtCommand& command, Answer& answer) {
  if (command.form != CommandForm::kTest)
    answer.emplace_back(FindIdentification(command.name)->text);
  return kOk;
}

constexpr std::array kGeneralCommands{
    CommandRow{"E", Echo},
    CommandRow{"V", Verbose},
    CommandRow{"Q", Quiet},
    CommandRow{"Z", Reset},
    CommandRow{"&F", Reset},
    CommandRow{"D", Dial},
    CommandRow{"+CMEE", ErrorLevel},
    CommandRow{"+CSCS", CharacterSet},
    // Accepted without an effect on what is simulated.
    CommandRow{"X", Accept},
    CommandRow{"H", Accept},
    CommandRow{"L", Accept},
    CommandRow{"M", Accept},
    CommandRow{"S0", Accept},
    CommandRow{"&C", Accept},
    CommandRow{"&D", Accept},
    CommandRow{"&K", Accept},
    CommandRow{"&W", Accept},
    CommandRow{"+IPR", Accept},
    CommandRow{"+IFC", Accept},
    CommandRow{"+ICF", Accept},
};

}  // namespace

Handler FindGeneralCommand(std::string_view name) {
  if (const Handler handler = FindRow(kGeneralCommands, name)) return handler;
  return FindIdentification(name) == nullptr ? nullptr : Identify;
}

}  // namespace modem_simulator
