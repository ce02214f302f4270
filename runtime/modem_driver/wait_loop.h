// SPDX-License-Identifier: MIT
// Where a modem port's thread waits: for I/O, for time, and for the request to end.
#pragma once

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <chrono>

namespace corvane {

using SteadyTime = std::chrono::steady_clock::time_point;

/// An event loop that one thread runs step by step. Threads: that one; Stop() from any.
class WaitLoop {
 public:
  [[nodiscard]] boost::asio::io_context& io() { return io_; }

  /// Handles events until done(); false if the deadline comes first or Stop() was called. Events
  /// that are ready are handled in any case.
  template <class Done>
  bool RunUntil(SteadyTime deadline, Done done) {
    io_.poll();
    while (!done()) {
      if (stopped()) return false;
      if (io_.run_one_until(deadline) == 0 && std::chrono::steady_clock::now() >= deadline) {
        return done();
      }
    }
    return true;
  }

  void SleepUntil(SteadyTime deadline) {
    RunUntil(deadline, [] { return false; });
  }

  /// Ends the current wait and every later one.
  void Stop() {
    stopped_ = true;
    boost::asio::post(io_, [] {});
  }
  [[nodiscard]] bool stopped() const { return stopped_; }

 private:
  boost::asio::io_context io_{1};
  // Without work the context would not wait.
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{
      io_.get_executor()};
  std::atomic<bool> stopped_{false};
};

}  // namespace corvane
