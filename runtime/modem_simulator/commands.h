// SPDX-License-Identifier: MIT
// The commands that the modem understands: one table (commands.cpp), with one handler per row.
#pragma once

#include <string_view>

#include "runtime/modem_simulator/at_command.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

/// Carries out one command. Information text is appended to `answer`. Unknown commands: ERROR.
[[nodiscard]] Result Execute(ModemState& modem, const AtCommand& command, Answer& answer);

/// Takes the message after the prompt, without its Ctrl-Z. Returns kAwaitNetwork if it is to be
/// sent, the result if it is stored or acknowledged, and the reason if it is refused.
[[nodiscard]] Result TakeMessage(ModemState& modem, std::string_view body, Answer& answer);

/// The network's answer to the message that waits in `outgoing`, which is then taken or lost.
[[nodiscard]] Result ConfirmMessage(ModemState& modem, Answer& answer);

/// Why a command cannot move messages: the SIM card is locked, or a fault was ordered. Else kOk.
[[nodiscard]] Result CheckSim(const ModemState& modem);
[[nodiscard]] Result CheckTransfer(ModemState& modem, const AtCommand& command);

}  // namespace modem_simulator
