// SPDX-License-Identifier: MIT
// Messages in words, for the operator.
#pragma once

#include <string>

#include "runtime/modem_simulator/message_joiner.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

/// A PDU: "from +4915112345678 at 2026-01-31T12:00:00+01:00, part 1 of 2: text", "to +1555: text",
/// "status report 0 on message 3 to +1555", or its digits if it cannot be decoded.
[[nodiscard]] std::string DescribeMessage(gsm::OctetSpan octets);

/// Reports what the controller has sent: each part, and each message once it is whole, as
/// "sent to +15550101234: hello", or "part 1 of 2 to +15550101234" for one of several parts.
void ReportSent(ModemState& modem, const gsm::SubmitPdu& pdu);

/// "sent to +15550101234 in 2 parts: ..."; "unfinished to ..., 1 of 2 parts: ..." if some are
/// missing.
[[nodiscard]] std::string DescribeSent(const SentMessage& message);

}  // namespace modem_simulator
