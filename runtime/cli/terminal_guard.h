// SPDX-License-Identifier: MIT
// A terminal that is left as it was, also when a signal ends the process. Writing to it never
// waits longer than the caller allows.
#pragma once

#include <chrono>
#include <string_view>

#include "libs/base/descriptor.h"
#include "runtime/cli/terminal_description.h"

namespace corvane::cli {

/// Takes the terminal: its settings are those for single keys, without echo. Until Leave, a signal
/// that would end the process gives the terminal back and then has its ordinary effect. One at a
/// time.
class TerminalGuard {
 public:
  /// Throws std::system_error when the system has no descriptor to give.
  TerminalGuard(int terminal, const TerminalDescription& description);
  TerminalGuard(const TerminalGuard&) = delete;
  TerminalGuard& operator=(const TerminalGuard&) = delete;
  ~TerminalGuard();

  /// A descriptor of the terminal for reading and writing that does not block.
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }
  /// Writes all of it, or as much as the terminal takes within `limit`. @return whether that was
  /// all
  [[nodiscard]] bool Write(std::string_view octets, std::chrono::milliseconds limit) const;
  /// Gives the terminal back. @return whether it takes output; otherwise whoever goes on writing to
  /// it may wait for ever
  bool Leave();

 private:
  Descriptor descriptor_;
  bool taken_ = true;
};

}  // namespace corvane::cli
