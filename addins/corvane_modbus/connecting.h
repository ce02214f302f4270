// SPDX-License-Identifier: MIT
// Connections to servers by name or address, IPv4 and IPv6. Threads: any.
#pragma once

#include <netdb.h>

#include <functional>
#include <memory>
#include <string>

#include "addins/corvane_modbus/exchange.h"
#include "addins/corvane_modbus/stop_signal.h"
#include "libs/base/descriptor.h"

namespace corvane_modbus {

struct FreeAddresses {
  void operator()(addrinfo* first) const { freeaddrinfo(first); }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

/// Asks the name service, which can take longer than any deadline of ours, and cannot be stopped;
/// an address is known at once. @return null, and `problem` is a sentence
[[nodiscard]] Addresses FindAddresses(const Endpoint& endpoint, std::string& problem);

/// A non-blocking socket, close-on-exec, connected to the first of the addresses that accepts; each
/// gets its share of the time until the deadline. @return none, and `problem` is a sentence
[[nodiscard]] corvane::Descriptor Connect(const addrinfo* addresses, const Endpoint& endpoint,
                                          SteadyTime deadline, const StopSignal& stop,
                                          std::string& problem);

/// Waits until `limit` or Stop.
void WaitUntil(SteadyTime limit, const StopSignal& stop);

}  // namespace corvane_modbus
