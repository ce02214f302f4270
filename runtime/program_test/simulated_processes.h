// SPDX-License-Identifier: MIT
// The commands that a program under test starts: none of them runs. Threads: one.
#pragma once

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace corvane::program_test {

/// What a command would do.
struct ProcessAnswer {
  std::string output;
  std::string error_output;
  int exit_code = 0;
  int signal = 0;           ///< not 0: it is ended by this signal
  double duration = 0;      ///< seconds that it runs
  std::string not_started;  ///< not empty: why it cannot be started
};

class SimulatedProcesses {
 public:
  /// Commands that contain this text end so from now on; what was said later goes first.
  void Answer(std::string contained, ProcessAnswer answer) {
    answers_.emplace_back(std::move(contained), std::move(answer));
  }
  /// Notes that a command is started. @param record `command`, `block` and what else is known
  /// @return what becomes of it; of one that the test has said nothing about: it ends at once, well
  ProcessAnswer Start(nlohmann::json record) {
    const std::string command = record["command"];
    started_.push_back(std::move(record));
    const auto answer = std::find_if(answers_.rbegin(), answers_.rend(), [&](const auto& one) {
      return command.find(one.first) != command.npos;
    });
    return answer == answers_.rend() ? ProcessAnswer() : answer->second;
  }
  /// All commands in the order of their start: an array of objects.
  [[nodiscard]] const nlohmann::json& started() const { return started_; }

 private:
  std::vector<std::pair<std::string, ProcessAnswer>> answers_;
  nlohmann::json started_ = nlohmann::json::array();
};

}  // namespace corvane::program_test
