// SPDX-License-Identifier: MIT
// What calls of SMS_OUTBOX and SMS_INBOX cost when the modem never answers: while the disk of the
// store stalls, and when many messages wait. Blocks, store and modem port driver are the real ones;
// the modem is a TCP port that accepts and says nothing, the disk an SQLite VFS that blocks.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "addins/corvane_sms/corvane_sms.h"
#include "addins/corvane_sms/sms_service.h"
#include "benchmarks/block_calls.h"
#include "runtime/corvane/lua_environment.h"
#include "runtime/modem_driver/modem_port_driver.h"
#include "tests/support/temporary_folder.h"

namespace {

using benchmarks::Disk;
using benchmarks::Measure;
using benchmarks::Resident;
using benchmarks::Sample;
using benchmarks::SilentPort;
using corvane::TheScanLock;
using corvane_sms::SmsService;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string the_folder;

// 100 characters, as an alarm has.
constexpr const char* kProgram = R"(
text = ("Pump 3 has stopped: motor protection, restart locked. "):rep(2):sub(1, 100)
sms = SMS_OUTBOX.new { Port = 1, Receiver = "+15550101234", Text = text }
box = SMS_INBOX.new { Port = 1, Enable = true }
function outbox() sms.Execute = false sms() end
function outbox_edge() sms.Execute = true sms() end
function inbox() box.Accept = box.Ready box() end
function many_outbox(n) local sms = sms for _ = 1, n do sms() end end
function many_inbox(n) local box = box for _ = 1, n do box() end end
)";

/// A runtime with the two blocks, whose modem is dead.
class Host {
 public:
  explicit Host(const std::filesystem::path& folder) {
    [[maybe_unused]] static const int once = InitAddin();
    Disk::The();
    the_folder = folder;
    const std::lock_guard guard(TheScanLock());
    environment_ = std::make_unique<corvane::LuaEnvironment>();
    if (luaL_dostring(environment_->state(), kProgram)) std::abort();
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() {
    const std::lock_guard guard(TheScanLock());
    environment_.reset();
    DisposeAddin();
  }

  /// Calls a function of the program, as a cycle does, the wait for the lock included.
  void Call(const char* function, int argument = 0) const {
    const std::lock_guard guard(TheScanLock());
    lua_State* const L = environment_->state();
    lua_getglobal(L, function);
    lua_pushinteger(L, argument);
    lua_call(L, 1, 0);
  }
  /// Queues messages, each with an edge of its own.
  void Queue(int messages) const {
    for (int i = 0; i < messages; ++i) {
      Call("outbox_edge");
      Call("outbox");
    }
  }
  /// Hands messages to the inbox, as if the modem had listed them.
  static void Receive(int messages) {
    const std::lock_guard guard(TheScanLock());
    const messages::Now now = messages::Now::Get();
    for (int i = 0; i < messages; ++i) {
      SmsService::The().inbox().Take({.route = "1",
                                      .sender = "+15550101234",
                                      .text = std::string(96, 'x') + std::to_string(i),
                                      .time = now.wall,
                                      .has_time = true},
                                     std::nullopt, now);
    }
  }
  /// Waits until the store is loaded and all is on the disk.
  void Settle() const {
    while (!SmsService::The().store().loaded()) std::this_thread::yield();
    Call("outbox");
    Call("inbox");
    if (!SmsService::The().store().Flush(std::chrono::minutes(1))) std::abort();
  }

 private:
  SilentPort modem_;
  corvane::ModemPortDriver driver_{
      corvane::ParseModemTargets({"1=tcp:127.0.0.1:" + std::to_string(modem_.port())}),
      TheScanLock()};
  std::unique_ptr<corvane::LuaEnvironment> environment_;
};

/// 6000 cycles, a minute of a program with 10 ms, in 6 s. Every tenth queues a message. The disk
/// stalls for 5 s: from the very first cycle, or when the store is open and messages wait.
void Stall(benchmark::State& state, bool from_start) {
  constexpr int kCycles = 6000;
  constexpr int kStallBegins = 300;
  for (auto _ : state) {
    const test_support::TemporaryFolder folder;
    const Host host(folder.path());
    if (from_start) Disk::The().StallFor(milliseconds(5000));
    std::vector<Sample> outbox, edge, inbox;
    auto next = Clock::now();
    for (int cycle = 0; cycle < kCycles; ++cycle) {
      if (cycle == kStallBegins && !from_start) {
        host.Settle();
        Host::Receive(2);  // one is accepted while the disk stalls
        host.Settle();
        Disk::The().StallFor(milliseconds(5000));
      }
      const bool rises = cycle % 10 == 9;
      (rises ? edge : outbox).push_back(Measure(host, rises ? "outbox_edge" : "outbox"));
      inbox.push_back(Measure(host, "inbox"));
      std::this_thread::sleep_until(next += milliseconds(1));
    }
    Report(state, "outbox", std::move(outbox));
    Report(state, "edge", std::move(edge));
    Report(state, "inbox", std::move(inbox));
    state.counters["disk_held"] = Disk::The().held();
  }
}
BENCHMARK_CAPTURE(Stall, at_start, true)->Iterations(1);
BENCHMARK_CAPTURE(Stall, in_use, false)->Iterations(1);

constexpr int kCalls = 1000;  // per timed call, so that entering Lua does not count

void Fill(const Host& host, const std::string& block, int messages) {
  if (block == "outbox") {
    host.Queue(messages);
  } else {
    Host::Receive(messages);
  }
  host.Settle();
}

/// A call while this many messages wait.
void Waiting(benchmark::State& state, const std::string& block) {
  const test_support::TemporaryFolder folder;
  const Host host(folder.path());
  Fill(host, block, static_cast<int>(state.range()));
  const std::string many = "many_" + block;
  for (auto _ : state) host.Call(many.c_str(), kCalls);
  state.SetItemsProcessed(state.iterations() * kCalls);
}
BENCHMARK_CAPTURE(Waiting, outbox, "outbox")->Arg(1)->Arg(10'000)->Iterations(50);
// With 10,000 the inbox is full, and its calls say so.
BENCHMARK_CAPTURE(Waiting, inbox, "inbox")->Arg(1)->Arg(9'999)->Iterations(50);

/// The call with the rising edge while this many messages wait.
void WaitingEdge(benchmark::State& state) {
  const test_support::TemporaryFolder folder;
  const Host host(folder.path());
  Fill(host, "outbox", static_cast<int>(state.range()));
  std::vector<Sample> edges;
  for (auto _ : state) {
    host.Call("outbox");
    edges.push_back(Measure(host, "outbox_edge"));
  }
  Report(state, "edge", std::move(edges));
}
BENCHMARK(WaitingEdge)->Arg(1)->Arg(10'000)->Iterations(2000);

/// The first 2 s of a program whose store has this many messages of both directions.
void Restart(benchmark::State& state) {
  const test_support::TemporaryFolder folder;
  {
    const Host host(folder.path());
    Fill(host, "outbox", static_cast<int>(state.range()));
    Fill(host, "inbox", static_cast<int>(state.range()));
  }
  std::vector<Sample> outbox, inbox;
  for (auto _ : state) {
    const Host host(folder.path());
    auto next = Clock::now();
    for (int cycle = 0; cycle < 2000; ++cycle) {
      outbox.push_back(Measure(host, "outbox"));
      inbox.push_back(Measure(host, "inbox"));
      std::this_thread::sleep_until(next += milliseconds(1));
    }
  }
  Report(state, "outbox", std::move(outbox));
  Report(state, "inbox", std::move(inbox));
}
BENCHMARK(Restart)->Arg(10'000)->Iterations(1);

/// What 10,000 messages that wait add to one. To be run alone: memory once used is used again.
void Memory(benchmark::State& state, const std::string& block) {
  for (auto _ : state) {
    const test_support::TemporaryFolder folder;
    const Host host(folder.path());
    Fill(host, block, 1);
    const double before = Resident();
    Fill(host, block, 9'999);
    state.counters["bytes_of_growth"] = Resident() - before;
  }
}
BENCHMARK_CAPTURE(Memory, outbox, "outbox")->Iterations(1);
BENCHMARK_CAPTURE(Memory, inbox, "inbox")->Iterations(1);

}  // namespace

/// In this program instead of the runtime's: where the blocks keep their messages.
extern "C" const char* CorvaneStateFolder() {
  return the_folder.c_str();
}

BENCHMARK_MAIN();
