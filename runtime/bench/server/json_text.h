// SPDX-License-Identifier: MIT
// JSON as the bench sends it. Pure functions.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace corvane::bench {

/// On one line; octets that are not UTF-8 are replaced by U+FFFD.
[[nodiscard]] inline std::string JsonText(const nlohmann::ordered_json& value) {
  return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace corvane::bench
