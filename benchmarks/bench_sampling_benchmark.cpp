// SPDX-License-Identifier: MIT
// What the bench adds to the cycles of a program: while nobody looks, and while somebody does.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "addins/corvane_standard/corvane_standard.h"
#include "runtime/bench/sampling/bench.h"
#include "runtime/corvane/cycle_time.h"
#include "runtime/corvane/lua_environment.h"

namespace {

using Clock = std::chrono::steady_clock;

/// How often the kernel gave this thread's processor to another.
long Preemptions() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nivcsw;
}

/// A program with timers, all of which run, so that a variable of each changes in each cycle.
class SampledProgram {
 public:
  explicit SampledProgram(int timers) {
    [[maybe_unused]] static const int once = InitAddin();
    environment_ = std::make_unique<corvane::LuaEnvironment>();
    bench_.Follow(environment_->state());
    Run("timers = {} for i = 1, " + std::to_string(timers) +
        " do timers[i] = TON.new{IN = true, PT = 1e9} end\n"
        "function cycle() for i = 1, #timers do timers[i]() end end");
  }
  ~SampledProgram() {
    bench_.Forget();
    environment_.reset();
    DisposeAddin();
  }
  SampledProgram(const SampledProgram&) = delete;
  SampledProgram& operator=(const SampledProgram&) = delete;

  void Run(const std::string& chunk) {
    lua_State* const L = environment_->state();
    if (luaL_loadstring(L, chunk.c_str()) != LUA_OK) throw corvane::LuaError(lua_tostring(L, -1));
    corvane::ProtectedCall(L, 0, 0);
  }
  /// A cycle that ends 10 ms after the last one. @return what the bench adds to it, in seconds
  double Cycle() {
    seconds_ += 0.01;
    corvane::SetCycleTime({seconds_, seconds_});
    lua_getglobal(environment_->state(), "cycle");
    lua_call(environment_->state(), 0, 0);
    facts_.end += std::chrono::milliseconds(10);
    const auto begin = Clock::now();
    bench_.AfterCycle(facts_);
    return std::chrono::duration<double>(Clock::now() - begin).count();
  }
  corvane::bench::Bench& bench() { return bench_; }
  corvane::CycleFacts& facts() { return facts_; }

 private:
  std::unique_ptr<corvane::LuaEnvironment> environment_;
  corvane::StandingTime time_;
  corvane::bench::Bench bench_;
  corvane::CycleFacts facts_{Clock::now(), std::chrono::microseconds(50), {}, 0};
  double seconds_ = 0;
};

void Unwatched(benchmark::State& state) {
  SampledProgram program(50);
  for (auto _ : state) {
    program.facts().end += std::chrono::milliseconds(1);
    program.bench().AfterCycle(program.facts());
  }
}
BENCHMARK(Unwatched);

/// Ten seconds of cycles.
void Watched(benchmark::State& state) {
  SampledProgram program(500);
  std::vector<double> added;
  std::size_t values = 0;
  int preempted = 0;
  for (auto _ : state) {
    program.bench().SetWatched(true);
    for (int i = 0; i < 1000; ++i) {
      const long before = Preemptions();
      const double seconds = program.Cycle();
      if (Preemptions() == before) {
        added.push_back(seconds);
      } else {
        ++preempted;
      }
      if (i % 20 == 0) values += program.bench().TakeVariables().values.size();
    }
  }
  std::erase_if(added, [](double seconds) { return seconds < 5e-6; });  // between two samples
  std::ranges::sort(added);
  state.counters["median"] = added[added.size() / 2];
  state.counters["p99"] = added[added.size() * 99 / 100];
  state.counters["worst"] = added.back();
  state.counters["cycles_a_sample"] = static_cast<double>(added.size()) / 50;
  state.counters["preempted"] = preempted;
  state.counters["values"] = static_cast<double>(values);
}
BENCHMARK(Watched)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
