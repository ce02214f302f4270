// SPDX-License-Identifier: MIT
// Warnings while a cycle takes much too long, and the end of one that takes longer than it may.
// Threads: the PLC task creates it and calls it; a thread of its own checks the time.
#pragma once

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
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
  struct Options {
    std::vector<Nanoseconds> limits{std::chrono::seconds(1), std::chrono::seconds(10),
                                    std::chrono::minutes(1)};
    Nanoseconds longest{0};  ///< how long a cycle may last; 0: as long as it likes
    /// Called by the thread when a cycle has lasted for longer than that, in place of a warning,
    /// with what happened and the Lua traceback in one line. It ends the process.
    std::function<void(const std::string& what)> end = {};
    /// Called by the thread at least four times a second while no cycle has lasted too long, with
    /// the number of the last cycle that has begun.
    std::function<void(std::uint64_t number)> alive = {};
  };

  explicit CycleWatchdog(lua_State* L) : CycleWatchdog(L, Options()) {}
  CycleWatchdog(lua_State* L, Options options);
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
  [[nodiscard]] Nanoseconds Tick() const;
  void Look(const Running& cycle);
  void Warn(const Running& cycle, Nanoseconds lasted);
  void EndProgram(const Running& cycle, Nanoseconds lasted);
  [[nodiscard]] std::string WhereItIs() const;
  [[nodiscard]] bool IsRunning(const Running& cycle);

  Options options_;
  pthread_t plc_task_;
  std::mutex mutex_;
  std::condition_variable ending_changed_;
  bool ending_ = false;
  std::optional<Running> running_;
  std::uint64_t last_ = 0;    // number of the last cycle that has begun
  bool is_over_ = false;      // the thread's: the program was ended
  TimePoint reported_cycle_;  // the thread's: when the cycle that it has reported began,
  std::size_t reported_ = 0;  // and for how many limits
  std::thread thread_;        // last: it uses all of the above
};

}  // namespace corvane
