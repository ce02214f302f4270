// SPDX-License-Identifier: MIT
// Messages as text mode shows and takes them (3GPP TS 27.005 clauses 3.1, 3.4.2).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "libs/gsm/user_data.h"
#include "runtime/modem_simulator/message_store.h"

namespace modem_simulator {

/// `"<stat>","<oa>",,"<scts>"` and the text on the next line. A text of the default alphabet comes
/// as its septets or, with the character set "UCS2", as hexadecimal digits; UCS-2 and 8-bit data
/// always as digits. A PDU that is no SMS-DELIVER is shown as it is.
[[nodiscard]] std::string TextEntry(const StoredMessage& message, std::string_view character_set);

/// The user data of what was typed behind the prompt, in the given character set; nullopt when it
/// does not fit one message or is not written in that set.
[[nodiscard]] std::optional<gsm::UserData> TextBody(std::string_view body,
                                                    std::string_view character_set);

}  // namespace modem_simulator
