// SPDX-License-Identifier: MIT
// A client of the bench's protocol over the Unix socket of a program (RFC 6455). Nothing here waits
// longer than the caller allows, whatever the other side does.
// Threads: one at a time.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "runtime/bench/client/local_socket.h"

namespace corvane::bench {

class BenchClient {
 public:
  /// How long a program may be silent before it counts as one that does not answer.
  static constexpr std::chrono::seconds kPatience{5};
  /// A longer message ends the connection.
  static constexpr std::size_t kLongestMessage = std::size_t{64} * 1024 * 1024;

  /// Begins to connect. @throws ClientError when nobody listens, or it is not allowed
  explicit BenchClient(const std::filesystem::path& socket,
                       std::chrono::milliseconds patience = kPatience);
  BenchClient(const BenchClient&) = delete;
  BenchClient& operator=(const BenchClient&) = delete;
  ~BenchClient() = default;

  /// Sends a message as soon as the connection is open.
  void Send(const nlohmann::json& message);
  /// The next message, an object; nothing when none comes within `time`, which may be 0. Those that
  /// wait are handed out before an error. @throws ClientError when the connection has ended, also
  /// because the program was silent for the whole patience, or has sent what is not the protocol
  [[nodiscard]] std::optional<nlohmann::json> Receive(std::chrono::milliseconds time);
  /// The next message of this type; others are dropped. @throws ClientError, also when it does not
  /// come within `time`
  [[nodiscard]] nlohmann::json Expect(const std::string& type, std::chrono::milliseconds time);
  /// Sends a request and waits for its result. @return why it was refused; empty: it was done.
  /// @throws ClientError
  [[nodiscard]] std::string Ask(nlohmann::json request, std::chrono::milliseconds time);

 private:
  using Error = boost::beast::error_code;

  void Shake();
  void Read();
  void Take();
  void WriteNext();
  void Close(const std::string& problem);
  void CloseAfter(const Error& error);

  boost::asio::io_context context_;
  boost::beast::websocket::stream<LocalStream> stream_;
  boost::beast::websocket::response_type response_;
  boost::beast::flat_buffer buffer_;
  std::deque<std::string> outgoing_;
  std::optional<nlohmann::json> message_;  // the one that has not been handed out
  std::string problem_;                    // not empty: the connection has ended
  std::int64_t last_request_ = 0;
  bool is_open_ = false;
};

}  // namespace corvane::bench
