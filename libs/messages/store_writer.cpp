// SPDX-License-Identifier: MIT
#include "libs/messages/store_writer.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <utility>
#include <vector>

#include "libs/base/private_folder.h"
#include "libs/messages/store_error.h"
#include "libs/messages/store_schema.h"

namespace messages {
namespace {

constexpr std::chrono::hours kCleanUpPause(1);
constexpr std::chrono::milliseconds kCleanUpStepPause(50);
constexpr int kCleanUpStep = 200;
// Ended messages that are kept in memory for a disk that cannot take them.
constexpr std::size_t kMostPendingHistory = 20000;

std::chrono::milliseconds::rep SteadyMilliseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

}  // namespace

StoreWriter::StoreWriter(std::shared_ptr<StoreShared> shared) : shared_(std::move(shared)) {}

void StoreWriter::Run() {
  do {
    TakeQueue();
    Attempt();
  } while (Wait());
  TakeQueue();
  Attempt();
  if (file_ != nullptr) file_->Finish();
  shared_->busy_since = SteadyMilliseconds();  // closing may take its time, too
}

bool StoreWriter::Wait() {
  std::unique_lock lock(shared_->mutex);
  shared_->gathering = true;
  shared_->changed.wait_for(lock, shared_->options.gather,
                            [&] { return shared_->hurried || shared_->stopping; });
  shared_->gathering = false;
  const bool failed = retry_.count() > 0;
  shared_->changed.wait_until(lock, next_attempt_, [&] {
    return shared_->stopping || (!failed && (shared_->content_wanted || !shared_->queue.empty()));
  });
  return !shared_->stopping;
}

void StoreWriter::TakeQueue() {
  ChangeQueue queue;
  {
    const std::scoped_lock lock(shared_->mutex);
    queue.Swap(shared_->queue);
    shared_->hurried = false;
    pending_sequence_ = shared_->queued;
  }
  queue.MoveTo(pending_);
}

void StoreWriter::Attempt() {
  shared_->busy_since = SteadyMilliseconds();
  try {
    if (file_ != nullptr) CheckPlace();
    if (file_ == nullptr) Open();
    WritePending();
    if (IsContentWanted()) LoadContent(*file_);
    if (Clock::now() >= next_poll_) PollRequests();
    if (Clock::now() >= next_clean_up_) CleanUp();
    SetProblem({});
    retry_ = {};
    next_attempt_ = std::min(next_poll_, next_clean_up_);
  } catch (const std::exception& error) {
    NoteFailure(error);
  }
  shared_->busy_since = 0;
}

void StoreWriter::NoteFailure(const std::exception& error) {
  const int system_error = file_ == nullptr ? 0 : file_->SystemError();
  SetProblem(ProblemSentence(shared_->file, error, system_error));
  if (file_ != nullptr && MeansDamage(error)) damage_ = error.what();
  if (!IsTemporary(error, system_error)) file_.reset();
  pending_.ForgetHistory(kMostPendingHistory);
  retry_ = retry_.count() == 0 ? shared_->options.first_retry
                               : std::min(2 * retry_, shared_->options.longest_retry);
  next_attempt_ = Clock::now() + retry_;
}

void StoreWriter::CheckPlace() {
  const bool is_locked = lock_.has_value() && lock_->IsInPlace();
  if (!is_locked || !file_->IsInPlace()) file_.reset();
  if (!is_locked) lock_.reset();
}

void StoreWriter::Open() {
  const std::filesystem::path folder = shared_->file.parent_path();
  if (folder.empty()) {
    throw StoreError(
        "there is no folder for the store of messages: they are kept in memory only. Set "
        "STATE_DIRECTORY to a folder");
  }
  corvane::MakePrivateFolder(folder);
  if (!lock_.has_value()) lock_.emplace(shared_->file);
  OpenedStore opened = OpenFile();
  {
    const std::scoped_lock lock(shared_->mutex);
    std::ranges::move(opened.notices, std::back_inserter(shared_->notices));
  }
  file_ = std::move(opened.file);
  damage_.clear();
  data_version_ = -1;
  if (opened.is_new) last_request_ = 0;
  if (IsLoaded() && opened.is_new) ++shared_->times_begun_again;
  if (!IsLoaded()) LoadContent(*file_);
}

OpenedStore StoreWriter::OpenFile() {
  try {
    return OpenStore(shared_->file, shared_->options.vfs, shared_->options.now(), damage_);
  } catch (const StoreError&) {
    throw;  // what is refused is left alone
  } catch (const std::exception&) {
    if (!IsLoaded()) LoadWhatCanBeRead();
    throw;
  }
}

void StoreWriter::LoadWhatCanBeRead() {
  try {
    StoreFile file(shared_->file, shared_->options.vfs, StoreFile::Sharing::kAlone);
    if (file.version() != kSchemaVersion) return;
    file.Check();
    LoadContent(file);
  } catch (const std::exception&) {
    return;  // the failure before this one is reported
  }
}

void StoreWriter::LoadContent(StoreFile& file) {
  Content content = file.Load(shared_->options.now());
  const auto limit_per_hour = content.limit_per_hour;
  if (!IsLoaded()) {
    const std::int64_t first = file.FirstFreeNumber();
    SetProblem({});  // who gets the content must not see the problem of an earlier attempt
    auto parts = DivideByChannel(std::move(content));
    const std::scoped_lock lock(shared_->mutex);
    shared_->GiveContent(parts, limit_per_hour);
    shared_->first_new_number = first;
    shared_->WakeHandles();
    return;
  }
  for (Outgoing& row : content.waiting) UseNumbersOfRun(row);
  for (Incoming& row : content.inbox) row.id = NumberOfRun(row.id);
  auto parts = DivideByChannel(std::move(content));
  const std::scoped_lock lock(shared_->mutex);
  shared_->GiveContent(parts, limit_per_hour);
  shared_->WakeHandles();
}

bool StoreWriter::IsContentWanted() {
  const std::scoped_lock lock(shared_->mutex);
  return shared_->content_wanted;
}

std::int64_t StoreWriter::NumberOfRun(std::int64_t number) const {
  const std::int64_t first_new = shared_->first_new_number;
  return number < first_new ? number : number + (kFirstNewId - first_new);
}

void StoreWriter::UseNumbersOfRun(Outgoing& row) const {
  row.id = NumberOfRun(row.id);
  row.job = NumberOfRun(row.job);
}

void StoreWriter::WritePending() {
  if (!pending_.empty()) {
    file_->Write(pending_, shared_->first_new_number);
    if (!file_->IsInPlace())
      throw StoreError(shared_->file.string() +
                       " was moved or removed while it was in use: a new store is started");
  }
  pending_.Clear();
  if (shared_->on_disk == pending_sequence_) return;
  const std::scoped_lock lock(shared_->mutex);
  shared_->on_disk = pending_sequence_;
  shared_->changed.notify_all();
  shared_->WakeHandles();
}

void StoreWriter::PollRequests() {
  next_poll_ = Clock::now() + shared_->options.request_poll;
  const std::int64_t version = file_->DataVersion();
  if (version == data_version_) return;
  std::vector<Request> requests = file_->Requests(last_request_);
  data_version_ = version;
  if (requests.empty()) return;
  last_request_ = requests.back().id;
  const std::scoped_lock lock(shared_->mutex);
  for (Request& request : requests) {
    UseNumbersOfRun(request.message);
    shared_->GiveRequest(std::move(request));
  }
  shared_->WakeHandles();
}

void StoreWriter::CleanUp() {
  const bool more = file_->RemoveOld(shared_->options.now(), kCleanUpStep);
  next_clean_up_ = Clock::now() + (more ? Clock::duration(kCleanUpStepPause) : kCleanUpPause);
}

void StoreWriter::SetProblem(std::string sentence) {
  const std::scoped_lock lock(shared_->mutex);
  const bool has_changed = shared_->problem != sentence;
  shared_->has_problem = !sentence.empty();
  shared_->problem = std::move(sentence);
  if (has_changed) shared_->WakeHandles();
}

}  // namespace messages
