// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/readable.h"

#include "libs/base/printable.h"
#include "libs/gsm/hexadecimal.h"

namespace modem_simulator {
namespace {

constexpr std::string_view kLetters = "rnt\\";
constexpr std::string_view kCharacters = "\r\n\t\\";

}  // namespace

std::string Escape(std::string_view text) {
  std::string escaped;
  for (;;) {
    const std::size_t backslash = text.find('\\');
    escaped += corvane::Printable(text.substr(0, backslash));
    if (backslash == std::string_view::npos) return escaped;
    escaped += "\\\\";
    text.remove_prefix(backslash + 1);
  }
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
