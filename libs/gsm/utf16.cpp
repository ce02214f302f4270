// SPDX-License-Identifier: MIT
#include "libs/gsm/utf16.h"

#include <utf8.h>

namespace gsm {
namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(std::uint32_t unit) {
  return (unit & 0xFC00) == 0xD800;
}
bool IsLowSurrogate(std::uint32_t unit) {
  return (unit & 0xFC00) == 0xDC00;
}

void AppendUnit(std::uint32_t unit, Octets& out) {
  out.push_back(static_cast<std::uint8_t>(unit >> 8));
  out.push_back(static_cast<std::uint8_t>(unit & 0xFF));
}

/// The unit at octet `at`; the replacement character when the octets end before.
std::uint32_t UnitAt(OctetSpan octets, std::size_t at) {
  if (at + 1 >= octets.size()) return kReplacement;
  return static_cast<std::uint32_t>(octets[at] << 8 | octets[at + 1]);
}

}  // namespace

std::optional<std::u32string> CodePoints(std::string_view utf8) {
  if (!utf8::is_valid(utf8.begin(), utf8.end())) return std::nullopt;
  std::u32string text;
  for (auto at = utf8.begin(); at != utf8.end();) {
    text += static_cast<char32_t>(utf8::unchecked::next(at));
  }
  return text;
}

void Utf8Writer::AppendLong(char32_t character) {
  char* const begin = text_.data() + size_;
  const char* const end = utf8::unchecked::append(static_cast<std::uint32_t>(character), begin);
  size_ += static_cast<std::size_t>(end - begin);
}

void AppendUtf16(char32_t character, Octets& octets) {
  const auto value = static_cast<std::uint32_t>(character);
  if (value < 0x10000) {
    AppendUnit(value, octets);
  } else {
    AppendUnit(0xD800 | (value - 0x10000) >> 10, octets);
    AppendUnit(0xDC00 | (value & 0x3FF), octets);
  }
}

Octets EncodeUtf16(char32_t character) {
  Octets octets;
  AppendUtf16(character, octets);
  return octets;
}

std::string DecodeUtf16(OctetSpan octets) {
  Utf8Writer text((octets.size() + 1) / 2);
  for (std::size_t at = 0; at < octets.size(); at += 2) {
    std::uint32_t character = UnitAt(octets, at);
    if (IsHighSurrogate(character) && IsLowSurrogate(UnitAt(octets, at + 2))) {
      at += 2;
      character = 0x10000 + ((character & 0x3FF) << 10) + (UnitAt(octets, at) & 0x3FF);
    } else if (IsHighSurrogate(character) || IsLowSurrogate(character)) {
      character = kReplacement;
    }
    text.Append(static_cast<char32_t>(character));
  }
  return std::move(text).Take();
}

}  // namespace gsm
