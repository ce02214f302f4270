// SPDX-License-Identifier: MIT
// The list of messages with which a modem in PDU mode answers AT+CMGL (3GPP TS 27.005 clause
// 3.4.2), as the modem port driver hands it over. Borrows the answer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace corvane_sms {

/// What a store says about a message (clause 3.1, <stat>).
enum class StoredAs : std::uint8_t { kUnread, kRead, kUnsent, kSent, kUnknown };

struct ListedPdu {
  int index = 0;  ///< its place in the modem, 0 to 999999
  StoredAs stored_as = StoredAs::kUnknown;
  std::string_view pdu;  ///< hexadecimal as it came; empty: the place holds nothing readable
};

struct MessageList {
  std::vector<ListedPdu> entries;  ///< in the order of the list
  std::size_t unreadable = 0;      ///< headers without a place
  bool complete = false;           ///< the modem has ended it with OK
};

/// Reads the header as all makers write it: with or without blanks, status and text field, which
/// may hold commas when it is quoted. The time is proportional to the length of the answer.
[[nodiscard]] MessageList ReadMessageList(std::string_view answer);

}  // namespace corvane_sms
