// SPDX-License-Identifier: MIT
// Accepts connections, with close-on-exec, which Boost.Asio's own functions do not set.
// Threads: the server's.
#pragma once

#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <string>

#include "libs/base/descriptor.h"

namespace corvane::bench {

using StreamSocket = boost::asio::generic::stream_protocol::socket;

/// A connection that has come in.
struct Arrival {
  StreamSocket socket;
  std::string who;        ///< see Client::who
  bool is_local = false;  ///< through the Unix socket
};

/// Accepts connections while it lives.
class Acceptor {
 public:
  Acceptor(boost::asio::io_context& context, Descriptor listening,
           std::function<void(Arrival)> arrived);

 private:
  void Await();
  void Accept();

  boost::asio::io_context& context_;
  boost::asio::posix::stream_descriptor listening_;
  boost::asio::steady_timer pause_;
  std::function<void(Arrival)> arrived_;
};

}  // namespace corvane::bench
