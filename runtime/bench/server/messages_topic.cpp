// SPDX-License-Identifier: MIT
#include "runtime/bench/server/messages_topic.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>

#include "libs/base/printable.h"
#include "runtime/bench/server/json_text.h"

namespace corvane::bench {
namespace {

using messages::ListedIncoming;
using messages::Outgoing;
using messages::OutgoingState;
using nlohmann::ordered_json;

constexpr std::chrono::seconds kReadEvery(1);

const char* StateOf(const Outgoing& row) {
  const bool is_sending = row.state == OutgoingState::kWaiting && row.in_transfer;
  return is_sending ? "sending" : NameOf(row.state);
}

ordered_json Seconds(messages::WallTime time) {
  if (time == messages::WallTime{}) return nullptr;
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

/// Of the content that the channel stored: a mail's subject, and the text.
std::string TextOf(const Outgoing& row) {
  const ordered_json content = ordered_json::parse(row.content, nullptr, false);
  std::string text;
  for (const char* const name : {"subject", "text"}) {
    if (!content.is_object() || !content.contains(name) || !content[name].is_string()) continue;
    text += (text.empty() ? "" : "\n") + content[name].get<std::string>();
  }
  return PrintableBeginning(text, MessagesTopic::kLongestText, "\n");
}

ordered_json JsonOf(const Outgoing& row) {
  const bool waits = row.state == OutgoingState::kWaiting;
  return {{"id", row.id},
          {"kind", row.channel},
          {"to", row.receiver},
          {"state", StateOf(row)},
          {"attempts", row.attempts},
          {"time", Seconds(row.created)},
          {"next", waits ? Seconds(row.next_try) : ordered_json()},
          {"reason", row.reason},
          {"text", TextOf(row)}};
}

ordered_json JsonOf(const ListedIncoming& row) {
  return {{"id", row.message.id},
          {"kind", "in"},
          {"to", row.message.sender},
          {"state", row.accepted ? "accepted" : "offered"},
          {"attempts", 0},
          {"time", Seconds(row.message.received)},
          {"next", nullptr},
          {"reason", ""},
          {"text", PrintableBeginning(row.message.text, MessagesTopic::kLongestText, "\n")}};
}

using Rows = std::vector<std::pair<std::int64_t, ordered_json>>;

Rows ReadRows(messages::StoreView* store) {
  Rows rows;
  if (store == nullptr) return rows;
  for (const auto& row : store->OutgoingMessages(MessagesTopic::kHistory)) {
    rows.emplace_back(row.id, JsonOf(row));
  }
  for (const auto& row : store->IncomingMessages(MessagesTopic::kHistory)) {
    rows.emplace_back(row.message.id, JsonOf(row));
  }
  return rows;
}

}  // namespace

void MessagesTopic::SetWatched(bool /*watched*/) {
  read_ = {};
  last_.clear();
}

std::vector<Frame> MessagesTopic::Changes() {
  const auto now = std::chrono::steady_clock::now();
  if (read_ != std::chrono::steady_clock::time_point{} && now - read_ < kReadEvery) return {};
  read_ = now;
  Frame frame = Read();
  if (frame == last_) return {};
  last_ = std::move(frame);
  return {last_};
}

std::vector<Frame> MessagesTopic::Complete() {
  return {last_};
}

Frame MessagesTopic::Read() {
  Rows rows;
  std::string error;
  try {
    rows = store_->Ask(ReadRows);
  } catch (const std::exception& problem) {
    error = problem.what();
  }
  std::ranges::sort(rows, std::greater(), [](const auto& row) { return row.first; });
  auto list = ordered_json::array();
  for (auto& [id, row] : rows) list.push_back(std::move(row));
  ordered_json frame = {{"type", "messages"},
                        {"store", store_->file().string()},
                        {"rows", std::move(list)},
                        {"total", rows.size()}};
  if (!error.empty()) frame["error"] = error;
  return JsonText(frame);
}

}  // namespace corvane::bench
