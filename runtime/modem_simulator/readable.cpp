// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/readable.h"

#include <fmt/format.h>

#include "libs/gsm/hexadecimal.h"

namespace modem_simulator {
namespace {

constexpr std::string_view kLetters = "rnt\\";
constexpr std::string_view kCharacters = "\r\n\t\\";

}  // namespace

std::string Escape(std::string_view text) {
  std::string escaped;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (const auto at = kCharacters.find(character); at != std::string_view::npos) {
      escaped += '\\';
      escaped += kLetters[at];
    } else if (byte < 0x20 || byte == 0x7F) {
      escaped += fmt::format("\\x{:02X}", byte);
    } else {
      escaped += character;
    }
  }
  return escaped;
}

std::optional<std::string> Unescape(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      plain += text[i];
      continue;
    }
    if (++i == text.size()) return std::nullopt;
    if (const auto at = kLetters.find(text[i]); at != std::string_view::npos) {
      plain += kCharacters[at];
    } else if (text[i] == 'x' && i + 2 < text.size()) {
      const auto octet = gsm::FromHexadecimal(text.substr(i + 1, 2));
      if (!octet) return std::nullopt;
      plain += static_cast<char>(octet->front());
      i += 2;
    } else {
      return std::nullopt;
    }
  }
  return plain;
}

}  // namespace modem_simulator
