// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/faults.h"

#include <algorithm>
#include <utility>

namespace modem_simulator {
namespace {

auto ConcernedBy(std::string_view command) {
  return [command](const auto& fault) {
    return fault.command == kAnyCommand || fault.command == command;
  };
}

}  // namespace

bool Faults::Fail(Result result, std::string command, int times) {
  if (failures_.size() == kMost) return false;
  failures_.push_back({std::move(command), result, times});
  return true;
}

bool Faults::Answer(std::string command, std::string bytes) {
  if (answers_.size() == kMost) return false;
  answers_.push_back({std::move(command), std::move(bytes)});
  return true;
}

std::optional<Result> Faults::TakeFailure(std::string_view command) {
  const auto found = std::find_if(failures_.begin(), failures_.end(), ConcernedBy(command));
  if (found == failures_.end()) return std::nullopt;
  const Result result = found->result;
  if (--found->times <= 0) failures_.erase(found);
  return result;
}

std::optional<std::string> Faults::TakeAnswer(std::string_view command) {
  const auto found = std::find_if(answers_.begin(), answers_.end(), ConcernedBy(command));
  if (found == answers_.end()) return std::nullopt;
  std::string bytes = std::move(found->bytes);
  answers_.erase(found);
  return bytes;
}

std::optional<std::string> Faults::TakeInterruption() {
  return std::exchange(interruption_, std::nullopt);
}

}  // namespace modem_simulator
