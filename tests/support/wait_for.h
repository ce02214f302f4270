// SPDX-License-Identifier: MIT
// Waiting for a condition in place of sleeping for a time.
#pragma once

#include <chrono>
#include <thread>

namespace test_support {

/// True as soon as `condition` holds; false when it does not within `limit`, which only a failing
/// test waits for.
template <class Condition>
bool WaitFor(const Condition& condition, std::chrono::seconds limit = std::chrono::seconds(20)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace test_support
