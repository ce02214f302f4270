// SPDX-License-Identifier: MIT
// Standard error, which receives the log and the messages of the command. Threads: any.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace corvane::cli {

enum class Importance : std::uint8_t {
  kOrdinary,
  kHigh,  ///< an error: still has room in the queue when ordinary lines are dropped
};

/// Writes whole lines to standard error: at once, or through the queue after StartErrorQueue.
/// Lines that standard error does not accept (a full disk, a reader that has gone) are lost.
void WriteError(std::string lines, Importance importance = Importance::kHigh);

/// From now on a thread writes, so that a slow reader of the log holds nobody up. The queue holds
/// 1 MiB, and a quarter more for important lines. Lines that do not fit are dropped and counted;
/// `notice` turns the count into a line, which is written in their place. When the process aborts
/// or crashes, it first gives the thread up to a second to write what is queued.
void StartErrorQueue(std::function<std::string(std::uint64_t)> notice);

/// How long the command waits for a reader of standard error.
inline constexpr std::chrono::seconds kLongestDrain(1);
/// Waits until the queue is empty. False when the time ends first.
bool DrainErrors(std::chrono::milliseconds time);

}  // namespace corvane::cli
