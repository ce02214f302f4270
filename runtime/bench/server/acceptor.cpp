// SPDX-License-Identifier: MIT
#include "runtime/bench/server/acceptor.h"

#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <boost/asio/ip/tcp.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "runtime/bench/server/web_address.h"

namespace corvane::bench {
namespace {

using boost::asio::generic::stream_protocol;
using boost::asio::ip::tcp;

constexpr std::chrono::seconds kPauseWithoutDescriptors(1);

/// Who is at the other end of a Unix socket.
std::string PeerOf(int descriptor) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return "unknown";
  return fmt::format("user {}, process {}", peer.uid, peer.pid);
}

std::string NameOf(const sockaddr_storage& from, socklen_t size) {
  tcp::endpoint endpoint;
  std::memcpy(endpoint.data(), &from, std::min<std::size_t>(size, endpoint.capacity()));
  return WebAddress{endpoint.address().to_string(), endpoint.port()}.Text();
}

}  // namespace

Acceptor::Acceptor(boost::asio::io_context& context, Descriptor listening,
                   std::function<void(Arrival)> arrived)
    : context_(context),
      listening_(context, listening.Release()),
      pause_(context),
      arrived_(std::move(arrived)) {
  Await();
}

void Acceptor::Await() {
  listening_.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                        [this](const boost::system::error_code& error) {
                          if (!error) Accept();
                        });
}

void Acceptor::Accept() {
  sockaddr_storage from{};
  socklen_t size = sizeof from;
  Descriptor socket(accept4(listening_.native_handle(), reinterpret_cast<sockaddr*>(&from), &size,
                            SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (socket.get() < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOBUFS)) {
    pause_.expires_after(kPauseWithoutDescriptors);  // the socket would be ready all the time
    pause_.async_wait([this](const boost::system::error_code& error) {
      if (!error) Await();
    });
    return;
  }
  if (socket.get() >= 0) {
    const bool is_local = from.ss_family == AF_UNIX;
    std::string who = is_local ? PeerOf(socket.get()) : NameOf(from, size);
    const int family = from.ss_family;
    StreamSocket stream(context_, stream_protocol(family, 0), socket.Release());
    arrived_({std::move(stream), std::move(who), is_local});
  }
  Await();
}

}  // namespace corvane::bench
