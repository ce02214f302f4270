// SPDX-License-Identifier: MIT
#include "libs/messages/store_writer.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <utility>

namespace messages {

StoreWriter::StoreWriter(std::shared_ptr<StoreShared> shared) : shared_(std::move(shared)) {}

void StoreWriter::Run() {
  do {
    TakeQueue();
    Attempt();
  } while (Wait());
  TakeQueue();
  Attempt();
}

bool StoreWriter::Wait() {
  std::unique_lock lock(shared_->mutex);
  const bool failed = retry_.count() > 0;
  shared_->changed.wait_until(lock, next_attempt_, [&] {
    return shared_->stopping || (!failed && !shared_->queue.empty());
  });
  return !shared_->stopping;
}

void StoreWriter::TakeQueue() {
  std::vector<std::vector<Change>> batches;
  {
    const std::scoped_lock lock(shared_->mutex);
    batches.swap(shared_->queue);
    pending_sequence_ = shared_->queued;
  }
  for (auto& batch : batches) {
    for (Change& change : batch) pending_.Add(std::move(change));
  }
}

void StoreWriter::Attempt() {
  try {
    if (!file_.has_value()) Open();
    WritePending();
    PollRequests();
    SetProblem({});
    retry_ = {};
    next_attempt_ = Clock::now() + shared_->options.request_poll;
  } catch (const std::exception& error) {
    SetProblem("the store " + shared_->file.string() + " cannot be written: " + error.what());
    file_.reset();
    retry_ = retry_.count() == 0 ? shared_->options.first_retry
                                 : std::min(2 * retry_, shared_->options.longest_retry);
    next_attempt_ = Clock::now() + retry_;
  }
}

void StoreWriter::Open() {
  std::filesystem::create_directories(shared_->file.parent_path());
  file_.emplace(shared_->file, shared_->options.vfs);
  if (shared_->first_new_number != 0) return;
  Content content = file_->Load(shared_->options.now());
  const std::int64_t first = file_->FirstFreeNumber();
  const std::scoped_lock lock(shared_->mutex);
  shared_->content = std::move(content);
  shared_->first_new_number = first;
}

void StoreWriter::WritePending() {
  if (!pending_.empty()) file_->Write(pending_, shared_->first_new_number);
  pending_ = {};
  if (shared_->on_disk == pending_sequence_) return;
  const std::scoped_lock lock(shared_->mutex);
  shared_->on_disk = pending_sequence_;
  shared_->changed.notify_all();
}

void StoreWriter::PollRequests() {
  const std::int64_t version = file_->DataVersion();
  if (std::exchange(data_version_, version) == version) return;
  std::vector<Request> requests = file_->Requests(last_request_);
  if (requests.empty()) return;
  last_request_ = requests.back().id;
  const std::int64_t first_new = shared_->first_new_number;
  const std::scoped_lock lock(shared_->mutex);
  for (Request& request : requests) {
    Outgoing& message = request.message;
    if (message.id >= first_new) message.id += kFirstNewId - first_new;
    if (message.job >= first_new) message.job += kFirstNewId - first_new;
    shared_->requests.push_back(std::move(request));
  }
}

void StoreWriter::SetProblem(std::string sentence) {
  const std::scoped_lock lock(shared_->mutex);
  shared_->has_problem = !sentence.empty();
  shared_->problem = std::move(sentence);
}

}  // namespace messages
