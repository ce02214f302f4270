// SPDX-License-Identifier: MIT
#include "libs/mail/header_field.h"

#include <algorithm>

#include "libs/mail/encoded_word.h"
#include "libs/mail/header_text.h"

namespace mail {
namespace {

constexpr std::size_t kLine = 76;
/// A longer word or name is encoded, which divides it.
constexpr std::size_t kLongestWord = kLine - 2;

/// Whether readers would take part of it for an encoded word.
bool LooksEncoded(std::string_view text) {
  return text.find("=?") != text.npos;
}

std::size_t LongestWord(std::string_view text) {
  std::size_t longest = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    longest = std::max(longest, end);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return longest;
}

/// Whether a text can be written as it is: blanks at its ends or in long runs would not survive.
bool IsWritable(std::string_view text) {
  return IsPlain(text) && !LooksEncoded(text) && !text.starts_with(' ') && !text.ends_with(' ') &&
         LongestWord(text) <= kLongestWord && text.find("  ") == text.npos;
}

bool IsPhraseOfAtoms(std::string_view text) {
  return IsWritable(text) &&
         std::all_of(text.begin(), text.end(), [](char c) { return c == ' ' || IsAtomText(c); });
}

/// attribute-char of RFC 2231 clause 7.
bool IsAttributeText(char c) {
  return IsAtomText(c) ? c != '*' && c != '\'' && c != '%' && c != '/' && c != '?' && c != '='
                       : c == '.';
}

std::string PercentEncoded(std::string_view character) {
  std::string encoded;
  for (const char c : character) {
    if (IsAttributeText(c)) {
      encoded += c;
    } else {
      AppendEscaped(c, encoded, '%');
    }
  }
  return encoded;
}

/// Whether a mailbox can be written as it is. What ReadAddresses gives can, if UTF-8 may be used.
bool IsWritableMailbox(std::string_view mailbox, bool utf8) {
  constexpr std::size_t kMost = 254;  // RFC 5321 clause 4.5.3.1.3
  return !mailbox.empty() && mailbox.front() != ' ' && mailbox.size() <= kMost &&
         std::all_of(mailbox.begin(), mailbox.end(),
                     [utf8](char c) { return IsAscii(c) ? c >= ' ' && c <= '~' : utf8; });
}

}  // namespace

HeaderField::HeaderField(std::string_view name) : text_(name) {
  text_ += ':';
}

void HeaderField::Fold(std::size_t next) {
  const bool at_start = line_ == 0 && text_.ends_with(':');
  if (at_start || text_.size() - line_ + next <= kLine) return;
  text_ += "\r\n";
  line_ = text_.size();
}

void HeaderField::Word(std::string_view blanks, std::string_view word) {
  Fold(blanks.size() + word.size());
  text_.append(blanks).append(word);
}

void HeaderField::Text(std::string_view text) {
  if (!IsWritable(text)) return Encoded(text);
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    Token(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void HeaderField::Encoded(std::string_view text) {
  EncodedWords words(text);
  while (!words.done()) {
    const std::size_t column = text_.size() - line_ + 1;
    std::string word = words.Next(column < kLine ? kLine - column : 0);
    if (word.empty()) word = words.Next(kLine - 1);
    Token(word);
  }
}

void HeaderField::Name(std::string_view name) {
  if (IsPhraseOfAtoms(name)) return Text(name);
  if (IsPlain(name) && !LooksEncoded(name) && name.size() <= kLongestWord - 2) {
    return Token(Quoted(name));
  }
  // In one word, if it fits: some readers keep the blank between two encoded words of a name.
  EncodedWords words(name);
  const std::string word = words.Next(kLine - 1);
  return words.done() ? Token(word) : Encoded(name);
}

void HeaderField::OneAddress(const Address& address, bool utf8, std::string_view separator) {
  const std::string name = OneLine(address.name);
  std::string mailbox = OneLine(address.mailbox);
  if (!IsWritableMailbox(mailbox, utf8)) {
    if (!name.empty()) mailbox = name + " <" + mailbox + ">";
    Encoded(mailbox.empty() ? "unknown" : mailbox);
    return Token(":;" + std::string(separator));
  }
  if (!name.empty()) {
    Name(name);
    mailbox = "<" + mailbox + ">";
  }
  Token(mailbox.append(separator));
}

void HeaderField::Addresses(const std::vector<Address>& addresses, bool utf8) {
  for (const Address& address : addresses) {
    OneAddress(address, utf8, &address == &addresses.back() ? "" : ",");
  }
}

void HeaderField::Parameter(std::string_view name, std::string_view value) {
  const bool token = !value.empty() && std::all_of(value.begin(), value.end(), IsAttributeText);
  text_ += ';';
  Token(std::string(name) + "=" + (token ? std::string(value) : Quoted(value)));
}

void HeaderField::ExtendedParameter(std::string_view name, std::string_view value) {
  std::vector<std::string> sections(1, "utf-8''");
  const std::size_t room = kLine - name.size() - std::string_view(" *123*=;").size();
  while (!value.empty()) {
    const std::string_view character = value.substr(0, LengthOfCharacter(value));
    const std::string encoded = PercentEncoded(character);
    if (sections.back().size() + encoded.size() > room) sections.emplace_back();
    sections.back() += encoded;
    value.remove_prefix(character.size());
  }
  for (std::size_t i = 0; i < sections.size(); ++i) {
    const std::string number = sections.size() == 1 ? "" : "*" + std::to_string(i);
    text_ += ';';
    Token(std::string(name) + number + "*=" + sections[i]);
  }
}

std::string HeaderField::Take() && {
  return std::move(text_) + "\r\n";
}

std::string SimpleField(std::string_view name, std::string_view value) {
  HeaderField field(name);
  if (!value.empty()) field.Token(value);
  return std::move(field).Take();
}

}  // namespace mail
