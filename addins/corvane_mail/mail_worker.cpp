// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_worker.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <utility>

#include "libs/mail/message_id.h"
#include "share/log.h"

namespace corvane_mail {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPauseAtWork(250);  // retries and expiry come due
constexpr milliseconds kPauseIdle(5000);
constexpr milliseconds kLongestWithdrawal(250);
constexpr milliseconds kLongestEndOfStore(600);
constexpr std::chrono::minutes kAccountPause(15);  // so that the provider does not lock it
constexpr std::chrono::seconds kPauseOfSaving(2);
constexpr std::size_t kMostConnections = 32;
constexpr const char* kOnlyInMemory =
    "its attachments are in memory only, since the folder for their copies could not be written "
    "when they came: they are lost if the program ends before the mail is sent. Check the disk";

messages::StoreOptions OptionsOfStore() {
  messages::StoreOptions options;
  options.longest_end = kLongestEndOfStore;
  return options;
}

/// Local time minus UTC, in minutes.
int ZoneAt(std::chrono::sys_seconds when) {
  const std::time_t time = when.time_since_epoch().count();
  std::tm local{};
  return localtime_r(&time, &local) == nullptr ? 0 : static_cast<int>(local.tm_gmtoff / 60);
}

/// What to do about the error of a job, where the reason does not say it.
std::string Remedy(int error_id) {
  switch (static_cast<ErrorId>(error_id)) {
    case ErrorId::kExpired: return "; check server and network, or allow more time with ValidFor";
    case ErrorId::kUnknownEnd: return "; ask the receiver before you send it again";
    case ErrorId::kLoginRefused:
    case ErrorId::kCertificate:
    case ErrorId::kNotOffered:
      return "; the mail is kept, and tried again in 15 minutes, or at once with other credentials";
    default: return {};
  }
}

std::string AboutRepeats(const std::string& repeats) {
  if (repeats.empty()) return {};
  return "sent again after an attempt whose end is not known, so it may arrive twice, with the "
         "same "
         "Message-ID: " +
         repeats;
}

std::string FolderOfRow(const messages::Outgoing& row) {
  const auto content = ReadMailContent(row.content);
  return !content || content->attachments.empty() ? "" : FolderOf(content->message.message_id);
}

}  // namespace

MailWorker::MailWorker(const std::filesystem::path& folder, std::shared_ptr<MailDesk> desk)
    : desk_(std::move(desk)),
      attachments_(std::make_shared<AttachmentFolder>(folder)),
      store_(folder, "mail", OptionsOfStore()),
      outbox_(
          "mail",
          {[this] { return store_.NewId(); },
           [this](const std::vector<messages::Change>& changes) { return store_.Write(changes); }},
          "mail account") {
  store_.OnNews([desk = desk_] { desk->Wake(); });
}

void MailWorker::Run() {
  while (!desk_->stopping()) Step();
  Finish();
}

void MailWorker::Step() {
  const Now now = Now::Get();
  TakeContent(now);
  if (!store_.problem().empty()) outbox_.GoOnWithoutStore();
  TakeCommands(now);
  TakeAttachments();
  if (outbox_.loaded()) {
    for (const messages::Request& request : store_.TakeRequests()) outbox_.Apply(request, now);
  }
  if (store_.TakeBegunAgain()) outbox_.WriteAgain();
  outbox_.Tick(now);
  AssignFiles();
  SaveFiles(now);
  BeginAttempts(now);
  WithdrawExpired(now);
  LogNews();
  PublishCounts();  // before the states, so that a block never shows an end beside an old count
  PublishStates();
  RemoveFilesOfEnded();
  RemoveOrphans();
  Poll();
}

void MailWorker::Poll() {
  const bool is_loading = store_.loaded() && !outbox_.loaded();
  const bool at_work = outbox_.waiting() > 0 || !transfers_.empty() || !to_remove_.empty() ||
                       !with_attachments_.empty();
  const milliseconds pause = is_loading ? milliseconds(0) : at_work ? kPauseAtWork : kPauseIdle;
  if (carrier_ == nullptr) return desk_->Wait(pause);
  for (const Outcome& outcome : carrier_->Poll(pause)) HandleOutcome(outcome, Now::Get());
}

// What comes in

void MailWorker::TakeContent(const Now& now) {
  auto content = store_.TakeContent();
  if (!content) return;
  for (const messages::Outgoing& row : content->waiting) {
    if (std::string folder = FolderOfRow(row); !folder.empty()) {
      copies_[row.id] = {.folder = std::move(folder), .in_memory = {}};
    }
  }
  outbox_.Load(std::move(content->waiting), std::move(content->keys), std::move(content->recent),
               content->limit_per_hour, now);
}

void MailWorker::TakeCommands(const Now& now) {
  for (MailCommand& command : desk_->Take()) {
    if (auto* const credentials = std::get_if<Credentials>(&command)) {
      Handle(*credentials, now);
    } else if (auto* const submission = std::get_if<Submission>(&command)) {
      Handle(std::move(*submission), now);
    } else if (const auto* const saved = std::get_if<AttachmentsSaved>(&command)) {
      Handle(*saved, now);
    } else {
      Handle(std::move(std::get<AttachmentsTaken>(command)), now);
    }
  }
}

void MailWorker::Handle(Submission submission, const Now& /*now*/) {
  mail::Message& message = submission.order.content.message;
  message.message_id = mail::NewMessageId(mail::DomainOf(message.from));
  message.zone_minutes = ZoneAt(message.date);
  if (submission.order.attachments.empty()) return Queue(std::move(submission), {});
  with_attachments_.push_back(std::move(submission));
}

void MailWorker::TakeAttachments() {
  if (!store_.loaded() && store_.problem().empty()) return;
  using enum AttachmentFolder::Keep;
  const AttachmentFolder::Keep keep = store_.loaded() ? kOnDisk : kInMemory;
  for (Submission& submission : std::exchange(with_attachments_, {})) {
    const std::string name = FolderOf(submission.order.content.message.message_id);
    being_taken_.insert(name);
    files_.Post([desk = desk_, folder = attachments_, name, keep,
                 shared = std::make_shared<Submission>(std::move(submission))] {
      auto taken = folder->Take(name, shared->order.attachments, keep);
      desk->Give({std::move(*shared), std::move(taken)});
    });
  }
}

void MailWorker::Handle(AttachmentsTaken taken, const Now& /*now*/) {
  being_taken_.erase(FolderOf(taken.submission.order.content.message.message_id));
  if (!taken.taken.problem.empty()) {
    return Reject(taken.submission, ErrorId::kAttachment, std::move(taken.taken.problem));
  }
  Queue(std::move(taken.submission), std::move(taken.taken.attachments));
}

void MailWorker::Handle(const AttachmentsSaved& saved, const Now& now) {
  const auto place = copies_.find(saved.id);
  if (place == copies_.end()) return;  // the mail has ended
  place->second.next_save = now.steady + kPauseOfSaving;
  if (!saved.saved) return;
  place->second.in_memory.clear();
  for (Live& live : live_) live.in_memory = live.in_memory && live.job->id != saved.id;
}

void MailWorker::Handle(const Credentials& credentials, const Now& now) {
  const auto [place, is_new] = credentials_.try_emplace(credentials.route, credentials);
  if (is_new) return;
  const bool is_same = place->second.is_token == credentials.is_token &&
                       place->second.secret->text() == credentials.secret->text();
  if (is_same) return;
  place->second = credentials;
  outbox_.ReleaseRoute(credentials.route, now);
}

void MailWorker::Queue(Submission submission, std::vector<StoredAttachment> attachments) {
  MailOrder& order = submission.order;
  const std::string route = RouteOf(order.content.account);
  order.content.attachments = std::move(attachments);
  messages::NewJob job{.route = route,
                       .key = std::move(order.key),
                       .urgent = order.urgent,
                       .valid_for = order.valid_for,
                       .messages = {}};
  job.messages.push_back({Summary(RecipientsOf(order.content)), ToJson(order.content)});
  auto progress = outbox_.Add(std::move(job), order.added);
  if (progress == nullptr) {
    return Reject(submission, ErrorId::kBadValue,
                  "100,000 mails wait already, so this one is not queued; find out with 'corvane "
                  "messages' what holds them");
  }
  ++counts_[route].taken;
  const bool has_attachments = !order.content.attachments.empty();
  const bool in_memory = has_attachments && order.content.attachments.front().memory != nullptr;
  if (has_attachments) {
    Files files{.folder = FolderOf(order.content.message.message_id), .in_memory = {}};
    if (in_memory) files.in_memory = std::move(order.content.attachments);
    undecided_.push_back({progress, std::move(files)});
  }
  newest_ = {progress, std::move(order.content)};
  live_.push_back({std::move(submission.ticket), std::move(progress), "", {}, in_memory});
}

void MailWorker::Reject(const Submission& submission, ErrorId error, std::string text) {
  const std::string route = RouteOf(submission.order.content.account);
  ++counts_[route].taken;
  PublishCount(route);  // the outbox may never hear of this route
  MailState state;
  state.progress = JobProgress::Failed({error, std::move(text)});
  desk_->Publish(*submission.ticket, std::move(state));
}

// Attempts

bool MailWorker::IsKnown(const std::string& route) const {
  return route.find(' ') == std::string::npos || credentials_.contains(route);
}

void MailWorker::BeginAttempts(const Now& now) {
  if (outbox_.waiting() == 0) return;
  for (const std::string& route : outbox_.Routes()) {
    if (transfers_.size() >= kMostConnections) return;
    if (!IsKnown(route)) continue;
    if (const auto id = outbox_.Next(route, now)) Begin(*id, now);
  }
}

std::optional<MailContent> MailWorker::ContentOf(const messages::Outgoing& row) {
  const bool is_newest = newest_.job != nullptr && newest_.job->decided &&
                         !newest_.job->duplicate && newest_.job->id == row.id;
  if (!is_newest) return ReadMailContent(row.content);
  newest_.job.reset();
  return std::move(newest_.content);
}

void MailWorker::Begin(std::int64_t id, const Now& now) {
  const messages::Outgoing& row = *outbox_.Find(id);
  const std::string route = row.route;
  auto content = ContentOf(row);
  outbox_.Take(id);
  if (!content || RouteOf(content->account) != route || RecipientsOf(*content).empty()) {
    return outbox_.FailForGood(id, messages::kRefusedError,
                               "its content in the store cannot be read", now);
  }
  const auto copies = copies_.find(id);
  if (copies != copies_.end() && !copies->second.in_memory.empty()) {
    content->attachments = copies->second.in_memory;
  }
  const bool was_undated = content->message.date < messages::kClockIsSet;
  if (was_undated && now.clock_is_set()) {
    content->message.date = std::chrono::floor<std::chrono::seconds>(now.wall);
  }
  MailProgress progress = ReadMailProgress(row.progress, RecipientsOf(*content).size());
  auto transfer =
      std::make_unique<MailTransfer>(id, std::move(*content), std::move(progress), *attachments_);
  if (const std::string problem = transfer->Problem(); !problem.empty()) {
    return outbox_.FailForGood(id, static_cast<int>(ErrorId::kAttachment), problem, now);
  }
  try {
    if (carrier_ == nullptr) carrier_ = std::make_unique<MailCarrier>();
  } catch (const std::exception& error) {
    return outbox_.FailOnRoute(id, error.what(), now);
  }
  desk_->SetCarrier(carrier_.get());
  const auto credentials = credentials_.find(route);
  Attempt attempt =
      transfer->MakeAttempt(credentials == credentials_.end() ? nullptr : &credentials->second,
                            [this, found = transfer.get()] { return MayFinish(*found); });
  attempt.will_finish = [this, found = transfer.get()] { Mark(*found); };
  carrier_->Begin(std::move(attempt));
  transfers_[id] = std::move(transfer);
}

void MailWorker::WithdrawExpired(const Now& now) {
  for (const auto& [id, transfer] : transfers_) {
    // Once it finishes, its end decides.
    if (transfer->finishes || transfer->expired || outbox_.ValidFor(id, now).count() > 0) continue;
    transfer->expired = true;
    carrier_->Abort(id);
  }
}

void MailWorker::Mark(MailTransfer& transfer) {
  if (transfer.marked != 0) return;
  transfer.marked = outbox_.HandOver(transfer.id(), Now::Get());
  store_.Hurry();
}

bool MailWorker::MayFinish(MailTransfer& transfer) {
  transfer.finishes = true;
  Mark(transfer);
  return store_.IsOnDisk(transfer.marked) || !store_.problem().empty();
}

void MailWorker::HandleOutcome(const Outcome& outcome, const Now& now) {
  const auto place = transfers_.find(outcome.id);
  if (place == transfers_.end()) return;
  const std::unique_ptr<MailTransfer> transfer = std::move(place->second);
  transfers_.erase(place);
  const Verdict verdict = transfer->Take(outcome);
  for (Live& live : live_) {
    if (live.job->id == outcome.id) live.refused = transfer->refused();
  }
  Carry(verdict, *transfer, now);
}

void MailWorker::Carry(const Verdict& verdict, MailTransfer& transfer, const Now& now) {
  const std::int64_t id = transfer.id();
  const std::string route = transfer.route();
  const std::string progress = ToJson(transfer.progress());
  const int error = static_cast<int>(verdict.error);
  switch (verdict.kind) {
    case Verdict::Kind::kSent: logged_.erase(route); return outbox_.Sent(id, progress, false, now);
    case Verdict::Kind::kRest:
      logged_.erase(route);
      return outbox_.FailForRest(id, progress, verdict.reason, now);
    case Verdict::Kind::kForGood:
      outbox_.SetProgress(id, progress, now);
      return outbox_.FailForGood(id, error, verdict.reason, now);
    case Verdict::Kind::kForNow:
      LogFailure(route, verdict.reason);
      outbox_.SetProgress(id, progress, now);
      return outbox_.FailForNow(id, verdict.reason, now);
    case Verdict::Kind::kRoute:
      LogFailure(route, verdict.reason);
      return outbox_.FailOnRoute(id, verdict.reason, now);
    case Verdict::Kind::kAccount:
      if (HasOtherCredentials(transfer)) return outbox_.Withdraw(id, now);
      LogFailure(route, verdict.reason);
      return outbox_.EndJobsOnRoute(id, error, verdict.reason, kAccountPause, now);
    case Verdict::Kind::kUnknown:
      LogFailure(route, verdict.reason);
      outbox_.SetProgress(id, progress, now);
      return outbox_.EndUnknown(id, verdict.reason, now);
    case Verdict::Kind::kWithdrawn:
      if (!transfer.expired) return outbox_.Withdraw(id, now);
      return outbox_.FailForNow(
          id, "the server had not taken it when the time of ValidFor was over", now);
  }
}

bool MailWorker::HasOtherCredentials(const MailTransfer& transfer) const {
  const auto place = credentials_.find(transfer.route());
  return place != credentials_.end() && place->second.secret != transfer.secret;
}

void MailWorker::LogFailure(const std::string& route, const std::string& reason) {
  std::string& last = logged_[route];
  if (std::exchange(last, reason) == reason) return;  // not for each attempt
  logMsgLn(("mail: " + route + ": " + reason + "; what waits is kept and tried again").c_str());
}

// What goes out to blocks, log and disk

MailState MailWorker::StateOf(const Live& live) const {
  const messages::OutboxJob& job = *live.job;
  MailState state;
  state.refused = live.refused;
  const bool row_is_stored = job.sequence != 0 && store_.IsOnDisk(job.sequence);
  state.stored = row_is_stored && !live.in_memory;
  if (job.ended()) {
    state.progress = job.failed == 0 ? JobProgress::Done(AboutRepeats(job.repeats))
                                     : JobProgress::Failed({static_cast<ErrorId>(job.error_id),
                                                            job.errors + Remedy(job.error_id)});
  } else if (std::string problem = store_.problem(); !problem.empty() && !state.stored) {
    state.progress = JobProgress::Busy({ErrorId::kStore, std::move(problem)});
  } else if (row_is_stored && live.in_memory) {
    state.progress = JobProgress::Busy({ErrorId::kStore, kOnlyInMemory});
  }
  return state;
}

void MailWorker::PublishStates() {
  for (Live& live : live_) {
    MailState state = StateOf(live);
    if (state == live.shown) continue;
    live.shown = state;
    desk_->Publish(*live.ticket, std::move(state));
  }
  std::erase_if(live_, [](const Live& live) {
    const bool nobody_looks = live.ticket.use_count() == 1;
    return nobody_looks ||
           (live.job->ended() && (live.shown.stored || live.in_memory || live.job->sequence == 0));
  });
}

void MailWorker::PublishCounts() {
  for (const std::string& route : outbox_.Routes()) PublishCount(route);
}

void MailWorker::PublishCount(const std::string& route) {
  const std::size_t waiting = outbox_.Waiting(route);
  CountsOfRoute& counts = counts_[route];
  if (waiting == counts.shown && counts.taken == 0) return;
  counts.shown = waiting;
  desk_->SetWaiting(route, static_cast<int>(waiting), std::exchange(counts.taken, 0));
}

void MailWorker::LogNews() {
  if (logInfoLn != nullptr && store_.TakeLoaded()) {
    logInfoLn(("messages are kept in " + store_.file().string()).c_str());
  }
  for (const std::string& notice : outbox_.TakeNotices()) logMsgLn(("mail: " + notice).c_str());
  for (const std::string& notice : store_.TakeNotices()) logMsgLn(("mail: " + notice).c_str());
  const std::string problem = store_.problem();
  if (!problem.empty() && !problem_logged_) logMsgLn(("mail: " + problem).c_str());
  problem_logged_ = !problem.empty();
}

void MailWorker::AssignFiles() {
  std::erase_if(undecided_, [this](Undecided& one) {
    if (!one.job->decided) return false;
    if (one.job->duplicate) {
      to_remove_.emplace_back(0, one.files.folder);
    } else {
      copies_[one.job->id] = std::move(one.files);
    }
    return true;
  });
}

void MailWorker::SaveFiles(const Now& now) {
  if (!store_.loaded() || !store_.problem().empty()) return;
  for (auto& [id, files] : copies_) {
    if (files.in_memory.empty() || now.steady < files.next_save) continue;
    files.next_save = messages::SteadyTime::max();  // until it is known what became of this
    files_.Post([desk = desk_, folder = attachments_, id = id, name = files.folder,
                 in_memory = files.in_memory] {
      desk->Give(AttachmentsSaved{id, folder->Save(name, in_memory)});
    });
  }
}

void MailWorker::NoteFilesOfEnded() {
  if (!copies_.empty() && outbox_.ready()) {
    std::erase_if(copies_, [this](const auto& entry) {
      const bool is_loading = entry.first < messages::kFirstNewId && !outbox_.loaded();
      if (is_loading || outbox_.Find(entry.first) != nullptr) return false;
      // After the end of the mail is on the disk, or it would be tried again without them.
      to_remove_.emplace_back(store_.Write({}), entry.second.folder);
      return true;
    });
  }
}

void MailWorker::RemoveFilesOfEnded() {
  NoteFilesOfEnded();
  std::erase_if(to_remove_, [this](const auto& entry) {
    if (!store_.IsOnDisk(entry.first)) return false;
    files_.Post([folder = attachments_, name = entry.second] { folder->Remove(name); });
    return true;
  });
}

void MailWorker::RemoveOrphans() {
  if (orphans_removed_ || !outbox_.loaded()) return;
  orphans_removed_ = true;
  std::set<std::string> known = being_taken_;
  for (const auto& [id, files] : copies_) known.insert(files.folder);
  for (const Undecided& one : undecided_) known.insert(one.files.folder);
  files_.Post([folder = attachments_, known = std::move(known)] { folder->RemoveOthers(known); });
}

void MailWorker::Finish() {
  const auto end = std::chrono::steady_clock::now() + kLongestWithdrawal;
  TakeCommands(Now::Get());
  while (carrier_ != nullptr && !transfers_.empty() && std::chrono::steady_clock::now() < end) {
    for (const Outcome& outcome : carrier_->Poll(kLongestWithdrawal)) {
      HandleOutcome(outcome, Now::Get());
    }
  }
  for (const auto& [id, transfer] : transfers_) {
    if (!transfer->finishes) outbox_.Withdraw(id, Now::Get());
  }
  desk_->SetCarrier(nullptr);
  carrier_.reset();
  LogNews();
  NoteFilesOfEnded();
  if (!to_remove_.empty() && store_.Flush(kLongestWithdrawal)) {  // so the disk answers
    for (const auto& [sequence, folder] : to_remove_) attachments_->Remove(folder);
  }
  const std::size_t waiting = outbox_.waiting();
  if (waiting == 0) return;
  const std::string problem = store_.problem();
  logMsg("mail: the program ends while %zu %s; %s", waiting,
         waiting == 1 ? "mail waits" : "mails wait",
         problem.empty() ? ("kept in " + store_.file().string()).c_str() : problem.c_str());
}

}  // namespace corvane_mail
