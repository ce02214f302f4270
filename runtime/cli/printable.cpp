// SPDX-License-Identifier: MIT
#include "runtime/cli/printable.h"

#include <fmt/format.h>
#include <utf8.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>

namespace corvane::cli {
namespace {

constexpr std::size_t kLongestBegin = 1000;
constexpr std::size_t kLongestEnd = 200;

void AppendOctet(unsigned char octet, std::string& shown) {
  shown += fmt::format("\\x{:02X}", octet);
}

/// `text` is valid UTF-8.
void AppendWithoutControls(std::string_view text, std::string_view kept, std::string& shown) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto octet = static_cast<unsigned char>(text[i]);
    const bool is_kept = kept.find(text[i]) != std::string_view::npos;
    if (octet == '\n' && !is_kept) {
      shown += "\\n";
    } else if ((octet < 0x20 || octet == 0x7F) && !is_kept) {
      AppendOctet(octet, shown);
    } else if (octet == 0xC2 && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
      AppendOctet(static_cast<unsigned char>(text[++i]), shown);  // U+0080 to U+009F
    } else {
      shown += text[i];
    }
  }
}

}  // namespace

std::string Printable(std::string_view text, std::string_view kept) {
  std::string shown;
  while (!text.empty()) {
    const auto* const invalid = utf8::find_invalid(text.begin(), text.end());
    const auto valid = static_cast<std::size_t>(invalid - text.begin());
    AppendWithoutControls(text.substr(0, valid), kept, shown);
    if (valid < text.size()) AppendOctet(static_cast<unsigned char>(text[valid]), shown);
    text.remove_prefix(std::min(valid + 1, text.size()));
  }
  return shown;
}

std::string PrintableMessage(std::string_view message) {
  if (message.size() <= kLongestBegin + kLongestEnd) return Printable(message);
  return Printable(message.substr(0, kLongestBegin)) + " ... " +
         Printable(message.substr(message.size() - kLongestEnd));
}

void PrintError(std::string_view message) {
  fmt::print(stderr, "corvane: {}\n", PrintableMessage(message));
}

}  // namespace corvane::cli
