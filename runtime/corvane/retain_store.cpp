// SPDX-License-Identifier: MIT
#include "runtime/corvane/retain_store.h"

#include <pthread.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <filesystem>
#include <mutex>
#include <string>
#include <utility>

#include "libs/base/printable.h"
#include "runtime/corvane/retain_file.h"
#include "runtime/corvane/retain_json.h"

namespace corvane {
namespace {

using nlohmann::json;
using SteadyTime = std::chrono::steady_clock::time_point;

/// Puts the values of the snapshot into `values`, over those of the same names.
void Merge(std::string_view snapshot, json& values) {
  SnapshotReader reader(snapshot);
  while (!reader.AtEnd()) {
    const std::string name = reader.TakeString();
    json value = reader.TakeValue();
    if (value.is_string()) {  // the type of a block
      json variables = reader.TakeValue();
      value = json{{kBlockForm, std::move(value)}, {kBlockVariables, std::move(variables)}};
    }
    values[name] = std::move(value);
  }
}

std::string Describe(const std::exception& error) {
  if (const auto* const from_files =
          dynamic_cast<const std::filesystem::filesystem_error*>(&error)) {
    return Printable(from_files->path1().string() + ": " + from_files->code().message());
  }
  return Printable(error.what());
}

}  // namespace

/// What the two threads share.
class RetainStore::Writer {
 public:
  Writer(const std::filesystem::path& folder, const Options& options)
      : file_(folder), options_(options) {}

  // Before the thread begins

  /// Reads what is kept. @return false if another process has the folder
  bool Open(json& kept) {
    try {
      file_.Lock();
      is_locked_ = true;
      kept = file_.Read();
      is_read_ = true;
      values_ = kept;
    } catch (const FolderInUse& error) {
      spdlog::error("retained values are not kept: {}", error.what());
      return false;
    } catch (const std::exception& error) {
      Report(error);
    }
    return true;
  }

  // From the PLC task

  void Give(std::shared_ptr<const std::string> snapshot) {
    {
      const std::lock_guard guard(mutex_);
      waiting_ = std::move(snapshot);
    }
    changed_.notify_all();
  }
  /// From now on, there is a thread.
  void Start() {
    const std::lock_guard guard(mutex_);
    ended_ = false;
  }
  /// From any thread. @return whether the thread has ended, or will without a wait
  bool End(std::chrono::milliseconds longest) {
    std::unique_lock lock(mutex_);
    ending_ = true;
    changed_.notify_all();
    const bool ended = changed_.wait_for(lock, longest, [this] { return ended_; });
    if (!ended) is_abandoned_ = true;
    return ended;
  }

  // The thread

  void Run() {
    std::unique_lock lock(mutex_);
    SteadyTime next{};
    for (;;) {
      changed_.wait(lock, [this] { return ending_ || waiting_ != nullptr; });
      if (waiting_ == nullptr) break;
      changed_.wait_until(lock, next, [this] { return ending_; });
      const auto snapshot = std::move(waiting_);
      lock.unlock();
      const SteadyTime begin = std::chrono::steady_clock::now();
      const bool written = Write(*snapshot);
      next = begin + (written ? options_.interval : options_.retry);
      lock.lock();
      if (!written && !ending_ && waiting_ == nullptr) waiting_ = snapshot;
    }
    ended_ = true;
    changed_.notify_all();
  }

 private:
  bool Write(const std::string& snapshot) {
    try {
      if (!is_locked_) file_.Lock();
      is_locked_ = true;
      // It could not be looked at when the program began; it must not be lost.
      if (!is_read_) file_.PutAside("it could not be read when the program started");
      is_read_ = true;
      Merge(snapshot, values_);
      file_.Write(values_);
    } catch (const std::exception& error) {
      Report(error);
      return false;
    }
    if (std::exchange(has_failed_, false) && !is_abandoned_)
      spdlog::info("retained values are written again");
    return true;
  }
  void Report(const std::exception& error) {
    if (std::exchange(has_failed_, true) || is_abandoned_) return;
    spdlog::error(
        "retained values cannot be kept: {}; the program runs on, and this is tried again",
        Describe(error));
  }

  RetainFile file_;  // the thread's, once it has begun, as the next four
  json values_ = json::object();
  bool is_locked_ = false;
  bool is_read_ = false;
  bool has_failed_ = false;

  std::atomic<bool> is_abandoned_{false};  // the process ends; the log may be gone

  const Options options_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::shared_ptr<const std::string> waiting_;
  bool ending_ = false;
  bool ended_ = true;
};

RetainStore::RetainStore(std::filesystem::path folder, const Options& options)
    : folder_(std::move(folder)),
      options_(options),
      writer_(std::make_shared<Writer>(folder_, options_)) {}

RetainStore::~RetainStore() {
  if (!thread_.joinable()) return;
  if (writer_->End(options_.longest_end)) {
    thread_.join();
    return;
  }
  spdlog::warn("the disk did not take the retained values in time; they may be lost");
  thread_.detach();
}

const json* RetainStore::Find(const std::string& name) {
  if (!opened_) Open();
  const auto found = kept_.find(name);
  return found == kept_.end() ? nullptr : &*found;
}

void RetainStore::Open() {
  opened_ = true;
  if (folder_.empty()) {
    spdlog::error(
        "retained values are not kept: there is neither STATE_DIRECTORY nor a home folder");
    keeps_ = false;
    return;
  }
  keeps_ = writer_->Open(kept_);
  if (!keeps_) return;
  writer_->Start();
  // Now, and not when there is something to write: that is in a cycle.
  thread_ = std::thread([writer = writer_] {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);  // signals are for the PLC task
    writer->Run();
  });
}

void RetainStore::Write(std::shared_ptr<const std::string> snapshot) {
  if (keeps_) writer_->Give(std::move(snapshot));
}

bool RetainStore::WriteNow(std::chrono::milliseconds longest) {
  return writer_->End(longest);
}

}  // namespace corvane
