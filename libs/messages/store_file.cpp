// SPDX-License-Identifier: MIT
#include "libs/messages/store_file.h"

#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>

#include <algorithm>
#include <chrono>

#include "libs/messages/row_columns.h"
#include "libs/messages/store_schema.h"

namespace messages {
namespace {

using std::chrono::days;
using std::chrono::hours;

// How long to wait for the command, which holds the file for a moment.
constexpr int kBusyMilliseconds = 2000;

template <class Row>
std::vector<Row> ReadAll(SQLite::Statement& statement) {
  std::vector<Row> rows;
  while (statement.executeStep()) {
    ColumnReader reader(statement);
    reader >> rows.emplace_back();
  }
  return rows;
}

template <class Row>
std::vector<Row> ReadAll(const SQLite::Database& database, const std::string& query) {
  SQLite::Statement statement(database, query);
  return ReadAll<Row>(statement);
}

/// Writes changes through statements that are prepared once for all rows of a table.
class Writing {
 public:
  Writing(const SQLite::Database& database, std::int64_t first_new_number)
      : database_(database), first_new_number_(first_new_number) {}

  /// `bind` binds one element of `rows` to the statement, which is then executed.
  template <class Rows, class Bind>
  void ForEach(const Rows& rows, const std::string& sql, const Bind& bind) const {
    if (rows.empty()) return;
    SQLite::Statement statement(database_, sql);
    for (const auto& row : rows) {
      bind(statement, row);
      statement.exec();
      statement.reset();
    }
  }

  [[nodiscard]] std::int64_t Number(std::int64_t id) const {
    return id < kFirstNewId ? id : first_new_number_ + (id - kFirstNewId);
  }

 private:
  const SQLite::Database& database_;
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
                  [](auto& statement, const Held& row) {
                    ColumnWriter(statement) << row.route << row.index << row.digest;
                  });
}

}  // namespace

StoreFile::StoreFile(const std::filesystem::path& file, const std::string& vfs)
    : database_(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE, kBusyMilliseconds,
                vfs) {
  database_.exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL");
  if (!database_.tableExists("setting")) CreateSchema(database_);
}

Content StoreFile::Load(WallTime now) {
  const std::string outgoing = std::string("SELECT ") + kOutgoingColumns + " FROM outgoing ";
  const auto since = [&](auto age) {
    return std::to_string((now - age).time_since_epoch().count());
  };
  Content content;
  content.waiting =
      ReadAll<Outgoing>(database_, outgoing + "WHERE state = 0 OR report_awaited <> 0 ORDER BY id");
  content.keys = ReadAll<SentKey>(database_,
                                  "SELECT channel, key, finished FROM outgoing "
                                  "WHERE state = 1 AND key <> '' AND finished >= " +
                                      since(days(30)) + " ORDER BY finished");
  content.recent = ReadAll<RecentSend>(database_,
                                       "SELECT channel, route, finished FROM outgoing "
                                       "WHERE state = 1 AND finished >= " +
                                           since(hours(1)) + " ORDER BY finished");
  content.inbox =
      ReadAll<Incoming>(database_, std::string("SELECT ") + kIncomingColumns +
                                       " FROM incoming WHERE accepted IS NULL ORDER BY id");
  content.parts = ReadAll<Part>(
      database_, std::string("SELECT ") + kPartColumns + " FROM part ORDER BY message, sequence");
  content.held = ReadAll<Held>(database_, "SELECT route, place, digest FROM held");
  SQLite::Statement limit(database_, "SELECT value FROM setting WHERE name = 'limit'");
  if (limit.executeStep()) content.limit_per_hour = limit.getColumn(0).getInt64();
  return content;
}

std::int64_t StoreFile::FirstFreeNumber() {
  return 1 + database_
                 .execAndGet(
                     "SELECT ifnull(max(seq), 0) FROM sqlite_sequence "
                     "WHERE name IN ('outgoing', 'incoming')")
                 .getInt64();
}

void StoreFile::Write(const PendingChanges& changes, std::int64_t first_new_number) {
  SQLite::Transaction transaction(database_, SQLite::TransactionBehavior::IMMEDIATE);
  const Writing writing(database_, first_new_number);
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
                          "WHERE done IS NULL AND id > ? ORDER BY id");
  asked.bind(1, after);
  SQLite::Statement row(database_,
                        std::string("SELECT ") + kOutgoingColumns + " FROM outgoing WHERE id = ?");
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

}  // namespace messages
