// SPDX-License-Identifier: MIT
#include "libs/messages/store_schema.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Transaction.h>

#include <array>
#include <cstddef>
#include <string>

#include "libs/messages/store_error.h"

namespace messages {
namespace {

// AUTOINCREMENT: a number is not used again, even when the row with the highest has been removed.
constexpr const char* kTables = R"(
CREATE TABLE outgoing (
  id INTEGER PRIMARY KEY AUTOINCREMENT, job INTEGER NOT NULL,
  channel TEXT NOT NULL, route TEXT NOT NULL, receiver TEXT NOT NULL,
  content TEXT NOT NULL, progress TEXT NOT NULL, key TEXT NOT NULL, urgent INTEGER NOT NULL,
  created INTEGER NOT NULL, expires INTEGER NOT NULL, next_try INTEGER NOT NULL,
  finished INTEGER NOT NULL, state INTEGER NOT NULL, attempts INTEGER NOT NULL,
  unknown_ends INTEGER NOT NULL, in_transfer INTEGER NOT NULL, report_awaited INTEGER NOT NULL,
  error_id INTEGER NOT NULL, reason TEXT NOT NULL) STRICT;
CREATE INDEX outgoing_live ON outgoing (id) WHERE state = 0 OR report_awaited <> 0;
CREATE INDEX outgoing_ended ON outgoing (finished) WHERE state <> 0;
CREATE TABLE incoming (
  id INTEGER PRIMARY KEY AUTOINCREMENT, route TEXT NOT NULL, sender TEXT NOT NULL,
  text TEXT NOT NULL, time INTEGER NOT NULL, has_time INTEGER NOT NULL, kind INTEGER NOT NULL,
  received INTEGER NOT NULL, accepted INTEGER) STRICT;
CREATE INDEX incoming_offered ON incoming (id) WHERE accepted IS NULL;
CREATE INDEX incoming_accepted ON incoming (accepted) WHERE accepted IS NOT NULL;
CREATE TABLE part (
  message INTEGER NOT NULL, sequence INTEGER NOT NULL, route TEXT NOT NULL, sender TEXT NOT NULL,
  reference INTEGER NOT NULL, wide INTEGER NOT NULL, total INTEGER NOT NULL, pdu TEXT NOT NULL,
  time INTEGER NOT NULL, has_time INTEGER NOT NULL, first_seen INTEGER NOT NULL,
  PRIMARY KEY (message, sequence)) STRICT;
CREATE TABLE held (
  route TEXT NOT NULL, place INTEGER NOT NULL, digest TEXT NOT NULL,
  PRIMARY KEY (route, place)) STRICT;
CREATE TABLE setting (name TEXT PRIMARY KEY, value INTEGER NOT NULL) STRICT;
CREATE TABLE request (
  id INTEGER PRIMARY KEY AUTOINCREMENT, kind INTEGER NOT NULL, message INTEGER NOT NULL,
  value INTEGER NOT NULL, done INTEGER, outcome TEXT NOT NULL DEFAULT '') STRICT;
)";

/// Element N brings version N to version N + 1.
constexpr std::array<const char*, kSchemaVersion> kSteps = {kTables};

int Pragma(SQLite::Database& database, const std::string& name) {
  return database.execAndGet("PRAGMA " + name).getInt();
}

}  // namespace

void Migrate(SQLite::Database& database) {
  SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
  const int version = Pragma(database, "user_version");
  for (auto step = static_cast<std::size_t>(version); step < kSteps.size(); ++step) {
    database.exec(kSteps.at(step));
  }
  database.exec("PRAGMA application_id=" + std::to_string(kApplicationId));
  database.exec("PRAGMA user_version=" + std::to_string(kSchemaVersion));
  transaction.commit();
}

int VersionOf(SQLite::Database& database) {
  const int version = Pragma(database, "user_version");
  if (Pragma(database, "application_id") != kApplicationId || version < 0) {
    throw StoreError(
        "the file " + database.getFilename() +
        " belongs to another program: it is left as it is, and messages are kept in memory "
        "only. Move it to another folder");
  }
  if (version > kSchemaVersion) {
    throw StoreError("the store " + database.getFilename() + " has a newer version (" +
                     std::to_string(version) + "; this program knows versions up to " +
                     std::to_string(kSchemaVersion) +
                     "): it is left as it is, and messages are kept in memory only. Install the "
                     "newer version again, or move the file to another folder");
  }
  return version;
}

}  // namespace messages
