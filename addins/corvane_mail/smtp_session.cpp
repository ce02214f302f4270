// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/smtp_session.h"

#include <poll.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace corvane_mail {
namespace {

using namespace std::chrono_literals;

/// How often one connection may send or receive before the others have their turn.
constexpr int kTurns = 16;

constexpr auto kQuitTime = 2s;

constexpr const char* kWithoutWords =
    "(its words are left out, since they contain the password or the token)";

bool SameSecret(const std::shared_ptr<const Secret>& a, const std::shared_ptr<const Secret>& b) {
  return a == b || (a && b && a->text() == b->text());
}

}  // namespace

void SmtpSession::Advance(Clock::time_point now, std::vector<Outcome>& outcomes) {
  outcomes_ = &outcomes;
  if (stage_ == Stage::kIdle && !queue_.empty()) {
    if (Serves(queue_.front().attempt())) {
      BeginMail();
    } else {
      Close();
    }
  }
  if (stage_ == Stage::kClosed && !queue_.empty()) Open();
  if (stage_ == Stage::kOpening) WatchOpening(now);
  int turns = 0;
  while (turns < kTurns && Move(now)) ++turns;
  has_more_ = turns == kTurns;
  if (!has_more_ && now >= deadline_) OnDeadline();
  outcomes_ = nullptr;
}

SmtpSession::Wants SmtpSession::wants() const {
  Wants wants;
  if (stage_ == Stage::kClosed) {
    if (!queue_.empty()) wants.deadline = Clock::time_point::min();
    return wants;
  }
  wants.deadline = stage_ == Stage::kOpening ? link_->deadline() : deadline_;
  if (stage_ == Stage::kOpening) return wants;
  wants.descriptor = link_->descriptor();
  wants.events = static_cast<short>(POLLIN | (unsent_.empty() ? 0 : POLLOUT));
  const bool begins = stage_ == Stage::kIdle && !queue_.empty();
  if (has_more_ || begins) wants.deadline = Clock::time_point::min();
  return wants;
}

bool SmtpSession::Serves(const Attempt& attempt) const {
  const Account& other = attempt.account;
  return account_.security == other.security && account_.ca_file == other.ca_file &&
         account_.insecure == other.insecure && is_token_ == attempt.is_token &&
         SameSecret(secret_, attempt.secret);
}

void SmtpSession::Open() {
  const Attempt& attempt = queue_.front().attempt();
  account_ = attempt.account;
  secret_ = attempt.secret;
  is_token_ = attempt.is_token;
  was_used_ = closes_ = false;
  try {
    if (!account_.user.empty() && secret_) login_.emplace(account_.user, secret_);
    link_ = std::make_unique<CurlLink>(account_, house_.multi, *house_.sockets);
    stage_ = Stage::kOpening;
  } catch (const std::exception& error) {
    FailAll(End::kForNow, error.what());
  }
}

void SmtpSession::WatchOpening(Clock::time_point now) {
  link_->Watch(now);
  if (link_->has_failed()) {
    Failure failure = link_->failure();
    // A server may repeat what an earlier connection has told it.
    if (login_ && login_->IsIn({failure.reason})) {
      failure.reason = "no connection to " + Server() + " " + kWithoutWords;
    }
    FailAll(failure.end, failure.reason);
  } else if (link_->is_open() && account_.user.empty()) {
    stage_ = Stage::kIdle;
    BeginMail();
  } else if (link_->is_open()) {
    BeginLogin();
  }
}

void SmtpSession::BeginLogin() {
  const Mechanism mechanism = ChooseMechanism(link_->features(), is_token_);
  if (mechanism == Mechanism::kNone || !login_) {
    FailAll(
        End::kNotOffered,
        Server() + (is_token_ ? " does not offer a login with a token (XOAUTH2); give Password "
                                "instead of Token"
                              : " does not offer a login with a password (PLAIN, LOGIN) on this "
                                "connection; check Security and Port, or leave User empty"));
    return;
  }
  stage_ = Stage::kLogin;
  Say(login_->Begin(mechanism));
}

void SmtpSession::BeginMail() {
  if (queue_.empty()) {
    deadline_ = Clock::now() + house_.keep_open;
    return;
  }
  stage_ = Stage::kTransaction;
  OnTransaction(queue_.front().Begin(link_->features()));
}

bool SmtpSession::Move(Clock::time_point now) {
  if (stage_ == Stage::kClosed || stage_ == Stage::kOpening) return false;
  const bool has_sent = Flush(now);
  if (stage_ == Stage::kClosed) return false;
  return Hear() || has_sent;
}

bool SmtpSession::Flush(Clock::time_point now) {
  const bool is_content = stage_ == Stage::kTransaction && queue_.front().is_in_content();
  if (unsent_.empty() && is_content) Refill();
  if (unsent_.empty() || stage_ == Stage::kClosed) return false;
  const CurlLink::Moved moved = link_->Send(unsent_);
  unsent_.remove_prefix(moved.octets);
  if (moved.octets > 0) Await(now);
  if (unsent_.empty() && sends_last_) {
    sends_last_ = false;
    queue_.front().OnSent();
    Await(now);
  }
  // What a server says before it closes the connection is still to be heard.
  if (moved.is_lost) {
    if (!Hear() && stage_ != Stage::kClosed) OnLost();
    return false;
  }
  return moved.octets > 0;
}

void SmtpSession::Refill() {
  out_.clear();
  const Transaction::Content content = queue_.front().Fill(out_);
  sends_last_ = content == Transaction::Content::kLast;
  unsent_ = out_;
  if (content == Transaction::Content::kWaits) deadline_ = Clock::time_point::max();
  if (content == Transaction::Content::kEnd) {
    EndFirst();
    Close();
  }
}

bool SmtpSession::Hear() {
  std::array<char, 16384> buffer;
  const CurlLink::Moved moved = link_->Receive(buffer);
  if (moved.octets > 0) {
    Read({buffer.data(), moved.octets});
    Wipe({buffer.data(), moved.octets});
  }
  if (moved.is_lost && stage_ != Stage::kClosed) OnLost();
  return moved.octets > 0;
}

bool SmtpSession::AwaitsReply() const {
  if (stage_ == Stage::kIdle) return false;
  // A server that refuses a mail may say so before it has all of it.
  const bool is_content = stage_ == Stage::kTransaction && queue_.front().is_in_content();
  return unsent_.empty() || is_content;
}

void SmtpSession::Read(std::string_view octets) {
  while (!octets.empty() && stage_ != Stage::kClosed) {
    if (!AwaitsReply()) return OnNonsense("sent a reply without a command");
    octets.remove_prefix(reader_.Feed(octets));
    switch (reader_.state()) {
      case ReplyReader::State::kMore: break;
      case ReplyReader::State::kComplete: OnReply(TakeReply()); break;
      case ReplyReader::State::kInvalid: return OnNonsense("does not answer like a mail server");
      case ReplyReader::State::kTooLong: return OnNonsense("sent a reply of more than a megabyte");
    }
  }
}

Reply SmtpSession::TakeReply() {
  const bool has_secret = login_ && login_->IsIn(reader_.lines());
  Reply reply = reader_.Take();
  if (has_secret) {
    Wipe(reply.text);
    reply.text = kWithoutWords;
  }
  return reply;
}

void SmtpSession::OnReply(const Reply& reply) {
  closes_ = closes_ || reply.code == 421;
  switch (stage_) {
    case Stage::kLogin: return OnLogin(reply);
    case Stage::kTransaction: {
      const bool is_untouched = queue_.front().is_untouched();
      if (closes_ && was_used_ && is_untouched) return Close();  // tried again on a new connection
      return OnTransaction(queue_.front().OnReply(reply));
    }
    case Stage::kReset:
      if (reply.code / 100 != 2) return Close();
      stage_ = Stage::kIdle;
      return BeginMail();
    case Stage::kQuit: return Close();
    case Stage::kClosed:
    case Stage::kOpening:
    case Stage::kIdle: return;
  }
}

void SmtpSession::OnLogin(const Reply& reply) {
  if (reply.code / 100 == 2) {
    stage_ = Stage::kIdle;
    return BeginMail();
  }
  if (reply.code == 334) {
    const std::string_view line = login_->Continue();
    if (!line.empty()) return Say(line);
  }
  const bool is_unknown = reply.code >= 500 && reply.code <= 504;
  if (is_unknown && login_->mechanism() == Mechanism::kPlain && link_->features().login) {
    return Say(login_->Begin(Mechanism::kLogin));
  }
  RefuseLogin(reply);
}

void SmtpSession::RefuseLogin(const Reply& reply) {
  const std::string words = ": " + WordsOf(reply);
  if (reply.code == 538) {  // RFC 4954 clause 6: encryption required
    FailAll(End::kNotOffered, Server() + " wants a secure connection for the login" + words +
                                  "; set Security to \"starttls\" or \"tls\"");
  } else if (reply.code / 100 == 5) {
    FailAll(End::kLogin, Server() + " refused the login of " + account_.user + words +
                             (is_token_ ? "; get a new Token" : "; correct User or Password"));
  } else {
    FailAll(End::kForNow,
            Server() + " does not take the login of " + account_.user + " now" + words);
  }
}

void SmtpSession::OnTransaction(Transaction::Next next) {
  switch (next) {
    case Transaction::Next::kSay: return Say(queue_.front().line());
    case Transaction::Next::kContent: return Refill();
    case Transaction::Next::kEnd: return AfterMail();
  }
}

void SmtpSession::AfterMail() {
  const bool is_broken = closes_ || !unsent_.empty() || queue_.front().was_cut();
  const bool needs_reset = queue_.front().needs_reset();
  was_used_ = true;
  EndFirst();
  if (is_broken) return Close();
  if (!needs_reset) {
    stage_ = Stage::kIdle;
    return BeginMail();
  }
  stage_ = Stage::kReset;
  Say("RSET\r\n");
}

void SmtpSession::Say(std::string_view line) {
  unsent_ = line;
  Await(Clock::now());
}

void SmtpSession::Await(Clock::time_point now) {
  const bool is_final = stage_ == Stage::kTransaction && queue_.front().is_sent();
  const bool is_quit = stage_ == Stage::kQuit;
  deadline_ = now + (is_final ? account_.final_timeout : is_quit ? kQuitTime : account_.timeout);
}

void SmtpSession::OnDeadline() {
  switch (stage_) {
    case Stage::kIdle: stage_ = Stage::kQuit; return Say("QUIT\r\n");
    case Stage::kLogin:
      return FailAll(End::kForNow, Server() + " did not answer the login within " +
                                       TextOf(account_.timeout) + "; check the server");
    case Stage::kTransaction: {
      const Transaction& mail = queue_.front();
      return StopMail(Server() +
                      (mail.is_in_content() ? " took nothing within " : " did not answer within ") +
                      TextOf(mail.is_sent() ? account_.final_timeout : account_.timeout) +
                      (mail.is_sent() ? std::string() : std::string(" ") + mail.Where()));
    }
    case Stage::kClosed:
    case Stage::kOpening: return;
    case Stage::kReset:
    case Stage::kQuit: return Close();
  }
}

void SmtpSession::OnLost() {
  if (stage_ == Stage::kLogin) {
    return FailAll(End::kForNow, "the connection to " + Server() +
                                     " was lost within the login; check the server");
  }
  if (stage_ != Stage::kTransaction) return Close();
  StopMail("the connection to " + Server() + " was lost " + queue_.front().Where());
}

void SmtpSession::OnNonsense(const std::string& what) {
  const std::string reason = Server() + " " + what + "; check Server and Port";
  if (stage_ == Stage::kLogin) return FailAll(End::kForNow, reason);
  if (stage_ != Stage::kTransaction) return Close();
  StopMail(reason);
}

void SmtpSession::StopMail(const std::string& reason) {
  Transaction& mail = queue_.front();
  // Servers close connections that have been open for long. A new one tries again.
  const bool begins_again = was_used_ && mail.is_untouched();
  if (!begins_again) {
    if (mail.is_sent() && reader_.code() / 100 == 2) {
      mail.OnReply(TakeReply());  // the code of a reply's first lines is that of the others
    } else {
      mail.Stop(End::kForNow, reason);
    }
    EndFirst();
  }
  Close();
}

void SmtpSession::AbortAll(const std::string& reason, std::vector<Outcome>& outcomes) {
  for (Transaction& mail : queue_) {
    mail.Stop(End::kAborted, reason);
    outcomes.push_back(mail.outcome());
  }
  queue_.clear();
  Close();
}

void SmtpSession::Abort(std::int64_t id, const std::string& reason,
                        std::vector<Outcome>& outcomes) {
  const auto found = std::find_if(queue_.begin(), queue_.end(), [id](const Transaction& mail) {
    return mail.attempt().id == id;
  });
  if (found == queue_.end()) return;
  found->Stop(End::kAborted, reason);
  outcomes.push_back(found->outcome());
  const bool is_under_way = stage_ == Stage::kTransaction && found == queue_.begin();
  queue_.erase(found);
  if (is_under_way || queue_.empty()) Close();
}

void SmtpSession::Close() {
  link_.reset();
  login_.reset();
  secret_.reset();
  reader_.Clear();
  unsent_ = {};
  sends_last_ = false;
  deadline_ = Clock::time_point::max();
  stage_ = Stage::kClosed;
}

void SmtpSession::EndFirst() {
  outcomes_->push_back(queue_.front().outcome());
  queue_.pop_front();
}

void SmtpSession::FailAll(End end, const std::string& reason) {
  std::deque<Transaction> others;
  for (Transaction& mail : queue_) {
    if (Serves(mail.attempt())) {
      mail.Stop(end, reason);
      outcomes_->push_back(mail.outcome());
    } else {
      others.push_back(std::move(mail));
    }
  }
  queue_ = std::move(others);
  Close();
}

}  // namespace corvane_mail
