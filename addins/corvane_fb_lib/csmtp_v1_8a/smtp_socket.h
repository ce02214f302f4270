// SPDX-License-Identifier: MIT
// The system calls below an SMTP session (RFC 5321): connecting a non-blocking TCP socket, and
// waiting for it with a time limit. Failures are ECSmtp codes. No shared state: any thread.
#pragma once

#include <chrono>

namespace smtp_socket {

inline constexpr std::chrono::seconds kWaitLimit{10};

/// The time that all the waits for one line or one block share.
class WaitBudget {
 public:
  using Clock = std::chrono::steady_clock;
  WaitBudget() : end_(Clock::now() + kWaitLimit) {}
  /// Milliseconds left, rounded up; 0 when the time is used up.
  [[nodiscard]] int Left() const;

 private:
  Clock::time_point end_;
};

enum class Direction { kRead, kWrite };

/// Waits until `descriptor` can be read or written; an error or the end of the connection counts,
/// too, since the next call on it reports it. A ready descriptor is noticed even when the budget is
/// used up. Throws ECSmtp: 402 time-out, 109 the wait failed (a signal's interruption included).
void Wait(int descriptor, Direction direction, const WaitBudget& budget);

/// A socket that is connected to the first IPv4 address of `server` (a name or a dotted address),
/// non-blocking, close-on-exec, and the caller's to close. Port 0: that of the service "mail", or
/// 25 if it is unknown. The connection may take ten seconds; the resolver limits the look-up of the
/// name. Throws ECSmtp: 106 no socket, 105 no address, 108 cannot be made non-blocking, 104
/// connect, 403 time-out, 109 the wait failed. Compatibility: a refused connection counts as
/// connected and fails on the first read, so programs see code 103.
[[nodiscard]] int Connect(const char* server, unsigned short port);

}  // namespace smtp_socket
