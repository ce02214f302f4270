// SPDX-License-Identifier: MIT
// Text of any characters in a header of ASCII (RFC 2047). Pure functions.
#pragma once

#include <string>
#include <string_view>

namespace mail {

/// The characters of a text as encoded words, one after another. Whoever joins them, leaving out
/// the white space between them, has exactly the text again.
class EncodedWords {
 public:
  /// @param text valid UTF-8; must outlive this
  explicit EncodedWords(std::string_view text);

  [[nodiscard]] bool done() const noexcept { return text_.empty(); }
  /// The next word: as many characters as fit, none of them cut. @param room columns left, the word
  /// has at most 75 octets. @return empty: not one character fits (75 columns are enough for any)
  [[nodiscard]] std::string Next(std::size_t room);

 private:
  std::string_view text_;  // not encoded yet
  bool base64_;            // else the form that people can read
};

}  // namespace mail
