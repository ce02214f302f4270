// SPDX-License-Identifier: MIT
// One field of a header, folded (RFC 5322 clause 2.2.3). Only what this class writes ends a line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "libs/mail/address.h"

namespace mail {

/// Lines have at most 76 octets (RFC 2047 clause 2) unless a single token is longer.
class HeaderField {
 public:
  explicit HeaderField(std::string_view name);

  /// A blank, or a fold before it, and then the token: no line breaks in it.
  void Token(std::string_view token) { Word(" ", token); }
  /// Any valid UTF-8 on one line, as it is where a reader gets it back from that, else in encoded
  /// words.
  void Text(std::string_view text);
  /// The addresses with commas between them. @param utf8 whether mailboxes may be in UTF-8
  void Addresses(const std::vector<Address>& addresses, bool utf8);
  /// A parameter of a MIME field, after a semicolon (RFC 2045 clause 5.1). @param value token
  /// characters or any plain ASCII
  void Parameter(std::string_view name, std::string_view value);
  /// A parameter of any valid UTF-8 on one line (RFC 2231).
  void ExtendedParameter(std::string_view name, std::string_view value);

  /// The field, CRLF at its end.
  [[nodiscard]] std::string Take() &&;

 private:
  void Word(std::string_view blanks, std::string_view word);
  void Fold(std::size_t next);
  void Encoded(std::string_view text);
  void Name(std::string_view name);
  /// @param separator what follows at once: a comma, or nothing
  void OneAddress(const Address& address, bool utf8, std::string_view separator);

  std::string text_;
  std::size_t line_ = 0;  // where the last line begins
};

/// A field of tokens only.
[[nodiscard]] std::string SimpleField(std::string_view name, std::string_view value);

}  // namespace mail
