// SPDX-License-Identifier: MIT
// Waiting for a condition instead of sleeping for a time.
#pragma once

#include <chrono>
#include <thread>

namespace test_support {

/// How long a test waits for something that must happen. Only a failing test waits this long.
inline constexpr std::chrono::seconds kPatience(20 * CORVANE_TEST_TIME_FACTOR);

/// Returns true as soon as `condition` holds; false if it does not within `limit`.
template <class Condition>
bool WaitFor(const Condition& condition, std::chrono::seconds limit = kPatience) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace test_support
