// SPDX-License-Identifier: MIT
#include "libs/messages/row_columns.h"

#include "libs/messages/row_fields.h"

namespace messages {

void Bind(SQLite::Statement& statement, const Outgoing& row, std::int64_t id, std::int64_t job) {
  ColumnWriter to(statement);
  WriteFields(to, row, id, job);
}

void Bind(SQLite::Statement& statement, const Incoming& row, std::int64_t id) {
  ColumnWriter to(statement);
  WriteFields(to, row, id);
}

void Bind(SQLite::Statement& statement, const Part& row) {
  ColumnWriter to(statement);
  WriteFields(to, row);
}

void Bind(SQLite::Statement& statement, const Held& row) {
  ColumnWriter to(statement);
  WriteFields(to, row);
}

ColumnReader& operator>>(ColumnReader& from, Outgoing& row) {
  ReadFields(from, row);
  return from;
}

ColumnReader& operator>>(ColumnReader& from, Incoming& row) {
  ReadFields(from, row);
  return from;
}

ColumnReader& operator>>(ColumnReader& from, Part& row) {
  ReadFields(from, row);
  return from;
}

ColumnReader& operator>>(ColumnReader& from, SentKey& row) {
  return from >> row.channel >> row.key >> row.finished;
}

ColumnReader& operator>>(ColumnReader& from, RecentSend& row) {
  return from >> row.channel >> row.route >> row.finished;
}

ColumnReader& operator>>(ColumnReader& from, Held& row) {
  ReadFields(from, row);
  return from;
}

}  // namespace messages
