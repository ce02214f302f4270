// SPDX-License-Identifier: MIT
// What a timer costs, compared with an empty block written by hand, what a thousand of them cost in
// a cycle, and how soon and at what price for the cycle PROCESS starts a process.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "addins/corvane_standard/corvane_standard.h"
#include "runtime/corvane/cycle_time.h"
#include "runtime/corvane/lua_environment.h"

namespace {

/// A block that does nothing, in C style: its call only checks what it is called on.
int EmptyCall(lua_State* L) {
  luaL_checkudata(L, 1, "EMPTY");
  return 0;
}

int EmptyNew(lua_State* L) {
  lua_newuserdata(L, sizeof(double));
  luaL_setmetatable(L, "EMPTY");
  return 1;
}

class StandardHost {
 public:
  StandardHost() {
    [[maybe_unused]] static const int once = InitAddin();
    environment_ = std::make_unique<corvane::LuaEnvironment>();
    luaL_newmetatable(L(), "EMPTY");
    lua_pushcfunction(L(), EmptyCall);
    lua_setfield(L(), -2, "__call");
    lua_newtable(L());
    lua_pushcfunction(L(), EmptyNew);
    lua_setfield(L(), -2, "new");
    lua_setglobal(L(), "EMPTY");
    lua_settop(L(), 0);
  }
  ~StandardHost() {
    environment_.reset();
    DisposeAddin();
  }
  StandardHost(const StandardHost&) = delete;
  StandardHost& operator=(const StandardHost&) = delete;

  lua_State* L() const { return environment_->state(); }
  void Run(const std::string& chunk) const {
    if (luaL_loadstring(L(), chunk.c_str()) != LUA_OK)
      throw corvane::LuaError(lua_tostring(L(), -1));
    corvane::ProtectedCall(L(), 0, 0);
  }
  void Call(const char* function) const {
    lua_getglobal(L(), function);
    lua_call(L(), 0, 0);
  }
  bool Is(const char* global) const {
    lua_getglobal(L(), global);
    const bool is = lua_toboolean(L(), -1) != 0;
    lua_pop(L(), 1);
    return is;
  }

 private:
  corvane::StandingTime standing_;  // as in a cycle
  std::unique_ptr<corvane::LuaEnvironment> environment_;
};

constexpr int kCalls = 1000;  // per timed call, so that entering Lua does not count

/// Times the call of a block that `make` makes.
void BlockCall(benchmark::State& state, const char* make) {
  const StandardHost host;
  host.Run(std::string("fb = ") + make + " function run() local fb = fb for _ = 1, " +
           std::to_string(kCalls) + " do fb() end end");
  for (auto _ : state) host.Call("run");
  state.SetItemsProcessed(state.iterations() * kCalls);
}
BENCHMARK_CAPTURE(BlockCall, empty, "EMPTY.new()");
BENCHMARK_CAPTURE(BlockCall, ton_idle, "TON.new{PT = 1}");
BENCHMARK_CAPTURE(BlockCall, ton_running, "TON.new{IN = true, PT = 1e9}");
BENCHMARK_CAPTURE(BlockCall, tof_running, "TOF.new{IN = true, PT = 1e9} fb() fb.IN = false");
BENCHMARK_CAPTURE(BlockCall, tp_running, "TP.new{IN = true, PT = 1e9}");

/// A cycle with a thousand timers that run: sets the input, calls, reads the output of each.
void ThousandTimers(benchmark::State& state) {
  const StandardHost host;
  host.Run(R"(
    local timers = {}
    for i = 1, 1000 do timers[i] = (i % 3 == 0 and TON or i % 3 == 1 and TOF or TP).new{PT = 1e9} end
    local cycles = 0
    function cycle()
      cycles = cycles + 1
      local on = 0
      for i = 1, #timers do
        local timer = timers[i]
        timer.IN = (cycles + i) % 10 ~= 0
        timer()
        if timer.Q then on = on + 1 end
      end
    end)");
  for (auto _ : state) {
    corvane::SetCycleTime(corvane::CycleTime::Read());
    host.Call("cycle");
  }
}
BENCHMARK(ThousandTimers);

struct ProcessSample {
  double call = 0, start = 0;  // s
  bool preempted = false;
};

long ProcessPreemptions() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return usage.ru_nivcsw;
}

/// The call with the rising edge, and the time until the process runs.
void ProcessStart(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  const StandardHost host;
  host.Run(R"(
    fb = PROCESS.new{Program = "sleep", Arguments = "1000"}
    function rise() fb.Execute = true fb() end
    function look() fb() runs = fb.Pid > 0 over = not fb.Busy end
    function finish() fb.Execute = false fb.Abort = true fb() over = not fb.Busy end
    function rest() fb.Abort = false fb() end)");
  std::vector<ProcessSample> samples;
  for (auto _ : state) {
    const long before = ProcessPreemptions();
    const auto begin = Clock::now();
    host.Call("rise");
    const std::chrono::duration<double> call = Clock::now() - begin;
    const bool preempted = ProcessPreemptions() != before;
    do host.Call("look");
    while (!host.Is("runs") && !host.Is("over"));
    const std::chrono::duration<double> start = Clock::now() - begin;
    if (host.Is("over")) return state.SkipWithError("the process has not started");
    do host.Call("finish");
    while (!host.Is("over"));
    host.Call("rest");
    samples.push_back({call.count(), start.count(), preempted});
  }
  const auto middle = static_cast<std::ptrdiff_t>(samples.size() / 2);
  const auto median = [&](double ProcessSample::*value) {
    std::ranges::nth_element(samples, samples.begin() + middle, {}, value);
    return samples[samples.size() / 2].*value;
  };
  state.counters["call_median"] = median(&ProcessSample::call);
  state.counters["start_median"] = median(&ProcessSample::start);
  state.counters["start_worst"] = std::ranges::max(samples, {}, &ProcessSample::start).start;
  state.counters["calls"] = static_cast<double>(samples.size());
  state.counters["call_worst"] = std::ranges::max(samples, {}, &ProcessSample::call).call;
  std::erase_if(samples, &ProcessSample::preempted);
  state.counters["undisturbed"] = static_cast<double>(samples.size());
  state.counters["call_worst_undisturbed"] =
      samples.empty() ? 0 : std::ranges::max(samples, {}, &ProcessSample::call).call;
}
BENCHMARK(ProcessStart)->Iterations(500);

}  // namespace

BENCHMARK_MAIN();
