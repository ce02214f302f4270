// SPDX-License-Identifier: MIT
// What a client of the bench asks for: protocol version 1, docs/bench.md. Pure functions.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace corvane::bench {

/// Size of the longest message that a client may send, in octets.
inline constexpr std::size_t kLongestClientMessage = std::size_t{64} * 1024;

struct SubscribeRequest {
  std::vector<std::string> topics;
};
struct WriteRequest {
  std::int64_t id = 0;
  nlohmann::json value;  ///< number, boolean, text, null or {"special":"nan"|"inf"|"-inf"}
};
struct GetRequest {
  std::int64_t id = 0;
};
struct MessageRequest {
  bool retry = false;  ///< else cancel
  std::int64_t message = 0;
};
struct LogLevelRequest {
  std::string level;
};

struct ClientMessage {
  std::optional<std::int64_t> request;  ///< the client's number for it
  std::variant<SubscribeRequest, WriteRequest, GetRequest, MessageRequest, LogLevelRequest> what;
};

/// The client's message cannot be understood; the text says why.
class ClientMessageError : public std::runtime_error {
 public:
  ClientMessageError(const std::string& text, std::optional<std::int64_t> request)
      : runtime_error(text), request_(request) {}
  [[nodiscard]] std::optional<std::int64_t> request() const { return request_; }

 private:
  std::optional<std::int64_t> request_;
};

/// @throws ClientMessageError
[[nodiscard]] ClientMessage ParseClientMessage(std::string_view text);

/// {"type":"result",...}; `error` empty: ok.
[[nodiscard]] std::string ResultJson(std::optional<std::int64_t> request, const std::string& error);

}  // namespace corvane::bench
