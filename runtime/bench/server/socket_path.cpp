// SPDX-License-Identifier: MIT
#include "runtime/bench/server/socket_path.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace corvane::bench {
namespace {

std::string_view Variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

std::filesystem::path SocketFolder() {
  const std::string_view given = Variable("RUNTIME_DIRECTORY");
  if (!given.empty()) return given.substr(0, given.find(':'));
  const std::string_view home = Variable("XDG_RUNTIME_DIR");
  return home.empty() ? std::filesystem::path() : std::filesystem::path(home) / "corvane";
}

Descriptor ConnectLocally(const std::filesystem::path& socket) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (socket.native().size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return {};
  }
  std::memcpy(address.sun_path, socket.c_str(), socket.native().size());
  Descriptor connection(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (connection.get() < 0) return {};
  const int result =
      connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  if (result == 0) return connection;
  const int error = errno;
  connection = {};  // closing it may change errno
  errno = error;
  return {};
}

bool IsListening(const std::filesystem::path& socket) {
  const bool is_connected = ConnectLocally(socket).get() >= 0;
  return is_connected || errno == EAGAIN || errno == EACCES;  // busy, or another user's
}

}  // namespace corvane::bench
