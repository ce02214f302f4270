// SPDX-License-Identifier: MIT
// The commands that the modem understands: one table (commands.cpp), a handler a row.
#pragma once

#include <string_view>

#include "runtime/modem_simulator/at_command.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

/// Carries out one command. Information text is appended to `answer`. Unknown ones: ERROR.
[[nodiscard]] Result Execute(ModemState& modem, const AtCommand& command, Answer& answer);

/// The message after the prompt, without its Ctrl-Z. What is to be sent gives kAwaitNetwork; what
/// is stored or acknowledged, its result; and what is refused, why.
[[nodiscard]] Result TakeMessage(ModemState& modem, std::string_view body, Answer& answer);

/// The network's answer to the message that waits in `outgoing`, which is then taken or lost.
[[nodiscard]] Result ConfirmMessage(ModemState& modem, Answer& answer);

/// Why a command that moves messages cannot: the SIM card is locked, or a fault was ordered.
/// kOk when it can.
[[nodiscard]] Result CheckSim(const ModemState& modem);
[[nodiscard]] Result CheckTransfer(ModemState& modem, const AtCommand& command);

}  // namespace modem_simulator
