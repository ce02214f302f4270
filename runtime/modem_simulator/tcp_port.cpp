// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/tcp_port.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace modem_simulator {
namespace {

using Tcp = boost::asio::ip::tcp;

struct HostAndPort {
  std::string host;
  unsigned short port = 0;
};

/// HOST:PORT, with an IPv6 address in brackets. Throws std::runtime_error when it is
/// not one. (The system's own conversion would make 34463 of 99999.)
HostAndPort Split(const std::string& address) {
  HostAndPort parts;
  const std::size_t colon = std::min(address.rfind(':'), address.size());
  parts.host = address.substr(0, colon);
  const std::string_view digits =
      std::string_view(address).substr(std::min(colon + 1, address.size()));
  const auto [rest, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), parts.port);
  const bool number = error == std::errc() && rest == digits.data() + digits.size();
  if (parts.host.size() > 2 && parts.host.starts_with('[') && parts.host.ends_with(']')) {
    parts.host = parts.host.substr(1, parts.host.size() - 2);
  }
  if (!number || parts.host.empty() || parts.host.find_first_of("[]") != std::string::npos) {
    throw std::runtime_error(
        fmt::format("'{}' is not an address; write HOST:PORT with a port from 0 to 65535, such as "
                    "127.0.0.1:4001",
                    address));
  }
  return parts;
}

Tcp::endpoint Resolve(boost::asio::io_context& io, const std::string& address) {
  const HostAndPort parts = Split(address);
  boost::system::error_code error;
  const auto found = Tcp::resolver(io).resolve(parts.host, std::to_string(parts.port),
                                               Tcp::resolver::passive, error);
  if (error) throw std::runtime_error(fmt::format("address {}: {}", address, error.message()));
  return found.begin()->endpoint();
}

/// Asio leaves its sockets open in child processes.
template <typename Socket>
void CloseOnExec(Socket& socket) {
  fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

/// Whether the peer has hung up, even if this has not yet been reported.
bool HungUp(Tcp::socket& socket) {
  char next = 0;
  const ssize_t size = recv(socket.native_handle(), &next, 1, MSG_PEEK | MSG_DONTWAIT);
  return size == 0 || (size < 0 && errno != EAGAIN && errno != EWOULDBLOCK);
}

}  // namespace

TcpPort::TcpPort(boost::asio::io_context& io, const std::string& address, int bytes_per_second,
                 OnBytes on_bytes)
    : on_bytes_(std::move(on_bytes)),
      endpoint_(Resolve(io, address)),
      acceptor_(io),
      socket_(io),
      writer_(socket_, bytes_per_second) {}

void TcpPort::Plug() {
  Unplug();
  try {
    acceptor_.open(endpoint_.protocol());
    CloseOnExec(acceptor_);
    acceptor_.set_option(Tcp::acceptor::reuse_address(true));
    acceptor_.bind(endpoint_);
    acceptor_.listen();
    endpoint_ = acceptor_.local_endpoint();
  } catch (const boost::system::system_error& error) {
    throw std::runtime_error(fmt::format("{}: {}", Address(), error.code().message()));
  }
  Accept();
}

void TcpPort::Unplug() {
  Disconnect();
  boost::system::error_code ignored;
  acceptor_.close(ignored);
}

void TcpPort::Write(std::string_view bytes) {
  if (socket_.is_open()) writer_.Write(bytes);
}

std::string TcpPort::Address() const {
  std::string host = endpoint_.address().to_string();
  if (endpoint_.address().is_v6()) host = "[" + host + "]";
  return fmt::format("tcp={}:{}", host, endpoint_.port());
}

void TcpPort::Accept() {
  acceptor_.async_accept([this](const boost::system::error_code& error, Tcp::socket connection) {
    if (!acceptor_.is_open()) return;
    if (!error) Admit(std::move(connection));
    Accept();
  });
}

/// A serial line has one controller; a second one is turned away.
void TcpPort::Admit(Tcp::socket connection) {
  if (socket_.is_open() && !HungUp(socket_)) return;
  Disconnect();
  socket_ = std::move(connection);
  CloseOnExec(socket_);
  boost::system::error_code ignored;
  socket_.set_option(Tcp::no_delay(true), ignored);
  Read();
}

void TcpPort::Read() {
  socket_.async_read_some(boost::asio::buffer(input_),
                          [this](const boost::system::error_code& error, std::size_t size) {
                            if (error == boost::asio::error::operation_aborted) return;
                            if (error) return Disconnect();
                            on_bytes_({input_.data(), size});
                            if (socket_.is_open()) Read();
                          });
}

void TcpPort::Disconnect() {
  writer_.Clear();
  boost::system::error_code ignored;
  socket_.close(ignored);
}

}  // namespace modem_simulator
