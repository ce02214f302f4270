// SPDX-License-Identifier: MIT
// Lines of text on a terminal that may be slow, stopped or gone: nothing here waits for it.
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/cli/terminal_guard.h"

namespace corvane::cli {

struct ScreenLine {
  enum class Style : std::uint8_t { kPlain, kBold, kReverse, kUnderline };

  std::string text;  ///< valid UTF-8 without control characters, no wider than the screen
  Style style = Style::kPlain;
  friend bool operator==(const ScreenLine&, const ScreenLine&) = default;
};

class TerminalScreen {
 public:
  struct Size {
    int rows = 0;
    int columns = 0;
    friend bool operator==(const Size&, const Size&) = default;
  };

  /// Both must outlive the screen.
  TerminalScreen(const TerminalGuard& guard, const TerminalDescription& description);

  /// The size that the terminal reports now, at least 1 by 1.
  [[nodiscard]] Size size() const;
  /// Shows the lines, the first one at the top; only differences are written. Every line begins at
  /// its own place, and none wraps at the end of its row, so that a terminal that makes a character
  /// wider than we do spoils only that row. Does nothing while Busy().
  void Show(const std::vector<ScreenLine>& lines, Size size);
  /// The next Show writes everything.
  void Forget() { shown_.clear(); }
  /// Whether a picture is still waiting for the terminal to accept it.
  [[nodiscard]] bool Busy() const { return !waiting_.empty(); }
  /// Goes on writing it, as far as the terminal accepts it now.
  void Write();
  /// The octets that have been typed.
  [[nodiscard]] std::string Read() const;

 private:
  void Put(const ScreenLine& line, int row);

  const TerminalGuard& guard_;
  const TerminalDescription& description_;
  std::vector<ScreenLine> shown_;  // empty: unknown
  Size shown_size_;
  std::string waiting_;  // octets of one picture at most
};

}  // namespace corvane::cli
