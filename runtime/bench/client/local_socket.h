// SPDX-License-Identifier: MIT
// Connections to the Unix sockets of running programs. Threads: any.
#pragma once

#include <boost/asio/local/stream_protocol.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <filesystem>
#include <stdexcept>

namespace corvane::bench {

/// Says in one line why a program could not be asked.
class ClientError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

using LocalStream = boost::beast::basic_stream<boost::asio::local::stream_protocol>;

/// @throws ClientError when the connection fails
[[nodiscard]] LocalStream OpenLocalStream(boost::asio::io_context& context,
                                          const std::filesystem::path& socket);

}  // namespace corvane::bench
