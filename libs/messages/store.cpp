// SPDX-License-Identifier: MIT
#include "libs/messages/store.h"

#include <pthread.h>
#include <sched.h>

#include <csignal>
#include <thread>
#include <utility>

#include "libs/messages/store_registry.h"
#include "libs/messages/store_shared.h"
#include "libs/messages/store_writer.h"

namespace messages {
namespace {

WallTime SystemNow() {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

StoreOptions Completed(StoreOptions options) {
  if (!options.now) options.now = SystemNow;
  return options;
}

}  // namespace

Store::Store(const std::filesystem::path& folder, std::string channel, StoreOptions options)
    : channel_(std::move(channel)) {
  auto [shared, is_new] = JoinStore(folder, channel_, Completed(std::move(options)));
  shared_ = std::move(shared);
  if (!is_new) return;
  std::thread([shared = shared_] {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);  // signals are for the host's own threads
    pthread_setname_np(pthread_self(), "messages");
    // Not the PLC task's real-time priority; and a call that wakes the writer up is not preempted
    // by it, which on a single processor would make the call as long as a piece of SQLite's work.
    const sched_param none{};
    pthread_setschedparam(pthread_self(), SCHED_BATCH, &none);
    StoreWriter(shared).Run();
    const std::scoped_lock lock(shared->mutex);
    shared->ended = true;
    shared->changed.notify_all();
  }).detach();
}

Store::~Store() {
  if (!LeaveStore(*shared_, channel_)) return;
  std::unique_lock lock(shared_->mutex);
  shared_->changed.wait_for(lock, shared_->options.longest_end, [&] { return shared_->ended; });
}

std::int64_t Store::NewId() noexcept {
  return shared_->next_id++;
}

std::int64_t Store::Number(std::int64_t id) const noexcept {
  if (id < kFirstNewId) return id;
  const std::int64_t first = shared_->first_new_number;
  return first == 0 ? 0 : first + (id - kFirstNewId);
}

std::uint64_t Store::Write(const std::vector<Change>& changes) {
  std::uint64_t sequence = 0;
  bool is_gathering = false;
  {
    const std::scoped_lock lock(shared_->mutex);
    for (const Change& change : changes) shared_->queue.Push(change);
    sequence = ++shared_->queued;
    is_gathering = shared_->gathering;
  }
  // Without the lock, which the writer takes when it wakes up.
  if (!is_gathering) shared_->changed.notify_all();
  return sequence;
}

void Store::Hurry() noexcept {
  {
    const std::scoped_lock lock(shared_->mutex);
    if (shared_->queue.empty()) return;
    shared_->hurried = true;
  }
  shared_->changed.notify_all();
}

bool Store::IsOnDisk(std::uint64_t sequence) const noexcept {
  return shared_->on_disk >= sequence;
}

std::optional<Content> Store::TakeContent() {
  if (!loaded()) return std::nullopt;
  const std::scoped_lock lock(shared_->mutex);
  return shared_->TakeContent(channel_);
}

bool Store::loaded() const noexcept {
  return shared_->first_new_number != 0;
}

std::string Store::problem() const {
  if (shared_->has_problem) {
    const std::scoped_lock lock(shared_->mutex);
    if (!shared_->problem.empty()) return shared_->problem;
  }
  const std::chrono::milliseconds::rep since = shared_->busy_since;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  const auto stalled = now - std::chrono::milliseconds(since);
  if (since == 0 || stalled < shared_->options.stall) return {};
  return "the disk of the store " + shared_->file.string() + " has not answered for " +
         std::to_string(std::chrono::floor<std::chrono::seconds>(stalled).count()) +
         " s: messages are kept in memory, and written when it does. "
         "Check the disk";
}

std::vector<std::string> Store::TakeNotices() {
  const std::scoped_lock lock(shared_->mutex);
  return std::exchange(shared_->notices, {});
}

bool Store::TakeBegunAgain() noexcept {
  const int times = shared_->times_begun_again;
  return std::exchange(times_begun_again_, times) != times;
}

bool Store::TakeLoaded() noexcept {
  return loaded() && !shared_->place_told.exchange(true);
}

std::vector<Request> Store::TakeRequests() {
  const std::scoped_lock lock(shared_->mutex);
  return shared_->TakeRequests(channel_);
}

void Store::OnNews(std::function<void()> wake) {
  const std::scoped_lock lock(shared_->mutex);
  shared_->SetWake(channel_, std::move(wake));
}

bool Store::Flush(std::chrono::milliseconds limit) {
  Hurry();
  std::unique_lock lock(shared_->mutex);
  const std::uint64_t wanted = shared_->queued;
  return shared_->changed.wait_for(lock, limit, [&] { return shared_->on_disk >= wanted; });
}

const std::filesystem::path& Store::file() const noexcept {
  return shared_->file;
}

}  // namespace messages
