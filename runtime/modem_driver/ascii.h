// SPDX-License-Identifier: MIT
// Characters of the dialogue with a modem (ITU-T V.250, 3GPP TS 27.005).
#pragma once

namespace corvane {

inline constexpr char kCtrlZ = 0x1A;   ///< ends the text of a message
inline constexpr char kEscape = 0x1B;  ///< leaves the prompt; the text is not sent

/// A letter as a capital, in ASCII only, whatever the locale.
[[nodiscard]] constexpr char Upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

}  // namespace corvane
