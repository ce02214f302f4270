// SPDX-License-Identifier: MIT
// Writes to an Asio stream no faster than a serial line would, and never blocks.
// Belongs to the thread that runs the io_context; outlives its run.
#pragma once

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <string>
#include <string_view>

namespace modem_simulator {

/// Bytes per second on a serial line with 8 data bits and 1 stop bit; 0 for no limit.
constexpr int BytesPerSecond(int baud_rate) {
  return baud_rate / 10;
}

template <typename Stream>
class PacedWriter {
 public:
  /// Bytes that may wait for a controller that does not read; more are lost.
  static constexpr std::size_t kMostWaiting = 8U << 20;

  PacedWriter(Stream& stream, int bytes_per_second)
      : stream_(stream), bytes_per_second_(bytes_per_second), timer_(stream.get_executor()) {}

  void Write(std::string_view bytes) {
    waiting_.append(bytes.substr(0, kMostWaiting - std::min(kMostWaiting, waiting_.size())));
    if (!busy_) Continue();
  }

  /// Forgets what is waiting; call this when the stream is closed.
  void Clear() {
    ++generation_;  // what is under way ends without effect
    timer_.cancel();
    waiting_.clear();
    written_ = 0;
    busy_ = false;
  }

 private:
  void Continue() {
    busy_ = written_ < waiting_.size();
    if (!busy_) {
      waiting_.clear();
      written_ = 0;
      return;
    }
    const std::size_t left = waiting_.size() - written_;
    if (bytes_per_second_ == 0) return Send(left);
    // About 5 ms of line time at once. A byte has arrived when its line time is over.
    const auto burst = static_cast<std::size_t>(std::max(1, bytes_per_second_ / 200));
    const std::size_t count = std::min(left, burst);
    timer_.expires_after(
        std::chrono::microseconds(1000000LL * static_cast<long long>(count) / bytes_per_second_));
    timer_.async_wait([this, count, generation = generation_](const auto& error) {
      if (!error && generation == generation_) Send(count);
    });
  }

  void Send(std::size_t count) {
    stream_.async_write_some(boost::asio::buffer(waiting_.data() + written_, count),
                             [this, generation = generation_](const auto& error, std::size_t sent) {
                               if (generation != generation_) return;
                               if (error) return Clear();
                               written_ += sent;
                               Continue();
                             });
  }

  Stream& stream_;
  int bytes_per_second_;
  boost::asio::steady_timer timer_;
  std::string waiting_;
  std::size_t written_ = 0;  // invariant: written_ <= waiting_.size()
  unsigned generation_ = 0;
  bool busy_ = false;
};

}  // namespace modem_simulator
