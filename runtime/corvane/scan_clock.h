// SPDX-License-Identifier: MIT
// The seam between the scan and the operating system: time, and what interrupts a wait.
#pragma once

#include <chrono>

namespace corvane {

/// Time on the monotonic clock, and waiting for it. Threads: the PLC task.
class ScanClock {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  enum class Wake {
    kDeadline,    ///< the deadline has been reached
    kStop,        ///< somebody asked the runtime to end
    kStatistics,  ///< somebody asked for the statistics; the deadline has not been reached
  };

  virtual ~ScanClock() = default;
  [[nodiscard]] virtual TimePoint Now() = 0;
  /// Waits for `deadline`. A request made since the last call is returned at once, even if the
  /// deadline has passed; a request to stop comes first and stays.
  [[nodiscard]] virtual Wake WaitUntil(TimePoint deadline) = 0;
};

/// The real clock. SIGINT, SIGTERM and SIGHUP ask to stop, SIGUSR1 asks for the statistics, while
/// it lives. A second SIGINT or SIGTERM has the effect that it had before: the process ends at
/// once. A SIGHUP never does that, since a terminal that goes away sends several. The signals are
/// caught, never blocked or ignored, so that a command started by a block inherits none of it. One
/// at a time.
class SystemScanClock : public ScanClock {
 public:
  /// What a SIGHUP does.
  enum class Hangup {
    kStop,
    kNothing,  ///< what it did before
  };

  /// Throws std::system_error when the system has no descriptor to give.
  explicit SystemScanClock(Hangup hangup = Hangup::kStop);
  SystemScanClock(const SystemScanClock&) = delete;
  SystemScanClock& operator=(const SystemScanClock&) = delete;
  ~SystemScanClock() override;

  [[nodiscard]] TimePoint Now() override { return std::chrono::steady_clock::now(); }
  [[nodiscard]] Wake WaitUntil(TimePoint deadline) override;

 private:
  Hangup hangup_;
  int event_;  // eventfd that the handler writes to
};

}  // namespace corvane
