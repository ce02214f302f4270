// SPDX-License-Identifier: MIT
#include "addins/corvane_modbus/connecting.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace corvane_modbus {
namespace {

using std::chrono::milliseconds;

std::string Reason(int error) {
  return std::generic_category().message(error);
}

/// Waits until the socket (negative: none) is writable. @return false: not before the limit, or
/// Stop
bool WaitForSocket(int socket, SteadyTime limit, const StopSignal& stop) {
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(limit - std::chrono::steady_clock::now());
    if (left <= milliseconds::zero() || stop.stopped()) return false;
    pollfd waits[] = {{socket, POLLOUT, 0}, {stop.descriptor(), POLLIN, 0}};
    if (poll(waits, 2, static_cast<int>(left.count())) > 0 && waits[0].revents != 0) return true;
  }
}

/// 0, or why the address does not accept.
int ConnectTo(int socket, const addrinfo& address, SteadyTime limit, const StopSignal& stop) {
  if (connect(socket, address.ai_addr, address.ai_addrlen) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  if (!WaitForSocket(socket, limit, stop)) return ETIMEDOUT;
  int error = 0;
  socklen_t length = sizeof error;
  return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

/// 0 and the socket, or why there is none.
int OpenSocket(const addrinfo& address, corvane::Descriptor& opened) {
  opened = corvane::Descriptor(
      socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
  if (opened.get() < 0) return errno;
  if (opened.get() >= FD_SETSIZE) return EMFILE;  // libmodbus waits with select
  const int on = 1;
  (void)setsockopt(opened.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  return 0;
}

std::string Advice(int error) {
  switch (error) {
    case ETIMEDOUT:
      return "does not accept the connection in time; check power, cable and network, or allow "
             "more time with Timeout";
    case ECONNREFUSED: return "refuses the connection; check Port, and that the server runs";
    case EMFILE:
      return "cannot be reached, since the program has too many open files; look for blocks that "
             "it creates again and again";
    default: return "cannot be reached: " + Reason(error) + "; check Server and the network";
  }
}

}  // namespace

Addresses FindAddresses(const Endpoint& endpoint, std::string& problem) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* first = nullptr;
  const std::string port = std::to_string(endpoint.port);
  const int error = getaddrinfo(endpoint.server.c_str(), port.c_str(), &hints, &first);
  if (error == 0) return Addresses(first);
  problem = "Modbus server " + endpoint.Text() + ": the name cannot be resolved (" +
            (error == EAI_SYSTEM ? Reason(errno) : gai_strerror(error)) +
            "); correct Server, or check the name service";
  return nullptr;
}

corvane::Descriptor Connect(const addrinfo* addresses, const Endpoint& endpoint,
                            SteadyTime deadline, const StopSignal& stop, std::string& problem) {
  int left = 0;
  for (const addrinfo* address = addresses; address != nullptr; address = address->ai_next) ++left;
  int error = 0;
  for (const addrinfo* address = addresses; address != nullptr; address = address->ai_next) {
    const SteadyTime now = std::chrono::steady_clock::now();
    corvane::Descriptor socket;
    error = OpenSocket(*address, socket);
    if (error == 0) error = ConnectTo(socket.get(), *address, now + (deadline - now) / left, stop);
    if (error == 0) return socket;
    --left;
  }
  problem = "Modbus server " + endpoint.Text() + " " + Advice(error);
  return {};
}

void WaitUntil(SteadyTime limit, const StopSignal& stop) {
  (void)WaitForSocket(-1, limit, stop);
}

}  // namespace corvane_modbus
