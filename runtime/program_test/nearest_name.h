// SPDX-License-Identifier: MIT
// Words for messages about a test's mistakes. Pure functions.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "block/declaration.h"

namespace corvane::program_test {

/// The one of `names` that is nearest to `name`; empty if there are none.
inline std::string NearestOf(const std::vector<std::string>& names, std::string_view name) {
  const auto nearest =
      std::min_element(names.begin(), names.end(), [name](const auto& a, const auto& b) {
        return NameDistance(name, a) < NameDistance(name, b);
      });
  return nearest == names.end() ? std::string() : *nearest;
}

/// The message of a Lua error without the traceback after it.
inline std::string WithoutTraceback(std::string_view message) {
  return std::string(message.substr(0, message.find("\nstack traceback:")));
}

}  // namespace corvane::program_test
