// SPDX-License-Identifier: MIT
#include "runtime/cli/screen_text.h"

#include <utf8.h>

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <iterator>

namespace corvane::cli {
namespace {

constexpr char32_t kJoiner = 0x200d;  // ZERO WIDTH JOINER: the next character belongs to this one
constexpr char32_t kEmojiVariation = 0xfe0f;  // VARIATION SELECTOR-16
constexpr int kMarks = 8;                     // that a character may carry

/// wcwidth depends on the locale of the thread: C.UTF-8 while this lives.
class Utf8Widths {
 public:
  Utf8Widths() : old_(uselocale(Utf8())) {}
  Utf8Widths(const Utf8Widths&) = delete;
  Utf8Widths& operator=(const Utf8Widths&) = delete;
  ~Utf8Widths() { uselocale(old_); }

  /// -1: a control character, or one that the system does not know.
  [[nodiscard]] static int Of(char32_t character) {
    return wcwidth(static_cast<wchar_t>(character));
  }

 private:
  static locale_t Utf8() {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return utf8;  // null on a system without it: the thread's locale stays
  }

  locale_t old_;
};

/// Where the escape sequence that begins at `at` ends (ECMA-48: CSI, parameters, a final octet).
std::size_t EndOfSequence(std::string_view text, std::size_t at) {
  std::size_t end = at + 1;
  if (end >= text.size() || text[end] != '[') return end;
  for (++end; end < text.size(); ++end) {
    if (text[end] >= '@' && text[end] <= '~') return end + 1;
  }
  return end;
}

std::string WithoutSequences(std::string_view text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == '\x1b') {
      at = EndOfSequence(text, at);
    } else {
      plain += text[at] == '\t' ? ' ' : text[at];
      ++at;
    }
  }
  return plain;
}

/// Characters that change the direction of writing: with them, a row would show another text.
bool ChangesDirection(char32_t character) {
  return character == 0x200e || character == 0x200f || character == 0x061c ||
         (character >= 0x202a && character <= 0x202e) ||
         (character >= 0x2066 && character <= 0x2069);
}

bool IsSkinTone(char32_t character) {
  return character >= 0x1f3fb && character <= 0x1f3ff;
}

bool IsRegionalIndicator(char32_t character) {
  return character >= 0x1f1e6 && character <= 0x1f1ff;  // two of them are a flag
}

/// A character with everything that must stay with it.
struct Cluster {
  std::size_t octets = 0;
  std::size_t cells = 0;
};

/// The first one of `text`, which is a ScreenText and not empty. Needs Utf8Widths.
Cluster FirstCluster(std::string_view text) {
  auto at = text.begin();
  char32_t last = utf8::unchecked::next(at);
  auto cells = static_cast<std::size_t>(std::max(0, Utf8Widths::Of(last)));
  bool flag = IsRegionalIndicator(last);
  while (at != text.end()) {
    auto next = at;
    const char32_t character = utf8::unchecked::next(next);
    const int width = Utf8Widths::Of(character);
    const bool pair = flag && IsRegionalIndicator(character);
    if (width != 0 && last != kJoiner && !IsSkinTone(character) && !pair) break;
    if (character == kEmojiVariation && cells == 1) cells = 2;
    cells += static_cast<std::size_t>(std::max(0, width));
    flag = false;
    last = character;
    at = next;
  }
  return {static_cast<std::size_t>(at - text.begin()), cells};
}

}  // namespace

std::string ScreenText(std::string_view text) {
  const std::string plain = WithoutSequences(text);
  std::string valid;
  utf8::replace_invalid(plain.begin(), plain.end(), std::back_inserter(valid), U'?');
  const Utf8Widths widths;
  std::string result;
  int marks = 0;
  for (auto at = valid.cbegin(); at != valid.cend();) {
    const auto begin = at;
    const char32_t character = utf8::unchecked::next(at);
    const int width = Utf8Widths::Of(character);
    marks = width == 0 ? marks + 1 : 0;
    const bool unfit = width < 0 || character == 0 || ChangesDirection(character);
    if (unfit || marks == kMarks + 1) {
      result += '?';
    } else if (marks <= kMarks) {
      result.append(begin, at);
    }
  }
  return result;
}

std::size_t Cells(std::string_view text) {
  const Utf8Widths widths;
  std::size_t cells = 0;
  while (!text.empty()) {
    const Cluster cluster = FirstCluster(text);
    cells += cluster.cells;
    text.remove_prefix(cluster.octets);
  }
  return cells;
}

std::string Fit(std::string_view text, std::size_t columns) {
  const std::size_t cells = Cells(text);
  if (cells <= columns) return std::string(text) + std::string(columns - cells, ' ');
  constexpr std::size_t kMark = 3;
  if (columns < kMark) return std::string(columns, '.');
  const Utf8Widths widths;
  std::size_t octets = 0;
  std::size_t room = columns - kMark;
  for (;;) {
    const Cluster cluster = FirstCluster(text.substr(octets));
    if (cluster.cells > room) break;
    octets += cluster.octets;
    room -= cluster.cells;
  }
  return std::string(text.substr(0, octets)) + std::string(kMark, '.') + std::string(room, ' ');
}

}  // namespace corvane::cli
