// SPDX-License-Identifier: MIT
// JSON as the bench sends it. Threads: any.
#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace corvane::bench {

/// On one line; octets that are not UTF-8 are replaced by U+FFFD.
[[nodiscard]] inline std::string JsonText(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

/// The time in a message: seconds since 1970, UTC.
[[nodiscard]] inline double SecondsNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace corvane::bench
