// SPDX-License-Identifier: MIT
// Where calls of blocks and the thread of mails meet: commands go in, results lie ready. Nothing is
// done under its lock but moving pointers and numbers, so that no call waits. Threads: any.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <variant>
#include <vector>

#include "addins/corvane_mail/attachment_folder.h"
#include "addins/corvane_mail/mail_carrier.h"
#include "addins/corvane_mail/mail_content.h"
#include "addins/corvane_mail/priority_mutex.h"
#include "block/job_fb.h"
#include "libs/messages/now.h"

namespace corvane_mail {

/// A mail that a program wants sent.
struct MailOrder {
  MailContent content;                   ///< without Message-ID and time zone
  std::vector<std::string> attachments;  ///< absolute paths
  std::string key;
  bool urgent = false;
  std::chrono::milliseconds valid_for{0};
  messages::Now added;
};

/// What a program shows a server to be let in.
struct Credentials {
  std::string route;  ///< RouteOf the account
  std::shared_ptr<const Secret> secret;
  bool is_token = false;
};

/// How far a mail has come, as the block shows it.
struct MailState {
  bool stored = false;
  JobProgress progress = JobProgress::Busy();
  std::string refused;

  bool operator==(const MailState&) const = default;
};

/// A block's view of its mail; the thread of mails replaces the state.
struct MailTicket {
  /// Under the desk's lock; never null.
  std::shared_ptr<const MailState> state = std::make_shared<const MailState>();
};

struct Submission {
  MailOrder order;
  std::shared_ptr<MailTicket> ticket;
};

/// The attachments of a submission have been taken over, or not.
struct AttachmentsTaken {
  Submission submission;
  AttachmentFolder::Taken taken;
};

/// The attachments of a mail, which were in memory only, have been written, or not.
struct AttachmentsSaved {
  std::int64_t id = 0;  ///< the mail's
  bool saved = false;
};

using MailCommand = std::variant<Submission, Credentials, AttachmentsTaken, AttachmentsSaved>;

class MailDesk {
 public:
  /// Mails that the thread has not taken yet; more are refused.
  static constexpr std::size_t kMaxCommands = 10'000;

  // For blocks

  /// @return null: too many wait to be taken
  [[nodiscard]] std::shared_ptr<MailTicket> Submit(MailOrder order);
  void Bring(Credentials credentials);
  [[nodiscard]] std::shared_ptr<const MailState> StateOf(const MailTicket& ticket);
  /// Mails that wait on a route, in whatever stage.
  [[nodiscard]] int Waiting(const std::string& route);

  // For the thread of files

  void Give(AttachmentsTaken taken);
  void Give(AttachmentsSaved saved);

  // For the thread of mails

  [[nodiscard]] std::vector<MailCommand> Take();
  void Publish(MailTicket& ticket, MailState state);
  /// How many of a route wait in the outbox, and how many submissions it has taken over or refused
  /// since the last time.
  void SetWaiting(const std::string& route, int in_outbox, int taken);
  /// From now on Wake wakes this one, too; null: no more.
  void SetCarrier(MailCarrier* carrier);
  /// Waits for Wake, for `longest` at most.
  void Wait(std::chrono::milliseconds longest);

  // For everybody

  /// There is something to do.
  void Wake() noexcept;
  /// The thread of mails is to end; attempts are withdrawn.
  void Stop() noexcept;
  [[nodiscard]] bool stopping() noexcept;
  /// The thread of mails is about to return.
  void SetEnded() noexcept;
  /// @return whether it has ended within this time
  [[nodiscard]] bool WaitForEnd(std::chrono::milliseconds longest);

 private:
  struct Count {
    int submitted = 0;
    int in_outbox = 0;
  };

  void Push(MailCommand command);
  void WakeLocked() noexcept;

  PriorityMutex mutex_;  // guards all below
  std::condition_variable_any changed_;
  std::vector<MailCommand> commands_;
  std::map<std::string, Count> waiting_;
  MailCarrier* carrier_ = nullptr;
  bool woken_ = false;
  bool stopping_ = false;
  bool ended_ = false;
};

}  // namespace corvane_mail
