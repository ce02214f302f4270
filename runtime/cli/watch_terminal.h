// SPDX-License-Identifier: MIT
// The terminal of the watch view: draws pictures of a program, and takes keys. It never waits for
// the terminal. Threads: one at a time.
#pragma once

#include <poll.h>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/cli/terminal_guard.h"
#include "runtime/cli/terminal_keys.h"
#include "runtime/cli/terminal_screen.h"
#include "runtime/cli/watch_page.h"

namespace corvane::cli {

/// Why this process cannot show anything; empty when it can. `option` begins the sentence.
[[nodiscard]] std::string TerminalProblem(const std::string& option);

/// Takes the terminal in its constructor, and restores it in its destructor or when a signal other
/// than SIGKILL ends the process. One at a time, and only if TerminalProblem() is empty.
class WatchTerminal {
 public:
  /// How often there is a new picture.
  static constexpr std::chrono::milliseconds kRefresh{200};

  struct Events {
    bool other = false;  ///< the other descriptor can be read
    bool end = false;    ///< a key asks for the end
    bool gone = false;   ///< the terminal has been closed
  };

  explicit WatchTerminal(WatchTexts texts);

  /// Whether a picture is still waiting for the terminal to accept it.
  [[nodiscard]] bool Busy() const { return screen_.Busy(); }
  /// Does nothing while Busy().
  void Show(const std::shared_ptr<const WatchPicture>& picture);
  /// Waits for keys, or until `other` can be read, for kRefresh at most; and obeys the keys.
  [[nodiscard]] Events Wait(int other);
  /// Restores the terminal and leaves `text` on it. @return whether it accepted that; if not,
  /// whoever goes on writing to it may wait forever
  bool Leave(std::string_view text);

 private:
  [[nodiscard]] bool Press(const std::vector<KeyPress>& keys);

  TerminalDescription description_;
  TerminalGuard guard_;
  TerminalScreen screen_;
  KeyDecoder keys_;
  WatchPage page_;
  bool gone_ = false;
};

}  // namespace corvane::cli
