// SPDX-License-Identifier: MIT
#include "runtime/bench/client/bench_client.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "libs/base/printable.h"

namespace corvane::bench {
namespace {

namespace beast = boost::beast;
namespace websocket = beast::websocket;
using nlohmann::json;

constexpr int kDeepest = 8;  // objects and arrays in each other; the protocol needs five
constexpr std::chrono::milliseconds kLongestPoll(50);  // of what has come already
constexpr const char* kSilent = "it does not answer";
constexpr const char* kStrange = "it sends what cannot be understood";

/// Nothing: not an object, or deeper than any message of the protocol.
std::optional<json> Parse(std::string_view text) {
  bool is_too_deep = false;
  const auto check = [&is_too_deep](int depth, json::parse_event_t /*event*/, json& /*value*/) {
    is_too_deep = is_too_deep || depth > kDeepest;
    return !is_too_deep;
  };
  json message = json::parse(text, check, false);
  if (is_too_deep || !message.is_object()) return std::nullopt;
  const auto type = message.find("type");
  if (type == message.end() || !type->is_string()) return std::nullopt;
  return message;
}

}  // namespace

BenchClient::BenchClient(const std::filesystem::path& socket, std::chrono::milliseconds patience)
    : stream_(OpenLocalStream(context_, socket)), buffer_(kLongestMessage) {
  stream_.set_option(websocket::stream_base::timeout{patience, patience, true});
  stream_.read_message_max(kLongestMessage);
  stream_.text(true);
  stream_.async_handshake(response_, "localhost", "/ws", [this](const Error& error) {
    if (error == websocket::error::upgrade_declined &&
        response_.result() == beast::http::status::service_unavailable) {
      return Close("it has too many clients already");
    }
    if (error) return CloseAfter(error);
    is_open_ = true;
    if (!outgoing_.empty()) WriteNext();
    Read();
  });
}

void BenchClient::Send(const json& message) {
  outgoing_.push_back(message.dump());
  if (is_open_ && outgoing_.size() == 1) WriteNext();
}

void BenchClient::WriteNext() {
  stream_.async_write(boost::asio::buffer(outgoing_.front()),
                      [this](const Error& error, std::size_t) {
                        if (error) return CloseAfter(error);
                        outgoing_.pop_front();
                        if (!outgoing_.empty()) WriteNext();
                      });
}

void BenchClient::Read() {
  stream_.async_read(buffer_, [this](const Error& error, std::size_t) {
    if (error) return CloseAfter(error);
    Take();
  });
}

/// The next one is read when this one has been handed out, so that at most one takes memory.
void BenchClient::Take() {
  const auto octets = buffer_.cdata();
  message_ = Parse({static_cast<const char*>(octets.data()), octets.size()});
  buffer_.clear();
  if (!message_) Close(kStrange);
}

void BenchClient::Close(const std::string& problem) {
  if (!problem_.empty()) return;
  problem_ = problem;
  beast::get_lowest_layer(stream_).close();
}

void BenchClient::CloseAfter(const Error& error) {
  if (error == beast::error::timeout) return Close(kSilent);
  const bool has_ended = error == websocket::error::closed || error == boost::asio::error::eof ||
                         error == boost::asio::error::connection_reset ||
                         error == boost::asio::error::broken_pipe;
  Close(has_ended ? "it has ended the connection" : kStrange);
}

std::optional<json> BenchClient::Receive(std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  while (!message_) {
    if (!problem_.empty()) throw ClientError(problem_);
    context_.restart();
    const bool has_worked = context_.poll_one() != 0;
    const auto now = std::chrono::steady_clock::now();
    if (now >= end && (!has_worked || now >= end + kLongestPoll)) return std::nullopt;
    if (!has_worked) context_.run_one_until(end);
  }
  std::optional<json> message = std::exchange(message_, std::nullopt);
  Read();
  return message;
}

json BenchClient::Expect(const std::string& type, std::chrono::milliseconds time) {
  const auto end = std::chrono::steady_clock::now() + time;
  for (;;) {
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(
        std::max(end - std::chrono::steady_clock::now(), std::chrono::steady_clock::duration(0)));
    std::optional<json> message = Receive(rest);
    if (!message && rest.count() == 0) throw ClientError(kSilent);
    if (message && (*message)["type"] == type) return *std::move(message);
  }
}

std::string BenchClient::Ask(json request, std::chrono::milliseconds time) {
  const std::int64_t number = ++last_request_;
  request["request"] = number;
  Send(request);
  const auto end = std::chrono::steady_clock::now() + time;
  for (;;) {
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    const json result = Expect("result", std::max(rest, std::chrono::milliseconds(0)));
    if (result.value("request", json()) != json(number)) continue;
    if (result.value("ok", json()) == json(true)) return {};
    const json error = result.value("error", json());
    return error.is_string() ? Printable(error.get<std::string>()) : "it refuses";
  }
}

}  // namespace corvane::bench
