// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/commands.h"

#include <algorithm>

namespace modem_simulator {

Result Execute(ModemState& modem, const AtCommand& command, Answer& answer) {
  for (const auto find : {FindGeneralCommand, FindNetworkCommand, FindMessageCommand,
                          FindListingCommand, FindSendingCommand}) {
    if (const Handler handler = find(command.name)) return handler(modem, command, answer);
  }
  return kError;
}

Handler FindRow(std::span<const CommandRow> rows, std::string_view name) {
  const auto row = std::find_if(rows.begin(), rows.end(),
                                [name](const CommandRow& r) { return r.name == name; });
  return row == rows.end() ? nullptr : row->handler;
}

Result CheckSim(const ModemState& modem) {
  if (modem.sim.ready()) return kOk;
  return Cms(modem.sim.blocked() ? kSimPukRequired : kSimPinRequired);
}

Result CheckTransfer(ModemState& modem, const AtCommand& command) {
  if (const Result sim = CheckSim(modem); sim != kOk) return sim;
  return modem.faults.TakeFailure(std::string_view(command.name).substr(1)).value_or(kOk);
}

}  // namespace modem_simulator
