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
  const std::unordered_set<NodeId> gone(changes.removed.begin(), changes.removed.end());
  std::map<NodeId, Value> last;
  for (auto& [id, value] : changes.values) {
    if (!gone.contains(id)) last.insert_or_assign(id, std::move(value));
  }
  changes.values.assign(std::make_move_iterator(last.begin()), std::make_move_iterator(last.end()));
  std::unordered_set<NodeId> never_known;
  std::erase_if(changes.added, [&](const Node& node) {
    return gone.contains(node.id) && never_known.insert(node.id).second;
  });
  std::erase_if(changes.removed, [&](NodeId id) { return never_known.contains(id); });
}

}  // namespace

void Bench::Follow(lua_State* L) {
  sampler_ = std::make_unique<VariableSampler>(L);
  const std::lock_guard guard(mutex_);
  ended_ = false;
  blocks_.clear();
  next_count_ = {};
  wanted_.fetch_or(kBlocks, std::memory_order_release);
}

void Bench::Forget() {
  sampler_.reset();
  const std::lock_guard guard(mutex_);
  ended_ = true;
  std::ranges::move(served_, std::back_inserter(done_));
  std::ranges::move(requests_, std::back_inserter(serving_));
  for (Request& request : serving_) {
    request.error = kNoProgram;
    done_.push_back(std::move(request));
  }
  served_.clear();
  serving_.clear();
  requests_.clear();
  unserved_ = 0;
}

void Bench::AfterCycle(const CycleFacts& facts) noexcept {
  try {
    last_end_.store(facts.end.time_since_epoch().count(), std::memory_order_relaxed);
    cycles_.Add(facts);
    const unsigned wanted = wanted_.load(std::memory_order_acquire);
    if (wanted == 0 || sampler_ == nullptr) return;
    const ScanClock::TimePoint deadline = std::chrono::steady_clock::now() + kBudget;
    if ((wanted & kRequested) != 0) ServeRequests(deadline);
    if ((wanted & kBlocks) != 0 && CountBlocks(facts, deadline)) return;  // samples have time
    if ((wanted & (kWatched | kSampling)) != 0) Sample(facts, wanted, deadline);
  } catch (const std::exception&) {
    // Out of memory: what was sampled now is lost. Everything is reported again.
    wanted_.fetch_or(kRestart, std::memory_order_relaxed);
  }
}

/// @return whether it has used time of this cycle
bool Bench::CountBlocks(const CycleFacts& facts, ScanClock::TimePoint deadline) {
  if (facts.end < next_count_) return false;
  BlockCounts counts;
  if (!sampler_->CountBlocks(counts, deadline)) return true;
  next_count_ = facts.end + kCountInterval;
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock) return true;  // with the next count, then
  blocks_ = std::move(counts);
  if (facts.end - blocks_asked_ > kCountTime) {
    wanted_.fetch_and(static_cast<std::uint8_t>(~kBlocks), std::memory_order_relaxed);
  }
  return true;
}

void Bench::ServeRequests(ScanClock::TimePoint deadline) {
  ExchangeRequests();
  // The others wait for the next cycles: many clients that ask at once must not hold this one.
  for (std::size_t served = 0; served < kRequestsACycle && !serving_.empty(); ++served) {
    if (served != 0 && std::chrono::steady_clock::now() >= deadline) break;
    Request& request = serving_.front();
    request.error = request.is_write ? sampler_->Write(request.id, request.value)
                                     : sampler_->Read(request.id, request.value);
    served_.push_back(std::move(request));
    serving_.pop_front();
  }
  ExchangeRequests();
}

/// Hands over what has been served and takes what has come, unless the server is doing so.
void Bench::ExchangeRequests() {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock) return;
  unserved_ -= served_.size();
  std::ranges::move(served_, std::back_inserter(done_));
  served_.clear();
  std::ranges::move(requests_, std::back_inserter(serving_));
  requests_.clear();
  if (serving_.empty()) {
    wanted_.fetch_and(static_cast<std::uint8_t>(~kRequested), std::memory_order_relaxed);
  }
}

void Bench::Sample(const CycleFacts& facts, unsigned wanted, ScanClock::TimePoint deadline) {
  if ((wanted & kWatched) == 0) {
    if (is_sampling_ && !ForgetSamples()) return;
    is_sampling_ = false;
    wanted_.fetch_and(static_cast<std::uint8_t>(~kSampling), std::memory_order_relaxed);
    return;
  }
  if ((wanted & kRestart) != 0) {
    if (!ForgetSamples()) return;
    wanted_.fetch_and(static_cast<std::uint8_t>(~kRestart), std::memory_order_relaxed);
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
  pass_ended_ = sampler_->Sample(pending_, deadline);
  const bool is_long = pending_.added.size() >= kManyAdded;
  if (pass_ended_ || is_long || facts.end >= next_batch_) HandOver(facts);
}

/// Leaves what was sampled to the server's thread, since freeing it takes milliseconds.
/// @return false: to be tried again after the next cycle
bool Bench::ForgetSamples() {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock) return false;
  remains_.push_back(std::make_shared<VariableChanges>(std::exchange(pending_, {})));
  remains_.push_back(sampler_->Reset());
  return true;
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

BlockCounts Bench::Blocks() {
  const std::lock_guard guard(mutex_);
  blocks_asked_ = std::chrono::steady_clock::now();
  wanted_.fetch_or(kBlocks, std::memory_order_release);
  return blocks_;
}

double Bench::SecondsSinceCycle() const {
  const std::int64_t end = last_end_.load(std::memory_order_relaxed);
  if (end == 0) return 0;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now - ScanClock::TimePoint::duration(end)).count();
}

void Bench::Write(NodeId id, Value value, Done done) {
  Ask({id, true, std::move(value), std::move(done), {}});
}

void Bench::Get(NodeId id, Done done) {
  Ask({id, false, {}, std::move(done), {}});
}

void Bench::Ask(Request request) {
  const std::lock_guard guard(mutex_);
  if (ended_ || unserved_ >= kMostRequests) {
    request.error = ended_ ? kNoProgram : "too many requests wait for the end of a cycle";
    done_.push_back(std::move(request));
    return;
  }
  requests_.push_back(std::move(request));
  ++unserved_;
  wanted_.fetch_or(kRequested, std::memory_order_release);
}

void Bench::Poll() {
  std::vector<Request> done;
  std::vector<std::shared_ptr<void>> remains;
  {
    const std::lock_guard guard(mutex_);
    done.swap(done_);
    remains.swap(remains_);
  }
  for (const Request& request : done) request.done(request.error, request.value);
}

}  // namespace corvane::bench
