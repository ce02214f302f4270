// SPDX-License-Identifier: MIT
#include "runtime/corvane/cycle_watchdog.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

#include "runtime/corvane/call_tracking.h"
#include "runtime/corvane/lua_environment.h"
#include "runtime/corvane/lua_traceback.h"

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
/// What TakePosition found.
struct PlcPosition {
  std::string line;
  std::string traceback;
};
PlcPosition answer;

/// How a thread holds the PLC task in its signal handler.
enum class Hold { kNone, kAsked, kHeld, kReleased };
std::atomic<Hold> hold{Hold::kNone};
constexpr long kHoldStep = 1'000'000;  // ns
constexpr int kHoldSteps = 500;        // the PLC task goes on then, whatever happens

/// Lua calls it at its next instruction.
void TakePosition(lua_State* L, lua_Debug* /*event*/) {
  lua_sethook(L, program_hook, program_mask, program_count);
  PlcPosition found{LuaPosition(L, 0), {}};
  TracebackText text;
  AddTraceback(L, text);
  found.traceback = text.view();
  const std::lock_guard guard(answer_mutex);
  answer = std::move(found);
  position_asked = false;
  answered.notify_all();
}

/// Keeps the PLC task where it is until it is released.
void StandStill() {
  Hold asked = Hold::kAsked;
  if (!hold.compare_exchange_strong(asked, Hold::kHeld)) return;
  const timespec step{0, kHoldStep};
  for (int i = 0; i < kHoldSteps && hold == Hold::kHeld; ++i) nanosleep(&step, nullptr);
}

/// As stand-alone Lua does on Ctrl-C: lua_sethook may be called in a signal handler.
extern "C" void AskForPosition(int /*signal*/) {
  const int saved_errno = errno;
  StandStill();
  errno = saved_errno;
  lua_State* L = watched;
  if (L == nullptr || lua_gethook(L) == TakePosition) return;
  program_hook = lua_gethook(L);
  program_mask = lua_gethookmask(L);
  program_count = lua_gethookcount(L);
  lua_sethook(L, TakePosition, LUA_MASKCOUNT, 1);
}

/// Where the PLC task is; empty texts while it is not in a Lua function of the main state.
PlcPosition AskPlcTask(pthread_t plc_task) {
  std::unique_lock lock(answer_mutex);
  position_asked = true;
  pthread_kill(plc_task, SIGRTMIN);
  if (!answered.wait_for(lock, kAnswerTime, [] { return !position_asked; })) return {};
  return answer;
}

/// The traceback of a PLC task that is in a function that is not written in Lua, or in a coroutine,
/// whose caller it then shows. The task is held meanwhile; one that does not even handle a signal
/// waits in the system, so it stands still as well.
std::string TracebackOfHeld(pthread_t plc_task) {
  static TracebackText text;  // the task may hold the lock of the allocator
  text = {};
  hold = Hold::kAsked;
  pthread_kill(plc_task, SIGRTMIN);
  const timespec step{0, kHoldStep};
  for (int i = 0; i < kAnswerTime.count() && hold == Hold::kAsked; ++i) nanosleep(&step, nullptr);
  lua_State* const L = watched;
  if (L != nullptr) AddTracebackGuarded(L, text);
  hold = Hold::kReleased;
  return std::string(text.view());
}

int TrackCallsProtected(lua_State* L) {
  TrackBlockCalls(L);
  return 0;
}

}  // namespace

CycleWatchdog::CycleWatchdog(lua_State* L, Options options)
    : options_(std::move(options)), plc_task_(pthread_self()) {
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
  last_ = number;
}

void CycleWatchdog::End() {
  const std::lock_guard guard(mutex_);
  running_.reset();
}

void CycleWatchdog::Watch() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);  // signals are for the PLC task
  const Nanoseconds tick = Tick();
  std::unique_lock lock(mutex_);
  while (!ending_changed_.wait_for(lock, tick, [this] { return ending_; })) {
    const std::optional<Running> cycle = running_;
    const std::uint64_t last = last_;
    lock.unlock();
    if (cycle) Look(*cycle);
    if (options_.alive && !is_over_) options_.alive(last);
    lock.lock();
  }
}

Nanoseconds CycleWatchdog::Tick() const {
  Nanoseconds tick = std::min<Nanoseconds>(kLongestTick, options_.limits.front() / 4);
  if (options_.longest > Nanoseconds(0)) tick = std::min(tick, options_.longest / 4);
  return std::max<Nanoseconds>(tick, milliseconds(1));
}

void CycleWatchdog::Look(const Running& cycle) {
  if (std::exchange(reported_cycle_, cycle.since) != cycle.since) reported_ = 0;
  const Nanoseconds lasted = std::chrono::steady_clock::now() - cycle.since;
  const bool may_end = options_.longest > Nanoseconds(0) && cycle.number != 0;
  if (is_over_) return;
  if (may_end && lasted >= options_.longest) {
    EndProgram(cycle, lasted);
  } else if (reported_ < options_.limits.size() && lasted >= options_.limits[reported_]) {
    ++reported_;
    Warn(cycle, lasted);
  }
}

void CycleWatchdog::Warn(const Running& cycle, Nanoseconds lasted) {
  const std::string where = WhereItIs();
  if (!IsRunning(cycle)) return;  // it has ended meanwhile
  const std::string what =
      cycle.number == 0 ? std::string("the program's file") : fmt::format("cycle {}", cycle.number);
  spdlog::warn("{} has been running for {}: {}", what, FormatDuration(lasted), where);
}

void CycleWatchdog::EndProgram(const Running& cycle, Nanoseconds lasted) {
  std::string where = WhereItIs();
  std::string traceback = AskPlcTask(plc_task_).traceback;
  if (traceback.empty()) traceback = TracebackOfHeld(plc_task_);
  is_over_ = true;
  options_.end(fmt::format(
      "cycle {} has been running for {}, longer than the watchdog allows ({}): {}; traceback: {}",
      cycle.number, FormatDuration(lasted), FormatDuration(options_.longest), where,
      traceback.empty() ? "not known" : traceback));
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
  const std::string line = AskPlcTask(plc_task_).line;
  if (!line.empty()) return "it is at " + line;
  return "it is in a coroutine, or in a function that is not written in Lua";
}

}  // namespace corvane
