// SPDX-License-Identifier: MIT
// The transaction of one mail (RFC 5321 clause 3.3): MAIL, RCPT, DATA, the mail, the final dot. It
// decides what to send and what a reply means; its owner moves the octets. Threads: one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "addins/corvane_mail/attempt.h"
#include "addins/corvane_mail/data_encoder.h"
#include "addins/corvane_mail/smtp_features.h"

namespace corvane_mail {

class Transaction {
 public:
  /// What the owner does next.
  enum class Next : std::uint8_t {
    kSay,      ///< send line(), wait for the reply
    kContent,  ///< send what Fill gives
    kEnd,      ///< take outcome()
  };
  /// What Fill has given.
  enum class Content : std::uint8_t {
    kMore,   ///< a piece; more follow
    kWaits,  ///< nothing: the mail may not be finished yet
    kLast,   ///< a piece with the final dot; its reply follows
    kEnd,    ///< the mail cannot be read: take outcome()
  };

  explicit Transaction(Attempt attempt);

  [[nodiscard]] const Attempt& attempt() const { return attempt_; }
  [[nodiscard]] const std::string& line() const { return line_; }
  [[nodiscard]] const Outcome& outcome() const { return outcome_; }

  /// Begins, on a connection that is ready for a mail; or begins again on another one.
  Next Begin(const SmtpFeatures& features);
  Next OnReply(const Reply& reply);
  /// Appends the next octets to `wire`.
  Content Fill(std::string& wire);

  /// The last octet of the mail has been sent: from now on the server may have it.
  void OnSent() { stage_ = Stage::kFinal; }
  [[nodiscard]] bool is_sent() const { return stage_ == Stage::kFinal; }
  /// True from the reply to DATA on, until the mail has been sent: no command can follow.
  [[nodiscard]] bool is_in_content() const { return stage_ == Stage::kContent; }
  /// True if it ended within the mail, which the connection does not survive.
  [[nodiscard]] bool was_cut() const { return was_cut_; }
  /// True if no reply of this transaction has come yet.
  [[nodiscard]] bool is_untouched() const { return stage_ <= Stage::kMail; }
  /// True if the server has an envelope that RSET must clear.
  [[nodiscard]] bool needs_reset() const { return has_envelope_; }
  /// What is going on, for a text: "after MAIL FROM".
  [[nodiscard]] const char* Where() const;
  /// Ends it, whatever it was waiting for; `end` is for a mail that has not been sent completely.
  void Stop(End end, const std::string& reason);

 private:
  enum class Stage : std::uint8_t {
    kReady,
    kMail,
    kRecipients,  // one RCPT after the other
    kData,
    kContent,
    kFinal,  // the reply to the final dot is awaited
    kEnded,
  };

  Next Say(Stage stage, std::string line);
  Next Finish(End end, std::string reason);
  Next SayMail();
  Next SayNextRecipient();
  Next SayData();
  Next OnMail(const Reply& reply);
  Next OnRecipient(const Reply& reply);
  Next EndWithoutRecipients();
  Next OnData(const Reply& reply);
  Next OnFinal(const Reply& reply);
  Next Refuse(const Reply& reply, const std::string& what, const std::string& remedy);

  Attempt attempt_;
  SmtpFeatures features_;
  Stage stage_ = Stage::kReady;
  bool has_envelope_ = false;
  bool was_cut_ = false;
  bool is_utf8_ = false;
  std::uint64_t size_ = 0;     // of the mail
  std::size_t recipient_ = 0;  // the one under way
  std::string line_;
  std::vector<char> piece_;
  bool is_read_ = false;  // the mail has given its last octet
  DataEncoder encoder_;
  Outcome outcome_;
};

}  // namespace corvane_mail
