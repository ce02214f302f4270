// SPDX-License-Identifier: MIT
// Text between UTF-8, characters and the UCS-2 of SMS (UTF-16, high octet first).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "libs/gsm/octet_reader.h"

namespace gsm {

/// The characters of UTF-8 text; nullopt when it is not valid.
[[nodiscard]] std::optional<std::u32string> CodePoints(std::string_view utf8);

/// Writes text in UTF-8, into memory for a known number of characters.
class Utf8Writer {
 public:
  explicit Utf8Writer(std::size_t most_characters) : text_(kMostOctets * most_characters, '\0') {}

  /// Appends a character, which must not be a surrogate.
  void Append(char32_t character) {
    if (character < 0x80) {
      text_[size_++] = static_cast<char>(character);
    } else {
      AppendLong(character);
    }
  }
  [[nodiscard]] std::string Take() && {
    text_.resize(size_);
    return std::move(text_);
  }

 private:
  static constexpr std::size_t kMostOctets = 4;
  void AppendLong(char32_t character);

  std::string text_;
  std::size_t size_ = 0;
};

/// Appends two octets, or four for a character above U+FFFF.
void AppendUtf16(char32_t character, Octets& octets);
[[nodiscard]] Octets EncodeUtf16(char32_t character);

/// UTF-8 of UTF-16. A surrogate without its other half, or a last odd octet, becomes U+FFFD.
[[nodiscard]] std::string DecodeUtf16(OctetSpan octets);

}  // namespace gsm
