// SPDX-License-Identifier: MIT
#include "runtime/bench/server/log_topic.h"

#include <nlohmann/json.hpp>

#include "runtime/bench/server/json_text.h"

namespace corvane::bench {
namespace {

/// `most`: number of the first line that does not belong to it.
Frame FrameOf(const LogTap::Part& part, std::uint64_t end) {
  auto lines = nlohmann::ordered_json::array();
  std::uint64_t number = part.next - part.lines.size();
  for (const LogLine& line : part.lines) {
    if (number++ >= end) break;
    const auto level = spdlog::level::to_string_view(line.level);
    lines.push_back({{"time", line.time},
                     {"level", std::string_view(level.data(), level.size())},
                     {"text", line.text}});
  }
  return JsonText({{"type", "log"}, {"lines", std::move(lines)}, {"dropped", part.dropped}});
}

}  // namespace

void LogTopic::SetWatched(bool watched) {
  if (watched) next_ = tap_->From(0).next;
}

std::vector<Frame> LogTopic::Changes() {
  const LogTap::Part part = tap_->From(next_);
  next_ = part.next;
  if (part.lines.empty()) return {};
  return {FrameOf(part, part.next)};
}

std::vector<Frame> LogTopic::Complete() {
  return {FrameOf(tap_->From(0), next_)};
}

}  // namespace corvane::bench
