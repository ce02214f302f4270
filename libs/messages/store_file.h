// SPDX-License-Identifier: MIT
// The SQLite file of a store of messages: one connection, for the store's writer and for the
// command. Threads: one at a time.
#pragma once

#include <SQLiteCpp/Database.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "libs/messages/pending_changes.h"
#include "libs/messages/row.h"
#include "libs/messages/store.h"

namespace messages {

/// An open store. Every function throws SQLite::Exception when the file or the disk fails.
class StoreFile {
 public:
  /// Opens the file, or makes it.
  StoreFile(const std::filesystem::path& file, const std::string& vfs);

  [[nodiscard]] Content Load(WallTime now);
  /// The lowest number that no message has had.
  [[nodiscard]] std::int64_t FirstFreeNumber();

  /// Writes all of it in one transaction, which survives a power cut once this returns. Numbers
  /// from kFirstNewId on are stored counted from `first_new_number`.
  void Write(const PendingChanges& changes, std::int64_t first_new_number);

  /// Changes whenever another connection has written.
  [[nodiscard]] std::int64_t DataVersion();
  /// Unanswered requests with numbers above `after`. The numbers of messages are those of the file.
  [[nodiscard]] std::vector<Request> Requests(std::int64_t after);

 private:
  SQLite::Database database_;
};

}  // namespace messages
