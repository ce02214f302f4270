// SPDX-License-Identifier: MIT
#include "libs/messages/row_columns.h"

namespace messages {

void Bind(SQLite::Statement& statement, const Outgoing& row, std::int64_t id, std::int64_t job) {
  ColumnWriter(statement) << id << job << row.channel << row.route << row.receiver << row.content
                          << row.progress << row.key << row.urgent << row.created << row.expires
                          << row.next_try << row.finished << static_cast<int>(row.state)
                          << row.attempts << row.unknown_ends << row.in_transfer
                          << row.report_awaited << row.error_id << row.reason;
}

void Bind(SQLite::Statement& statement, const Incoming& row, std::int64_t id) {
  ColumnWriter(statement) << id << row.route << row.sender << row.text << row.time << row.has_time
                          << row.kind << row.received;
}

void Bind(SQLite::Statement& statement, const Part& row) {
  ColumnWriter(statement) << row.group << row.sequence << row.route << row.sender << row.reference
                          << row.wide << row.total << row.pdu << row.time << row.has_time
                          << row.first_seen;
}

ColumnReader& operator>>(ColumnReader& from, Outgoing& row) {
  int state = 0;
  from >> row.id >> row.job >> row.channel >> row.route >> row.receiver >> row.content >>
      row.progress >> row.key >> row.urgent >> row.created >> row.expires >> row.next_try >>
      row.finished >> state >> row.attempts >> row.unknown_ends >> row.in_transfer >>
      row.report_awaited >> row.error_id >> row.reason;
  const bool is_known = state >= 0 && state <= static_cast<int>(OutgoingState::kCancelled);
  row.state = is_known ? static_cast<OutgoingState>(state) : OutgoingState::kFailed;
  return from;
}

ColumnReader& operator>>(ColumnReader& from, Incoming& row) {
  return from >> row.id >> row.route >> row.sender >> row.text >> row.time >> row.has_time >>
         row.kind >> row.received;
}

ColumnReader& operator>>(ColumnReader& from, Part& row) {
  return from >> row.group >> row.sequence >> row.route >> row.sender >> row.reference >>
         row.wide >> row.total >> row.pdu >> row.time >> row.has_time >> row.first_seen;
}

ColumnReader& operator>>(ColumnReader& from, SentKey& row) {
  return from >> row.channel >> row.key >> row.finished;
}

ColumnReader& operator>>(ColumnReader& from, RecentSend& row) {
  return from >> row.channel >> row.route >> row.finished;
}

ColumnReader& operator>>(ColumnReader& from, Held& row) {
  return from >> row.route >> row.index >> row.digest;
}

}  // namespace messages
