// SPDX-License-Identifier: MIT
#include "runtime/cli/terminal_screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace corvane::cli {

TerminalScreen::TerminalScreen(const TerminalGuard& guard, const TerminalDescription& description)
    : guard_(guard), description_(description), waiting_(description.enter) {}

TerminalScreen::Size TerminalScreen::size() const {
  winsize window{};
  const bool known = ioctl(guard_.descriptor(), TIOCGWINSZ, &window) == 0;
  // A serial line has no size: 0 by 0.
  if (!known || window.ws_row == 0 || window.ws_col == 0) {
    return {description_.height, description_.width};
  }
  return {window.ws_row, window.ws_col};
}

void TerminalScreen::Show(const std::vector<ScreenLine>& lines, Size size) {
  if (Busy()) return;
  if (shown_.empty() || size != shown_size_) {
    waiting_ += description_.normal + description_.clear;
    shown_.assign(static_cast<std::size_t>(size.rows), {});
    shown_size_ = size;
  }
  for (std::size_t row = 0; row < shown_.size(); ++row) {
    const ScreenLine line = row < lines.size() ? lines[row] : ScreenLine{};
    if (line == shown_[row]) continue;
    Put(line, static_cast<int>(row));
    shown_[row] = line;
  }
  Write();
}

/// The row is erased first: after a text that fills it, the cursor is on its last character.
void TerminalScreen::Put(const ScreenLine& line, int row) {
  waiting_ += description_.To(row, 0) + description_.normal + description_.clear_to_line_end;
  switch (line.style) {
    case ScreenLine::Style::kPlain: break;
    case ScreenLine::Style::kBold: waiting_ += description_.bold; break;
    case ScreenLine::Style::kReverse: waiting_ += description_.reverse; break;
    case ScreenLine::Style::kUnderline: waiting_ += description_.underline; break;
  }
  waiting_ += line.text + description_.normal;
}

void TerminalScreen::Write() {
  while (!waiting_.empty()) {
    const ssize_t count = write(guard_.descriptor(), waiting_.data(), waiting_.size());
    if (count > 0) {
      waiting_.erase(0, static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return;
    }
  }
}

std::string TerminalScreen::Read() const {
  std::array<char, 1024> octets{};
  const ssize_t count = read(guard_.descriptor(), octets.data(), octets.size());
  return {octets.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

}  // namespace corvane::cli
