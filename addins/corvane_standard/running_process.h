// SPDX-License-Identifier: MIT
// One process of a PROCESS block, from its start until nothing of its process group is left.
// Threads: that of the ProcessRunner.
#pragma once

#include <poll.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "addins/corvane_standard/process_handle.h"
#include "addins/corvane_standard/spawn.h"

namespace corvane_standard {

class RunningProcess {
 public:
  using Clock = std::chrono::steady_clock;

  /// Starts the process; it is ended when nobody owns `owner` any more.
  RunningProcess(ProcessOrder order, std::shared_ptr<ProcessHandle> handle,
                 std::weak_ptr<const void> owner);

  /// Looks whether the process has ended, whether it is to be ended, and whether its time is over.
  void Advance(Clock::time_point now);
  /// Ends the whole group: SIGTERM, unless it has had that already, and SIGKILL after `grace` at
  /// the latest.
  void Stop(ProcessEnd::Kind why, std::chrono::milliseconds grace, Clock::time_point now);
  /// Nothing of it is left.
  [[nodiscard]] bool gone() const { return gone_; }
  /// When Advance has something to do, even if none of the descriptors is ready.
  [[nodiscard]] Clock::time_point due() const;

  /// Adds the descriptors to wait for.
  void AddTo(std::vector<pollfd>& descriptors) const;
  /// Reads and writes what is ready without waiting.
  void Transfer();

 private:
  /// What is kept of an output.
  struct Kept {
    std::string text;
    bool truncated = false;
  };

  void WriteInput();
  void Read(corvane::Descriptor& from, Kept& kept) const;
  /// Whether the process has ended; takes its status from the system then.
  bool Reap(ProcessEnd& end) const;
  void Finish(ProcessEnd end, Clock::time_point now);
  void Signal(int number) const;

  ProcessOrder order_;
  std::shared_ptr<ProcessHandle> handle_;  // null when the job has ended
  std::weak_ptr<const void> owner_;
  SpawnedProcess process_;
  Clock::time_point started_;
  std::size_t input_written_ = 0;
  Kept output_, error_output_;
  bool stopping_ = false;
  bool killed_ = false;
  ProcessEnd::Kind why_ = ProcessEnd::Kind::kExited;  // of the first Stop
  Clock::time_point kill_at_ = Clock::time_point::max();
  Clock::time_point look_at_ = Clock::time_point::max();  // whether the group has members
  bool gone_ = false;
};

}  // namespace corvane_standard
