// SPDX-License-Identifier: MIT
// The addresses of a serial device server. A dead name server delays the system's look-up for up to
// a minute, and nothing can break it off, so the look-up has its own thread, which nobody waits
// for. Threads: any.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <functional>
#include <string>
#include <vector>

#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

struct LookupResult {
  std::vector<boost::asio::ip::tcp::endpoint> addresses;
  std::string error;  ///< why there are no addresses
};

/// Finds the addresses of a host; runs on its own thread, possibly for longer than its caller.
using Resolver = std::function<LookupResult(const std::string& host, const std::string& service)>;
[[nodiscard]] LookupResult ResolveBySystem(const std::string& host, const std::string& service);

/// The addresses of `host`, which may itself be an address, with the TCP port `service`. Gives up
/// at the deadline or when the loop is stopped; the look-up goes on, and the next call for the same
/// host and port uses its result, so there is never more than one look-up for them.
[[nodiscard]] LookupResult LookUp(const std::string& host, const std::string& service,
                                  SteadyTime deadline, WaitLoop& loop,
                                  const Resolver& resolve = ResolveBySystem);

}  // namespace corvane
