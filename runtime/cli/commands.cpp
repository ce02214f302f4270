// SPDX-License-Identifier: MIT
#include "runtime/cli/commands.h"

#include <fmt/format.h>

#include "runtime/corvane/duration.h"

namespace corvane::cli {

std::string CheckDuration(const std::string& text) {
  if (ParseDuration(text)) return {};
  return fmt::format("'{}' is no duration; write a number and a unit, such as 100ms, 2s or 0",
                     text);
}

}  // namespace corvane::cli
