// SPDX-License-Identifier: MIT
// One connection to a mail server and what it does: opens, logs in, carries one mail after the
// other, stays open for a while, quits. Nothing of it waits. Threads: one.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "addins/corvane_mail/curl_link.h"
#include "addins/corvane_mail/smtp_login.h"
#include "addins/corvane_mail/transaction.h"

namespace corvane_mail {

class SmtpSession {
 public:
  using Clock = CurlLink::Clock;

  /// What all sessions share.
  struct House {
    CURLM* multi;
    OpenSockets* sockets;
    std::chrono::milliseconds keep_open;
  };
  /// What Advance waits for.
  struct Wants {
    int descriptor = -1;  ///< negative: libcurl waits for its own
    short events = 0;     ///< of poll
    Clock::time_point deadline = Clock::time_point::max();
  };

  explicit SmtpSession(const House& house) : house_(house) {}

  void Add(Attempt attempt) { queue_.emplace_back(std::move(attempt)); }
  [[nodiscard]] bool IsBusy() const { return !queue_.empty(); }
  /// True if there is neither work nor a connection.
  [[nodiscard]] bool IsOver() const { return queue_.empty() && stage_ == Stage::kClosed; }
  [[nodiscard]] CurlLink* link() { return link_.get(); }

  /// Does what can be done now, without waiting. Attempts that have ended are appended.
  void Advance(Clock::time_point now, std::vector<Outcome>& outcomes);
  [[nodiscard]] Wants wants() const;
  /// Withdraws all attempts.
  void AbortAll(const std::string& reason, std::vector<Outcome>& outcomes);
  /// Withdraws an attempt; one that is under way costs the connection.
  void Abort(std::int64_t id, const std::string& reason, std::vector<Outcome>& outcomes);

 private:
  enum class Stage : std::uint8_t {
    kClosed,
    kOpening,      // libcurl is at work
    kLogin,        // AUTH, until 235
    kIdle,         // nothing to do, or the next mail begins
    kTransaction,  // the first attempt of the queue
    kReset,        // RSET after a mail that was given up
    kQuit,
  };

  void Open();
  void WatchOpening(Clock::time_point now);
  void BeginLogin();
  void BeginMail();
  bool Move(Clock::time_point now);
  bool Flush(Clock::time_point now);
  void Refill();
  bool Hear();
  void Read(std::string_view octets);
  [[nodiscard]] bool AwaitsReply() const;
  Reply TakeReply();
  void OnReply(const Reply& reply);
  void OnLogin(const Reply& reply);
  void RefuseLogin(const Reply& reply);
  void OnTransaction(Transaction::Next next);
  void AfterMail();
  void Say(std::string_view line);
  void Await(Clock::time_point now);
  void OnDeadline();
  void OnLost();
  void OnNonsense(const std::string& what);
  void Close();
  void EndFirst();
  void StopMail(const std::string& reason);
  void FailAll(End end, const std::string& reason);
  [[nodiscard]] bool Serves(const Attempt& attempt) const;
  [[nodiscard]] std::string Server() const { return ServerOf(account_); }

  House house_;
  Stage stage_ = Stage::kClosed;
  std::deque<Transaction> queue_;
  std::vector<Outcome>* outcomes_ = nullptr;  // of the Advance under way
  Account account_;                           // of the connection, like the secret
  std::shared_ptr<const Secret> secret_;
  bool is_token_ = false;
  std::unique_ptr<CurlLink> link_;
  std::optional<SmtpLogin> login_;
  bool was_used_ = false;    // it has carried a mail, or tried to
  bool closes_ = false;      // the server has announced that it closes the connection
  bool has_more_ = false;    // Advance stopped so that other connections have their turn
  bool sends_last_ = false;  // the octets to be sent end with the final dot
  std::string out_;          // to be sent; wiped by its owner if it is the login's
  std::string_view unsent_;  // of `out_` or of the login's line
  ReplyReader reader_;
  Clock::time_point deadline_ = Clock::time_point::max();
};

}  // namespace corvane_mail
