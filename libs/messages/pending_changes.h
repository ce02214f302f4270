// SPDX-License-Identifier: MIT
// Changes that wait to be written, at most one for each row. Threads: the store's writer only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "libs/messages/store.h"

namespace messages {

/// What is to be written in one transaction: accepted after incoming, parts after removed groups.
struct PendingChanges {
  std::map<std::int64_t, Outgoing> outgoing;
  std::map<std::int64_t, Incoming> incoming;
  std::map<std::int64_t, WallTime> accepted;
  std::set<std::int64_t> removed_groups;
  std::map<std::pair<std::int64_t, int>, Part> parts;
  std::map<std::pair<std::string, int>, std::optional<Held>> held;  ///< empty: to be removed
  std::optional<std::int64_t> limit_per_hour;
  std::map<std::int64_t, AnswerRequest> answers;

  /// Adds a change, which replaces an earlier one of the same row.
  void Add(Change change);
  [[nodiscard]] bool empty() const;
  /// All of it has been written.
  void Clear();
  /// Of ended messages that have never been on the disk, keeps the newest `most`: only history is
  /// lost by that. All others must be written, or they would go out again after a restart.
  void ForgetHistory(std::size_t most);

 private:
  std::int64_t highest_written_ = 0;
};

}  // namespace messages
