// SPDX-License-Identifier: MIT
// The character sets of AT+CSCS: how strings and texts are written on the line (3GPP TS 27.007
// clause 5.5).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace modem_simulator {

enum class CharacterSet : std::uint8_t {
  kGsm,   ///< septets of the GSM 7-bit default alphabet
  kIra,   ///< ASCII (ITU-T T.50)
  kUcs2,  ///< UTF-16, four hexadecimal digits a unit
};

/// As AT+CSCS writes it: "UCS2".
[[nodiscard]] std::string_view NameOf(CharacterSet set);
[[nodiscard]] std::optional<CharacterSet> CharacterSetNamed(std::string_view name);

/// UTF-8 as it is written in the set. A character that the set does not have becomes '?'.
[[nodiscard]] std::string ToLine(std::string_view utf8, CharacterSet set);

/// UTF-8 of what was written in the set; nullopt for what cannot have been.
[[nodiscard]] std::optional<std::string> FromLine(std::string_view text, CharacterSet set);

}  // namespace modem_simulator
