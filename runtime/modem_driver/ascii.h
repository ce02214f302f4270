// SPDX-License-Identifier: MIT
// Characters of the dialogue with a modem (ITU-T V.250, 3GPP TS 27.005).
#pragma once

#include <string_view>

namespace corvane {

inline constexpr char kCtrlZ = 0x1A;  ///< ends the text of a message
/// Leaves the prompt without sending the text. Modems that do not understand ESC outside a prompt
/// see an unknown command line; without the CR, the next command would be part of it.
inline constexpr std::string_view kLeavePrompt = "\x1B\r";

/// Converts a letter to upper case, in ASCII only, whatever the locale.
[[nodiscard]] constexpr char Upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/// Whether a command line begins with AT, in either case.
[[nodiscard]] constexpr bool BeginsWithAt(std::string_view line) {
  return line.size() >= 2 && Upper(line[0]) == 'A' && Upper(line[1]) == 'T';
}

}  // namespace corvane
