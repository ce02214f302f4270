// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/file_thread.h"

#include <pthread.h>

#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace corvane_mail {

struct FileThread::Shared {
  void Run() {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return stopping || !queue.empty(); });
      if (stopping) return;
      const auto work = std::move(queue.front());
      queue.pop_front();
      lock.unlock();
      work();
      lock.lock();
    }
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::function<void()>> queue;
  bool stopping = false;
};

FileThread::FileThread() : shared_(std::make_shared<Shared>()) {
  std::thread([shared = shared_] {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);  // signals are for the host's own threads
    pthread_setname_np(pthread_self(), "mail-files");
    shared->Run();
  }).detach();
}

FileThread::~FileThread() {
  const std::scoped_lock lock(shared_->mutex);
  shared_->stopping = true;
  shared_->changed.notify_all();
}

void FileThread::Post(std::function<void()> work) {
  const std::scoped_lock lock(shared_->mutex);
  shared_->queue.push_back(std::move(work));
  shared_->changed.notify_all();
}

}  // namespace corvane_mail
