// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/message_list.h"

#include <algorithm>
#include <charconv>

namespace corvane_sms {
namespace {

constexpr std::string_view kHeader = "+CMGL:";
constexpr int kHighestIndex = 999'999;

/// Takes the next line off `text`, without its line end.
std::string_view TakeLine(std::string_view& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string_view line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

std::string_view Trimmed(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

/// Takes the next field off `header`, and its comma. A comma between quotes belongs to the field.
std::string_view TakeField(std::string_view& header) {
  bool quoted = false;
  const auto* const end = std::find_if(header.begin(), header.end(), [&quoted](char character) {
    if (character == '"') quoted = !quoted;
    return character == ',' && !quoted;
  });
  const auto length = static_cast<std::size_t>(end - header.begin());
  const std::string_view field = header.substr(0, length);
  header.remove_prefix(std::min(length + 1, header.size()));
  return Trimmed(field);
}

std::optional<int> Number(std::string_view field) {
  int value = 0;
  const char* const end = field.data() + field.size();
  const auto [stop, error] = std::from_chars(field.data(), end, value);
  if (error != std::errc() || stop != end || value < 0) return std::nullopt;
  return value;
}

/// The last field is the length, so a header of two fields has no status.
StoredAs ReadStatus(std::string_view fields) {
  if (fields.find(',') == std::string_view::npos) return StoredAs::kUnknown;
  const auto status = Number(TakeField(fields));
  if (!status || *status > static_cast<int>(StoredAs::kSent)) return StoredAs::kUnknown;
  return static_cast<StoredAs>(*status);
}

std::optional<ListedPdu> ReadHeader(std::string_view fields) {
  const auto index = Number(TakeField(fields));
  if (!index || *index > kHighestIndex) return std::nullopt;
  return ListedPdu{*index, ReadStatus(fields), {}};
}

}  // namespace

MessageList ReadMessageList(std::string_view answer) {
  MessageList list;
  std::string_view line;
  while (!answer.empty()) {
    line = TakeLine(answer);
    if (!line.starts_with(kHeader)) continue;
    const std::string_view pdu = TakeLine(answer);
    auto entry = ReadHeader(line.substr(kHeader.size()));
    if (!entry) {
      ++list.unreadable;
      continue;
    }
    entry->pdu = pdu;
    list.entries.push_back(*entry);
  }
  list.complete = line == "OK";
  return list;
}

}  // namespace corvane_sms
