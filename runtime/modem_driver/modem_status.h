// SPDX-License-Identifier: MIT
// What a modem port is doing, for people: in one line, and its dialogue of late.
// Threads: any.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane {

/// A line of the dialogue with a modem, as the log may show it: no PIN, no text of a message.
struct DialogueLine {
  double time = 0;  ///< seconds since 1970, UTC
  bool sent = false;
  std::string text;  ///< as it was sent or came; it may have control characters
};

class ModemStatus {
 public:
  static constexpr std::size_t kLines = 200;
  static constexpr std::size_t kLongestLine = 512;  ///< octets; the rest is cut

  void Set(std::string text) {
    const std::lock_guard guard(mutex_);
    text_ = std::move(text);
  }
  [[nodiscard]] std::string Get() const {
    const std::lock_guard guard(mutex_);
    return text_;
  }

  void SetState(std::string_view state) {
    const std::lock_guard guard(mutex_);
    state_ = state;
  }
  /// "no line", "ready", ...: a name of ModemExchange::State.
  [[nodiscard]] std::string state() const {
    const std::lock_guard guard(mutex_);
    return state_;
  }

  void NoteLine(bool sent, std::string_view text);
  /// Each line of an answer; a PDU is named, not quoted.
  void NoteAnswer(std::string_view text);

  struct Part {
    std::vector<DialogueLine> lines;
    std::uint64_t next = 0;  ///< number of the line after the last
  };
  /// The lines from number `from` on that are still known; lines are numbered from 0.
  [[nodiscard]] Part From(std::uint64_t from) const;

  /// Somebody wants to know signal and network: the port asks the modem during the next minute,
  /// whenever it has nothing else to do.
  void Want() { wanted_until_ = std::chrono::steady_clock::now() + kWanted; }
  [[nodiscard]] bool wanted() const {
    return std::chrono::steady_clock::now() < wanted_until_.load();
  }

 private:
  static constexpr std::chrono::minutes kWanted{1};

  mutable std::mutex mutex_;
  std::string text_;                // guarded by mutex_
  std::string state_ = "no line";   // guarded by mutex_
  std::deque<DialogueLine> lines_;  // guarded by mutex_
  std::uint64_t first_ = 0;         // guarded by mutex_: number of lines_.front()
  std::atomic<std::chrono::steady_clock::time_point> wanted_until_{};
};

}  // namespace corvane
