// SPDX-License-Identifier: MIT
#include "libs/mail/encoded_word.h"

#include <algorithm>

#include "libs/mail/header_text.h"
#include "libs/mail/line_base64.h"

namespace mail {
namespace {

constexpr std::size_t kLongestEncodedWord = 75;  // RFC 2047 clause 2
constexpr std::size_t kFrame = std::string_view(
                                   "=?utf-8?q?"
                                   "?=")
                                   .size();

/// What may be itself also within a name (RFC 2047 clause 5 (3)).
bool IsItself(char c) {
  constexpr std::string_view kOthers = "!*+-/";
  return IsAlphanumeric(c) || kOthers.find(c) != kOthers.npos;
}

std::size_t QSize(std::string_view character) {
  return character.size() > 1 || !(character == " " || IsItself(character.front()))
             ? 3 * character.size()
             : 1;
}

std::size_t BSize(std::size_t octets) {
  return (octets + 2) / 3 * 4;
}

/// Where most octets would have to be escaped, people could not read the other form either.
bool IsBase64Better(std::string_view text) {
  const auto itself =
      std::count_if(text.begin(), text.end(), [](char c) { return c == ' ' || IsItself(c); });
  return 2 * static_cast<std::size_t>(itself) < text.size();
}

std::string Q(std::string_view text) {
  std::string encoded;
  for (const char c : text) {
    if (c == ' ') {
      encoded += '_';
    } else if (IsItself(c)) {
      encoded += c;
    } else {
      AppendEscaped(c, encoded);
    }
  }
  return encoded;
}

}  // namespace

EncodedWords::EncodedWords(std::string_view text) : text_(text), base64_(IsBase64Better(text)) {}

std::string EncodedWords::Next(std::size_t room) {
  const std::size_t longest = std::min(room, kLongestEncodedWord);
  std::size_t taken = 0;
  std::size_t size = kFrame;
  while (taken < text_.size()) {
    const std::string_view character = text_.substr(taken, LengthOfCharacter(text_.substr(taken)));
    const std::size_t next =
        base64_ ? kFrame + BSize(taken + character.size()) : size + QSize(character);
    if (next > longest) break;
    size = next;
    taken += character.size();
  }
  if (taken == 0) return {};
  const std::string_view part = text_.substr(0, taken);
  text_.remove_prefix(taken);
  return base64_ ? "=?utf-8?b?" + Base64(part) + "?=" : "=?utf-8?q?" + Q(part) + "?=";
}

}  // namespace mail
