// SPDX-License-Identifier: MIT
// Standard error, where the log and the messages of the command go. Threads: any.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

namespace corvane::cli {

enum class Importance : std::uint8_t {
  kOrdinary,
  kHigh,  ///< an error: has room in the queue when ordinary lines are dropped
};

/// Writes whole lines to standard error: at once, or after StartErrorQueue by way of the queue.
/// What standard error does not take (a full disk, a reader that has gone) is lost.
void WriteError(std::string lines, Importance importance = Importance::kHigh);

/// From now on a thread writes, so that a slow reader of the log holds nobody up. The queue holds
/// 1 MiB and a quarter more for what is important. What does not fit is dropped and counted;
/// `notice` makes a line of the count, which is written in its place. When the process aborts or
/// crashes, it first gives the thread up to a second to write what is queued.
void StartErrorQueue(std::function<std::string(std::uint64_t)> notice);

/// Waits until the queue is empty. False when the time ends first.
bool DrainErrors(std::chrono::milliseconds time);

}  // namespace corvane::cli
