// SPDX-License-Identifier: MIT
// Messages as text mode shows and accepts them (3GPP TS 27.005 clauses 3.1, 3.3.2, 3.4).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "libs/gsm/octet_reader.h"
#include "runtime/modem_simulator/at_command.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

/// Where a message is shown: each place has its own fields.
enum class Shown {
  kListed,    ///< +CMGL
  kRead,      ///< +CMGR
  kArriving,  ///< +CMT, +CDS
};

/// The fields after "+CMGR: " and similar headers, and the text on the next line; with AT+CSDH=1
/// all fields. A text of the default alphabet is written in the character set, UCS-2 and 8-bit data
/// as hexadecimal digits. A PDU that cannot be decoded is shown as it is.
[[nodiscard]] std::string TextEntry(const StoredMessage& message, Shown shown,
                                    const Settings& settings);

/// The number in a command's parameter `index` and its type in the next one, if that is given;
/// nullopt if it is not a number in the character set.
[[nodiscard]] std::optional<gsm::Address> NumberGiven(const AtCommand& command, std::size_t index,
                                                      CharacterSet set);

/// The SMS-SUBMIT of what was typed after the prompt, as AT+CSMP and AT+CSCS have it: text, or
/// hexadecimal digits for UCS-2, 8-bit data and user data with a header. nullopt if it does not
/// fit one message or is not in this form.
[[nodiscard]] std::optional<gsm::Octets> SubmitOctets(const gsm::Address& destination,
                                                      std::string_view body,
                                                      const Settings& settings);

}  // namespace modem_simulator
