// SPDX-License-Identifier: MIT
// The parts of a check. Each asks the modem and reports what it finds; all throw TalkEnded.
#pragma once

#include "runtime/modem_check/finding.h"
#include "runtime/modem_check/modem_check.h"
#include "runtime/modem_check/modem_talk.h"

namespace corvane::modem_check {

/// Maker, model and revision (3GPP TS 27.007 clauses 5.1 to 5.3).
void CheckMaker(ModemTalk& talk, const Report& report);
/// Echo and flow control (ITU-T V.250 clauses 6.2.4 and 6.2.12).
void CheckLineSettings(ModemTalk& talk, const Report& report);
/// SIM card and PIN (3GPP TS 27.007 clauses 8.3 and 8.65), and the commands of `init`.
/// @return whether the card is ready
[[nodiscard]] bool CheckCard(ModemTalk& talk, WaitLoop& loop, const Report& report);
/// Network, operator and signal (3GPP TS 27.007 clauses 7.2, 7.3 and 8.5).
/// @param with_card without a card that is ready, only the signal
void CheckNetwork(ModemTalk& talk, bool with_card, std::chrono::seconds patience,
                  const Report& report);
/// PDU mode and the alphabet of names (3GPP TS 27.005 clauses 3.2.1 and 3.2.3; TS 27.007 clause
/// 5.5).
void CheckMessageMode(ModemTalk& talk, const Report& report);
/// Service centre and store (3GPP TS 27.005 clauses 3.3.1 and 3.2.2).
void CheckServiceCentreAndStore(ModemTalk& talk, const Report& report);
/// Sends a message (3GPP TS 27.005 clause 3.5.1).
void SendTestMessage(ModemTalk& talk, const CheckOptions& options, const Report& report);

}  // namespace corvane::modem_check
