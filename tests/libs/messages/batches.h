// SPDX-License-Identifier: MIT
// Batches whose wholeness can be seen: each adds three messages, and ends those of the one before.
#pragma once

#include <gmock/gmock.h>

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "libs/messages/store.h"

namespace messages {

/// Writes one batch after the other to a store.
class Batches {
 public:
  static constexpr int kSize = 3;

  /// `waiting`: the messages of the last batch that the store has, if any.
  explicit Batches(Store& store, std::deque<Outgoing> waiting = {})
      : store_(store), last_(std::move(waiting)) {
    if (!last_.empty()) number_ = std::stoi(last_.front().receiver);
  }

  /// @return the sequence number.
  std::uint64_t WriteNext() {
    std::vector<Change> changes;
    for (Outgoing& row : last_) {
      row.state = OutgoingState::kSent;
      row.finished = kClockIsSet;
      changes.emplace_back(std::move(row));
    }
    last_.clear();
    ++number_;
    for (int i = 0; i < kSize; ++i) {
      Outgoing row;
      row.id = store_.NewId();
      row.channel = "sms";
      row.receiver = std::to_string(number_);
      row.content = std::string(700, 'x');  // so that a batch takes more than one page
      last_.push_back(row);
      changes.emplace_back(std::move(row));
    }
    return store_.Write(changes);
  }
  /// Of the last batch written; they count from 1.
  [[nodiscard]] int number() const { return number_; }

 private:
  Store& store_;
  std::deque<Outgoing> last_;
  int number_ = 0;
};

/// The number of the batch whose messages wait; 0: none; -1: they are not those of one batch.
inline int WholeBatch(const std::deque<Outgoing>& waiting) {
  if (waiting.empty()) return 0;
  for (const Outgoing& row : waiting) {
    if (row.receiver != waiting.front().receiver) return -1;
  }
  return waiting.size() == Batches::kSize ? std::stoi(waiting.front().receiver) : -1;
}

}  // namespace messages
