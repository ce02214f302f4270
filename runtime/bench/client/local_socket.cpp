// SPDX-License-Identifier: MIT
#include "runtime/bench/client/local_socket.h"

#include <fmt/format.h>

#include <cerrno>
#include <system_error>

#include "libs/base/descriptor.h"
#include "runtime/bench/server/socket_path.h"

namespace corvane::bench {

LocalStream OpenLocalStream(boost::asio::io_context& context, const std::filesystem::path& socket) {
  Descriptor connection = ConnectLocally(socket);
  if (connection.get() < 0) {
    const int error = errno;
    if (error == EAGAIN) throw ClientError("it does not answer");
    if (error == ECONNREFUSED || error == ENOENT) throw ClientError("it has ended");
    throw ClientError(
        fmt::format("{}: {}", socket.string(), std::generic_category().message(error)));
  }
  LocalStream stream(context);
  stream.socket().assign(boost::asio::local::stream_protocol(), connection.Release());
  return stream;
}

}  // namespace corvane::bench
