// SPDX-License-Identifier: MIT
#include "libs/base/printable.h"

#include <utf8.h>

#include <algorithm>
#include <cstddef>

namespace corvane {
namespace {

void AppendEscape(char c, std::string& shown) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  const auto octet = static_cast<unsigned char>(c);
  switch (c) {
    case '\n': shown += "\\n"; break;
    case '\r': shown += "\\r"; break;
    case '\t': shown += "\\t"; break;
    default: shown.append({'\\', 'x', kDigits[octet >> 4], kDigits[octet & 0x0F]});
  }
}

bool IsControl(char c) {
  const auto octet = static_cast<unsigned char>(c);
  return octet < 0x20 || octet == 0x7F;
}

/// `text` is valid UTF-8.
void AppendWithoutControls(std::string_view text, std::string_view kept, std::string& shown) {
  std::size_t begin = 0;  // of what is still to be copied
  for (std::size_t i = 0; i < text.size(); ++i) {
    // U+0080 to U+009F have two octets; the second tells them apart.
    const bool upper = text[i] == '\xC2' && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (!upper && !(IsControl(text[i]) && kept.find(text[i]) == std::string_view::npos)) continue;
    shown += text.substr(begin, i - begin);
    if (upper) ++i;
    AppendEscape(text[i], shown);
    begin = i + 1;
  }
  shown += text.substr(begin);
}

}  // namespace

std::string Printable(std::string_view text, std::string_view kept) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const auto* const invalid = utf8::find_invalid(text.begin(), text.end());
    const auto valid = static_cast<std::size_t>(invalid - text.begin());
    AppendWithoutControls(text.substr(0, valid), kept, shown);
    if (valid < text.size()) AppendEscape(text[valid], shown);
    text.remove_prefix(std::min(valid + 1, text.size()));
  }
  return shown;
}

std::string_view WholeCharacters(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text;
  const auto continues = [text](std::size_t i) { return (text[i] & 0xC0) == 0x80; };
  for (int i = 0; i < 3 && limit > 0 && continues(limit); ++i) --limit;
  return text.substr(0, limit);
}

std::string PrintableBeginning(std::string_view text, std::size_t limit, std::string_view kept) {
  if (text.size() <= limit) return Printable(text, kept);
  return Printable(WholeCharacters(text, limit), kept) + "...";
}

}  // namespace corvane
