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

/// Makes the tables of kSchemaVersion in an empty database. @throws SQLite::Exception
void CreateSchema(SQLite::Database& database);

}  // namespace messages
