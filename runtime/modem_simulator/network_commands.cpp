// SPDX-License-Identifier: MIT
// SIM, signal, registration (3GPP TS 27.007 clauses 5.6, 7, 8).
#include <fmt/format.h>

#include <array>

#include "runtime/modem_simulator/commands.h"

namespace modem_simulator {
namespace {

Result Pin(ModemState& modem, const AtCommand& command, Answer& answer) {
  SimCard& sim = modem.sim;
  switch (command.form) {
    case CommandForm::kTest: return kOk;
    case CommandForm::kRead: answer.push_back(fmt::format("+CPIN: {}", sim.state())); return kOk;
    case CommandForm::kExecute: return kError;
    case CommandForm::kSet: break;
  }
  if (sim.ready()) return Cme(3);  // operation not allowed: there is nothing to enter
  if (sim.Enter(command.parameters.front())) {
    modem.host.Report("PIN accepted");
    return kOk;
  }
  modem.host.Report(sim.blocked() ? "wrong PIN: the SIM card is blocked" : "wrong PIN");
  return Cme(sim.blocked() ? kCmePukRequired : kCmeIncorrectPassword);
}

Result Signal(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) {
    answer.emplace_back("+CSQ: (0-31,99),(0-7,99)");
  } else {
    answer.push_back(fmt::format("+CSQ: {},{}", modem.signal, modem.signal == 99 ? 99 : 0));
  }
  return kOk;
}

/// AT+CREG and AT+CGREG: 0 not registered, 1 registered at home.
Result Registration(ModemState& modem, const AtCommand& command, Answer& answer) {
  int& reports = modem.settings.registration_reports;
  switch (command.form) {
    case CommandForm::kTest: answer.push_back(fmt::format("{}: (0-1)", command.name)); return kOk;
    case CommandForm::kRead:
      answer.push_back(fmt::format("{}: {},{}", command.name, reports, modem.online() ? 1 : 0));
      return kOk;
    case CommandForm::kExecute:
    case CommandForm::kSet: break;
  }
  const auto value = command.Number(0, 0);
  if (!value || *value > 1) return kError;
  reports = *value;
  return kOk;
}

Result Operator(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) {
    answer.emplace_back("+COPS: (2,\"Corvane\",\"Corvane\",\"00101\")");
  } else if (command.form == CommandForm::kRead) {
    answer.emplace_back(modem.online() ? "+COPS: 0,0,\"Corvane\"" : "+COPS: 0");
  }
  return kOk;
}

Result Functionality(ModemState&, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) answer.emplace_back("+CFUN: (1)");
  if (command.form == CommandForm::kRead) answer.emplace_back("+CFUN: 1");
  return command.Number(0, 1) == 1 ? kOk : Cme(3);
}

Result Subscriber(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) return kOk;
  if (!modem.sim.ready()) return Cme(modem.sim.blocked() ? kCmePukRequired : kCmePinRequired);
  answer.emplace_back("310150123456789");
  return kOk;
}

Result Activity(ModemState&, const AtCommand& command, Answer& answer) {
  answer.emplace_back(command.form == CommandForm::kTest ? "+CPAS: (0)" : "+CPAS: 0");
  return kOk;
}

Result Clock(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form != CommandForm::kRead) return kOk;
  const gsm::TimeStamp now = modem.host.Now();
  answer.push_back(fmt::format("+CCLK: \"{:02}/{:02}/{:02},{:02}:{:02}:{:02}{:+03}\"",
                               now.year % 100, now.month, now.day, now.hour, now.minute, now.second,
                               now.utc_offset_minutes / 15));
  return kOk;
}

constexpr std::array kNetworkCommands{
    CommandRow{"+CPIN", Pin},          CommandRow{"+CSQ", Signal},
    CommandRow{"+CREG", Registration}, CommandRow{"+CGREG", Registration},
    CommandRow{"+COPS", Operator},     CommandRow{"+CFUN", Functionality},
    CommandRow{"+CIMI", Subscriber},   CommandRow{"+CPAS", Activity},
    CommandRow{"+CCLK", Clock},
};

}  // namespace

Handler FindNetworkCommand(std::string_view name) {
  return FindRow(kNetworkCommands, name);
}

}  // namespace modem_simulator
