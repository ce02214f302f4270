// SPDX-License-Identifier: MIT
// What `corvane run --watch` and `corvane watch` show on a screen of any size, and how keys change
// it. It knows neither terminal nor clock. Threads: one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "runtime/cli/terminal_keys.h"
#include "runtime/cli/terminal_screen.h"
#include "runtime/corvane/block_observer.h"

namespace corvane::cli {

/// Everything that can be seen of a program at one time.
struct WatchPicture {
  std::string statistics;  ///< "a; b; c", one line for each
  std::vector<std::string> modems;
  std::vector<BlockState> blocks;
  std::vector<std::string> output;  ///< the last lines, as ScreenText
  std::string notice;               ///< why the picture is not up to date; empty: it is
};

/// What differs between the two views.
struct WatchTexts {
  std::string program;
  std::string quit_word = "end";
  std::string quit_meaning = "end the program";  ///< at most 25 cells
  std::string output = "Output";
};

class WatchPage {
 public:
  /// Lines of the program's output that are shown where there is room.
  static constexpr std::size_t kOutputLines = 4;
  /// What a key asks the caller to do.
  enum class Wish : std::uint8_t { kNothing, kEnd, kRedraw };

  explicit WatchPage(WatchTexts texts) : texts_(std::move(texts)) {}

  [[nodiscard]] Wish Press(const KeyPress& key);
  /// At most `size.rows` lines. While the display pauses, those of the picture at which it paused.
  [[nodiscard]] std::vector<ScreenLine> Lines(const std::shared_ptr<const WatchPicture>& picture,
                                              TerminalScreen::Size size);

 private:
  /// A window on a long list of lines.
  struct Scroll {
    int first = 0;
    int last_first = 0;  // the greatest useful value
    int window = 1;

    void Move(int lines);
    /// The lines in a window of `rows`.
    std::vector<ScreenLine> Cut(const std::vector<ScreenLine>& lines, int rows);
  };

  [[nodiscard]] bool Edit(const KeyPress& key);
  [[nodiscard]] std::vector<ScreenLine> Body(const WatchPicture& picture,
                                             TerminalScreen::Size size);
  [[nodiscard]] std::string KeyLine() const;
  [[nodiscard]] std::string TitleLine(const WatchPicture& picture) const;

  WatchTexts texts_;
  std::shared_ptr<const WatchPicture> paused_;  // null: the display follows the program
  bool pause_ = false;
  bool help_ = false;
  bool editing_ = false;  // of the filter
  std::string filter_;
  Scroll blocks_;
  Scroll help_lines_;
  int count_ = 0;  // of the lines that can be scrolled
};

}  // namespace corvane::cli
