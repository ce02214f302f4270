// SPDX-License-Identifier: MIT
// A terminal that is left as it was, even when a signal ends the process. Writing to it never
// waits longer than the caller allows.
#pragma once

#include <chrono>
#include <string_view>

#include "libs/base/descriptor.h"
#include "runtime/cli/terminal_description.h"

namespace corvane::cli {

/// Takes the terminal and sets it to single keys without echo. Until Leave, a signal that would end
/// the process restores the terminal first and then has its ordinary effect. One at a time.
class TerminalGuard {
 public:
  /// Throws std::system_error when the system has no descriptor to give.
  TerminalGuard(int terminal, const TerminalDescription& description);
  TerminalGuard(const TerminalGuard&) = delete;
  TerminalGuard& operator=(const TerminalGuard&) = delete;
  ~TerminalGuard();

  /// A descriptor of the terminal for reading and writing that does not block.
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }
  /// Writes as much as the terminal accepts within `limit`. @return whether that was everything
  [[nodiscard]] bool Write(std::string_view octets, std::chrono::milliseconds limit) const;
  /// Restores the terminal. @return whether it accepts output; if not, whoever goes on writing to
  /// it may wait forever
  bool Leave();

 private:
  Descriptor descriptor_;
  bool taken_ = true;
};

/// For a process that is about to end from any thread: restores the terminal if a guard has taken
/// it, and writes the message there as far as it accepts that. Nobody else can use the terminal
/// afterwards.
void LeaveTerminalNow(std::string_view message);

}  // namespace corvane::cli
