// SPDX-License-Identifier: MIT
// What MAIL_OUTBOX costs: its calls when the server never answers, and the disks of the store and
// of an attachment stall; a whole mail, compared with libcurl; and its memory while a large mail
// goes out. Block, store and carrier are the real ones; the port of a mail server is in the
// environment, MAIL_SERVER_PORT.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/prctl.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "addins/corvane_mail/corvane_mail.h"
#include "benchmarks/block_calls.h"
#include "benchmarks/curl_peer.h"
#include "runtime/corvane/lua_environment.h"
#include "tests/support/temporary_folder.h"

namespace {

using benchmarks::Disk;
using benchmarks::Measure;
using benchmarks::Resident;
using benchmarks::Sample;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

std::string the_folder;

constexpr const char* kProgram = R"(
-- Urgent: the limit for an hour does not apply.
blocks = {}
text = ("Pump 3 has stopped: motor protection, restart locked. "):rep(2):sub(1, 100)
function make(file)
  blocks[#blocks + 1] = MAIL_OUTBOX.new {
    Server = "127.0.0.1", Port = port, Security = "none", User = "plc", Password = "s3cret",
    From = "Pump 3 <pump3@plant.example>", To = "operator@plant.example", Subject = "Alarm",
    Text = text, Attachments = file, Urgent = true }
end
function call(i) local mail = blocks[i] mail.Execute = false mail() end
function edge(i) local mail = blocks[i] mail.Execute = true mail() end
function is_done(i)
  local mail = blocks[i]
  mail()
  if mail.Error then error(mail.ErrorText) end
  return mail.Done
end
)";

/// A runtime with blocks of MAIL_OUTBOX.
class Host {
 public:
  /// @param folder where the store is  @param port of the mail server
  Host(const std::filesystem::path& folder, int port) {
    [[maybe_unused]] static const int once = InitAddin();
    Disk::The();
    the_folder = folder;
    environment_ = std::make_unique<corvane::LuaEnvironment>();
    lua_State* const L = environment_->state();
    lua_pushinteger(L, port);
    lua_setglobal(L, "port");
    if (luaL_dostring(L, kProgram)) std::abort();
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() { End(); }

  void Make(int blocks, const std::string& attachment = "") const {
    lua_State* const L = environment_->state();
    for (int i = 0; i < blocks; ++i) {
      lua_getglobal(L, "make");
      lua_pushstring(L, attachment.c_str());
      lua_call(L, 1, 0);
    }
  }
  /// Calls a function of the program with the number of a block, as a cycle does.
  bool Call(const char* function, int block) const {
    lua_State* const L = environment_->state();
    lua_getglobal(L, function);
    lua_pushinteger(L, block);
    lua_call(L, 1, 1);
    const bool result = lua_toboolean(L, -1) != 0;
    lua_pop(L, 1);
    return result;
  }
  /// Sends a mail and waits until the server has it. Looks once a `pause`, and does not guess when
  /// it may be done, since a guess that is too long would be what is measured.
  void Send(int block, std::chrono::microseconds pause) const {
    prctl(PR_SET_TIMERSLACK, 1000UL);  // ns; by default a pause of 20 us takes 70
    Call("call", block);
    Call("edge", block);
    while (!Call("is_done", block)) std::this_thread::sleep_for(pause);
  }
  /// Ends the program. @return how long that takes, in seconds
  double End() {
    const double begin = benchmarks::Seconds(CLOCK_MONOTONIC);
    if (environment_) {
      environment_.reset();
      DisposeAddin();
    }
    return benchmarks::Seconds(CLOCK_MONOTONIC) - begin;
  }

 private:
  std::unique_ptr<corvane::LuaEnvironment> environment_;
};

/// 3000 cycles of a millisecond, with a server that accepts and is silent. Every tenth queues a
/// mail, every hundredth one with an attachment on a disk that stalls; 50 more are queued in one
/// cycle. The disk of the store stalls for 2 s: from the very first cycle, or when mails wait.
void Stall(benchmark::State& state, bool from_start) {
  constexpr int kCycles = 3000;
  constexpr int kAtOnce = 50;
  for (auto _ : state) {
    const test_support::TemporaryFolder folder;
    const benchmarks::SilentPort server;
    Host host(folder.path() / "state", server.port());
    host.Make(1);
    host.Make(1, folder.Write("stalled", "attachment"));
    host.Make(kAtOnce);
    if (from_start) Disk::The().StallFor(milliseconds(2000));
    std::vector<Sample> calls, edges;
    auto next = Clock::now();
    for (int cycle = 0; cycle < kCycles; ++cycle) {
      if (cycle == 500 && !from_start) Disk::The().StallFor(milliseconds(2000));
      const int block = cycle % 100 < 2 ? 2 : 1;
      const bool rises = cycle % 10 == 1;
      (rises ? edges : calls).push_back(Measure(host, rises ? "edge" : "call", block));
      for (int i = 0; cycle == 1000 && i < kAtOnce; ++i) {
        edges.push_back(Measure(host, "edge", 3 + i));
      }
      std::this_thread::sleep_until(next += milliseconds(1));
    }
    benchmarks::Report(state, "call", std::move(calls));
    benchmarks::Report(state, "edge", std::move(edges));
    state.counters["disk_held"] = Disk::The().held();
    state.counters["end"] = host.End();
  }
}
BENCHMARK_CAPTURE(Stall, at_start, true)->Iterations(1);
BENCHMARK_CAPTURE(Stall, in_use, false)->Iterations(1);

/// The port of a real mail server on this machine.
int ServerPort() {
  const char* const port = std::getenv("MAIL_SERVER_PORT");
  if (port == nullptr) throw std::runtime_error("MAIL_SERVER_PORT is not set");
  return std::stoi(port);
}

/// The newest mail that the server has kept, in the folder MAIL_SERVER_FOLDER.
std::string LastMail() {
  std::filesystem::directory_entry newest;
  for (const std::filesystem::directory_entry& entry :
       std::filesystem::directory_iterator(std::getenv("MAIL_SERVER_FOLDER"))) {
    const bool is_newer = !newest.exists() || entry.last_write_time() > newest.last_write_time();
    if (entry.path().extension() == ".eml" && is_newer) newest = entry;
  }
  std::ifstream file(newest.path(), std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A folder for the store, below BENCHMARK_STORE: in memory, or on a disk.
std::filesystem::path StoreFolder() {
  static int number = 0;
  return std::filesystem::path(std::getenv("BENCHMARK_STORE")) / std::to_string(++number);
}

std::string Attachment(const test_support::TemporaryFolder& folder, std::int64_t size) {
  return size == 0 ? ""
                   : folder.Write("report.bin", std::string(static_cast<std::size_t>(size), 'x'));
}

/// How often to look for the end of a mail: more often, and a large one is slowed down by that.
std::chrono::microseconds PauseFor(std::int64_t size) {
  return std::chrono::microseconds(size == 0 ? 20 : 500);
}

void MailOurs(benchmark::State& state) {
  const test_support::TemporaryFolder folder;
  Host host(StoreFolder(), ServerPort());
  host.Make(1, Attachment(folder, state.range()));
  const std::chrono::microseconds pause = PauseFor(state.range());
  for (int i = 0; i < 3; ++i) host.Send(1, pause);  // opens store and connection
  for (auto _ : state) host.Send(1, pause);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(MailOurs)->Name("Mail/ours")->Arg(0)->Arg(5 << 20)->UseRealTime();

/// The same mail over a connection that is kept open, too, with the same commands. libcurl has the
/// mail ready in memory, so it neither composes nor encodes it.
void MailPeer(benchmark::State& state) {
  std::string mail;
  {
    const test_support::TemporaryFolder folder;
    Host host(StoreFolder(), ServerPort());
    host.Make(1, Attachment(folder, state.range()));
    host.Send(1, PauseFor(state.range()));
    mail = LastMail();
  }
  benchmarks::CurlPeer peer(ServerPort(), true);
  peer.Send(mail);
  for (auto _ : state) peer.Send(mail);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(MailPeer)->Name("Mail/peer")->Arg(0)->Arg(5 << 20)->UseRealTime();

/// A field of the process's status, in bytes.
double Status(std::string_view field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) return std::stod(line.substr(field.size())) * 1024;
  }
  std::abort();
}

/// How much the resident memory grows, at its peak, while 25 MB go out. To be run alone.
void Memory(benchmark::State& state) {
  const test_support::TemporaryFolder folder;
  Host host(StoreFolder(), ServerPort());
  host.Make(1);
  host.Make(1, Attachment(folder, 25 << 20));
  host.Send(1, PauseFor(0));
  for (auto _ : state) {
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak is measured from here
    const double before = Resident();
    host.Send(2, PauseFor(25 << 20));
    state.counters["bytes_of_growth"] = Status("VmHWM:") - before;
  }
}
BENCHMARK(Memory)->Iterations(1)->UseRealTime();

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);

/// The disk of files called "stalled" takes two seconds to open one.
int __wrap_open(const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  if (std::string_view(path).ends_with("/stalled")) std::this_thread::sleep_for(milliseconds(2000));
  return __real_open(path, flags, mode);
}

/// In this program instead of the runtime's: where the blocks keep their messages.
const char* CorvaneStateFolder() {
  return the_folder.c_str();
}
}

BENCHMARK_MAIN();
