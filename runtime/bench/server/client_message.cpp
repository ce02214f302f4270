// SPDX-License-Identifier: MIT
#include "runtime/bench/server/client_message.h"

#include <fmt/format.h>

#include <limits>

#include "libs/base/printable.h"
#include "runtime/bench/server/json_text.h"

namespace corvane::bench {
namespace {

using nlohmann::json;

constexpr std::size_t kMostTopics = 16;
constexpr std::size_t kLongestName = 32;

/// The members of one message; a failure is reported with the client's number of it.
class Reader {
 public:
  explicit Reader(const json& object) : object_(object) {
    const auto found = object.find("request");
    if (found != object.end() && found->is_number_integer()) request_ = IntegerOf(*found);
  }
  [[nodiscard]] std::optional<std::int64_t> request() const { return request_; }

  [[noreturn]] void Fail(const std::string& text) const {
    throw ClientMessageError(text, request_);
  }
  [[nodiscard]] const json& Member(const char* name) const {
    const auto found = object_.find(name);
    if (found == object_.end()) Fail(fmt::format("\"{}\" is missing", name));
    return *found;
  }
  [[nodiscard]] std::string Text(const char* name) const {
    const json& member = Member(name);
    if (!member.is_string()) Fail(fmt::format("\"{}\" is not a text", name));
    return member.get<std::string>();
  }
  [[nodiscard]] std::int64_t Integer(const char* name) const {
    const json& member = Member(name);
    const auto number = member.is_number_integer() ? IntegerOf(member) : std::nullopt;
    if (!number || *number < 0) Fail(fmt::format("\"{}\" is not a number of one", name));
    return *number;
  }

 private:
  /// Empty: a number above those of int64.
  static std::optional<std::int64_t> IntegerOf(const json& number) {
    const bool too_big = number.is_number_unsigned() &&
                         number.get<std::uint64_t>() >
                             static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    return too_big ? std::nullopt : std::optional(number.get<std::int64_t>());
  }

  const json& object_;
  std::optional<std::int64_t> request_;
};

SubscribeRequest ReadSubscribe(const Reader& reader) {
  const json& topics = reader.Member("topics");
  if (!topics.is_array() || topics.size() > kMostTopics) {
    reader.Fail(fmt::format("\"topics\" is not a list of up to {} names", kMostTopics));
  }
  SubscribeRequest request;
  for (const json& topic : topics) {
    if (!topic.is_string()) reader.Fail("\"topics\" has something that is not a name");
    request.topics.push_back(topic.get<std::string>());
  }
  return request;
}

bool IsSpecial(const json& value) {
  const auto special = value.find("special");
  return value.size() == 1 && special != value.end() &&
         (*special == "nan" || *special == "inf" || *special == "-inf");
}

WriteRequest ReadWrite(const Reader& reader) {
  const json& value = reader.Member("value");
  if (value.is_array() || (value.is_object() && !IsSpecial(value))) {
    reader.Fail("\"value\" is not a number, a boolean, a text or null");
  }
  return {reader.Integer("id"), value};
}

}  // namespace

ClientMessage ParseClientMessage(std::string_view text) {
  const json object = json::parse(text, nullptr, false);
  if (!object.is_object()) throw ClientMessageError("not a JSON object", std::nullopt);
  const Reader reader(object);
  const std::string type = reader.Text("type");
  if (type == "subscribe") return {reader.request(), ReadSubscribe(reader)};
  if (type == "write") return {reader.request(), ReadWrite(reader)};
  if (type == "get") return {reader.request(), GetRequest{reader.Integer("id")}};
  if (type == "cancel" || type == "retry") {
    return {reader.request(), MessageRequest{type == "retry", reader.Integer("message")}};
  }
  if (type != "log-level") {
    reader.Fail(
        fmt::format("\"{}\" is not a type of message", PrintableBeginning(type, kLongestName)));
  }
  return {reader.request(), LogLevelRequest{reader.Text("level")}};
}

std::string ResultJson(std::optional<std::int64_t> request, const std::string& error) {
  nlohmann::ordered_json object = {{"type", "result"}, {"request", nullptr}, {"ok", error.empty()}};
  if (request) object["request"] = *request;
  if (!error.empty()) object["error"] = error;
  return JsonText(object);
}

}  // namespace corvane::bench
