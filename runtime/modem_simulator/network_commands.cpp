// SPDX-License-Identifier: MIT
// SIM, signal, registration, clock (3GPP TS 27.007 clauses 5.6, 7, 8, 10).
#include <fmt/format.h>

#include <array>

#include "runtime/modem_simulator/handlers.h"
#include "runtime/modem_simulator/numeric_parameters.h"
#include "runtime/modem_simulator/registration.h"

namespace modem_simulator {
namespace {

/// The operator's name in the formats 0 (long), 1 (short) and 2 (numeric).
constexpr std::array<std::string_view, 3> kOperator{"Corvane", "Corvane", "00101"};

constexpr int kNoSignal = 99;

/// 27.007 clause 7.3: <mode>.
enum SelectionMode { kAutomatic, kManual, kDeregister, kSetFormat, kManualThenAutomatic };

int PinError(const ModemState& modem) {
  if (!modem.sim.inserted()) return kCmeSimNotInserted;
  return modem.sim.blocked() ? kCmePukRequired : kCmePinRequired;
}

/// AT+CREG and AT+CGREG: 0 not registered, 1 registered at home.
Result RegistrationIn(Domain domain, ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kRead) {
    answer.push_back(fmt::format("{}: {},{}", command.name, ReportLevel(modem, domain),
                                 DescribeRegistration(modem, domain)));
    return kOk;
  }
  return NumericParameter(command, "0-2", ReportLevel(modem, domain), Cme(kCmeIncorrectParameters),
                          answer);
}

/// The name as it is written on the line; the numeric one is digits in any character set.
std::string OperatorName(const Settings& settings) {
  const std::string_view name = kOperator.at(static_cast<std::size_t>(settings.operator_format));
  return settings.operator_format == 2 ? std::string(name) : ToLine(name, settings.character_set);
}

void ShowOperators(const ModemState& modem, Answer& answer) {
  const std::string names = fmt::format(
      "\"{0}\",\"{0}\",\"{1}\"", ToLine(kOperator[0], modem.settings.character_set), kOperator[2]);
  std::string found;
  if (modem.reachable()) found = fmt::format("({},{})", modem.online() ? 2 : 1, names);
  answer.push_back(fmt::format("+COPS: {},,(0-4),(0-2)", found));
}

void ShowOperator(const ModemState& modem, Answer& answer) {
  std::string name;
  if (modem.online()) {
    name = fmt::format(",{},\"{}\"", modem.settings.operator_format, OperatorName(modem.settings));
  }
  answer.push_back(fmt::format("+COPS: {}{}", modem.operator_selection, name));
}

/// Whether an operator that is chosen by hand is the one that exists.
bool IsOurOperator(const AtCommand& command, int format, CharacterSet set) {
  const std::string& wanted = command.parameters.at(2);
  const std::string_view name = kOperator.at(static_cast<std::size_t>(format));
  return wanted == name || (format != 2 && FromLine(wanted, set) == name);
}

Result SelectByHand(ModemState& modem, const AtCommand& command, int mode, int format) {
  if (command.parameters.size() < 3) return Cme(kCmeIncorrectParameters);
  const bool ours = IsOurOperator(command, format, modem.settings.character_set);
  if (!ours && mode == kManual) return Cme(kCmeNoNetworkService);
  modem.operator_selection = ours ? kManual : kAutomatic;
  return kOk;
}

Result SelectOperator(ModemState& modem, const AtCommand& command) {
  const auto mode = command.Number(0, std::nullopt);
  const auto format = command.Number(1, modem.settings.operator_format);
  const bool known = mode && *mode <= kManualThenAutomatic && format && *format <= 2;
  if (!known || command.parameters.size() > 4) return Cme(kCmeIncorrectParameters);
  if (*mode == kSetFormat && command.parameters.size() != 2) return Cme(kCmeIncorrectParameters);
  if (!modem.sim.ready()) return Cme(PinError(modem));
  if (*mode == kManual || *mode == kManualThenAutomatic) {
    if (const Result result = SelectByHand(modem, command, *mode, *format); result != kOk) {
      return result;
    }
  } else if (*mode != kSetFormat) {
    modem.operator_selection = *mode;
  }
  modem.settings.operator_format = *format;
  return kOk;
}

}  // namespace

Result Pin(ModemState& modem, const AtCommand& command, Answer& answer) {
  SimCard& sim = modem.sim;
  if (command.form != CommandForm::kTest && !sim.inserted()) return Cme(PinError(modem));
  switch (command.form) {
    case CommandForm::kTest: return kOk;
    case CommandForm::kRead: answer.push_back(fmt::format("+CPIN: {}", sim.state())); return kOk;
    case CommandForm::kExecute: return kError;
    case CommandForm::kSet: break;
  }
  if (sim.ready()) return Cme(kCmeOperationNotAllowed);  // there is nothing to enter
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
    const int signal = modem.coverage_gaps > 0 ? kNoSignal : modem.signal;
    answer.push_back(fmt::format("+CSQ: {},{}", signal, signal == kNoSignal ? 99 : 0));
  }
  return kOk;
}

Result CircuitRegistration(ModemState& modem, const AtCommand& command, Answer& answer) {
  return RegistrationIn(Domain::kCircuit, modem, command, answer);
}

Result PacketRegistration(ModemState& modem, const AtCommand& command, Answer& answer) {
  return RegistrationIn(Domain::kPacket, modem, command, answer);
}

Result PacketAttachment(ModemState& modem, const AtCommand& command, Answer& answer) {
  int attached = IsRegistered(modem, Domain::kPacket) ? 1 : 0;
  if (command.form == CommandForm::kExecute) return kError;
  const Result result =
      NumericParameter(command, "0,1", attached, Cme(kCmeIncorrectParameters), answer);
  if (result != kOk || command.form != CommandForm::kSet) return result;
  if (attached == 1 && !modem.online()) return Cme(kCmeNoNetworkService);
  modem.packet_attached = attached == 1;
  return kOk;
}

Result Operator(ModemState& modem, const AtCommand& command, Answer& answer) {
  switch (command.form) {
    case CommandForm::kTest: ShowOperators(modem, answer); return kOk;
    case CommandForm::kRead: ShowOperator(modem, answer); return kOk;
    case CommandForm::kExecute: return kError;
    case CommandForm::kSet: return SelectOperator(modem, command);
  }
  return kError;
}

Result Functionality(ModemState&, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) answer.emplace_back("+CFUN: (1)");
  if (command.form == CommandForm::kRead) answer.emplace_back("+CFUN: 1");
  return command.Number(0, 1) == 1 ? kOk : Cme(kCmeOperationNotAllowed);
}

Result Subscriber(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) return kOk;
  if (!modem.sim.ready()) return Cme(PinError(modem));
  answer.emplace_back("310150123456789");
  return kOk;
}

Result Activity(ModemState&, const AtCommand& command, Answer& answer) {
  answer.emplace_back(command.form == CommandForm::kTest ? "+CPAS: (0)" : "+CPAS: 0");
  return kOk;
}

Result Clock(ModemState& modem, const AtCommand& command, Answer& answer) {
  const gsm::TimeStamp network_time = modem.host.Now();
  switch (command.form) {
    case CommandForm::kTest: return kOk;
    case CommandForm::kRead:
      answer.push_back(
          fmt::format("+CCLK: \"{}\"", FormatModemTime(modem.clock.Now(network_time))));
      return kOk;
    case CommandForm::kExecute: return kError;
    case CommandForm::kSet: break;
  }
  const auto time = ParseModemTime(command.parameters.front());
  if (!time || command.parameters.size() > 1) return Cme(kCmeIncorrectParameters);
  modem.clock.Set(*time, network_time);
  return kOk;
}

}  // namespace modem_simulator
