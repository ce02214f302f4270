// SPDX-License-Identifier: MIT
#include "libs/mail/header_text.h"

#include <utf8.h>

#include <algorithm>
#include <iterator>

namespace mail {

std::string ValidUtf8(std::string_view text) {
  std::string valid;
  valid.reserve(text.size());
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid), 0xFFFD);
  return valid;
}

std::string OneLine(std::string_view text) {
  std::string line = ValidUtf8(text);
  auto out = line.begin();
  for (auto in = line.begin(); in != line.end(); ++in) {
    if (*in == '\r' && std::next(in) != line.end() && *std::next(in) == '\n') continue;
    const bool replaced = *in == '\r' || *in == '\n' || *in == '\0';
    *out++ = replaced ? ' ' : *in;
  }
  line.erase(out, line.end());
  return line;
}

std::size_t LengthOfCharacter(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  if (first < 0xC0) return 1;
  return first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
}

bool IsPlain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

void AppendEscaped(char octet, std::string& text, char sign) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto value = static_cast<unsigned char>(octet);
  text.append({sign, kDigits[value >> 4], kDigits[value & 0xF]});
}

}  // namespace mail
