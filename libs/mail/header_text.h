// SPDX-License-Identifier: MIT
// Text on its way into a header: what must not get there is replaced. Pure functions.
#pragma once

#include <string>
#include <string_view>

namespace mail {

/// Valid UTF-8 on one line: each line break (CRLF, LF or CR) and each NUL becomes a blank, octets
/// that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string OneLine(std::string_view text);

/// Valid UTF-8, octets that are not become U+FFFD.
[[nodiscard]] std::string ValidUtf8(std::string_view text);

/// Octets of the character that `text` begins with; valid UTF-8, not empty.
[[nodiscard]] std::size_t LengthOfCharacter(std::string_view text);

/// Whether every octet is a printable character of ASCII or a blank.
[[nodiscard]] bool IsPlain(std::string_view text);

[[nodiscard]] inline bool IsAscii(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}
[[nodiscard]] inline bool IsAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

/// A character of an atom (RFC 5322 clause 3.2.3); those outside of ASCII are not.
[[nodiscard]] inline bool IsAtomText(char c) {
  constexpr std::string_view kOthers = "!#$%&'*+-/=?^_`{|}~";
  return IsAlphanumeric(c) || kOthers.find(c) != kOthers.npos;
}

/// In quotation marks, with backslashes where they are needed (RFC 5322 clause 3.2.4).
[[nodiscard]] std::string Quoted(std::string_view text);

/// Appends =XX.
void AppendEscaped(char octet, std::string& text, char sign = '=');

}  // namespace mail
