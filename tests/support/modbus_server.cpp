// SPDX-License-Identifier: MIT
#include "tests/support/modbus_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>
#include <stdexcept>

namespace test_support {
namespace {

union Address {
  sockaddr any;
  sockaddr_in v4;
  sockaddr_in6 v6;
};

Address Loopback(int family, int port) {
  Address address{};
  const auto number = htons(static_cast<std::uint16_t>(port));
  if (family == AF_INET6) {
    address.v6.sin6_family = AF_INET6;
    address.v6.sin6_addr = in6addr_loopback;
    address.v6.sin6_port = number;
  } else {
    address.v4.sin_family = AF_INET;
    address.v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.v4.sin_port = number;
  }
  return address;
}

}  // namespace

corvane::Descriptor Listen(int family, int port, int backlog) {
  corvane::Descriptor listening(socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(listening.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const Address address = Loopback(family, port);
  if (bind(listening.get(), &address.any, sizeof address) != 0 ||
      listen(listening.get(), backlog) != 0) {
    throw std::runtime_error("cannot listen on the loopback: " + std::string(strerror(errno)));
  }
  return listening;
}

int PortOf(const corvane::Descriptor& listening) {
  Address address{};
  socklen_t length = sizeof address;
  getsockname(listening.get(), &address.any, &length);
  return ntohs(address.any.sa_family == AF_INET6 ? address.v6.sin6_port : address.v4.sin_port);
}

ModbusServer::ModbusServer(int family, int port)
    : listening_(Listen(family, port, 128)),
      port_(PortOf(listening_)),
      tables_(modbus_mapping_new(100, 100, 200, 200), modbus_mapping_free),
      accepting_([this] { Accept(); }) {}

ModbusServer::~ModbusServer() {
  ending_ = true;
  shutdown(listening_.get(), SHUT_RDWR);
  accepting_.join();
  {
    const std::scoped_lock lock(mutex_);
    for (const int socket : sockets_) shutdown(socket, SHUT_RDWR);
  }
  for (std::thread& thread : threads_) thread.join();
}

void ModbusServer::React(std::function<void(const Peer&)> reaction) {
  const std::scoped_lock lock(mutex_);
  reaction_ = std::move(reaction);
}

void ModbusServer::Accept() {
  while (!ending_) {
    const int socket = accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) continue;
    ++connections_;
    ++open_;
    {
      const std::scoped_lock lock(mutex_);
      sockets_.insert(socket);
    }
    threads_.emplace_back([this, socket] { Serve(socket); });
  }
}

void ModbusServer::Serve(int socket) {
  modbus_t* const context = modbus_new_tcp(nullptr, 0);
  modbus_set_socket(context, socket);
  std::vector<std::uint8_t> request(MODBUS_TCP_MAX_ADU_LENGTH);
  for (;;) {
    const int length = modbus_receive(context, request.data());
    if (length < 0) break;
    if (length == 0) continue;
    ++requests_;
    Answer(context, {request.begin(), request.begin() + length});
  }
  modbus_free(context);
  const std::scoped_lock lock(mutex_);
  sockets_.erase(socket);
  close(socket);
  --open_;
}

void ModbusServer::Answer(modbus_t* context, const std::vector<std::uint8_t>& request) {
  std::unique_lock lock(mutex_);
  const auto reaction = reaction_;
  const auto reply = [&] {
    const std::scoped_lock tables(mutex_);
    modbus_reply(context, request.data(), static_cast<int>(request.size()), tables_.get());
  };
  lock.unlock();
  if (reaction) {
    reaction({modbus_get_socket(context), request, reply});
  } else {
    reply();
  }
}

void ModbusServer::Peer::Send(const std::vector<std::uint8_t>& octets) const {
  (void)!send(socket, octets.data(), octets.size(), MSG_NOSIGNAL);
}

void ModbusServer::Peer::SendAnswer(const std::vector<std::uint8_t>& pdu) const {
  std::vector<std::uint8_t> adu(request.begin(), request.begin() + 4);
  const std::size_t length = pdu.size() + 1;
  adu.push_back(static_cast<std::uint8_t>(length >> 8));
  adu.push_back(static_cast<std::uint8_t>(length & 0xFF));
  adu.push_back(request[6]);
  adu.insert(adu.end(), pdu.begin(), pdu.end());
  Send(adu);
}

}  // namespace test_support
