// SPDX-License-Identifier: MIT
// The operating system's side of the line to a modem: a serial device or a TCP connection to
// a serial device server.
#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "runtime/modem_driver/modem_target.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

/// Why a line cannot be opened, in one line that tells the user what to do.
class LineError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// An open line. Threads: the one that runs its loop.
class SerialLine {
 public:
  virtual ~SerialLine() = default;

  /// Waits for octets until the deadline; empty: none came, the loop was stopped or the line is
  /// lost. Valid until the next call. A peer that keeps sending more than any modem would is read
  /// at a bounded rate (see ReadAllowance), whatever the deadline.
  [[nodiscard]] virtual std::string_view Read(SteadyTime deadline) = 0;
  /// False if the other side did not accept all of it by the deadline, or the line is lost.
  [[nodiscard]] virtual bool Write(std::string_view octets, SteadyTime deadline) = 0;
  /// How many octets of the last Write() the system accepted.
  [[nodiscard]] virtual std::size_t written() const = 0;
  /// Why the line no longer carries octets, for example because the device was unplugged; empty
  /// while it does.
  [[nodiscard]] virtual const std::string& loss() const = 0;
};

/// Opens a serial device for this program alone (8 data bits, no parity, 1 stop bit, raw), or
/// connects to a serial device server.
/// @param loop must outlive the line; its Stop() ends the attempt
/// @throws LineError
[[nodiscard]] std::unique_ptr<SerialLine> OpenLine(const ModemTarget& target, WaitLoop& loop);

}  // namespace corvane
