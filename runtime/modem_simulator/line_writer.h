// SPDX-License-Identifier: MIT
// Lines to standard output for a program that must not wait for whoever reads them. A thread of its
// own writes: a terminal or pipe that others share must not be made non-blocking.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

namespace modem_simulator {

class LineWriter {
 public:
  /// Bytes that may wait for a slow reader. Lines that come when they are all taken are left out,
  /// and a line says how many.
  static constexpr std::size_t kMostWaiting = 8U << 20;

  /// Calls `on_failure` once, from the thread of its own, when `descriptor` cannot be written: it
  /// is closed, or its disk is full. What comes later is left out.
  LineWriter(int descriptor, std::function<void()> on_failure);
  LineWriter(const LineWriter&) = delete;
  LineWriter& operator=(const LineWriter&) = delete;
  /// Writes what waits, unless nobody reads for a second.
  ~LineWriter();

  /// Never waits.
  void Write(std::string_view line);
  /// Whether the larger part of what may wait is free.
  [[nodiscard]] bool HasRoom() const;
  [[nodiscard]] bool failed() const;

 private:
  class Queue;

  std::shared_ptr<Queue> queue_;  // the thread's, too: it may outlive us in a write without end
};

}  // namespace modem_simulator
