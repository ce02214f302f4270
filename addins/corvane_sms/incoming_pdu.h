// SPDX-License-Identifier: MIT
// What the PDUs that a modem has received say to a control program (3GPP TS 23.040).
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "libs/gsm/pdu.h"
#include "libs/messages/inbox.h"

namespace corvane_sms {

using messages::IncomingKind;

/// A received PDU.
struct IncomingPdu {
  enum class Type : std::uint8_t {
    kMessage,
    kPart,    ///< of a message of several; `text` is not set, since a character may be split
    kReport,  ///< a status report
  };
  Type type = Type::kMessage;
  /// "+" and digits for an international number, digits as they came for others, a name.
  std::string sender;
  std::optional<std::chrono::sys_seconds> time;  ///< none: the time stamp is not a time
  IncomingKind kind = IncomingKind::kText;
  std::string text;             ///< UTF-8 or, as `kind` says, hexadecimal digits
  gsm::Concatenation place;     ///< of a part
  gsm::StatusReportPdu report;  ///< of a report
};

/// Decodes a PDU as the modem listed it. Whatever it is, the result can be handed over: what
/// cannot be decoded becomes a message of kind kUndecoded.
[[nodiscard]] IncomingPdu ReadIncoming(std::string_view hexadecimal);

/// Whether the PDU can be a message that this modem was to send: a stored SMS-SUBMIT.
[[nodiscard]] bool IsOutgoing(std::string_view hexadecimal);

/// The text of consecutive parts of a message.
/// @param parts those that ReadIncoming took for such; others count as empty text
[[nodiscard]] messages::PartsText ReadParts(std::span<const messages::Part> parts);

/// Whether two parts hold the same octets, whenever they were sent: a sender that was not confirmed
/// a part in time sends it again, with another time stamp.
[[nodiscard]] bool HaveSameContent(const messages::Part& one, const messages::Part& other);

}  // namespace corvane_sms
