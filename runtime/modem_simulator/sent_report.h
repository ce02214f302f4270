// SPDX-License-Identifier: MIT
// Tells the operator what the controller has sent: each part, and each message once it is whole.
#pragma once

#include <string>

#include "runtime/modem_simulator/message_joiner.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

/// "sent to +15550101234: hello", or "part 1 of 2 to +15550101234" for a part of more.
void ReportSent(ModemState& modem, const gsm::SubmitPdu& pdu);

/// "sent to +15550101234 in 2 parts: ..."; "unfinished to ...: 1 of 2 parts: ..." when some lack.
[[nodiscard]] std::string DescribeSent(const SentMessage& message);

}  // namespace modem_simulator
