// SPDX-License-Identifier: MIT
#include "runtime/bench/server/connection.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <chrono>
#include <string_view>
#include <utility>

#include "runtime/bench/server/request_check.h"

namespace corvane::bench {
namespace {

namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;

constexpr std::uint32_t kLongestHeader = 8 * 1024;
constexpr std::chrono::seconds kRequestTime(10);
// A client that reads nothing does not answer the ping after half of this either.
constexpr std::chrono::seconds kIdleTime(30);
constexpr std::size_t kMostFrames = 256;
constexpr std::size_t kMostOctets = std::size_t{8} * 1024 * 1024;

websocket::stream_base::timeout SocketTimes() {
  return {kRequestTime, kIdleTime, true};
}

}  // namespace

void ConnectionsShared::Warn(WarningLimit& limit, const std::string& text) {
  const std::string line = limit.Pass(text, std::chrono::steady_clock::now());
  if (!line.empty()) spdlog::warn("{}", line);
}

// cppcheck-suppress passedByValue ; its members are moved
Connection::Connection(Arrival arrival, std::shared_ptr<ConnectionsShared> shared)
    : who_(std::move(arrival.who)),
      is_local_(arrival.is_local),
      shared_(std::move(shared)),
      buffer_(kLongestHeader),
      stream_(std::move(arrival.socket)) {
  ++shared_->connections;
}

Connection::~Connection() {
  --shared_->connections;
  Close();
}

void Connection::Start() {
  if (shared_->connections <= ConnectionsShared::kMostConnections) ReadRequest();
}

void Connection::ReadRequest() {
  parser_.emplace();
  parser_->header_limit(kLongestHeader);
  stream_->expires_after(kRequestTime);
  http::async_read(*stream_, buffer_, *parser_,
                   [self = shared_from_this()](const Error& error, std::size_t) {
                     if (!error) self->Handle(self->parser_->get());
                   });
}

void Connection::Handle(const HttpRequest& request) {
  if (auto refusal = Refusal(request, shared_->service, is_local_)) {
    Respond(std::move(*refusal));
  } else if (PathOf({request.target().data(), request.target().size()}) == "/ws") {
    Upgrade(request);
  } else {
    Respond(AnswerTo(request, shared_->service));
  }
}

void Connection::Respond(HttpResponse response) {
  response_ = std::move(response);
  stream_->expires_after(kRequestTime);
  http::async_write(*stream_, response_,
                    [self = shared_from_this()](const Error& error, std::size_t) {
                      if (!error && !self->response_.need_eof()) self->ReadRequest();
                    });
}

void Connection::Upgrade(const HttpRequest& request) {
  if (static_cast<std::size_t>(shared_->clients) >= ConnectionsShared::kMostClients) {
    shared_->Warn(shared_->refused,
                  fmt::format("bench: {} was refused: there are {} clients already", who_,
                              ConnectionsShared::kMostClients));
    Respond(PlainAnswer(request, 503, "There are too many clients; close a page."));
    return;
  }
  if (!websocket::is_upgrade(request)) {  // a page that asks why its WebSocket was refused
    HttpResponse response = PlainAnswer(request, 426, "This is the address of a WebSocket.");
    response.set(http::field::upgrade, "websocket");
    response.set(http::field::connection, "upgrade");
    Respond(std::move(response));
    return;
  }
  ++shared_->clients;
  is_client_ = true;
  stream_->expires_never();
  socket_.emplace(std::move(*stream_));
  stream_.reset();
  socket_->set_option(SocketTimes());
  socket_->read_message_max(kLongestClientMessage);
  socket_->auto_fragment(false);
  socket_->text(true);
  socket_->async_accept(request, [self = shared_from_this()](const Error& error) {
    if (error) return self->Close();
    self->buffer_ = beast::flat_buffer(kLongestClientMessage);
    self->shared_->hub.Join(*self);
    self->ReadMessage();
  });
}

void Connection::ReadMessage() {
  socket_->async_read(buffer_, [self = shared_from_this()](const Error& error, std::size_t) {
    if (error) return self->Close();
    const auto octets = self->buffer_.data();
    self->shared_->hub.Receive(*self, {static_cast<const char*>(octets.data()), octets.size()});
    self->buffer_.clear();
    self->ReadMessage();
  });
}

void Connection::Send(const std::shared_ptr<const Frame>& frame) {
  if (is_dropped_) return;
  const bool is_full = queue_.size() >= kMostFrames || queued_ + frame->size() > kMostOctets;
  if (!queue_.empty() && is_full) return Drop();
  queue_.push_back(frame);
  queued_ += frame->size();
  if (queue_.size() == 1) WriteNext();
}

/// The hub may be going through its clients, so this one leaves it when its read has ended.
void Connection::Drop() {
  shared_->Warn(shared_->slow,
                fmt::format("bench: {} reads too slowly and was disconnected", who_));
  is_dropped_ = true;
  Error ignored;
  beast::get_lowest_layer(*socket_).socket().shutdown(StreamSocket::shutdown_both, ignored);
}

void Connection::WriteNext() {
  const auto& frame = *queue_.front();
  socket_->async_write(boost::asio::buffer(frame),
                       [self = shared_from_this()](const Error& error, std::size_t) {
                         self->queued_ -= self->queue_.front()->size();
                         self->queue_.pop_front();
                         if (error) return self->Close();
                         if (!self->queue_.empty()) self->WriteNext();
                       });
}

void Connection::Close() {
  if (!is_client_) return;
  is_client_ = false;
  --shared_->clients;
  shared_->hub.Leave(*this);
}

}  // namespace corvane::bench
