// SPDX-License-Identifier: MIT
// The tables of a store of messages, and their version.
#pragma once

namespace SQLite {
class Database;
}

namespace messages {

/// In the file as SQLite's application_id ("CvMs").
inline constexpr int kApplicationId = 0x43764d73;
/// In the file as SQLite's user_version.
inline constexpr int kSchemaVersion = 1;

/// Brings a database of an older version, or an empty one (version 0), to kSchemaVersion: all of it
/// or, if it is interrupted, nothing. @throws SQLite::Exception
void Migrate(SQLite::Database& database);

/// The version of the file. @throws StoreError when it is newer than kSchemaVersion, or not a store
/// of messages at all; SQLite::Exception
[[nodiscard]] int VersionOf(SQLite::Database& database);

}  // namespace messages
