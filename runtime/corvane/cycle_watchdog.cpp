// SPDX-License-Identifier: MIT
#include "runtime/corvane/cycle_watchdog.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <utility>

#include "runtime/corvane/call_tracking.h"
#include "runtime/corvane/lua_environment.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLongestTick(250);
constexpr milliseconds kAnswerTime(100);

// Shared with the handler and the hook that Lua calls.
std::atomic<lua_State*> watched{nullptr};
std::atomic<bool> position_asked{false};
lua_Hook program_hook = nullptr;  // the program's own (debug.sethook)
int program_mask = 0;
int program_count = 0;
std::mutex answer_mutex;
std::condition_variable answered;
std::string answer;

/// Lua calls it at its next instruction.
void TakePosition(lua_State* L, lua_Debug* /*event*/) {
  lua_sethook(L, program_hook, program_mask, program_count);
  std::string line = LuaPosition(L, 0);
  const std::lock_guard guard(answer_mutex);
  answer = std::move(line);
  position_asked = false;
  answered.notify_all();
}

/// As stand-alone Lua does on Ctrl-C: lua_sethook may be called in a signal handler.
extern "C" void AskForPosition(int /*signal*/) {
  lua_State* L = watched;
  if (L == nullptr || lua_gethook(L) == TakePosition) return;
  program_hook = lua_gethook(L);
  program_mask = lua_gethookmask(L);
  program_count = lua_gethookcount(L);
  lua_sethook(L, TakePosition, LUA_MASKCOUNT, 1);
}

/// The line that the PLC task has reached; empty while it is not in a Lua function.
std::string AskPlcTask(pthread_t plc_task) {
  std::unique_lock lock(answer_mutex);
  position_asked = true;
  pthread_kill(plc_task, SIGRTMIN);
  if (!answered.wait_for(lock, kAnswerTime, [] { return !position_asked; })) return {};
  return answer;
}

int TrackCallsProtected(lua_State* L) {
  TrackBlockCalls(L);
  return 0;
}

}  // namespace

CycleWatchdog::CycleWatchdog(lua_State* L, std::vector<Nanoseconds> limits)
    : limits_(std::move(limits)), plc_task_(pthread_self()) {
  lua_pushcfunction(L, TrackCallsProtected);
  ProtectedCall(L, 0, 0);
  watched = L;
  struct sigaction action {};
  action.sa_handler = AskForPosition;
  action.sa_flags = SA_RESTART;  // a read by the program goes on
  sigaction(SIGRTMIN, &action, nullptr);
  thread_ = std::thread([this] { Watch(); });
}

CycleWatchdog::~CycleWatchdog() {
  {
    const std::lock_guard guard(mutex_);
    ending_ = true;
  }
  ending_changed_.notify_all();
  thread_.join();
  // The signal keeps its handler, which does nothing now: a signal may still be on its way.
  lua_State* L = watched.exchange(nullptr);
  if (lua_gethook(L) == TakePosition) lua_sethook(L, program_hook, program_mask, program_count);
}

void CycleWatchdog::Begin(std::uint64_t number) {
  StartCycle();
  const std::lock_guard guard(mutex_);
  running_ = Running{number, std::chrono::steady_clock::now()};
}

void CycleWatchdog::End() {
  const std::lock_guard guard(mutex_);
  running_.reset();
}

void CycleWatchdog::Watch() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);  // signals are for the PLC task
  const Nanoseconds tick = std::min<Nanoseconds>(kLongestTick, limits_.front() / 4);
  std::unique_lock lock(mutex_);
  while (!ending_changed_.wait_for(lock, tick, [this] { return ending_; })) {
    if (!running_) continue;
    const Running cycle = *running_;
    lock.unlock();
    Look(cycle);
    lock.lock();
  }
}

void CycleWatchdog::Look(const Running& cycle) {
  if (std::exchange(reported_cycle_, cycle.since) != cycle.since) reported_ = 0;
  const auto lasted = std::chrono::steady_clock::now() - cycle.since;
  if (reported_ >= limits_.size() || lasted < limits_[reported_]) return;
  ++reported_;
  const std::string where = WhereItIs();
  if (!IsRunning(cycle)) return;  // it has ended meanwhile
  const std::string what =
      cycle.number == 0 ? std::string("the program's file") : fmt::format("cycle {}", cycle.number);
  spdlog::warn("{} has been running for {}: {}", what, FormatDuration(lasted), where);
}

bool CycleWatchdog::IsRunning(const Running& cycle) {
  const std::lock_guard guard(mutex_);
  return running_ && running_->since == cycle.since;
}

std::string CycleWatchdog::WhereItIs() const {
  if (const auto call = CurrentCall()) {
    if (call->where.empty()) return fmt::format("it is in {}", call->what);
    return fmt::format("it is in {}, called at {}", call->what, call->where);
  }
  const std::string line = AskPlcTask(plc_task_);
  if (!line.empty()) return "it is at " + line;
  return "it is in a coroutine, or in a function that is not written in Lua";
}

}  // namespace corvane
