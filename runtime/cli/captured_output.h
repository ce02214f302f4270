// SPDX-License-Identifier: MIT
// What a process and the commands that it starts print, kept away from a terminal that shows
// something else. Threads: any after construction.
#pragma once

#include <string>
#include <vector>

namespace corvane::cli {

/// While it lives, standard output goes into a file in memory, and standard error with it where
/// that is a terminal. A file, no pipe: nobody who prints has to wait for a reader, and a command
/// that outlives us may go on printing. Above a maximum the older half is dropped.
class CapturedOutput {
 public:
  /// Throws std::system_error.
  CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;
  /// Gives the terminal back, and prints the last lines there.
  ~CapturedOutput();

  /// The descriptor that standard output had.
  [[nodiscard]] int terminal() const { return out_; }
  /// The last lines, oldest first, without control characters; at most `count`.
  [[nodiscard]] std::vector<std::string> LastLines(std::size_t count);

 private:
  [[nodiscard]] std::string Tail();

  int out_ = -1;
  int err_ = -1;  // -1: left alone
  int file_ = -1;
};

}  // namespace corvane::cli
