// SPDX-License-Identifier: MIT
// Warnings while a cycle takes much too long. Threads: the PLC task creates it and calls it; a
// thread of its own checks the time.
#pragma once

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <lua.hpp>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "runtime/corvane/duration.h"

namespace corvane {

/// Logs a warning when a cycle has lasted for the first of the limits, and again for each further
/// one: which block the program is in and where it was called, or else which line it has reached.
/// For the latter it sends the PLC task a signal (SIGRTMIN), whose handler only asks Lua to call
/// a hook at the next instruction. One at a time; the state must outlive it.
class CycleWatchdog {
 public:
  explicit CycleWatchdog(lua_State* L, std::vector<Nanoseconds> limits = {std::chrono::seconds(1),
                                                                          std::chrono::seconds(10),
                                                                          std::chrono::minutes(1)});
  CycleWatchdog(const CycleWatchdog&) = delete;
  CycleWatchdog& operator=(const CycleWatchdog&) = delete;
  ~CycleWatchdog();

  /// Marks a cycle while it lives; number 0 is the program's file itself.
  class Cycle {
   public:
    Cycle(CycleWatchdog& watchdog, std::uint64_t number) : watchdog_(watchdog) {
      watchdog_.Begin(number);
    }
    Cycle(const Cycle&) = delete;
    Cycle& operator=(const Cycle&) = delete;
    ~Cycle() { watchdog_.End(); }

   private:
    CycleWatchdog& watchdog_;
  };

 private:
  using TimePoint = std::chrono::steady_clock::time_point;
  struct Running {
    std::uint64_t number;
    TimePoint since;
  };

  void Begin(std::uint64_t number);
  void End();
  void Watch();
  void Look(const Running& cycle);
  [[nodiscard]] std::string WhereItIs() const;
  [[nodiscard]] bool IsRunning(const Running& cycle);

  std::vector<Nanoseconds> limits_;
  pthread_t plc_task_;
  std::mutex mutex_;
  std::condition_variable ending_changed_;
  bool ending_ = false;
  std::optional<Running> running_;
  TimePoint reported_cycle_;  // the thread's: when the cycle that it has reported began,
  std::size_t reported_ = 0;  // and for how many limits
  std::thread thread_;        // last: it uses all of the above
};

}  // namespace corvane
