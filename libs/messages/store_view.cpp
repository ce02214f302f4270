// SPDX-License-Identifier: MIT
#include "libs/messages/store_view.h"

#include <SQLiteCpp/Statement.h>

#include <string>
#include <vector>

#include "libs/messages/row_columns.h"
#include "libs/messages/store_error.h"
#include "libs/messages/store_schema.h"

namespace messages {

ColumnReader& operator>>(ColumnReader& from, ListedIncoming& row) {
  from >> row.message;
  WallTime accepted;
  if (!from.AtNull()) row.accepted = (from >> accepted, accepted);
  return from;
}

namespace {

/// `query` with its parameters bound to `number`.
template <class Row>
std::vector<Row> ReadRows(const SQLite::Database& database, const std::string& query,
                          std::int64_t number) {
  SQLite::Statement statement(database, query);
  statement.bind(1, number);
  return ReadAll<std::vector<Row>>(statement);
}

template <class Row>
std::optional<Row> First(std::vector<Row> rows) {
  return rows.empty() ? std::nullopt : std::optional<Row>(std::move(rows.front()));
}

std::string FromOutgoing() {
  return Select(kOutgoingColumns) + "outgoing ";
}

std::string FromIncoming() {
  return Select(std::string(kIncomingColumns) + ", accepted") + "incoming ";
}

}  // namespace

StoreView::StoreView(const std::filesystem::path& file) : file_(file, {}) {
  if (file_.version() == kSchemaVersion) {
    file_.Finish();  // nothing stays in the log if nobody else has the file open
    return;
  }
  throw StoreError("the store " + file.string() +
                   " is of an older version: start its program once, which brings it up to date");
}

std::vector<Outgoing> StoreView::OutgoingMessages(std::int64_t most_ended) {
  return ReadRows<Outgoing>(
      file_.database(),
      FromOutgoing() +
          "WHERE state = 0 OR id IN (SELECT id FROM outgoing WHERE state <> 0 "
          "ORDER BY finished DESC, id DESC LIMIT ?) ORDER BY id",
      most_ended);
}

std::vector<ListedIncoming> StoreView::IncomingMessages(std::int64_t most_accepted) {
  return ReadRows<ListedIncoming>(
      file_.database(),
      FromIncoming() +
          "WHERE accepted IS NULL OR id IN (SELECT id FROM incoming WHERE accepted IS NOT NULL "
          "ORDER BY accepted DESC, id DESC LIMIT ?) ORDER BY id",
      most_accepted);
}

std::optional<Outgoing> StoreView::FindOutgoing(std::int64_t id) {
  return First(ReadRows<Outgoing>(file_.database(), FromOutgoing() + "WHERE id = ?", id));
}

std::optional<ListedIncoming> StoreView::FindIncoming(std::int64_t id) {
  return First(ReadRows<ListedIncoming>(file_.database(), FromIncoming() + "WHERE id = ?", id));
}

std::int64_t StoreView::LimitPerHour() {
  return file_.LimitPerHour().value_or(kDefaultLimitPerHour);
}

std::int64_t StoreView::AddRequest(RequestKind kind, std::int64_t message, std::int64_t value) {
  SQLite::Statement row(file_.database(),
                        "INSERT INTO request (kind, message, value) VALUES (?,?,?)");
  ColumnWriter(row) << static_cast<int>(kind) << message << value;
  row.exec();
  return file_.database().getLastInsertRowid();
}

std::optional<AnswerRequest> StoreView::AnswerTo(std::int64_t request) {
  SQLite::Statement row(file_.database(),
                        "SELECT id, done, outcome FROM request WHERE id = ? AND done IS NOT NULL");
  row.bind(1, request);
  if (!row.executeStep()) return std::nullopt;
  AnswerRequest answer;
  ColumnReader reader(row);
  reader >> answer.id >> answer.done >> answer.outcome;
  return answer;
}

bool StoreView::Withdraw(std::int64_t request) {
  SQLite::Statement row(file_.database(), "DELETE FROM request WHERE id = ? AND done IS NULL");
  row.bind(1, request);
  return row.exec() == 1;
}

void StoreView::Write(const std::vector<Change>& changes) {
  PendingChanges pending;
  for (const Change& change : changes) pending.Add(change);
  file_.Write(pending, 0);
}

}  // namespace messages
