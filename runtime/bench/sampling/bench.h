// SPDX-License-Identifier: MIT
// Between the PLC task, which knows the program's variables and cycles, and the bench's server,
// which shows them. Neither waits for the other: the PLC task only tries to take the lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <lua.hpp>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/bench/sampling/cycle_log.h"
#include "runtime/bench/sampling/cycle_report.h"
#include "runtime/bench/sampling/variable_sampler.h"
#include "runtime/bench/sampling/variables.h"
#include "runtime/corvane/cycle_facts.h"

namespace corvane::bench {

class Bench {
 public:
  /// `error` empty: done. The value is that of a read, with its whole text.
  using Done = std::function<void(const std::string& error, const Value& value)>;

  Bench() = default;
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;
  ~Bench() = default;

  // The PLC task, under the scan lock.

  /// From now on shows the variables of this state, in which no program has been loaded yet. Throws
  /// LuaError when memory runs out.
  void Follow(lua_State* L);
  /// The state will be closed. Requests that wait get an error.
  void Forget();
  /// At the end of each cycle. Never throws; takes at most kBudget or so.
  void AfterCycle(const CycleFacts& facts) noexcept;

  // The server's thread.

  /// Whether somebody looks at variables. What was not taken yet is dropped by `false`; after
  /// `true` everything is reported again, from the first node on, with new numbers.
  void SetWatched(bool watched);
  /// What has changed since the last call, each value once.
  [[nodiscard]] VariableChanges TakeVariables();
  /// A copy, some milliseconds old; complete also when nobody looked.
  [[nodiscard]] CycleReport Cycles() const;
  /// Seconds since the end of the last cycle; 0 before the first.
  [[nodiscard]] double SecondsSinceCycle() const;
  /// Sets a variable at the end of a cycle. The value is of the variable's kind: a boolean, a
  /// number (double or integer) or a text; otherwise, or out of range: an error.
  void Write(int id, Value value, Done done);
  /// The whole value of a variable at the end of a cycle.
  void Get(int id, Done done);
  /// Calls the functions of requests that are done, on this thread.
  void Poll();

  static constexpr Nanoseconds kInterval{200'000'000};  ///< between two samples
  static constexpr Nanoseconds kBudget{120'000};        ///< of a cycle

 private:
  struct Request {
    int id = 0;
    bool is_write = false;
    Value value;
    Done done;
    std::string error;
  };

  void ServeRequests();
  void Sample(const CycleFacts& facts, unsigned wanted);
  void HandOver(const CycleFacts& facts);
  void Ask(Request request);

  static constexpr std::size_t kMostBatches = 16;
  static constexpr std::size_t kMostRequests = 256;
  static constexpr std::size_t kRequestsACycle = 8;
  static constexpr std::uint8_t kWatched = 1;    // somebody looks
  static constexpr std::uint8_t kRestart = 2;    // and knows nothing yet
  static constexpr std::uint8_t kRequested = 4;  // there are requests
  static constexpr std::uint8_t kSampling = 8;   // nobody looks any more: the sampler may forget

  std::atomic<std::uint8_t> wanted_{0};
  std::atomic<std::int64_t> last_end_{0};
  CycleLog cycles_;

  // The PLC task's.
  std::unique_ptr<VariableSampler> sampler_;
  VariableChanges pending_;
  bool is_sampling_ = false;
  bool pass_ended_ = true;
  ScanClock::TimePoint next_pass_{};
  ScanClock::TimePoint next_batch_{};

  std::mutex mutex_;  // what follows; held for moments
  std::vector<VariableChanges> batches_;
  std::vector<Request> requests_;
  std::vector<Request> done_;
  bool ended_ = false;
};

}  // namespace corvane::bench
