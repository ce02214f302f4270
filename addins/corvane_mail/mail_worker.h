// SPDX-License-Identifier: MIT
// The thread of mails: it owns the outbox, the handle on the store and the carrier, and decides
// everything. It waits for nothing but news, and for the disk only to read attachments again.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "addins/corvane_mail/attachment_folder.h"
#include "addins/corvane_mail/file_thread.h"
#include "addins/corvane_mail/mail_carrier.h"
#include "addins/corvane_mail/mail_desk.h"
#include "addins/corvane_mail/mail_transfer.h"
#include "libs/messages/outbox.h"
#include "libs/messages/store.h"

namespace corvane_mail {

using messages::Now;

class MailWorker {
 public:
  MailWorker(const std::filesystem::path& folder, std::shared_ptr<MailDesk> desk);
  MailWorker(const MailWorker&) = delete;
  MailWorker& operator=(const MailWorker&) = delete;
  /// The destructor takes as long as that of the store.
  ~MailWorker() = default;

  /// Returns soon after the desk's Stop, when nothing is under way any more, and what waits is
  /// logged.
  void Run();

 private:
  /// A mail whose block may still look.
  struct Live {
    std::shared_ptr<MailTicket> ticket;
    std::shared_ptr<const messages::OutboxJob> job;
    std::string refused;
    MailState shown;
    bool in_memory = false;  // its attachments are on no disk, so it is not stored
  };
  /// The mail that was queued last. Most begin at once, and need not be read from their JSON.
  struct Newest {
    std::shared_ptr<const messages::OutboxJob> job;
    MailContent content;
  };
  struct CountsOfRoute {
    std::size_t shown = 0;
    int taken = 0;  // submissions since then
  };
  /// The copies that belong to a mail.
  struct Files {
    std::string folder;
    std::vector<StoredAttachment> in_memory;  // if the folder could not be written
    messages::SteadyTime next_save{};         // when to try that again
  };
  /// A job that may turn out to be a duplicate of another one.
  struct Undecided {
    std::shared_ptr<const messages::OutboxJob> job;
    Files files;
  };

  void Step();
  void TakeContent(const Now& now);
  void TakeCommands(const Now& now);
  void Handle(Submission submission, const Now& now);
  /// Has the attachments of what has come taken over, as soon as it is known whether the folder is
  /// this program's: whoever has the store has the folder.
  void TakeAttachments();
  void Handle(const Credentials& credentials, const Now& now);
  void Handle(AttachmentsTaken taken, const Now& now);
  void Handle(const AttachmentsSaved& saved, const Now& now);
  void Queue(Submission submission, std::vector<StoredAttachment> attachments);
  void Reject(const Submission& submission, ErrorId error, std::string text);

  void BeginAttempts(const Now& now);
  /// @return whether the route has what its server may ask for
  [[nodiscard]] bool IsKnown(const std::string& route) const;
  void Begin(std::int64_t id, const Now& now);
  [[nodiscard]] std::optional<MailContent> ContentOf(const messages::Outgoing& row);
  /// Ends attempts of which the server has not got the whole mail in time.
  void WithdrawExpired(const Now& now);
  void Mark(MailTransfer& transfer);
  [[nodiscard]] bool MayFinish(MailTransfer& transfer);
  void Poll();
  void HandleOutcome(const Outcome& outcome, const Now& now);
  void Carry(const Verdict& verdict, MailTransfer& transfer, const Now& now);
  /// Whether a call has brought other credentials than those of the attempt.
  [[nodiscard]] bool HasOtherCredentials(const MailTransfer& transfer) const;
  void LogFailure(const std::string& route, const std::string& reason);

  void PublishStates();
  void PublishCounts();
  void PublishCount(const std::string& route);
  [[nodiscard]] MailState StateOf(const Live& live) const;
  void LogNews();
  void AssignFiles();
  /// Has attachments that are in memory written, now that the disk may take them.
  void SaveFiles(const Now& now);
  void NoteFilesOfEnded();
  void RemoveFilesOfEnded();
  void RemoveOrphans();
  void Finish();

  const std::shared_ptr<MailDesk> desk_;
  const std::shared_ptr<AttachmentFolder> attachments_;
  messages::Store store_;
  messages::Outbox outbox_;
  FileThread files_;
  std::unique_ptr<MailCarrier> carrier_;            // from the first attempt on
  std::map<std::string, Credentials> credentials_;  // by route
  std::map<std::int64_t, std::unique_ptr<MailTransfer>> transfers_;
  std::map<std::int64_t, Files> copies_;  // by mail
  std::vector<Undecided> undecided_;
  std::vector<Live> live_;
  Newest newest_;
  std::map<std::string, CountsOfRoute> counts_;
  std::vector<Submission> with_attachments_;  // that are still to be taken over
  std::set<std::string> being_taken_;  // folders of attachments that are not in the outbox yet
  /// Folders of mails that have ended, to be removed once that is on the disk.
  std::vector<std::pair<std::uint64_t, std::string>> to_remove_;
  std::map<std::string, std::string> logged_;  // the last failure, by route
  bool orphans_removed_ = false;
  bool problem_logged_ = false;
};

}  // namespace corvane_mail
