// SPDX-License-Identifier: MIT
#include "runtime/corvane/file_watches.h"

#include <pthread.h>

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <functional>
#include <queue>
#include <thread>
#include <utility>
#include <vector>

namespace corvane {
namespace {

using WatchTime = FileValue::Time;

constexpr std::chrono::milliseconds kLongRead(200);
constexpr std::chrono::milliseconds kLongestEnd(200);

}  // namespace

void FileWatch::Take(FileContent content, WatchTime now) {
  auto fresh = std::make_shared<FileValue>(*value());
  fresh->error = std::move(content.error);
  if (fresh->error.empty()) {
    fresh->text = std::move(content.text);
    fresh->read = now;
  }
  const std::lock_guard guard(mutex_);
  value_ = std::move(fresh);
}

/// The schedule, the threads that work it off, and one that adds further ones while they all hang.
class FileWatches::Readers : public std::enable_shared_from_this<Readers> {
 public:
  explicit Readers(Reader reader) : reader_(std::move(reader)) {}

  void Add(const std::shared_ptr<FileWatch>& watch) {
    const std::lock_guard guard(mutex_);
    due_.push({std::chrono::steady_clock::now(), watch});
    if (threads_ == 0) {
      StartThread(&Readers::Supervise);
      StartThread(&Readers::Work);
    }
    changed_.notify_all();
  }
  void End() {
    std::unique_lock lock(mutex_);
    ending_ = true;
    changed_.notify_all();
    changed_.wait_for(lock, kLongestEnd, [this] { return threads_ == 0; });
  }

 private:
  void StartThread(void (Readers::*function)()) {
    ++threads_;
    if (function == &Readers::Work) ++idle_;
    std::thread([self = shared_from_this(), function] {
      sigset_t all;
      sigfillset(&all);
      pthread_sigmask(SIG_BLOCK, &all, nullptr);  // signals are for the PLC task
      ((*self).*function)();
    }).detach();
  }

  /// Adds a reader when files are due and all readers have been busy for long.
  void Supervise() {
    std::unique_lock lock(mutex_);
    while (!ending_) {
      changed_.wait_for(lock, kLongRead, [this] { return ending_; });
      const auto now = std::chrono::steady_clock::now();
      const bool late = !due_.empty() && due_.top().when + kLongRead < now;
      const bool stuck = idle_ == 0 && now - last_begun_ > kLongRead;
      if (!ending_ && late && stuck && threads_ <= kMostReaders) StartThread(&Readers::Work);
    }
    Leave();
  }

  void Work() {
    std::unique_lock lock(mutex_);
    while (!ending_) {
      if (due_.empty()) {
        changed_.wait(lock);
        continue;
      }
      const WatchTime when = due_.top().when;
      if (std::chrono::steady_clock::now() < when) {
        changed_.wait_until(lock, when);
        continue;
      }
      ReadNext(lock);
    }
    --idle_;
    Leave();
  }

  void ReadNext(std::unique_lock<std::mutex>& lock) {
    const DueFile next = due_.top();
    due_.pop();
    const auto watch = next.watch.lock();
    if (watch == nullptr) return;  // nobody wants it any more
    --idle_;
    last_begun_ = std::chrono::steady_clock::now();
    lock.unlock();
    const WatchTime begun = std::chrono::steady_clock::now();  // the value is at least this new
    watch->Take(reader_(watch->path()), begun);
    lock.lock();
    ++idle_;
    // From the end of a read: a file that takes longer than its interval is not read without pause.
    due_.push({std::chrono::steady_clock::now() + watch->interval(), watch});
  }

  void Leave() {
    --threads_;
    changed_.notify_all();
  }

  /// When a file is to be read next.
  struct DueFile {
    WatchTime when;
    std::weak_ptr<FileWatch> watch;
    bool operator>(const DueFile& other) const { return when > other.when; }
  };

  const Reader reader_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::priority_queue<DueFile, std::vector<DueFile>, std::greater<>> due_;
  std::size_t threads_ = 0;  // the supervisor included
  std::size_t idle_ = 0;     // readers that do not read
  WatchTime last_begun_{};
  bool ending_ = false;
};

FileWatches::FileWatches(Reader reader) : readers_(std::make_shared<Readers>(std::move(reader))) {}

FileWatches::~FileWatches() {
  readers_->End();
}

std::shared_ptr<FileWatch> FileWatches::Add(std::string path, std::chrono::nanoseconds interval) {
  auto watch = std::make_shared<FileWatch>(std::move(path), interval);
  readers_->Add(watch);
  return watch;
}

}  // namespace corvane
