// SPDX-License-Identifier: MIT
// Which keys were sent, and when: for a while, no second message with the same key goes out.
#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <string>
#include <utility>

#include "libs/messages/now.h"

namespace messages {

class SentKeys {
 public:
  /// A message with this key was sent. The times are passed in rising order, apart from those of
  /// earlier runs. Keys are kept for 30 days, 100,000 of them at most, as in the store.
  void Add(const std::string& key, SteadyTime when);
  /// Whether a message with this key was sent less than `period` ago.
  [[nodiscard]] bool SentWithin(const std::string& key, std::chrono::milliseconds period,
                                SteadyTime now) const;

 private:
  void DropOldest();

  std::map<std::string, SteadyTime> sent_;  // not a hash table, as in Outbox
  std::deque<std::pair<SteadyTime, std::string>> order_;
};

}  // namespace messages
