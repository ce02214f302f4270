// SPDX-License-Identifier: MIT
// Answers of a modem to AT commands (3GPP TS 27.005), as both SMS blocks classify them.
// Pure functions.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

/// Values of `Error` besides 0 and the numbers of +CMS ERROR.
enum ExchangeError : int {
  kNotRegistered = 1,     ///< the runtime has no such port, or could not open it
  kUnexpectedAnswer = 3,  ///< an answer that does not belong to the command
  kPlainError = 5,        ///< "ERROR", or +CMS ERROR without a number
  kNoAnswer = 6,          ///< time-out or port failure
  kNoReceiver = 12,       ///< no number, or none that fits in a request
};

/// The `length` octets of an answer as text; empty without octets.
inline std::string_view AnswerText(const char* reply, int length) {
  return reply == nullptr || length <= 0
             ? std::string_view()
             : std::string_view(reply, static_cast<std::size_t>(length));
}

/// The number after "+CMS ERROR: " at the beginning of an answer, 0 if none follows; nullopt for
/// any other answer.
std::optional<int> CmsErrorNumber(std::string_view answer);
