// SPDX-License-Identifier: MIT
// The runtime's modem port driver, as its clients see it: it owns the modem's serial port and
// serialises the AT command exchanges of all of them. Implemented by corvane.so.
// Threads: the runtime calls a client's functions under the scan lock, so never while Lua runs.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

/// What a request function tells about the request that it wrote.
struct PortDriverRequestData {
  std::int32_t timeout;  ///< how long to wait for the answer, in ms
  char endChar;          ///< last character of a one-line answer (13); 0: none
};

/// Room that the driver gives a request function, in bytes.
enum { kPortDriverRequestSize = 1024 };

/// Takes an answer: `length` bytes at `reply`, which may be overwritten, and a NUL behind them.
/// A negative `status` tells that no valid answer came. Returns non-zero while the exchange goes
/// on.
using PortDriverReplyFunction = int (*)(void* context, char* reply, int length, int status);
/// 0: nothing to send. Clients with greater numbers are served first.
using PortDriverPriorityFunction = int (*)(void* context);
/// Writes the next request to `buffer` (kPortDriverRequestSize bytes) and returns its length, 0 for
/// none.
using PortDriverRequestFunction = int (*)(void* context, char* buffer,
                                          PortDriverRequestData* request,
                                          PortDriverReplyFunction* on_reply);

/// Makes `context` a client of a modem port.
/// @param port port number as configured in the runtime
/// @param extra may be null; not used
/// @return 0, or non-zero when the port is not configured or its device cannot be opened;
///   the client then tries again later
int ModemPortDriverRegister(int port, void* context, PortDriverPriorityFunction priority,
                            PortDriverRequestFunction request, void* extra);

/// Withdraws every registration of `context`; the driver touches it no more after the return. An
/// exchange of its that is open goes on on the wire and its answer is dropped. Unknown contexts are
/// allowed. An addition of this runtime: an add-in refers to it weakly and skips the call where a
/// runtime does not have it.
void ModemPortDriverUnregister(void* context) __attribute__((weak));
}
