// SPDX-License-Identifier: MIT
// The commands that the modem understands: one table, a handler a row.
#pragma once

#include <span>
#include <string_view>

#include "runtime/modem_simulator/at_command.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

/// Carries out one command. Information text is appended to `answer`. Unknown ones: ERROR.
[[nodiscard]] Result Execute(ModemState& modem, const AtCommand& command, Answer& answer);

/// The message behind the prompt, without its Ctrl-Z. kAwaitNetwork, or why it is refused.
[[nodiscard]] Result TakeMessage(ModemState& modem, std::string_view body);

/// The network's answer to the message that waits in `outgoing`, which is then taken or lost.
[[nodiscard]] Result ConfirmMessage(ModemState& modem, Answer& answer);

// Handlers by topic; each in the file of its name.
using Handler = Result (*)(ModemState& modem, const AtCommand& command, Answer& answer);

struct CommandRow {
  std::string_view name;
  Handler handler;
};

/// Each gives null for a command that it does not have.
[[nodiscard]] Handler FindGeneralCommand(std::string_view name);
[[nodiscard]] Handler FindNetworkCommand(std::string_view name);
[[nodiscard]] Handler FindMessageCommand(std::string_view name);
[[nodiscard]] Handler FindListingCommand(std::string_view name);
[[nodiscard]] Handler FindSendingCommand(std::string_view name);

/// The handler of the row with this name; null when there is none.
[[nodiscard]] Handler FindRow(std::span<const CommandRow> rows, std::string_view name);

/// Why a command that moves messages cannot: the SIM card is locked, or a fault was ordered.
/// kOk when it can.
[[nodiscard]] Result CheckSim(const ModemState& modem);
[[nodiscard]] Result CheckTransfer(ModemState& modem, const AtCommand& command);

}  // namespace modem_simulator
