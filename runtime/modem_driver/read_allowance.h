// SPDX-License-Identifier: MIT
// Limits how fast a line is read, so that a peer that never pauses (a program at the other end of a
// TCP connection) costs only a bounded share of the processor. No modem sends that much for long.
// Threads: the line's own.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

/// The octets that may be read: a full store of messages at once, then what a fast line carries.
class ReadAllowance {
 public:
  static constexpr std::size_t kAtOnce = std::size_t{1} << 20;
  static constexpr std::size_t kPerSecond = std::size_t{128} << 10;
  static constexpr std::size_t kPiece = 4096;  ///< the most that a single read takes
  /// A read of fewer octets costs as much as one of this many.
  static constexpr std::size_t kLeast = 64;

  explicit ReadAllowance(SteadyTime now) : refilled_(now) {}

  /// When the next piece may be read: `now`, or later.
  [[nodiscard]] SteadyTime Next(SteadyTime now) {
    Refill(now);
    return left_ >= kPiece ? now : now + TimeFor(kPiece - left_);
  }
  void Use(std::size_t octets) { left_ -= std::min(left_, std::max(octets, kLeast)); }

 private:
  static std::chrono::nanoseconds TimeFor(std::size_t octets) {
    return std::chrono::nanoseconds(octets * 1'000'000'000ULL / kPerSecond + 1);
  }
  void Refill(SteadyTime now) {
    const auto passed = std::min<SteadyTime::duration>(now - refilled_, TimeFor(kAtOnce));
    const auto more = static_cast<std::size_t>(passed / TimeFor(1));
    if (more == 0) return;  // the time counts later
    refilled_ = now;
    left_ = std::min(left_ + more, kAtOnce);
  }

  SteadyTime refilled_;
  std::size_t left_ = kAtOnce;
};

}  // namespace corvane
