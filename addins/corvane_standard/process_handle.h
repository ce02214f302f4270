// SPDX-License-Identifier: MIT
// What a PROCESS block and the thread that runs its process share. Threads: any.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace corvane_standard {

/// How a process has ended.
struct ProcessEnd {
  enum class Kind : std::uint8_t { kExited, kNotStarted, kTimedOut, kSignalled, kAborted };

  Kind kind = Kind::kExited;
  std::string problem;  ///< kNotStarted: why, a sentence
  int exit_code = -1;   ///< -1: none
  int signal = 0;       ///< 0: none
  double duration = 0;  ///< s
  std::string output;
  std::string error_output;
  bool truncated = false;  ///< there was more output
};

/// A process from the block's point of view. No call waits for more than a few instructions of the
/// other thread.
class ProcessHandle {
 public:
  /// Asks the thread to end the process; ProcessRunner::Wake makes it look.
  void Abort() { abort_ = true; }
  [[nodiscard]] bool aborted() const { return abort_; }

  /// 0 while it is not running.
  [[nodiscard]] pid_t pid() const { return pid_; }
  void SetPid(pid_t pid) { pid_ = pid; }

  void Finish(ProcessEnd end) {
    pid_ = 0;
    const std::lock_guard<std::mutex> guard(mutex_);
    end_ = std::move(end);
  }
  /// The end, once; nothing while the process has not ended.
  [[nodiscard]] std::optional<ProcessEnd> TakeEnd() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::exchange(end_, std::nullopt);
  }

 private:
  std::atomic<bool> abort_{false};
  std::atomic<pid_t> pid_{0};
  std::mutex mutex_;  // held for moments
  std::optional<ProcessEnd> end_;
};

}  // namespace corvane_standard
