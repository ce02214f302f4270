// SPDX-License-Identifier: MIT
// The addresses of a serial device server. A name server that is dead holds the system's look-up
// for up to a minute, and nothing can break it off; so it has a thread of its own, which nobody
// waits for. Threads: any.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <functional>
#include <string>
#include <vector>

#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

struct LookupResult {
  std::vector<boost::asio::ip::tcp::endpoint> addresses;
  std::string error;  ///< why there are none
};

/// Finds the addresses of a host; runs on a thread of its own, possibly for longer than its caller.
using Resolver = std::function<LookupResult(const std::string& host, const std::string& service)>;
[[nodiscard]] LookupResult ResolveBySystem(const std::string& host, const std::string& service);

/// The addresses of `host`, which may be an address itself, with the TCP port `service`. Gives up
/// at the deadline and when the loop is stopped; the look-up goes on, and the next call for the
/// same host and port takes its result, so that there is never more than one of them.
[[nodiscard]] LookupResult LookUp(const std::string& host, const std::string& service,
                                  SteadyTime deadline, WaitLoop& loop,
                                  const Resolver& resolve = ResolveBySystem);

}  // namespace corvane
