// SPDX-License-Identifier: MIT
// What a process and the commands that it starts print, kept away from a terminal that shows
// something else. Threads: any after construction.
#pragma once

#include <string>
#include <vector>

#include "libs/base/descriptor.h"

namespace corvane::cli {

/// While it lives, standard output goes into a file in memory, and standard error with it where
/// that is a terminal. A file, not a pipe: nobody who prints has to wait for a reader, and a
/// command that outlives us may go on printing. Above a maximum only the newest part is kept.
class CapturedOutput {
 public:
  /// Throws std::system_error.
  CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;
  /// Standard output and error are what they were, unless Keep has been called.
  ~CapturedOutput();

  /// What is printed goes into the file for the rest of the process's life: the terminal is gone,
  /// or takes no output.
  void Keep() { kept_ = true; }
  /// The last lines, oldest first, without control characters; at most `count`.
  [[nodiscard]] std::vector<std::string> LastLines(std::size_t count);
  /// As many of them as one likes to find on the terminal after the end, each with its line feed.
  [[nodiscard]] std::string LastText();

 private:
  [[nodiscard]] std::string Tail();

  Descriptor out_;
  Descriptor err_;  // none: left alone
  Descriptor file_;
  bool kept_ = false;
};

}  // namespace corvane::cli
