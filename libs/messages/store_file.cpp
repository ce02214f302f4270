// SPDX-License-Identifier: MIT
#include "libs/messages/store_file.h"

#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>

#include "libs/messages/row_columns.h"
#include "libs/messages/store_cleaning.h"
#include "libs/messages/store_error.h"
#include "libs/messages/store_schema.h"

namespace messages {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours;

// How long to wait for the command, which holds the file for a moment.
constexpr int kBusyMilliseconds = 2000;

// Numbers from kFirstNewId on would be taken for new ones.
const std::string kPlausibleId =
    "id BETWEEN 1 AND " + std::to_string(kFirstNewId - 1) + " ORDER BY id";

// The folder may be a link, as systemd makes them; the file may not.
constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW;

std::string FollowedFolder(const fs::path& file) {
  return (fs::canonical(file.parent_path()) / file.filename()).string();
}

void Configure(const SQLite::Database& database, int option, int value) {
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg): SQLite's way
  sqlite3_db_config(database.getHandle(), option, value, nullptr);
}

/// The file may be anything: nothing that is defined in it runs.
void Distrust(SQLite::Database& database) {
  Configure(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1);
  Configure(database, SQLITE_DBCONFIG_DEFENSIVE, 1);
  Configure(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0);
  Configure(database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0);
  Configure(database, SQLITE_DBCONFIG_ENABLE_VIEW, 0);
  database.exec("PRAGMA cell_size_check=ON");
}

/// Whether all is there that is used; other tables and columns do not matter.
void CheckTables(const SQLite::Database& database) {
  for (const std::string& query :
       {Select(kOutgoingColumns) + "outgoing", Select(kIncomingColumns) + "incoming",
        Select("accepted") + "incoming", Select(kPartColumns) + "part",
        Select("route, place, digest") + "held", Select("name, value") + "setting",
        Select("id, kind, message, value, done, outcome") + "request"}) {
    try {
      const SQLite::Statement statement(database, query);
    } catch (const SQLite::Exception& error) {
      if (error.getErrorCode() == SQLITE_ERROR) throw StoreDamaged(error.what());
      throw;
    }
  }
}

template <class Rows>
void Read(Rows& rows, const SQLite::Database& database, const std::string& query) {
  SQLite::Statement statement(database, query);
  rows = ReadAll<Rows>(statement);
}

/// Writes changes through statements that are prepared once for all transactions.
class Writing {
 public:
  Writing(StatementCache& statements, std::int64_t first_new_number)
      : statements_(statements), first_new_number_(first_new_number) {}

  /// `bind` binds one element of `rows` to the statement, which is then executed.
  template <class Rows, class Bind>
  void ForEach(const Rows& rows, const std::string& sql, const Bind& bind) const {
    if (rows.empty()) return;
    SQLite::Statement& statement = statements_.Get(sql);
    for (const auto& row : rows) {
      bind(statement, row);
      statement.exec();
      statement.reset();
    }
    statement.clearBindings();  // a mail may have a megabyte
  }

  [[nodiscard]] std::int64_t Number(std::int64_t id) const {
    return id < kFirstNewId ? id : first_new_number_ + (id - kFirstNewId);
  }

 private:
  StatementCache& statements_;
  std::int64_t first_new_number_;
};

void WriteMessages(const Writing& writing, const PendingChanges& changes) {
  writing.ForEach(changes.outgoing,
                  std::string("INSERT OR REPLACE INTO outgoing (") + kOutgoingColumns +
                      ") VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)",
                  [&](auto& statement, const auto& row) {
                    Bind(statement, row.second, writing.Number(row.first),
                         writing.Number(row.second.job));
                  });
  writing.ForEach(changes.incoming,
                  std::string("INSERT OR REPLACE INTO incoming (") + kIncomingColumns +
                      ") VALUES (?,?,?,?,?,?,?,?)",
                  [&](auto& statement, const auto& row) {
                    Bind(statement, row.second, writing.Number(row.first));
                  });
  writing.ForEach(changes.accepted, "UPDATE incoming SET accepted=? WHERE id=?",
                  [&](auto& statement, const auto& row) {
                    ColumnWriter(statement) << row.second << writing.Number(row.first);
                  });
}

void WriteParts(const Writing& writing, const PendingChanges& changes) {
  writing.ForEach(changes.removed_groups, "DELETE FROM part WHERE message=?",
                  [](auto& statement, std::int64_t group) { statement.bind(1, group); });
  writing.ForEach(changes.parts,
                  std::string("INSERT OR REPLACE INTO part (") + kPartColumns +
                      ") VALUES (?,?,?,?,?,?,?,?,?,?,?)",
                  [](auto& statement, const auto& row) { Bind(statement, row.second); });
}

void WriteHeld(const Writing& writing, const PendingChanges& changes) {
  std::vector<Held> kept;
  writing.ForEach(changes.held, "DELETE FROM held WHERE route=? AND place=?",
                  [&](auto& statement, const auto& place) {
                    ColumnWriter(statement) << place.first.first << place.first.second;
                    if (place.second.has_value()) kept.push_back(*place.second);
                  });
  writing.ForEach(kept, "INSERT INTO held (route, place, digest) VALUES (?,?,?)",
                  [](auto& statement, const Held& row) { Bind(statement, row); });
}

}  // namespace

void StoreFile::Make(const fs::path& file, const std::string& vfs) {
  SQLite::Database database(FollowedFolder(file), kFlags, kBusyMilliseconds, vfs);
  database.exec("PRAGMA synchronous=FULL");
  Migrate(database);
  database.exec("PRAGMA journal_mode=WAL");
}

StoreFile::StoreFile(const fs::path& file, const std::string& vfs, Sharing sharing)
    : file_(file),
      identity_(IdentityOf(file)),
      database_(FollowedFolder(file), kFlags, kBusyMilliseconds, vfs) {
  Distrust(database_);
  // The index of the log is then in this process, and not in a file of its own.
  if (sharing == Sharing::kAlone) database_.exec("PRAGMA locking_mode=EXCLUSIVE");
  database_.exec("PRAGMA synchronous=FULL; PRAGMA cache_size=-1024; PRAGMA temp_store=MEMORY");
  version_ = VersionOf(database_);
}

void StoreFile::Check() {
  const std::string verdict = database_.execAndGet("PRAGMA quick_check(1)").getString();
  if (verdict != "ok") throw StoreDamaged(verdict);
}

void StoreFile::Prepare() {
  Check();
  if (version_ < kSchemaVersion) Migrate(database_);
  version_ = kSchemaVersion;
  CheckTables(database_);
  database_.exec("PRAGMA journal_mode=WAL; PRAGMA journal_size_limit=1048576");
  // What an interrupted transaction left in the log must not look like damage to LostTransactions.
  database_.exec("PRAGMA wal_checkpoint(TRUNCATE)");
}

void StoreFile::Finish() {
  Configure(database_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0);
}

Content StoreFile::Load(WallTime now) {
  const std::string outgoing = Select(kOutgoingColumns) + "outgoing ";
  const auto since = [&](auto age) {
    return std::to_string((now - age).time_since_epoch().count());
  };
  const std::string offered = "incoming WHERE accepted IS NULL AND " + kPlausibleId;
  DateUndated(database_, now);
  Content content;
  Read(content.waiting, database_,
       outgoing + "WHERE (state = 0 OR report_awaited <> 0) AND " + kPlausibleId);
  Read(content.keys, database_,
       "SELECT channel, key, finished FROM outgoing "
       "WHERE state = 1 AND key <> '' AND finished >= " +
           since(kHistory) + " ORDER BY finished");
  Read(content.recent, database_,
       "SELECT channel, route, finished FROM outgoing "
       "WHERE state = 1 AND finished >= " +
           since(hours(1)) + " ORDER BY finished");
  Read(content.inbox, database_, Select(kIncomingColumns) + offered);
  Read(content.parts, database_, Select(kPartColumns) + "part ORDER BY message, sequence");
  Read(content.held, database_, "SELECT route, place, digest FROM held");
  content.limit_per_hour = LimitPerHour();
  return content;
}

std::optional<std::int64_t> StoreFile::LimitPerHour() {
  SQLite::Statement limit(database_, "SELECT value FROM setting WHERE name = 'limit'");
  if (!limit.executeStep()) return std::nullopt;
  return limit.getColumn(0).getInt64();
}

std::int64_t StoreFile::FirstFreeNumber() {
  const std::int64_t last = database_
                                .execAndGet(
                                    "SELECT ifnull(max(seq), 0) FROM sqlite_sequence "
                                    "WHERE name IN ('outgoing', 'incoming')")
                                .getInt64();
  if (last < 0 || last >= kFirstNewId / 2) throw StoreDamaged("numbers are used up");
  return last + 1;
}

void StoreFile::Write(const PendingChanges& changes, std::int64_t first_new_number) {
  SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
  const Writing writing(statements_, first_new_number);
  WriteMessages(writing, changes);
  WriteParts(writing, changes);
  WriteHeld(writing, changes);
  if (changes.limit_per_hour.has_value()) {
    SQLite::Statement limit(database_, "INSERT OR REPLACE INTO setting VALUES ('limit', ?)");
    limit.bind(1, *changes.limit_per_hour);
    limit.exec();
  }
  writing.ForEach(changes.answers, "UPDATE request SET done=?, outcome=? WHERE id=?",
                  [](auto& statement, const auto& row) {
                    ColumnWriter(statement) << row.second.done << row.second.outcome << row.first;
                  });
  transaction.commit();
}

std::int64_t StoreFile::DataVersion() {
  return database_.execAndGet("PRAGMA data_version").getInt64();
}

std::vector<Request> StoreFile::Requests(std::int64_t after) {
  std::vector<Request> requests;
  SQLite::Statement asked(database_,
                          "SELECT id, kind, message, value FROM request "
                          "WHERE done IS NULL AND kind BETWEEN 0 AND 2 AND id > ? ORDER BY id");
  asked.bind(1, after);
  SQLite::Statement row(database_, Select(kOutgoingColumns) + "outgoing WHERE id = ?");
  while (asked.executeStep()) {
    Request& request = requests.emplace_back();
    int kind = 0;
    std::int64_t message = 0;
    ColumnReader reader(asked);
    reader >> request.id >> kind >> message >> request.value;
    request.kind = static_cast<RequestKind>(kind);
    row.bind(1, message);
    ColumnReader columns(row);
    if (row.executeStep()) columns >> request.message;
    row.reset();
  }
  return requests;
}

bool StoreFile::RemoveOld(WallTime now, int most) {
  return messages::RemoveOld(database_, now, most);
}

bool StoreFile::IsInPlace() const {
  return IdentityOf(file_) == identity_;
}

int StoreFile::SystemError() const {
  // The connection forgets the one of a failed commit; the log's file does not.
  sqlite3* const database = database_.getHandle();
  if (const int error = sqlite3_system_errno(database); error != 0) return error;
  sqlite3_file* log = nullptr;
  int error = 0;
  sqlite3_file_control(database, "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
  if (log == nullptr || log->pMethods == nullptr) return 0;
  log->pMethods->xFileControl(log, SQLITE_FCNTL_LAST_ERRNO, &error);
  return error;
}

}  // namespace messages
