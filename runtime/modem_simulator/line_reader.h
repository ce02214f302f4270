// SPDX-License-Identifier: MIT
// Lines from standard input for a program that runs an io_context. A thread of its own reads: a
// terminal that others share must not be made non-blocking.
#pragma once

#include <boost/asio/io_context.hpp>
#include <functional>
#include <string>
#include <thread>

namespace modem_simulator {

class LineReader {
 public:
  using OnLine = std::function<void(const std::string&)>;

  /// Longer lines are handed over in pieces.
  static constexpr std::size_t kLongestLine = 1U << 20;

  /// Calls `on_line` within the io_context for each line of `descriptor` until it ends. Throws
  /// std::system_error.
  LineReader(boost::asio::io_context& io, int descriptor, OnLine on_line);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;
  ~LineReader();

 private:
  void Run();
  [[nodiscard]] bool AwaitInput() const;
  void TakeLines();

  boost::asio::io_context& io_;
  int descriptor_;
  OnLine on_line_;
  int stop_ = -1;  // becomes readable when the thread is to end
  std::string waiting_;
  std::thread thread_;
};

}  // namespace modem_simulator
