// SPDX-License-Identifier: MIT
// The line that is typed at the AT console, and those before it. PINs are neither shown nor kept.
// Threads: one.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/cli/terminal_keys.h"

namespace corvane::cli {

/// The command as it may be seen: each octet of a PIN or password is an asterisk.
[[nodiscard]] std::string Masked(const std::string& command);

class AtInput {
 public:
  static constexpr std::size_t kMostKept = 200;  ///< commands
  static constexpr std::size_t kLongest = 1000;  ///< octets of a line; more are ignored

  /// @return the line, if the key has finished it
  std::optional<std::string> Take(const KeyPress& key);
  /// From now on lines are the texts of messages, which are not kept, or commands again.
  void ExpectText(bool text) { text_ = text; }

  /// The line so far, as it may be seen.
  [[nodiscard]] std::string Shown() const { return text_ ? line_ : Masked(line_); }
  [[nodiscard]] bool empty() const { return line_.empty(); }

 private:
  void Keep(const std::string& command);
  /// Goes to an older (-1) or newer (1) command.
  void Recall(int step);
  void RemoveLast();

  std::string line_;
  bool text_ = false;
  std::deque<std::string> kept_;  // the oldest first
  std::size_t at_ = 0;            // the one that is shown; kept_.size(): none
};

}  // namespace corvane::cli
