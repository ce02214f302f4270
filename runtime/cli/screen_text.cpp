// SPDX-License-Identifier: MIT
#include "runtime/cli/screen_text.h"

#include <utf8.h>

#include <iterator>

namespace corvane::cli {
namespace {

constexpr std::size_t kNameWidth = 14;

std::size_t Cells(const std::string& text) {
  return static_cast<std::size_t>(utf8::distance(text.begin(), text.end()));
}

/// Where the escape sequence that begins at `at` ends (ECMA-48: CSI, parameters, a final octet).
std::size_t EndOfSequence(std::string_view text, std::size_t at) {
  std::size_t end = at + 1;
  if (end >= text.size() || text[end] != '[') return end;
  for (++end; end < text.size(); ++end) {
    if (text[end] >= '@' && text[end] <= '~') return end + 1;
  }
  return end;
}

std::string VariableText(const VariableState& variable) {
  return "  " + Fit(variable.name, kNameWidth - 2) + " " + ScreenText(variable.value);
}

void AddVariables(const BlockState& block, std::size_t width, std::vector<std::string>& lines) {
  const std::size_t half = width / 2;
  std::string waiting;  // in the left half
  for (const VariableState& variable : block.variables) {
    const std::string text = VariableText(variable);
    if (Cells(text) > half - 1) {
      if (!waiting.empty()) lines.push_back(waiting);
      waiting.clear();
      lines.push_back(Fit(text, width));
    } else if (waiting.empty()) {
      waiting = Fit(text, half);
    } else {
      lines.push_back(waiting + text);
      waiting.clear();
    }
  }
  if (!waiting.empty()) lines.push_back(waiting);
}

}  // namespace

std::string ScreenText(std::string_view text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size();) {
    const auto octet = static_cast<unsigned char>(text[at]);
    if (octet == 0x1b) {
      at = EndOfSequence(text, at);
      continue;
    }
    const bool control = octet < 0x20 || octet == 0x7f;
    plain += octet == '\t' ? ' ' : control ? '?' : text[at];
    ++at;
  }
  std::string valid;
  utf8::replace_invalid(plain.begin(), plain.end(), std::back_inserter(valid), U'?');
  // C1 controls, U+0080 to U+009F, are obeyed by some terminals, too.
  for (std::size_t at = 0; (at = valid.find('\xc2', at)) != std::string::npos; ++at) {
    if (static_cast<unsigned char>(valid[at + 1]) < 0xa0) valid.replace(at, 2, "?");
  }
  return valid;
}

std::string Fit(const std::string& text, std::size_t columns) {
  const std::size_t cells = Cells(text);
  if (cells <= columns) return text + std::string(columns - cells, ' ');
  constexpr std::size_t kMark = 3;
  if (columns < kMark) return std::string(columns, '.');
  auto end = text.begin();
  for (std::size_t i = 0; i < columns - kMark; ++i) utf8::next(end, text.end());
  return std::string(text.begin(), end) + std::string(kMark, '.');
}

std::vector<std::string> BlockLines(const std::vector<BlockState>& blocks, std::size_t width) {
  std::vector<std::string> lines;
  for (const BlockState& block : blocks) {
    lines.push_back(Fit(ScreenText(block.name) + ": " + block.type, width));
    AddVariables(block, width, lines);
  }
  return lines;
}

}  // namespace corvane::cli
