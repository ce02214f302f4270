// SPDX-License-Identifier: MIT
// How messages are kept, shown and announced (3GPP TS 27.005 clauses 3.1 to 3.4).
#include <fmt/format.h>

#include <array>

#include "runtime/modem_simulator/commands.h"

namespace modem_simulator {
namespace {

Result MessageFormat(ModemState& modem, const AtCommand& command, Answer& answer) {
  bool& text_mode = modem.settings.text_mode;
  switch (command.form) {
    case CommandForm::kTest: answer.emplace_back("+CMGF: (0,1)"); return kOk;
    case CommandForm::kRead: answer.push_back(fmt::format("+CMGF: {:d}", text_mode)); return kOk;
    case CommandForm::kExecute:
    case CommandForm::kSet: break;
  }
  const auto value = command.Number(0, 0);
  if (!value || *value > 1) return kError;
  text_mode = *value == 1;
  return kOk;
}

/// AT+CPMS: there is one memory, the SIM card's, for each of the three uses.
Result Storage(ModemState& modem, const AtCommand& command, Answer& answer) {
  if (command.form == CommandForm::kTest) {
    answer.emplace_back("+CPMS: (\"SM\"),(\"SM\"),(\"SM\")");
    return kOk;
  }
  if (const Result sim = CheckSim(modem); sim != kOk) return sim;
  const std::string use = fmt::format("{},{}", modem.store.used(), modem.store.size());
  if (command.form == CommandForm::kRead) {
    answer.push_back(fmt::format("+CPMS: \"SM\",{0},\"SM\",{0},\"SM\",{0}", use));
    return kOk;
  }
  for (const std::string& memory : command.parameters) {
    if (memory != "SM") return Cms(kOperationNotAllowed);
  }
  answer.push_back(fmt::format("+CPMS: {0},{0},{0}", use));
  return kOk;
}

Result ServiceCentre(ModemState& modem, const AtCommand& command, Answer& answer) {
  switch (command.form) {
    case CommandForm::kTest: return kOk;
    case CommandForm::kRead:
      answer.push_back(fmt::format("+CSCA: \"{}\",{}", modem.service_centre,
                                   gsm::TypeOfAddress(modem.service_centre)));
      return kOk;
    case CommandForm::kExecute: return kError;
    case CommandForm::kSet: break;
  }
  const std::string& number = command.parameters.front();
  if (!gsm::IsNumber(number)) return Cms(kInvalidTextParameter);
  modem.service_centre = number;
  return kOk;
}

Result NewMessageIndications(ModemState& modem, const AtCommand& command, Answer& answer) {
  auto& values = modem.settings.indications.values;
  switch (command.form) {
    case CommandForm::kTest: answer.emplace_back("+CNMI: (0-2),(0-2),(0),(0),(0,1)"); return kOk;
    case CommandForm::kRead:
      answer.push_back(fmt::format("+CNMI: {},{},{},{},{}", values[0], values[1], values[2],
                                   values[3], values[4]));
      return kOk;
    case CommandForm::kExecute: values = {}; return kOk;
    case CommandForm::kSet: break;
  }
  constexpr std::array kHighest{2, 2, 0, 0, 1};
  auto wanted = values;
  for (std::size_t i = 0; i < command.parameters.size(); ++i) {
    const auto value = command.Number(i, i < wanted.size() ? wanted[i] : 0);
    if (i >= wanted.size() || !value || *value > kHighest[i]) return Cms(kOperationNotAllowed);
    wanted[i] = *value;
  }
  values = wanted;
  return kOk;
}

Result MessageService(ModemState&, const AtCommand& command, Answer& answer) {
  switch (command.form) {
    case CommandForm::kTest: answer.emplace_back("+CSMS: (0)"); return kOk;
    case CommandForm::kRead: answer.emplace_back("+CSMS: 0,1,1,0"); return kOk;
    case CommandForm::kExecute:
    case CommandForm::kSet: break;
  }
  if (command.Number(0, 0) != 0) return Cms(kOperationNotAllowed);
  answer.emplace_back("+CSMS: 1,1,0");
  return kOk;
}

constexpr std::array kMessageCommands{
    CommandRow{"+CMGF", MessageFormat},  CommandRow{"+CPMS", Storage},
    CommandRow{"+CSCA", ServiceCentre},  CommandRow{"+CNMI", NewMessageIndications},
    CommandRow{"+CSMS", MessageService},
};

}  // namespace

Handler FindMessageCommand(std::string_view name) {
  return FindRow(kMessageCommands, name);
}

}  // namespace modem_simulator
