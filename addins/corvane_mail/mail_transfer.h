// SPDX-License-Identifier: MIT
// One mail on its way to the server: what is handed over, and what came of it for each recipient.
// Threads: that of mails.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "addins/corvane_mail/attachment_folder.h"
#include "addins/corvane_mail/attempt.h"
#include "addins/corvane_mail/mail_content.h"
#include "addins/corvane_mail/mail_desk.h"
#include "block/error_ids.h"
#include "libs/mail/composer.h"

namespace corvane_mail {

/// What the outbox is to be told about an attempt.
struct Verdict {
  enum class Kind : std::uint8_t {
    kSent,       ///< taken for everybody
    kRest,       ///< taken for some, the rest is tried again
    kForGood,    ///< it ends with `error`
    kForNow,     ///< this mail is tried again later
    kRoute,      ///< all mails of its route are tried again later
    kAccount,    ///< the account does not work: `error`
    kUnknown,    ///< handed over, and the reply is lost
    kWithdrawn,  ///< nothing has happened
  };
  Kind kind = Kind::kForNow;
  ErrorId error = ErrorId::kNone;
  std::string reason;  ///< a sentence, with the server's words
};

class MailTransfer {
 public:
  /// @param attachments outlives the transfer
  MailTransfer(std::int64_t id, MailContent content, MailProgress progress,
               const AttachmentFolder& attachments);
  MailTransfer(const MailTransfer&) = delete;
  MailTransfer& operator=(const MailTransfer&) = delete;

  /// What is wrong with the mail before it is tried; empty: nothing.
  [[nodiscard]] std::string Problem() const;
  /// The attempt for those who wait. It refers to this transfer.
  [[nodiscard]] Attempt MakeAttempt(const Credentials* credentials,
                                    std::function<bool()> may_finish);
  /// Notes what has become of each recipient. @return what it means for the mail
  [[nodiscard]] Verdict Take(const Outcome& outcome);

  [[nodiscard]] std::int64_t id() const { return id_; }
  [[nodiscard]] const MailProgress& progress() const { return progress_; }
  [[nodiscard]] std::string refused() const { return RefusedLines(recipients_, progress_); }
  [[nodiscard]] std::string route() const { return RouteOf(content_.account); }

  std::uint64_t marked = 0;  ///< sequence number of the change that says "handed over"; 0: not yet
  bool finishes = false;     ///< whether it may be finished has been asked: soon the server has it
  std::shared_ptr<const Secret> secret;  ///< that the attempt shows; null: none
  bool expired = false;  ///< it is being withdrawn, since the time of ValidFor is over

 private:
  void NoteReplies(const Outcome& outcome);
  [[nodiscard]] Verdict VerdictOfTaken(const Outcome& outcome) const;
  [[nodiscard]] Verdict VerdictOfRefused(const Outcome& outcome) const;
  [[nodiscard]] Verdict SomeRefused() const;

  const std::int64_t id_;
  const MailContent content_;
  const std::vector<std::string> recipients_;
  MailProgress progress_;
  mail::Message message_;             // with attachments
  std::vector<std::size_t> waiting_;  // whom this attempt is for
  std::optional<mail::Composer> composer_;
  bool attachment_lost_ = false;
};

}  // namespace corvane_mail
