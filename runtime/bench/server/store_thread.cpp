// SPDX-License-Identifier: MIT
#include "runtime/bench/server/store_thread.h"

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "runtime/bench/server/background_thread.h"

namespace corvane::bench {

namespace {

constexpr std::chrono::seconds kDistrust(10);

}  // namespace

struct StoreThread::Shared {
  void Run(StoreReader reader) {
    std::unique_lock lock(mutex);
    for (;;) {
      changed.wait(lock, [this] { return stopping || work != nullptr; });
      if (work == nullptr) break;
      lock.unlock();
      work(reader);
      lock.lock();
      work = nullptr;
      changed.notify_all();
    }
    lock.unlock();
    reader.Close();
    lock.lock();
    ended = true;
    changed.notify_all();
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::function<void(StoreReader&)> work;  // until it is done
  bool stopping = false;
  bool ended = false;
};

messages::StoreView* StoreReader::Open() {
  std::error_code error;
  if (view_ == nullptr && std::filesystem::exists(file_, error)) {
    try {
      view_ = std::make_unique<messages::StoreView>(file_);
    } catch (const std::exception&) {  // not yet complete, or damaged: the blocks say so
      return nullptr;
    }
  }
  return view_.get();
}

StoreThread::StoreThread(std::filesystem::path file, std::chrono::milliseconds patience)
    : file_(std::move(file)), patience_(patience), shared_(std::make_shared<Shared>()) {
  std::thread([shared = shared_, reader = StoreReader(file_)]() mutable {
    BecomeBackgroundThread("bench-store");
    shared->Run(std::move(reader));
  }).detach();
}

StoreThread::~StoreThread() {
  std::unique_lock lock(shared_->mutex);
  shared_->stopping = true;
  shared_->changed.notify_all();
  shared_->changed.wait_for(lock, patience_, [this] { return shared_->ended; });
}

void StoreThread::Run(std::function<void(StoreReader&)> work) {
  constexpr const char* kSilent = "the disk with the store of messages does not answer";
  std::unique_lock lock(shared_->mutex);
  if (shared_->work != nullptr) throw std::runtime_error(kSilent);
  const auto now = std::chrono::steady_clock::now();
  const auto patience = now < trusted_again_ ? patience_ / 20 : patience_;
  shared_->work = std::move(work);
  shared_->changed.notify_all();
  if (shared_->changed.wait_for(lock, patience, [this] { return shared_->work == nullptr; })) {
    trusted_again_ = {};
    return;
  }
  trusted_again_ = now + kDistrust;
  throw std::runtime_error(kSilent);
}

}  // namespace corvane::bench
