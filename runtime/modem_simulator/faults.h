// SPDX-License-Identifier: MIT
// Faults that were ordered and wait for the command that they affect.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/modem_simulator/result.h"

namespace modem_simulator {

/// Commands are named without AT and plus sign: "CMGS". kAnyCommand means any of them.
constexpr std::string_view kAnyCommand = "*";
/// Means the message after the prompt of AT+CMGS.
constexpr std::string_view kMessageBody = "PDU";

class Faults {
 public:
  static constexpr std::size_t kMost = 1000;

  /// The next `times` times that `command` moves a message, it fails with this result. False: too
  /// many faults wait.
  bool Fail(Result result, std::string command, int times);
  /// The next time that `command` comes, `bytes` are sent, and nothing else happens.
  bool Answer(std::string command, std::string bytes);
  /// The next PDU that is listed or read is interrupted in the middle by this line.
  void Interrupt(std::string line) { interruption_ = std::move(line); }

  /// The failure that is due for `command`; it is then used up.
  [[nodiscard]] std::optional<Result> TakeFailure(std::string_view command);
  [[nodiscard]] std::optional<std::string> TakeAnswer(std::string_view command);
  [[nodiscard]] std::optional<std::string> TakeInterruption();

 private:
  struct Failure {
    std::string command;
    Result result;
    int times;
  };
  struct ScriptedAnswer {
    std::string command;
    std::string bytes;
  };

  std::deque<Failure> failures_;
  std::deque<ScriptedAnswer> answers_;
  std::optional<std::string> interruption_;
};

}  // namespace modem_simulator
