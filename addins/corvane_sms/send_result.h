// SPDX-License-Identifier: MIT
// What a modem's answer means for the message that it is about (3GPP TS 27.005 clause 3.2.5).
// Pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane_sms {

enum class SendOutcome : std::uint8_t {
  kPrompt,   ///< the modem waits for the text
  kTaken,    ///< the network has taken the text
  kNever,    ///< it will never take it
  kNotNow,   ///< try this message again later
  kPort,     ///< the modem, SIM or network cannot send anything now
  kUnknown,  ///< the modem has had the text; what became of it is not known
};

struct SendResult {
  SendOutcome outcome = SendOutcome::kNotNow;
  std::uint8_t reference = 0;  ///< kTaken: the message reference; 0 also if it was lost
  std::string reason;          ///< a part of a sentence for the others
};

/// The answer to AT+CMGS=<length>.
[[nodiscard]] SendResult ReadPromptAnswer(std::string_view answer, int status);
/// The answer to the text.
[[nodiscard]] SendResult ReadTextAnswer(std::string_view answer, int status);
/// The answer to a command that had to be OK, and was not.
[[nodiscard]] SendResult ReadRefusal(std::string_view answer, int status);

}  // namespace corvane_sms
