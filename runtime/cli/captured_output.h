// SPDX-License-Identifier: MIT
// The output of a process and of the commands that it starts, kept off a terminal that shows
// something else. Threads: any after construction.
#pragma once

#include <string>
#include <vector>

#include "libs/base/descriptor.h"

namespace corvane::cli {

/// While it lives, standard output goes into a file in memory, and so does standard error if it is
/// a terminal. A file, not a pipe: nobody who prints must wait for a reader, and a command that
/// outlives us may go on printing. Above a maximum, only the newest part is kept.
class CapturedOutput {
 public:
  /// Throws std::system_error.
  CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;
  /// Restores standard output and error, unless Keep has been called.
  ~CapturedOutput();

  /// Output goes into the file for the rest of the process's life: the terminal is gone, or
  /// accepts none.
  void Keep() { kept_ = true; }
  /// The last lines, oldest first, without control characters; at most `count`.
  [[nodiscard]] std::vector<std::string> LastLines(std::size_t count);
  /// The lines that should stay on the terminal after the end, each with its line feed.
  [[nodiscard]] std::string LastText();

 private:
  [[nodiscard]] std::string Tail();

  Descriptor out_;
  Descriptor err_;  // none: standard error was not redirected
  Descriptor file_;
  bool kept_ = false;
};

}  // namespace corvane::cli
