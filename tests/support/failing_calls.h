// SPDX-License-Identifier: MIT
// C library calls that a test makes fail when a real failure cannot be provoked: the linker
// redirects the calls from a test program's own objects here. Calls that are not set pass through.
// Threads: a CallsGuard affects only the calls of the thread that created it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>

struct sockaddr_in;

namespace test_support {

struct FailingCalls {
  /// What time() returns.
  std::optional<std::time_t> time = {};
  /// What gethostname() returns.
  std::optional<std::string> host_name = {};
  bool host_name_fails = false;
  bool ioctl_fails = false;
  /// How many calls of poll() succeed; negative: all.
  int poll_fails_after = -1;
  /// What poll() reports for the first descriptor, at once.
  std::optional<short> poll_reports = {};
  /// getservbyname_r() finds nothing.
  bool no_mail_service = false;
  /// getservbyname_r() asks for a larger buffer, however large it is.
  bool mail_service_never_fits = false;
  /// What connect() does; the result is its errno.
  std::function<int(const sockaddr_in&)> connect = {};
  /// How many octets one send() takes.
  std::size_t longest_send = SIZE_MAX;
  /// How many allocations with new (std::nothrow) T[n] succeed; negative: all.
  int array_allocations = -1;
};

/// Sets what the calls do; everything is back to normal when the guard is destroyed.
class CallsGuard {
 public:
  explicit CallsGuard(FailingCalls calls);
  CallsGuard(const CallsGuard&) = delete;
  CallsGuard& operator=(const CallsGuard&) = delete;
  ~CallsGuard();
};

/// Sets what connect() does on every other thread; none may call it while the guard is created or
/// destroyed.
class ConnectGuard {
 public:
  explicit ConnectGuard(std::function<int(const sockaddr_in&)> connect);
  ConnectGuard(const ConnectGuard&) = delete;
  ConnectGuard& operator=(const ConnectGuard&) = delete;
  ~ConnectGuard();
};

}  // namespace test_support
