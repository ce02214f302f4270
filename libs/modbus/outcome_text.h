// SPDX-License-Identifier: MIT
// How requests fail, as sentences: what, where, and what to do. Pure functions.
#pragma once

#include <chrono>
#include <string>

#include "libs/modbus/request.h"

namespace modbus {

/// An exception with which a server refuses a request (Modbus Application Protocol V1.1b3, clause
/// 7).
/// @param code 1 to 255; 0: one that libmodbus does not know
[[nodiscard]] std::string ExceptionText(const Endpoint& endpoint, const Request& request, int code);
/// The request was sent, and no answer came in time.
[[nodiscard]] std::string TimedOutText(const Endpoint& endpoint, const Request& request,
                                       std::chrono::milliseconds timeout);
/// What came is not an answer to this request.
[[nodiscard]] std::string GarbageText(const Endpoint& endpoint, const Request& request);
/// The server closed the connection instead of answering.
[[nodiscard]] std::string ClosedText(const Endpoint& endpoint, const Request& request);
/// Other requests took so long that this one was not sent.
[[nodiscard]] std::string NotSentText(const Endpoint& endpoint, const Request& request,
                                      std::chrono::milliseconds timeout);
/// The name service has not answered in time.
[[nodiscard]] std::string NotNamedText(const Endpoint& endpoint, std::chrono::milliseconds timeout);

}  // namespace modbus
