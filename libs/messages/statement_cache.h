// SPDX-License-Identifier: MIT
// The statements of a connection to SQLite: preparing one takes longer than executing it.
#pragma once

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <map>
#include <string>

namespace messages {

/// Statements that are prepared at their first use.
class StatementCache {
 public:
  explicit StatementCache(const SQLite::Database& database) : database_(database) {}

  /// Ready to be bound, also after a failure.
  SQLite::Statement& Get(const std::string& sql) {
    SQLite::Statement& statement = statements_.try_emplace(sql, database_, sql).first->second;
    static_cast<void>(statement.tryReset());
    return statement;
  }

 private:
  const SQLite::Database& database_;
  std::map<std::string, SQLite::Statement> statements_;
};

}  // namespace messages
