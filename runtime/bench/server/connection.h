// SPDX-License-Identifier: MIT
// One connection: HTTP requests, and then possibly a WebSocket (RFC 6455), whose client joins the
// hub. It lives as long as an operation is under way. Threads: the server's.
#pragma once

#include <boost/beast/core/basic_stream.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "runtime/bench/server/acceptor.h"
#include "runtime/bench/server/http_answer.h"
#include "runtime/bench/server/hub.h"
#include "runtime/bench/server/warning_limit.h"

namespace corvane::bench {

/// What all connections of one listener share.
struct ConnectionsShared {
  static constexpr int kMostConnections = 64;
  static constexpr std::size_t kMostClients = 16;

  Hub& hub;
  const HttpService& service;
  int connections = 0;  ///< open ones
  int clients = 0;      ///< those of them that are in the hub
  WarningLimit refused = {};
  WarningLimit slow = {};

  static void Warn(WarningLimit& limit, const std::string& text);
};

class Connection : public Client, public std::enable_shared_from_this<Connection> {
 public:
  Connection(Arrival arrival, std::shared_ptr<ConnectionsShared> shared);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() override;

  /// Reads the first request.
  void Start();

  void Send(const std::shared_ptr<const Frame>& frame) override;
  [[nodiscard]] const std::string& who() const override { return who_; }
  [[nodiscard]] bool is_local() const override { return is_local_; }

 private:
  using Stream = boost::beast::basic_stream<boost::asio::generic::stream_protocol>;
  using Error = boost::beast::error_code;

  void ReadRequest();
  void Handle(const HttpRequest& request);
  void Respond(HttpResponse response);
  void Upgrade(const HttpRequest& request);
  void ReadMessage();
  void WriteNext();
  void Drop();
  void Close();

  std::string who_;
  bool is_local_;
  std::shared_ptr<ConnectionsShared> shared_;
  boost::beast::flat_buffer buffer_;
  std::optional<Stream> stream_;
  /// After the upgrade. Without compression: it would cost memory for each client, and the PLC's
  /// core.
  std::optional<boost::beast::websocket::stream<Stream, false>> socket_;
  std::optional<boost::beast::http::request_parser<boost::beast::http::empty_body>> parser_;
  HttpResponse response_;
  bool is_client_ = false;   // counted, and in the hub
  bool is_dropped_ = false;  // for reading too slowly
  std::deque<std::shared_ptr<const Frame>> queue_;
  std::size_t queued_ = 0;  // octets in the queue
};

}  // namespace corvane::bench
