// SPDX-License-Identifier: MIT
// The SQLite file of a store of messages: one connection, for the store's writer and for the
// command. Threads: one at a time.
#pragma once

#include <SQLiteCpp/Database.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "libs/messages/file_identity.h"
#include "libs/messages/pending_changes.h"
#include "libs/messages/row.h"
#include "libs/messages/statement_cache.h"
#include "libs/messages/store.h"

namespace messages {

/// An open store. Every function throws SQLite::Exception when the file or the disk fails.
class StoreFile {
 public:
  /// Makes the tables in an empty file.
  static void Make(const std::filesystem::path& file, const std::string& vfs);
  /// How others can use the file meanwhile.
  enum class Sharing : std::uint8_t {
    kShared,
    kAlone,  ///< not at all; SQLite then needs no room on the disk to read it
  };
  /// Opens a file that exists. @throws StoreError as VersionOf does
  StoreFile(const std::filesystem::path& file, const std::string& vfs,
            Sharing sharing = Sharing::kShared);

  /// Version of the tables, at most kSchemaVersion.
  [[nodiscard]] int version() const { return version_; }
  /// Looks for damage. @throws StoreDamaged
  void Check();
  /// Checks it, and brings the tables to kSchemaVersion. For the writer, once, at the start.
  /// @throws StoreDamaged
  void Prepare();
  /// Merges the log into the file when that is closed. Without it, closing changes nothing on the
  /// disk.
  void Finish();

  [[nodiscard]] Content Load(WallTime now);
  [[nodiscard]] std::optional<std::int64_t> LimitPerHour();
  /// The lowest number that no message has had.
  [[nodiscard]] std::int64_t FirstFreeNumber();

  /// Writes all of it in one transaction, which survives a power cut once this returns. Numbers
  /// from kFirstNewId on are stored counted from `first_new_number`.
  void Write(const PendingChanges& changes, std::int64_t first_new_number);

  /// Changes whenever another connection has written.
  [[nodiscard]] std::int64_t DataVersion();
  /// Unanswered requests with numbers above `after`. The numbers of messages are those of the file.
  [[nodiscard]] std::vector<Request> Requests(std::int64_t after);

  /// Removes up to `most` messages that ended, or were accepted, more than 30 days ago, or that are
  /// not among the last 100,000 of their kind. @return whether there may be more.
  bool RemoveOld(WallTime now, int most);

  [[nodiscard]] SQLite::Database& database() { return database_; }

  /// Whether the file still has its name: somebody may have moved or replaced it.
  [[nodiscard]] bool IsInPlace() const;
  /// After an I/O error: errno of the system call that failed; 0: not known.
  [[nodiscard]] int SystemError() const;

 private:
  std::filesystem::path file_;
  FileIdentity identity_;
  int version_ = 0;
  SQLite::Database database_;
  StatementCache statements_{database_};
};

}  // namespace messages
