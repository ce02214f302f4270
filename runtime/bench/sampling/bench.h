// SPDX-License-Identifier: MIT
// Between the PLC task, which knows the program's variables and cycles, and the bench's server,
// which shows them. Neither waits for the other: the PLC task only tries to take the lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <lua.hpp>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/bench/sampling/block_catalogue.h"
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
  /// The live blocks, counted once a second while this is called at least every few minutes, and
  /// once when the program starts.
  [[nodiscard]] BlockCounts Blocks();
  /// Seconds since the end of the last cycle; 0 before the first.
  [[nodiscard]] double SecondsSinceCycle() const;
  /// Sets a variable at the end of a cycle. The value is of the variable's kind: a boolean, a
  /// number (double or integer) or a text; otherwise, or out of range: an error.
  void Write(NodeId id, Value value, Done done);
  /// The whole value of a variable at the end of a cycle.
  void Get(NodeId id, Done done);
  /// Calls the functions of requests that are done, on this thread. Several times a second.
  void Poll();

  static constexpr Nanoseconds kInterval{200'000'000};  ///< between two samples
  static constexpr Nanoseconds kBudget{100'000};        ///< of a cycle

 private:
  struct Request {
    NodeId id = 0;
    bool is_write = false;
    Value value;
    Done done;
    std::string error;
  };

  void ServeRequests(ScanClock::TimePoint deadline);
  void ExchangeRequests();
  bool CountBlocks(const CycleFacts& facts, ScanClock::TimePoint deadline);
  void Sample(const CycleFacts& facts, unsigned wanted, ScanClock::TimePoint deadline);
  void HandOver(const CycleFacts& facts);
  [[nodiscard]] bool ForgetSamples();
  void Ask(Request request);

  static constexpr std::size_t kMostBatches = 16;
  static constexpr std::size_t kManyAdded = 256;  // a longer list would take long to grow
  static constexpr std::size_t kMostRequests = 256;
  static constexpr std::size_t kRequestsACycle = 8;
  static constexpr std::uint8_t kWatched = 1;    // somebody looks
  static constexpr std::uint8_t kRestart = 2;    // and knows nothing yet
  static constexpr std::uint8_t kRequested = 4;  // there are requests
  static constexpr std::uint8_t kSampling = 8;   // nobody looks any more: the sampler may forget
  static constexpr std::uint8_t kBlocks = 16;    // blocks are counted
  static constexpr Nanoseconds kCountInterval{1'000'000'000};
  static constexpr Nanoseconds kCountTime{300'000'000'000};  // after the last question

  std::atomic<std::uint8_t> wanted_{0};
  std::atomic<std::int64_t> last_end_{0};
  CycleLog cycles_;

  // The PLC task's.
  std::unique_ptr<VariableSampler> sampler_;
  VariableChanges pending_;
  std::deque<Request> serving_;
  std::vector<Request> served_;
  bool is_sampling_ = false;
  bool pass_ended_ = true;
  ScanClock::TimePoint next_pass_{};
  ScanClock::TimePoint next_batch_{};
  ScanClock::TimePoint next_count_{};

  std::mutex mutex_;  // what follows; held for moments
  std::vector<VariableChanges> batches_;
  BlockCounts blocks_;
  ScanClock::TimePoint blocks_asked_{};
  std::vector<Request> requests_;
  std::size_t unserved_ = 0;  // requests that are not in done_ yet
  std::vector<Request> done_;
  std::vector<std::shared_ptr<void>> remains_;  // for the server's thread to free
  bool ended_ = false;
};

}  // namespace corvane::bench
