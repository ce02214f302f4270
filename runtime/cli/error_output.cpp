// SPDX-License-Identifier: MIT
#include "runtime/cli/error_output.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <deque>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace corvane::cli {
namespace {

constexpr std::size_t kRoom = std::size_t{1} << 20;  // octets
constexpr std::size_t kRoomForErrors = kRoom + kRoom / 4;
constexpr int kCrashWaits = 100;
constexpr long kCrashWait = 10'000'000;  // nanoseconds

void WriteAll(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(STDERR_FILENO, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {  // another process that shares it has made it non-blocking
      pollfd error{STDERR_FILENO, POLLOUT, 0};
      poll(&error, 1, -1);
    } else if (errno != EINTR) {
      return;
    }
  }
}

/// Lines on their way to standard error. It lives as long as the process, since its thread may
/// still be waiting for a reader at the end.
class ErrorQueue {
 public:
  void Start(std::function<std::string(std::uint64_t)> notice) {
    notice_ = std::move(notice);
    std::thread([this] { Run(); }).detach();
    started_ = true;
  }
  [[nodiscard]] bool started() const { return started_; }
  /// Lines that have not been written.
  [[nodiscard]] std::size_t pending() const { return pending_; }

  void Push(std::string text, Importance importance) {
    const std::lock_guard guard(mutex_);
    const std::size_t room = importance == Importance::kHigh ? kRoomForErrors : kRoom;
    if (!lines_.empty() && octets_ + text.size() > room) {
      ++dropped_;
      return;
    }
    octets_ += text.size();
    lines_.push_back({std::exchange(dropped_, 0), std::move(text)});
    pending_ = lines_.size() + 1;
    filled_.notify_one();
  }

  bool Drain(std::chrono::milliseconds time) {
    std::unique_lock lock(mutex_);
    return written_.wait_for(lock, time, [this] { return pending_ == 0; });
  }

 private:
  struct Line {
    std::uint64_t dropped_before = 0;
    std::string text;
  };

  /// Runs until the process ends. Signals are for the other threads.
  void Run() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::unique_lock lock(mutex_);
    for (;;) {
      filled_.wait(lock, [this] { return !lines_.empty(); });
      while (!lines_.empty()) WriteNext(lock);
      pending_ = 0;
      written_.notify_all();
    }
  }

  void WriteNext(std::unique_lock<std::mutex>& lock) {
    Line line = std::move(lines_.front());
    lines_.pop_front();
    octets_ -= line.text.size();
    // Dropped after the last line that fitted: no later line will report it.
    const std::uint64_t dropped_after = lines_.empty() ? std::exchange(dropped_, 0) : 0;
    lock.unlock();
    if (line.dropped_before != 0) WriteAll(notice_(line.dropped_before));
    WriteAll(line.text);
    if (dropped_after != 0) WriteAll(notice_(dropped_after));
    lock.lock();
  }

  std::mutex mutex_;
  std::condition_variable filled_;
  std::condition_variable written_;
  std::function<std::string(std::uint64_t)> notice_;
  std::deque<Line> lines_;
  std::size_t octets_ = 0;
  std::uint64_t dropped_ = 0;  // since the last line in the queue
  std::atomic<std::size_t> pending_{0};
  std::atomic<bool> started_{false};
};

ErrorQueue& Queue() {
  static auto* const queue = new ErrorQueue;
  return *queue;
}

constexpr std::array kCrashes{SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};
std::array<struct sigaction, kCrashes.size()> former_actions{};

/// Lets the thread write what explains the crash, and then restores the former handler.
extern "C" void OnCrash(int signal, siginfo_t* info, void* /*context*/) {
  for (int i = 0; i < kCrashWaits && Queue().pending() != 0; ++i) {
    const timespec wait{0, kCrashWait};
    nanosleep(&wait, nullptr);
  }
  for (std::size_t i = 0; i < kCrashes.size(); ++i) {
    if (kCrashes[i] == signal) sigaction(signal, &former_actions[i], nullptr);
  }
  // A fault happens again by itself on return; a signal that was sent must be sent again.
  if (info->si_code <= 0) raise(signal);
}

void CatchCrashes() {
  struct sigaction action {};
  action.sa_sigaction = OnCrash;
  action.sa_flags = SA_SIGINFO;
  for (std::size_t i = 0; i < kCrashes.size(); ++i) {
    sigaction(kCrashes[i], &action, &former_actions[i]);
  }
}

}  // namespace

void WriteError(std::string lines, Importance importance) {
  if (Queue().started()) {
    Queue().Push(std::move(lines), importance);
  } else {
    WriteAll(lines);
  }
}

void StartErrorQueue(std::function<std::string(std::uint64_t)> notice) {
  try {
    Queue().Start(std::move(notice));
    CatchCrashes();
  } catch (const std::system_error&) {
    // If no thread can be started, whoever writes waits for the reader.
  }
}

bool DrainErrors(std::chrono::milliseconds time) {
  return Queue().Drain(time);
}

}  // namespace corvane::cli
