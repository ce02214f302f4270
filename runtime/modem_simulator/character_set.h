// SPDX-License-Identifier: MIT
// The character sets of AT+CSCS, in which strings and texts are written on the line (3GPP TS 27.007
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
  kUcs2,  ///< UTF-16, four hexadecimal digits per unit
};

/// As AT+CSCS writes it: "UCS2".
[[nodiscard]] std::string_view NameOf(CharacterSet set);
[[nodiscard]] std::optional<CharacterSet> CharacterSetNamed(std::string_view name);

/// Converts UTF-8 to the set. A character that the set does not have becomes '?'.
[[nodiscard]] std::string ToLine(std::string_view utf8, CharacterSet set);

/// Converts text in the set to UTF-8; nullopt if it is not valid in the set.
[[nodiscard]] std::optional<std::string> FromLine(std::string_view text, CharacterSet set);

}  // namespace modem_simulator
