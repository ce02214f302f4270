// SPDX-License-Identifier: MIT
// Rows to and from the columns of their tables. Columns are bound and read in the order in which
// the schema names them. Threads: that of the statement.
#pragma once

#include <SQLiteCpp/Column.h>
#include <SQLiteCpp/Statement.h>

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <limits>
#include <string>

#include "libs/messages/row.h"

namespace messages {

inline constexpr const char* kOutgoingColumns =
    "id, job, channel, route, receiver, content, progress, key, urgent, created, expires, "
    "next_try, "
    "finished, state, attempts, unknown_ends, in_transfer, report_awaited, error_id, reason";
inline constexpr const char* kIncomingColumns =
    "id, route, sender, text, time, has_time, kind, received";
inline constexpr const char* kPartColumns =
    "message, sequence, route, sender, reference, wide, total, pdu, time, has_time, first_seen";

/// Binds the parameters of a statement one after the other.
class ColumnWriter {
 public:
  explicit ColumnWriter(SQLite::Statement& statement) : statement_(statement) {}

  ColumnWriter& operator<<(const std::string& text) {
    statement_.bind(++index_, text);
    return *this;
  }
  ColumnWriter& operator<<(WallTime time) { return *this << time.time_since_epoch().count(); }
  template <std::integral Number>
  ColumnWriter& operator<<(Number number) {
    statement_.bind(++index_, static_cast<std::int64_t>(number));
    return *this;
  }

 private:
  SQLite::Statement& statement_;
  int index_ = 0;
};

/// The beginning of the year 2200. Clocks count nanoseconds, which end in 2262.
inline constexpr std::int64_t kLatest =
    WallTime(std::chrono::sys_days(std::chrono::year(2200) / 1 / 1)).time_since_epoch().count();

/// Reads the columns of a result row one after the other.
class ColumnReader {
 public:
  explicit ColumnReader(SQLite::Statement& statement) : statement_(statement) {}

  ColumnReader& operator>>(std::string& text) {
    text = statement_.getColumn(index_++).getString();
    return *this;
  }
  /// Limited to times that can be calculated with, whatever is in the file.
  ColumnReader& operator>>(WallTime& time) {
    const std::int64_t count = statement_.getColumn(index_++).getInt64();
    time = WallTime(std::chrono::milliseconds(std::clamp<std::int64_t>(count, 0, kLatest)));
    return *this;
  }
  ColumnReader& operator>>(bool& flag) {
    flag = statement_.getColumn(index_++).getInt64() != 0;
    return *this;
  }
  /// What is too large for the type becomes its limit, whatever is in the file.
  template <std::integral Number>
  ColumnReader& operator>>(Number& number) {
    using Limits = std::numeric_limits<Number>;
    const std::int64_t value = statement_.getColumn(index_++).getInt64();
    number = static_cast<Number>(std::clamp<std::int64_t>(value, Limits::min(), Limits::max()));
    return *this;
  }
  /// Whether the next column is empty.
  [[nodiscard]] bool AtNull() const { return statement_.isColumnNull(index_); }

 private:
  SQLite::Statement& statement_;
  int index_ = 0;
};

/// Binds a row, with these numbers instead of its own.
void Bind(SQLite::Statement& statement, const Outgoing& row, std::int64_t id, std::int64_t job);
void Bind(SQLite::Statement& statement, const Incoming& row, std::int64_t id);
void Bind(SQLite::Statement& statement, const Part& row);
void Bind(SQLite::Statement& statement, const Held& row);

/// Reads a row from columns in the order above.
ColumnReader& operator>>(ColumnReader& from, Outgoing& row);
ColumnReader& operator>>(ColumnReader& from, Incoming& row);
ColumnReader& operator>>(ColumnReader& from, Part& row);
ColumnReader& operator>>(ColumnReader& from, SentKey& row);
ColumnReader& operator>>(ColumnReader& from, RecentSend& row);
ColumnReader& operator>>(ColumnReader& from, Held& row);

/// The beginning of a query; the table comes next.
[[nodiscard]] inline std::string Select(const std::string& columns) {
  return "SELECT " + columns + " FROM ";
}

/// All rows of a result.
template <class Rows>
Rows ReadAll(SQLite::Statement& statement) {
  Rows rows;
  while (statement.executeStep()) {
    ColumnReader reader(statement);
    reader >> rows.emplace_back();
  }
  return rows;
}

}  // namespace messages
