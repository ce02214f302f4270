// SPDX-License-Identifier: MIT
// A store of messages as people look at it, whether its program runs or not. Threads: one at a
// time. Every function throws SQLite::Exception when the file or the disk fails.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

#include "libs/messages/row.h"
#include "libs/messages/store.h"
#include "libs/messages/store_file.h"

namespace messages {

/// A received message, and when it was accepted; empty: it is still offered.
struct ListedIncoming {
  Incoming message;
  std::optional<WallTime> accepted;
};

class ColumnReader;
ColumnReader& operator>>(ColumnReader& from, ListedIncoming& row);

class StoreView {
 public:
  /// Opens a file that exists, without changing it. @throws StoreError when it is not a store of
  /// this version
  explicit StoreView(const std::filesystem::path& file);

  /// Those that wait, and of the others the last `most_ended`; by id.
  [[nodiscard]] std::vector<Outgoing> OutgoingMessages(std::int64_t most_ended);
  /// Those that are offered, and of the others the last `most_accepted`; by id.
  [[nodiscard]] std::vector<ListedIncoming> IncomingMessages(std::int64_t most_accepted);
  [[nodiscard]] std::optional<Outgoing> FindOutgoing(std::int64_t id);
  [[nodiscard]] std::optional<ListedIncoming> FindIncoming(std::int64_t id);
  [[nodiscard]] std::int64_t LimitPerHour();

  /// Leaves a request for the program that runs. `message`: 0 for none. @return its number.
  std::int64_t AddRequest(RequestKind kind, std::int64_t message, std::int64_t value);
  /// What the program has answered; empty: nothing yet.
  [[nodiscard]] std::optional<AnswerRequest> AnswerTo(std::int64_t request);
  /// Takes a request back. @return false: it has been answered meanwhile, or is gone.
  bool Withdraw(std::int64_t request);

  /// Writes changes as the program would. The caller holds the StoreLock.
  void Write(const std::vector<Change>& changes);

 private:
  StoreFile file_;
};

}  // namespace messages
