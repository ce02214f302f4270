// SPDX-License-Identifier: MIT
#include "runtime/bench/server/warning_limit.h"

#include <fmt/format.h>

#include <utility>

namespace corvane::bench {

std::string WarningLimit::Pass(const std::string& text, TimePoint now) {
  if (now < next_) {
    ++left_out_;
    return {};
  }
  next_ = now + kInterval;
  const std::uint64_t left_out = std::exchange(left_out_, 0);
  return left_out == 0 ? text
                       : fmt::format("{} ({} more since the last such line)", text, left_out);
}

}  // namespace corvane::bench
