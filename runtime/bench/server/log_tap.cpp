// SPDX-License-Identifier: MIT
#include "runtime/bench/server/log_tap.h"

#include <algorithm>
#include <chrono>

#include "libs/base/printable.h"

namespace corvane::bench {

LogTap::Part LogTap::From(std::uint64_t from) {
  const std::lock_guard guard(mutex_);
  Part part;
  part.next = first_ + lines_.size();
  part.dropped = from < first_ ? first_ - from : 0;
  const std::uint64_t begin = std::clamp(from, first_, part.next) - first_;
  part.lines.assign(lines_.begin() + static_cast<std::ptrdiff_t>(begin), lines_.end());
  return part;
}

void LogTap::sink_it_(const spdlog::details::log_msg& message) {
  const std::chrono::duration<double> time = message.time.time_since_epoch();
  lines_.push_back(
      {time.count(), message.level,
       PrintableBeginning({message.payload.data(), message.payload.size()}, kLongestLine)});
  if (lines_.size() <= kLines) return;
  lines_.pop_front();
  ++first_;
}

}  // namespace corvane::bench
