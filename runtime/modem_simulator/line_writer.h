// SPDX-License-Identifier: MIT
// Writes lines to standard output for a program that must not wait for their reader. It writes on
// its own thread, because a terminal or pipe that others share must not be made non-blocking.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

namespace modem_simulator {

class LineWriter {
 public:
  /// Bytes that may wait for a slow reader. Lines that exceed this are left out, and a line says
  /// how many.
  static constexpr std::size_t kMostWaiting = 8U << 20;

  /// Calls `on_failure` once, on the writer's thread, if `descriptor` cannot be written: it is
  /// closed, or its disk is full. Later lines are left out.
  LineWriter(int descriptor, std::function<void()> on_failure);
  LineWriter(const LineWriter&) = delete;
  LineWriter& operator=(const LineWriter&) = delete;
  /// Writes what is waiting, unless nobody reads for a second.
  ~LineWriter();

  /// Never waits.
  void Write(std::string_view line);
  /// Whether more than half of the space for waiting lines is free.
  [[nodiscard]] bool HasRoom() const;
  [[nodiscard]] bool failed() const;

 private:
  class Queue;

  // Shared with the thread, which a write that never ends may keep alive.
  std::shared_ptr<Queue> queue_;
};

}  // namespace modem_simulator
