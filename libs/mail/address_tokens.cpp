// SPDX-License-Identifier: MIT
#include "libs/mail/address_tokens.h"

#include <algorithm>

#include "libs/base/printable.h"

namespace mail {
namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kSeparators = ";,\n";
constexpr std::string_view kSpecials = "<>@:";
constexpr std::string_view kEndOfWord = " \t\r;,\n<>@:()\"[]";

bool IsControl(char c) {
  return static_cast<unsigned char>(c) < ' ' || c == '\x7F';
}

Token Problem(std::string text) {
  return {TokenKind::kProblem, std::move(text)};
}

Token ControlProblem(char c) {
  return Problem("it contains the control character " + corvane::Printable({&c, 1}) +
                 "; remove it");
}

}  // namespace

Token AddressTokens::Next() {
  while (place_ < text_.size()) {
    const char c = text_[place_];
    if (kBlanks.find(c) != kBlanks.npos) {
      ++place_;
    } else if (c == '(') {
      if (!SkipComment()) return Problem("a ( has no matching ); add it");
    } else if (kSeparators.find(c) != kSeparators.npos) {
      ++place_;
      return {TokenKind::kSeparator, std::string(1, c)};
    } else if (kSpecials.find(c) != kSpecials.npos) {
      ++place_;
      return {TokenKind::kSpecial, std::string(1, c)};
    } else if (c == '"') {
      return Quoted();
    } else if (c == '[') {
      return Literal();
    } else {
      return Word();
    }
  }
  return {};
}

bool AddressTokens::SkipComment() {
  for (std::size_t depth = 0; place_ < text_.size(); ++place_) {
    const char c = text_[place_];
    if (c == '\\') {
      ++place_;
    } else if (c == '(') {
      ++depth;
    } else if (c == ')' && --depth == 0) {
      ++place_;
      return true;
    }
  }
  place_ = text_.size();
  return false;
}

Token AddressTokens::Quoted() {
  Token token{TokenKind::kQuoted, {}};
  for (++place_; place_ < text_.size(); ++place_) {
    char c = text_[place_];
    if (c == '"') {
      ++place_;
      return token;
    }
    if (c == '\\' && place_ + 1 < text_.size()) c = text_[++place_];
    if (IsControl(c) && c != '\t' && c != '\r' && c != '\n') return ControlProblem(c);
    token.text += c;
  }
  return Problem(
      "a quotation mark has no second one; add it, or write \\\" within quotation marks");
}

Token AddressTokens::Literal() {
  const std::size_t end = text_.find_first_of("]\n", place_);
  if (end == text_.npos || text_[end] != ']') {
    return Problem("a [ has no matching ]; add it, or put the name in quotation marks");
  }
  const std::string_view text = text_.substr(place_, end + 1 - place_);
  const auto control = std::find_if(text.begin(), text.end(), IsControl);
  if (control != text.end()) return ControlProblem(*control);
  place_ = end + 1;
  return {TokenKind::kLiteral, std::string(text)};
}

Token AddressTokens::Word() {
  const std::size_t end = std::min(text_.find_first_of(kEndOfWord, place_), text_.size());
  const std::string_view text = text_.substr(place_, end - place_);
  if (text.empty()) {
    return Problem(std::string("there is a ") + text_[place_] +
                   " without its counterpart; remove it, or put the name in quotation marks");
  }
  const auto control = std::find_if(text.begin(), text.end(), IsControl);
  if (control != text.end()) return ControlProblem(*control);
  place_ = end;
  return {TokenKind::kWord, std::string(text)};
}

}  // namespace mail
