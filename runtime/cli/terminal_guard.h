// SPDX-License-Identifier: MIT
// A terminal that is left as it was, also when a signal ends the process.
#pragma once

namespace corvane::cli {

/// Remembers the terminal's settings. Until Release, a signal that would end the process restores
/// them, leaves the alternate screen and then has its ordinary effect. One at a time; the
/// terminal's type is known (setupterm).
class TerminalGuard {
 public:
  /// Whether the terminal is of a known type, as TERM says.
  [[nodiscard]] static bool Knows(int terminal);

  explicit TerminalGuard(int terminal);
  TerminalGuard(const TerminalGuard&) = delete;
  TerminalGuard& operator=(const TerminalGuard&) = delete;
  ~TerminalGuard();
};

}  // namespace corvane::cli
