// SPDX-License-Identifier: MIT
#include "libs/messages/store_cleaning.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>

#include <string>

namespace messages {
namespace {

/// Where messages that have ended are found; the conditions are those of the schema's indices.
/// No strings: the writer may be at work while the process ends and destroys what is static.
struct History {
  const char* table;
  const char* ended;  ///< column with the time of the end
  const char* condition;
};

constexpr History kOutgoing{"outgoing", "finished", "state <> 0"};
constexpr History kIncoming{"incoming", "accepted", "accepted IS NOT NULL"};

std::string Milliseconds(WallTime time) {
  return std::to_string(time.time_since_epoch().count());
}

void DateUndatedOf(SQLite::Database& database, const History& of, WallTime now) {
  database.exec(std::string("UPDATE ") + of.table + " SET " + of.ended + " = " + Milliseconds(now) +
                " WHERE " + of.condition + " AND " + of.ended + " < " + Milliseconds(kClockIsSet));
}

/// @return how many rows were removed.
int RemoveSelected(SQLite::Database& database, const History& of, const std::string& rest) {
  return database.exec(std::string("DELETE FROM ") + of.table + " WHERE id IN (SELECT id FROM " +
                       of.table + " WHERE " + of.condition + rest + ")");
}

bool RemoveOldOf(SQLite::Database& database, const History& of, WallTime now, int most) {
  const std::string limit = " LIMIT " + std::to_string(most);
  const int surplus = RemoveSelected(database, of,
                                     std::string(" ORDER BY ") + of.ended + " DESC" + limit +
                                         " OFFSET " + std::to_string(kMostHistory));
  if (now < kClockIsSet) return surplus == most;
  const int old = RemoveSelected(
      database, of, std::string(" AND ") + of.ended + " < " + Milliseconds(now - kHistory) + limit);
  return surplus == most || old == most;
}

}  // namespace

void DateUndated(SQLite::Database& database, WallTime now) {
  if (now < kClockIsSet) return;
  DateUndatedOf(database, kOutgoing, now);
  DateUndatedOf(database, kIncoming, now);
}

bool RemoveOld(SQLite::Database& database, WallTime now, int most) {
  SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
  DateUndated(database, now);
  const bool more_outgoing = RemoveOldOf(database, kOutgoing, now, most);
  const bool more_incoming = RemoveOldOf(database, kIncoming, now, most);
  // The command reads the answers to its latest requests.
  database.exec(
      "DELETE FROM request WHERE done IS NOT NULL AND id <= "
      "(SELECT max(id) - 100 FROM request)");
  transaction.commit();
  return more_outgoing || more_incoming;
}

}  // namespace messages
