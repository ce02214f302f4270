// SPDX-License-Identifier: MIT
#include "runtime/cli/message_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "libs/base/printable.h"

namespace corvane::cli {
namespace {

using messages::ListedIncoming;
using messages::Outgoing;
using messages::OutgoingState;
using messages::WallTime;
using nlohmann::ordered_json;

const char* StateOf(const ListedIncoming& row) {
  return row.accepted.has_value() ? "accepted" : "offered";
}

/// An attempt was begun, and its end has not been written.
const char* StateOf(const Outgoing& row) {
  const bool is_sending = row.state == OutgoingState::kWaiting && row.in_transfer;
  return is_sending ? "sending" : NameOf(row.state);
}

using Fields = std::array<std::string, 7>;

constexpr Fields::size_type kLastField = std::tuple_size_v<Fields> - 1;

Fields FieldsOf(const Outgoing& row) {
  const bool waits = row.state == OutgoingState::kWaiting;
  return {std::to_string(row.id),
          StateOf(row),
          std::to_string(row.attempts),
          waits ? TimeText(row.next_try) : "-",
          fmt::format("{} {}", row.channel, row.route),
          fmt::format("to {}", row.receiver),
          row.reason};
}

Fields FieldsOf(const ListedIncoming& row) {
  return {std::to_string(row.message.id),
          StateOf(row),
          "-",
          "-",
          fmt::format("sms {}", row.message.route),
          fmt::format("from {}", row.message.sender),
          ""};
}

Fields FieldsOf(const StoredMessage& message) {
  Fields fields = message.outgoing ? FieldsOf(*message.outgoing) : FieldsOf(*message.incoming);
  for (std::string& field : fields) field = Printable(field);
  return fields;
}

ordered_json JsonTime(WallTime time) {
  return time == WallTime{} ? ordered_json() : ordered_json(TimeText(time));
}

ordered_json TextOrNull(const std::string& text) {
  return text.empty() ? ordered_json() : ordered_json(Printable(text, "\n\r\t"));
}

/// What the channel stored: JSON, or a text.
ordered_json OpaqueJson(const std::string& text) {
  ordered_json parsed = ordered_json::parse(text, nullptr, false);
  return parsed.is_discarded() ? TextOrNull(text) : parsed;
}

ordered_json JsonOfOutgoing(const Outgoing& row, bool with_content) {
  const bool waits = row.state == OutgoingState::kWaiting;
  ordered_json object = {{"id", row.id},
                         {"direction", "out"},
                         {"state", StateOf(row)},
                         {"attempts", row.attempts},
                         {"next_try", waits ? JsonTime(row.next_try) : ordered_json()},
                         {"reason", TextOrNull(row.reason)},
                         {"error_id", row.error_id},
                         {"channel", TextOrNull(row.channel)},
                         {"route", TextOrNull(row.route)},
                         {"receiver", TextOrNull(row.receiver)},
                         {"urgent", row.urgent},
                         {"key", TextOrNull(row.key)},
                         {"job", row.job},
                         {"unknown_ends", row.unknown_ends},
                         {"report_awaited", row.report_awaited},
                         {"created", JsonTime(row.created)},
                         {"expires", JsonTime(row.expires)},
                         {"finished", waits ? ordered_json() : JsonTime(row.finished)}};
  if (with_content) {
    object["content"] = OpaqueJson(row.content);
    object["progress"] = OpaqueJson(row.progress);
  }
  return object;
}

ordered_json JsonOfIncoming(const ListedIncoming& row, bool with_content) {
  ordered_json object = {
      {"id", row.message.id},
      {"direction", "in"},
      {"state", StateOf(row)},
      {"channel", "sms"},
      {"route", TextOrNull(row.message.route)},
      {"sender", TextOrNull(row.message.sender)},
      {"kind", row.message.kind},
      {"time", row.message.has_time ? JsonTime(row.message.time) : ordered_json()},
      {"received", JsonTime(row.message.received)},
      {"accepted", row.accepted ? JsonTime(*row.accepted) : ordered_json()}};
  if (with_content) object["text"] = Printable(row.message.text, "\n\r\t");
  return object;
}

std::string DetailLine(const std::string& name, const ordered_json& value) {
  const std::string text = value.is_string() ? value.get<std::string>() : value.dump();
  return fmt::format("{:<14} {}\n", name, Printable(text));
}

}  // namespace

std::string TimeText(WallTime time) {
  if (time == WallTime{}) return "-";
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  struct tm parts {};
  gmtime_r(&seconds, &parts);
  std::array<char, 32> room{};
  const std::size_t size = std::strftime(room.data(), room.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return {room.data(), size};
}

std::string ListText(const std::vector<StoredMessage>& list) {
  std::vector<Fields> lines = {
      {"Id", "State", "Attempts", "Next try", "Port", "Receiver or sender", "Reason"}};
  for (const StoredMessage& message : list) lines.push_back(FieldsOf(message));
  std::array<std::size_t, kLastField> widths{};
  for (const Fields& line : lines) {
    for (std::size_t i = 0; i < kLastField; ++i) widths[i] = std::max(widths[i], line[i].size());
  }
  std::string text;
  for (const Fields& line : lines) {
    std::string row;
    for (std::size_t i = 0; i < kLastField; ++i) row += fmt::format("{:<{}}  ", line[i], widths[i]);
    row += line[kLastField];
    text += row.substr(0, row.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

std::string DetailText(const StoredMessage& message) {
  std::string text;
  const ordered_json all = JsonOf(message, true);
  for (const auto& [name, value] : all.items()) {
    // What the channel stored reads better line by line.
    if (value.is_object()) {
      for (const auto& [part, inner] : value.items()) text += DetailLine(part, inner);
    } else if (!value.is_null()) {
      text += DetailLine(name, value);
    }
  }
  return text;
}

ordered_json JsonOf(const StoredMessage& message, bool with_content) {
  return message.outgoing ? JsonOfOutgoing(*message.outgoing, with_content)
                          : JsonOfIncoming(*message.incoming, with_content);
}

}  // namespace corvane::cli
