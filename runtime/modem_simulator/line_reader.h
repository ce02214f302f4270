// SPDX-License-Identifier: MIT
// Lines from standard input for a program that runs an io_context. A thread of its own reads: a
// terminal that others share must not be made non-blocking. It reads on when the lines that it has
// read are handled, so that input without end takes no more memory than a line.
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
    /// Within the io_context, for each line.
    std::function<void(const std::string&)> on_line;
    /// Within the io_context, in place of a line that is longer than kLongestLine.
    std::function<void()> on_long_line;
    /// In a thread of our own: whether lines can be taken now. Asked again until it is so.
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
  /// Until `descriptor` is readable; false when the thread is to end.
  [[nodiscard]] bool Await(int descriptor) const;
  /// Takes whole lines out of `waiting_`, and has them handled.
  void HandleLines();
  [[nodiscard]] bool AwaitReadiness() const;

  boost::asio::io_context& io_;
  int descriptor_;
  Callbacks callbacks_;
  corvane::Descriptor stop_;     // readable when the thread is to end
  corvane::Descriptor handled_;  // readable when the lines that were posted are handled
  std::string waiting_;          // at most kLongestLine and one piece of input
  bool dropping_ = false;        // until the end of a line that is too long
  std::thread thread_;
};

}  // namespace modem_simulator
