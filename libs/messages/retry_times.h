// SPDX-License-Identifier: MIT
// How long an outbox waits after a failed attempt. Pure functions.
#pragma once

#include <chrono>

namespace messages {

/// 15 s after the first failure, then 30 s, 1, 2, 4, 8 min, and 15 min after each further one.
/// @param failures so far, at least 1
[[nodiscard]] std::chrono::seconds RetryDelay(int failures) noexcept;

}  // namespace messages
