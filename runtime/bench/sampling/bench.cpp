// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/bench.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <unordered_set>
#include <utility>

namespace corvane::bench {
namespace {

constexpr std::size_t kMostPending = 100'000;
constexpr const char* kNoProgram = "the program has ended";

/// Appends later changes.
void Append(VariableChanges& changes, VariableChanges&& later) {
  std::ranges::move(later.added, std::back_inserter(changes.added));
  std::ranges::move(later.values, std::back_inserter(changes.values));
  std::ranges::move(later.removed, std::back_inserter(changes.removed));
  changes.truncated = later.truncated;
}

/// Leaves the last value of each node, and nothing of nodes that have gone since.
void Condense(VariableChanges& changes) {
  const std::unordered_set<int> gone(changes.removed.begin(), changes.removed.end());
  std::map<int, Value> last;
  for (auto& [id, value] : changes.values) {
    if (!gone.contains(id)) last.insert_or_assign(id, std::move(value));
  }
  changes.values.assign(std::make_move_iterator(last.begin()), std::make_move_iterator(last.end()));
  std::unordered_set<int> never_known;
  std::erase_if(changes.added, [&](const Node& node) {
    return gone.contains(node.id) && never_known.insert(node.id).second;
  });
  std::erase_if(changes.removed, [&](int id) { return never_known.contains(id); });
}

}  // namespace

void Bench::Follow(lua_State* L) {
  sampler_ = std::make_unique<VariableSampler>(L);
  const std::lock_guard guard(mutex_);
  ended_ = false;
}

void Bench::Forget() {
  sampler_.reset();
  const std::lock_guard guard(mutex_);
  ended_ = true;
  for (Request& request : requests_) {
    request.error = kNoProgram;
    done_.push_back(std::move(request));
  }
  requests_.clear();
}

void Bench::AfterCycle(const CycleFacts& facts) noexcept {
  try {
    last_end_.store(facts.end.time_since_epoch().count(), std::memory_order_relaxed);
    cycles_.Add(facts);
    const unsigned wanted = wanted_.load(std::memory_order_acquire);
    if (wanted == 0 || sampler_ == nullptr) return;
    if ((wanted & kRequested) != 0) ServeRequests();
    Sample(facts, wanted);
  } catch (const std::exception&) {
    // Out of memory: what was sampled now is lost. Everything is reported again.
    wanted_.fetch_or(kRestart, std::memory_order_relaxed);
  }
}

void Bench::ServeRequests() {
  std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock || requests_.empty()) return;
  // The others wait for the next cycles: many clients that ask at once must not hold this one.
  const auto served = std::min(requests_.size(), kRequestsACycle);
  const auto end = requests_.begin() + static_cast<std::ptrdiff_t>(served);
  std::vector<Request> requests(std::make_move_iterator(requests_.begin()),
                                std::make_move_iterator(end));
  requests_.erase(requests_.begin(), end);
  if (requests_.empty()) {
    wanted_.fetch_and(static_cast<std::uint8_t>(~kRequested), std::memory_order_relaxed);
  }
  lock.unlock();
  for (Request& request : requests) {
    request.error = request.is_write ? sampler_->Write(request.id, request.value)
                                     : sampler_->Read(request.id, request.value);
  }
  lock.lock();
  std::ranges::move(requests, std::back_inserter(done_));
}

void Bench::Sample(const CycleFacts& facts, unsigned wanted) {
  if ((wanted & kWatched) == 0) {
    if (is_sampling_) sampler_->Reset();
    pending_ = {};
    is_sampling_ = false;
    wanted_.fetch_and(static_cast<std::uint8_t>(~kSampling), std::memory_order_relaxed);
    return;
  }
  if ((wanted & kRestart) != 0) {
    wanted_.fetch_and(static_cast<std::uint8_t>(~kRestart), std::memory_order_relaxed);
    sampler_->Reset();
    pending_ = {};
    pending_.complete = true;
    next_pass_ = facts.end;
    pass_ended_ = true;
  }
  is_sampling_ = true;
  if (pass_ended_ && facts.end < next_pass_) return;
  if (pass_ended_) {
    if (!pending_.empty()) HandOver(facts);  // could not be handed over before
    if (pending_.added.size() + pending_.values.size() > kMostPending) return;
    next_pass_ = facts.end + kInterval;
  }
  pass_ended_ = sampler_->Sample(pending_, std::chrono::steady_clock::now() + kBudget);
  if (pass_ended_ || facts.end >= next_batch_) HandOver(facts);
}

void Bench::HandOver(const CycleFacts& facts) {
  next_batch_ = facts.end + kInterval;
  if (pending_.empty() && !pending_.complete) return;
  const std::unique_lock lock(mutex_, std::try_to_lock);
  // A server that takes nothing gets nothing more, and what has begun goes on later.
  if (!lock || batches_.size() >= kMostBatches) return;
  if ((wanted_.load(std::memory_order_relaxed) & (kWatched | kRestart)) != kWatched) return;
  batches_.push_back(std::exchange(pending_, {}));
}

void Bench::SetWatched(bool watched) {
  const std::lock_guard guard(mutex_);
  batches_.clear();
  if (watched) {
    wanted_.fetch_or(kWatched | kRestart, std::memory_order_release);
  } else {
    wanted_.fetch_or(kSampling, std::memory_order_relaxed);
    wanted_.fetch_and(static_cast<std::uint8_t>(~kWatched), std::memory_order_release);
  }
}

VariableChanges Bench::TakeVariables() {
  std::vector<VariableChanges> batches;
  {
    const std::lock_guard guard(mutex_);
    batches.swap(batches_);
  }
  VariableChanges changes;
  for (VariableChanges& batch : batches) {
    if (batch.complete) changes = {};
    changes.complete = changes.complete || batch.complete;
    Append(changes, std::move(batch));
  }
  Condense(changes);
  return changes;
}

CycleReport Bench::Cycles() const {
  return cycles_.Report();
}

double Bench::SecondsSinceCycle() const {
  const std::int64_t end = last_end_.load(std::memory_order_relaxed);
  if (end == 0) return 0;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now - ScanClock::TimePoint::duration(end)).count();
}

void Bench::Write(int id, Value value, Done done) {
  Ask({id, true, std::move(value), std::move(done), {}});
}

void Bench::Get(int id, Done done) {
  Ask({id, false, {}, std::move(done), {}});
}

void Bench::Ask(Request request) {
  const std::lock_guard guard(mutex_);
  if (ended_ || requests_.size() >= kMostRequests) {
    request.error = ended_ ? kNoProgram : "too many requests wait for the end of a cycle";
    done_.push_back(std::move(request));
    return;
  }
  requests_.push_back(std::move(request));
  wanted_.fetch_or(kRequested, std::memory_order_release);
}

void Bench::Poll() {
  std::vector<Request> done;
  {
    const std::lock_guard guard(mutex_);
    done.swap(done_);
  }
  for (const Request& request : done) request.done(request.error, request.value);
}

}  // namespace corvane::bench
