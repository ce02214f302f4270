// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/process_runner.h"

#include <poll.h>
#include <pthread.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "addins/corvane_standard/running_process.h"
#include "share/log.h"

namespace corvane_standard {
namespace {

using namespace std::chrono_literals;
using Clock = RunningProcess::Clock;

constexpr auto kGraceAtEnd = 700ms;  // between SIGTERM and SIGKILL
// A thread that wakes up at once takes the processor from the call that has woken it, as long as
// the start of a process lasts. Most cycles are over by then.
constexpr std::chrono::nanoseconds kMoment = 1ms;
constexpr auto kLongestEnd = 950ms;  // in which what was killed has disappeared

/// A thread begins with all signals blocked: they are the host's, and SIGPIPE would end it.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace

struct ProcessRunner::Shared {
  struct Queued {
    ProcessOrder order;
    std::shared_ptr<ProcessHandle> handle;
    std::weak_ptr<const void> owner;
  };

  Shared() : wake(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    if (wake.get() < 0) {
      throw std::system_error(errno, std::generic_category(), "PROCESS: timerfd_create");
    }
  }

  /// Wakes the thread in a moment, unless that is about to happen already.
  void Wake() {
    if (wakes.exchange(true)) return;
    const itimerspec moment{{}, {0, kMoment.count()}};
    timerfd_settime(wake.get(), 0, &moment, nullptr);
  }
  void Run();
  /// Ends all groups and the thread, and waits for that.
  void End();
  void BeginQueued();
  void Advance(Clock::time_point now);
  void Wait();

  const corvane::Descriptor wake;
  std::atomic<bool> wakes{false};  // the timer is set
  std::mutex mutex;                // held for moments
  std::vector<Queued> queue;
  bool ending = false;
  bool finished = false;
  std::condition_variable has_finished;
  // Of the thread.
  std::list<RunningProcess> processes;
  std::vector<pollfd> descriptors;
  Clock::time_point give_up = Clock::time_point::max();
};

void ProcessRunner::Shared::Run() {
  while (true) {
    BeginQueued();
    const auto now = Clock::now();
    Advance(now);
    if (give_up != Clock::time_point::max() && (processes.empty() || now >= give_up)) break;
    Wait();
  }
  if (!processes.empty()) {
    logMsg("PROCESS: %zu process groups have not ended although they were killed\n",
           processes.size());
  }
  processes.clear();
  const std::lock_guard<std::mutex> guard(mutex);
  finished = true;
  has_finished.notify_all();
}

void ProcessRunner::Shared::BeginQueued() {
  std::vector<Queued> begun;
  bool end = false;
  {
    const std::lock_guard<std::mutex> guard(mutex);
    begun.swap(queue);
    end = ending;
  }
  for (Queued& each : begun) {
    if (end) each.handle->Abort();
    processes.emplace_back(std::move(each.order), std::move(each.handle), std::move(each.owner));
  }
  if (end && give_up == Clock::time_point::max()) {
    const auto now = Clock::now();
    give_up = now + kLongestEnd;
    for (RunningProcess& each : processes) each.Stop(ProcessEnd::Kind::kAborted, kGraceAtEnd, now);
  }
}

void ProcessRunner::Shared::Advance(Clock::time_point now) {
  for (RunningProcess& each : processes) {
    if (!each.gone()) each.Advance(now);
  }
  std::erase_if(processes, [](const RunningProcess& each) { return each.gone(); });
}

void ProcessRunner::Shared::Wait() {
  descriptors.assign(1, {wake.get(), POLLIN, 0});
  auto due = give_up;
  for (const RunningProcess& each : processes) {
    each.AddTo(descriptors);
    due = std::min(due, each.due());
  }
  int timeout = -1;
  if (due != Clock::time_point::max()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now());
    timeout = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
  }
  poll(descriptors.data(), descriptors.size(), timeout);
  std::uint64_t count = 0;
  if (read(wake.get(), &count, sizeof count) > 0) wakes = false;
  for (RunningProcess& each : processes) each.Transfer();
}

void ProcessRunner::Shared::End() {
  std::unique_lock<std::mutex> lock(mutex);
  ending = true;
  Wake();
  has_finished.wait_for(lock, kLongestEnd + 50ms, [this] { return finished; });
}

/// What other threads than that of Lua may use.
struct ProcessRunner::Latest {
  std::mutex mutex;
  std::weak_ptr<Shared> shared;
};

ProcessRunner::Latest& ProcessRunner::TheLatest() {
  static Latest latest;
  return latest;
}

std::unique_ptr<ProcessRunner>& ProcessRunner::Instance() {
  static std::unique_ptr<ProcessRunner> instance;
  return instance;
}

ProcessRunner& ProcessRunner::The() {
  std::unique_ptr<ProcessRunner>& instance = Instance();
  if (instance == nullptr) instance.reset(new ProcessRunner());
  return *instance;
}

ProcessRunner::ProcessRunner() : shared_(std::make_shared<Shared>()) {
  static const int registered = std::at_quick_exit([] { EndBesideLua(); });
  static_cast<void>(registered);  // without memory for it, groups outlive such an end
  {
    Latest& latest = TheLatest();
    const std::lock_guard<std::mutex> guard(latest.mutex);
    latest.shared = shared_;
  }
  const AllSignalsBlocked blocked;
  std::thread([shared = shared_] { shared->Run(); }).detach();
}

void ProcessRunner::End() {
  const std::unique_ptr<ProcessRunner> ended = std::move(Instance());
  if (ended != nullptr) ended->shared_->End();
}

void ProcessRunner::EndBesideLua() noexcept {
  Latest& latest = TheLatest();
  std::shared_ptr<Shared> shared;
  {
    const std::lock_guard<std::mutex> guard(latest.mutex);
    shared = latest.shared.lock();
  }
  if (shared != nullptr) shared->End();
}

std::shared_ptr<ProcessHandle> ProcessRunner::Start(ProcessOrder order,
                                                    std::weak_ptr<const void> owner) {
  auto handle = std::make_shared<ProcessHandle>();
  {
    const std::lock_guard<std::mutex> guard(shared_->mutex);
    shared_->queue.push_back({std::move(order), handle, std::move(owner)});
  }
  Wake();
  return handle;
}

void ProcessRunner::Wake() {
  shared_->Wake();
}

void ProcessRunner::WakeIfAny() {
  if (Instance() != nullptr) Instance()->Wake();
}

}  // namespace corvane_standard
