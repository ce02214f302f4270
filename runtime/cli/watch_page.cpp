// SPDX-License-Identifier: MIT
#include "runtime/cli/watch_page.h"

#include <fmt/format.h>
#include <utf8.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "runtime/cli/block_lines.h"
#include "runtime/cli/screen_text.h"

namespace corvane::cli {
namespace {

using Style = ScreenLine::Style;
using ScreenLines = std::vector<ScreenLine>;

constexpr std::size_t kFilterOctets = 200;

/// No line has more than 38 cells, to fit narrow screens.
constexpr std::array<const char*, 10> kHelp{
    " Up, Down    one line",
    " PgUp, PgDn  one page",
    " Home, End   first, last line",
    " /           filter by name",
    "   Enter     keep the filter",
    "   Esc       show all again",
    " p           pause the display only",
    " Ctrl-L      redraw the screen",
    " ?           these keys, or back",
    " *           changed in the last 2 s",
};

/// How many rows each part of the screen gets, between the title and the keys.
struct Arrangement {
  int head;
  int blocks;
  int output;
};

/// Blocks come first: they get half of the rows if they need it. Of the rest, the head has priority
/// over the output, which still keeps its newest line if there are three rows.
Arrangement Arrange(int rows, int head, int blocks, int output) {
  const int for_blocks = std::min(blocks, (rows + 1) / 2);
  const int rest = rows - for_blocks;
  const int kept_for_output = rest >= 3 ? std::min(output, 2) : 0;
  const int for_head = std::min(head, rest - kept_for_output);
  int for_output = std::min(output, rest - for_head);
  if (for_output < 2) for_output = 0;  // a heading alone is of no use
  return {for_head, rows - for_head - for_output, for_output};
}

/// "a; b; c" as the lines a, b and c; then a line for each modem port.
ScreenLines Head(const WatchPicture& picture) {
  ScreenLines lines;
  const std::string& text = picture.statistics;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find("; ", begin), text.size());
    lines.push_back({" " + text.substr(begin, end - begin)});
    begin = end + 2;
  }
  for (const std::string& modem : picture.modems) lines.push_back({" " + ScreenText(modem)});
  return lines;
}

/// The first `rows` lines; the last of them says how many more there are.
void AddFirst(ScreenLines& to, ScreenLines lines, int rows) {
  const auto count = static_cast<std::size_t>(rows);
  if (lines.size() > count && count > 1) {
    const std::size_t hidden = lines.size() - count + 1;
    lines[count - 1].text = fmt::format(" ... and {} more lines", hidden);
  }
  lines.resize(std::min(lines.size(), count));
  std::move(lines.begin(), lines.end(), std::back_inserter(to));
}

/// The heading and the newest lines, `rows` in all.
void AddOutput(ScreenLines& to, const std::string& heading, const std::vector<std::string>& output,
               int rows) {
  if (rows == 0) return;
  to.push_back({" " + heading, Style::kUnderline});
  const auto count = std::min(output.size(), static_cast<std::size_t>(rows - 1));
  for (std::size_t i = output.size() - count; i < output.size(); ++i) {
    to.push_back({" " + output[i]});
  }
}

void RemoveLastCharacter(std::string& text) {
  auto last = text.end();
  if (text.empty()) return;
  utf8::unchecked::prior(last);
  text.erase(last, text.end());
}

}  // namespace

void WatchPage::Scroll::Move(int lines) {
  first = std::clamp(first + lines, 0, last_first);
}

std::vector<ScreenLine> WatchPage::Scroll::Cut(const std::vector<ScreenLine>& lines, int rows) {
  window = std::max(1, rows);
  last_first = std::max(0, static_cast<int>(lines.size()) - window);
  Move(0);
  const auto begin = lines.begin() + first;
  const auto count = std::min<std::ptrdiff_t>(rows, lines.end() - begin);
  return {begin, begin + std::max<std::ptrdiff_t>(0, count)};
}

WatchPage::Wish WatchPage::Press(const KeyPress& key) {
  if (editing_ && Edit(key)) return Wish::kNothing;
  Scroll& scroll = help_ ? help_lines_ : blocks_;
  switch (key.key) {
    case Key::kUp: scroll.Move(-1); break;
    case Key::kDown: scroll.Move(1); break;
    case Key::kPageUp: scroll.Move(-scroll.window); break;
    case Key::kPageDown: scroll.Move(scroll.window); break;
    case Key::kHome: scroll.first = 0; break;
    case Key::kEnd: scroll.first = scroll.last_first; break;
    case Key::kRedraw: return Wish::kRedraw;
    case Key::kEscape:
      if (!std::exchange(help_, false)) filter_.clear();
      break;
    case Key::kEnter:
    case Key::kBackspace: break;
    case Key::kText:
      if (key.text == "q") return Wish::kEnd;
      if (key.text == "?") help_ = !help_;
      if (key.text == "p") pause_ = !pause_;
      if (key.text == "/") {
        help_ = false;
        editing_ = true;
      }
      break;
  }
  return Wish::kNothing;
}

/// Handles a key for the filter; false: the key has its ordinary meaning.
bool WatchPage::Edit(const KeyPress& key) {
  switch (key.key) {
    case Key::kText:
      if (filter_.size() < kFilterOctets) filter_ += key.text;
      break;
    case Key::kBackspace: RemoveLastCharacter(filter_); break;
    case Key::kEscape: filter_.clear(); [[fallthrough]];
    case Key::kEnter: editing_ = false; break;
    case Key::kUp:
    case Key::kDown:
    case Key::kPageUp:
    case Key::kPageDown:
    case Key::kHome:
    case Key::kEnd:
    case Key::kRedraw: return false;
  }
  return true;
}

std::vector<ScreenLine> WatchPage::Lines(const std::shared_ptr<const WatchPicture>& picture,
                                         TerminalScreen::Size size) {
  if (!pause_) {
    paused_ = nullptr;
  } else if (paused_ == nullptr) {
    paused_ = picture;
  }
  const WatchPicture& shown = paused_ != nullptr ? *paused_ : *picture;
  std::vector<ScreenLine> lines = Body(shown, size);
  lines.insert(lines.begin(), {TitleLine(*picture), Style::kReverse});
  lines.resize(static_cast<std::size_t>(size.rows));
  lines.back() = {KeyLine(), Style::kReverse};
  for (ScreenLine& line : lines) {
    line.text = line.text.empty() ? "" : Fit(line.text, static_cast<std::size_t>(size.columns));
  }
  return lines;
}

/// The lines between the title and the keys.
std::vector<ScreenLine> WatchPage::Body(const WatchPicture& picture, TerminalScreen::Size size) {
  const int rows = std::max(0, size.rows - 2);
  if (help_) {
    ScreenLines help;
    for (const char* line : kHelp) help.push_back({line});
    help.push_back({" q, Ctrl-C   " + texts_.quit_meaning});
    count_ = static_cast<int>(help.size());
    return help_lines_.Cut(help, rows);
  }
  auto lines =
      BlockLines(Matching(picture.blocks, filter_), static_cast<std::size_t>(size.columns));
  if (lines.empty() && !filter_.empty()) lines.push_back({" no name contains this text"});
  count_ = static_cast<int>(lines.size());
  const auto head = Head(picture);
  const int output = picture.output.empty() ? 0 : static_cast<int>(picture.output.size()) + 1;
  const Arrangement arrangement = Arrange(rows, static_cast<int>(head.size()), count_, output);
  std::vector<ScreenLine> body;
  AddFirst(body, head, arrangement.head);
  auto blocks = blocks_.Cut(lines, arrangement.blocks);
  blocks.resize(static_cast<std::size_t>(arrangement.blocks));
  std::move(blocks.begin(), blocks.end(), std::back_inserter(body));
  AddOutput(body, texts_.output, picture.output, arrangement.output);
  return body;
}

std::string WatchPage::TitleLine(const WatchPicture& picture) const {
  const std::string notice = picture.notice.empty() ? "" : ScreenText(picture.notice) + "  ";
  return (pause_ ? " corvane  paused  " : " corvane  ") + notice + ScreenText(texts_.program);
}

std::string WatchPage::KeyLine() const {
  const std::string filter = ScreenText(filter_);
  if (editing_) return " /" + filter + "_  Enter: keep  Esc: show all";
  std::string text = help_ ? " ?: back" : " q: " + texts_.quit_word + "  ?: keys";
  if (!filter.empty() && !help_) text += "  /" + filter;
  const Scroll& scroll = help_ ? help_lines_ : blocks_;
  if (count_ > scroll.window) {
    text += fmt::format("  lines {} to {} of {}", scroll.first + 1,
                        std::min(count_, scroll.first + scroll.window), count_);
  }
  return text;
}

}  // namespace corvane::cli
