// SPDX-License-Identifier: MIT
// Calls of the C library that a test makes fail, where a real failure cannot be had: the linker
// leads the calls of a test program's own objects here. What is not set passes through.
// Threads: a CallsGuard concerns only the calls of the one that made it.
#pragma once

#include <ctime>
#include <functional>
#include <optional>
#include <string>

struct sockaddr_in;

namespace test_support {

struct FailingCalls {
  /// What time() gives.
  std::optional<std::time_t> time = {};
  /// What gethostname() gives.
  std::optional<std::string> host_name = {};
  bool host_name_fails = false;
  bool ioctl_fails = false;
  /// So many calls of poll() succeed, if not negative.
  int poll_fails_after = -1;
  /// What poll() reports of the first descriptor, at once.
  std::optional<short> poll_reports = {};
  /// getservbyname_r() finds nothing.
  bool no_mail_service = false;
  /// getservbyname_r() asks for a larger buffer, whatever it gets.
  bool mail_service_never_fits = false;
  /// What connect() does; the result is its errno.
  std::function<int(const sockaddr_in&)> connect = {};
  /// So many allocations with new (std::nothrow) T[n] succeed, if not negative.
  int array_allocations = -1;
};

/// What the calls do now; everything is back to normal when the guard is gone.
class CallsGuard {
 public:
  explicit CallsGuard(FailingCalls calls);
  CallsGuard(const CallsGuard&) = delete;
  CallsGuard& operator=(const CallsGuard&) = delete;
  ~CallsGuard();
};

/// What connect() does on every other thread; none may call it while the guard comes or goes.
class ConnectGuard {
 public:
  explicit ConnectGuard(std::function<int(const sockaddr_in&)> connect);
  ConnectGuard(const ConnectGuard&) = delete;
  ConnectGuard& operator=(const ConnectGuard&) = delete;
  ~ConnectGuard();
};

}  // namespace test_support
