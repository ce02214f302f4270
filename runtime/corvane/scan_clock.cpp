// SPDX-License-Identifier: MIT
#include "runtime/corvane/scan_clock.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <system_error>

namespace corvane {
namespace {

// What the handler may touch: lock-free atomics and a descriptor.
std::atomic<bool> stop_requested{false};
std::atomic<bool> stop_demanded{false};  // by a signal that can be sent again
std::atomic<bool> statistics_requested{false};
std::atomic<int> wake_event{-1};
struct sigaction old_int {};
struct sigaction old_term {};
struct sigaction old_hup {};
struct sigaction old_usr1 {};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

extern "C" void OnSignal(int signal) {
  const int saved_errno = errno;
  if (signal == SIGUSR1) {
    statistics_requested = true;
  } else if (signal != SIGHUP && stop_demanded.exchange(true)) {
    // Asked twice: the running cycle does not end. Now the signal gets back the effect that it had
    // before.
    sigaction(signal, signal == SIGINT ? &old_int : &old_term, nullptr);
    raise(signal);
  } else {
    stop_requested = true;
  }
  const std::uint64_t one = 1;
  // It can only fail when the counter is full, and then the waiter wakes anyway.
  [[maybe_unused]] const auto written = write(wake_event, &one, sizeof one);
  errno = saved_errno;
}

void Catch(int signal, struct sigaction& old) {
  struct sigaction action {};
  action.sa_handler = OnSignal;
  action.sa_flags = SA_RESTART;  // a block's read from a command goes on
  sigaction(signal, &action, &old);
}

/// Waits until `event` has been written to, and resets it, or until the time is over.
void WaitForEvent(int event, std::chrono::nanoseconds time) {
  constexpr long kNanosecondsPerSecond = 1'000'000'000;
  pollfd descriptor{event, POLLIN, 0};
  const timespec limit{static_cast<time_t>(time.count() / kNanosecondsPerSecond),
                       static_cast<long>(time.count() % kNanosecondsPerSecond)};
  if (ppoll(&descriptor, 1, &limit, nullptr) <= 0) return;
  std::uint64_t count = 0;  // not used: flags say what was asked for
  [[maybe_unused]] const auto taken = read(event, &count, sizeof count);
}

}  // namespace

SystemScanClock::SystemScanClock(Hangup hangup)
    : hangup_(hangup), event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (event_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  stop_requested = false;
  stop_demanded = false;
  statistics_requested = false;
  wake_event = event_;
  Catch(SIGINT, old_int);
  Catch(SIGTERM, old_term);
  if (hangup_ == Hangup::kStop) Catch(SIGHUP, old_hup);
  Catch(SIGUSR1, old_usr1);
}

SystemScanClock::~SystemScanClock() {
  sigaction(SIGINT, &old_int, nullptr);
  sigaction(SIGTERM, &old_term, nullptr);
  if (hangup_ == Hangup::kStop) sigaction(SIGHUP, &old_hup, nullptr);
  sigaction(SIGUSR1, &old_usr1, nullptr);
  wake_event = -1;
  close(event_);
}

ScanClock::Wake SystemScanClock::WaitUntil(TimePoint deadline) {
  for (;;) {
    if (stop_requested) return Wake::kStop;
    if (statistics_requested.exchange(false)) return Wake::kStatistics;
    const auto left = deadline - Now();
    if (left <= std::chrono::nanoseconds(0)) return Wake::kDeadline;
    WaitForEvent(event_, left);
  }
}

}  // namespace corvane
