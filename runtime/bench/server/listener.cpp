// SPDX-License-Identifier: MIT
#include "runtime/bench/server/listener.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <boost/asio/ip/tcp.hpp>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "libs/base/private_folder.h"
#include "runtime/bench/server/socket_path.h"

namespace corvane::bench {
namespace {

using boost::asio::ip::tcp;

constexpr int kBacklog = 64;
constexpr mode_t kSocketMode = 0660;

std::string ErrorText() {
  return std::generic_category().message(errno);
}

[[noreturn]] void FailTcp(const WebAddress& address) {
  const char* const advice =
      errno == EADDRINUSE      ? "; another program uses it: choose another port"
      : errno == EADDRNOTAVAIL ? "; it is not an address of this machine"
      : errno == EACCES ? "; ports below 1024 are reserved for root: choose another, such as 8080"
                        : "";
  throw BenchError(
      fmt::format("the bench cannot listen on {}: {}{}", address.Text(), ErrorText(), advice));
}

[[noreturn]] void FailUnix(const std::filesystem::path& path) {
  throw BenchError(fmt::format("{}: {}", path.string(), ErrorText()));
}

sockaddr_un UnixAddress(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.native().size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    FailUnix(path);
  }
  std::memcpy(address.sun_path, path.c_str(), path.native().size());
  return address;
}

}  // namespace

Descriptor ListenOnTcp(WebAddress& address) {
  tcp::endpoint endpoint(boost::asio::ip::make_address(address.address), address.port);
  Descriptor socket(
      ::socket(endpoint.protocol().family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;  // a port whose last connections have just ended
  auto size = static_cast<socklen_t>(endpoint.size());
  if (socket.get() < 0 || setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(socket.get(), endpoint.data(), size) != 0 || listen(socket.get(), kBacklog) != 0 ||
      getsockname(socket.get(), endpoint.data(), &size) != 0) {
    FailTcp(address);
  }
  address.port = endpoint.port();
  return socket;
}

UnixListener::UnixListener(const std::filesystem::path& folder, const std::string& name)
    : path_(folder / (name + ".sock")) {
  try {
    MakePrivateFolder(folder);
  } catch (const std::filesystem::filesystem_error& error) {
    throw BenchError(error.what());
  }
  if (IsListening(path_)) path_ = folder / fmt::format("{}-{}.sock", name, getpid());
  const sockaddr_un address = UnixAddress(path_);
  Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  std::error_code ignored;  // bind reports what is left in its way
  std::filesystem::remove(path_, ignored);
  // Nobody can connect before listen, when the mode is right.
  if (socket.get() < 0 ||
      bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      chmod(path_.c_str(), kSocketMode) != 0 || listen(socket.get(), kBacklog) != 0) {
    FailUnix(path_);
  }
  descriptor_ = std::move(socket);
}

UnixListener::~UnixListener() {
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

}  // namespace corvane::bench
