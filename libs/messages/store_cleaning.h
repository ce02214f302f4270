// SPDX-License-Identifier: MIT
// What is removed from a store after a while: its history. Threads: that of the database.
#pragma once

#include "libs/messages/row.h"

namespace SQLite {
class Database;
}

namespace messages {

/// Messages that have ended, or were accepted, are kept this long ...
inline constexpr std::chrono::days kHistory(30);
/// ... unless there are more than this of their kind.
inline constexpr int kMostHistory = 100000;

/// Gives `now` to messages that ended before the clock was set, if it is set now: they ended at an
/// unknown time, and must not count as old. @throws SQLite::Exception
void DateUndated(SQLite::Database& database, WallTime now);

/// Removes, in one transaction, at most about `most` messages of each kind that are too old or too
/// many, and answers to requests. With a clock that is not set nothing is too old.
/// @return whether there may be more. @throws SQLite::Exception
[[nodiscard]] bool RemoveOld(SQLite::Database& database, WallTime now, int most);

}  // namespace messages
