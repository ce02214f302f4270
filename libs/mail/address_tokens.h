// SPDX-License-Identifier: MIT
// The words of a list of mail addresses (RFC 5322 clause 3.2). Reads a text once from left to
// right.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace mail {

enum class TokenKind : std::uint8_t {
  kWord,       ///< atoms and dots; any character that is not one of those below
  kQuoted,     ///< in quotation marks; `text` is what is between them, without backslashes
  kLiteral,    ///< in square brackets; `text` includes them
  kSpecial,    ///< one of < > @ :
  kSeparator,  ///< ; , or a line feed
  kEnd,        ///< of the text
  kProblem,    ///< `text` says what is wrong and what to do; nothing can be read after it
};

struct Token {
  TokenKind kind = TokenKind::kEnd;
  std::string text;

  [[nodiscard]] bool Is(char special) const {
    return kind == TokenKind::kSpecial && text.front() == special;
  }
};

/// White space and comments, which may be nested, are left out.
class AddressTokens {
 public:
  /// @param text valid UTF-8; must outlive this
  explicit AddressTokens(std::string_view text) : text_(text) {}

  [[nodiscard]] Token Next();
  /// Where the next token is looked for.
  [[nodiscard]] std::size_t place() const noexcept { return place_; }

 private:
  Token Quoted();
  Token Literal();
  Token Word();
  bool SkipComment();

  std::string_view text_;
  std::size_t place_ = 0;
};

}  // namespace mail
