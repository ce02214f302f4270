// SPDX-License-Identifier: MIT
// Reads lines from standard input for a program that runs an io_context. It reads on its own
// thread, because a terminal that others share must not be made non-blocking. It reads on only when
// the lines that it has read are handled, so endless input takes no more memory than one line.
#pragma once

#include <boost/asio/io_context.hpp>
#include <functional>
#include <string>
#include <thread>

#include "libs/base/descriptor.h"

namespace modem_simulator {

class LineReader {
 public:
  struct Callbacks {
    /// Called within the io_context, for each line.
    std::function<void(const std::string&)> on_line;
    /// Called within the io_context, instead of a line that is longer than kLongestLine.
    std::function<void()> on_long_line;
    /// Called on the reader's thread: whether lines can be accepted now. Asked until it is true.
    std::function<bool()> ready = [] { return true; };
  };

  static constexpr std::size_t kLongestLine = 1U << 20;

  /// Reads `descriptor` until it ends. Throws std::system_error.
  LineReader(boost::asio::io_context& io, int descriptor, Callbacks callbacks);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

 private:
  void Run();
  /// Waits until `descriptor` is readable; false if the thread must end.
  [[nodiscard]] bool Await(int descriptor) const;
  /// Takes whole lines out of `waiting_` and has them handled.
  void HandleLines();
  [[nodiscard]] bool AwaitReadiness() const;

  boost::asio::io_context& io_;
  int descriptor_;
  Callbacks callbacks_;
  corvane::Descriptor stop_;     // readable when the thread must end
  corvane::Descriptor handled_;  // readable when the lines that were posted are handled
  std::string waiting_;          // at most kLongestLine and one piece of input
  bool dropping_ = false;        // up to the end of a line that is too long
  std::thread thread_;
};

}  // namespace modem_simulator
