// SPDX-License-Identifier: MIT
// What has become of the messages that a program gave to an outbox at once. The outbox writes it;
// whoever reads it does so under the outbox's lock, or in its thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace messages {

/// One text to one or more receivers.
struct NewJob {
  struct Message {
    std::string receiver;
    std::string content;
  };
  std::string route;
  std::string key;  ///< empty: none
  bool urgent = false;
  std::chrono::milliseconds valid_for{0};
  std::vector<Message> messages;
};

struct OutboxJob {
  std::int64_t id = 0;
  std::uint64_t sequence = 0;  ///< of the change that stores it; 0: not written (yet)
  int receivers = 0;
  int sent = 0;
  int failed = 0;          ///< for good, expired and cancelled ones
  int delivered = 0;       ///< receivers whose report says so
  int cancelled = 0;       ///< of those
  bool decided = false;    ///< the keys have been looked up
  bool duplicate = false;  ///< its key waits or was sent: nothing was queued
  int error_id = 0;        ///< of the first receiver that failed
  std::string errors;      ///< a sentence for each receiver that failed
  std::string repeats;     ///< a sentence for each receiver that may have the message twice

  [[nodiscard]] bool ended() const { return duplicate || sent + failed == receivers; }

  void NoteError(int id_of_error, const std::string& receiver, const std::string& reason);
  void NoteRepeat(const std::string& receiver, const std::string& reason);
};

}  // namespace messages
