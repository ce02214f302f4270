// SPDX-License-Identifier: MIT
// Runs a program as a user would, and returns what it printed and how it ended.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace test_support {

struct CommandResult {
  int status = -1;  ///< exit status; 128 + signal if a signal ended it
  std::string out;
  std::string err;
};

/// A running program. Its standard output and error go to private files; it inherits no other
/// descriptors. If it is still running when the object is destroyed, it is killed.
class Command {
 public:
  /// `words[0]` is the program's path.
  explicit Command(const std::vector<std::string>& words);
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;
  ~Command();

  void Signal(int signal) const;
  /// What it has printed so far.
  [[nodiscard]] std::string out() const;
  [[nodiscard]] std::string err() const;
  /// Whether it has ended; Wait still has to fetch its result.
  [[nodiscard]] bool HasEnded() const;
  /// Waits for its end.
  CommandResult Wait();
  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
};

inline CommandResult RunCommand(const std::vector<std::string>& words) {
  return Command(words).Wait();
}

}  // namespace test_support
