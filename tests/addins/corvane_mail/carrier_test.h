// SPDX-License-Identifier: MIT
// What the tests of the mail carrier share: attempts, and a carrier that waits for their ends.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "addins/corvane_mail/mail_carrier.h"
#include "tests/support/scripted_smtp_server.h"
#include "tests/support/wait_for.h"

namespace corvane_mail {

inline constexpr const char* kAlarm = "Subject: alarm\r\n\r\nLevel high\r\n.hidden\r\n";

/// The server's side up to the reply to EHLO.
inline void Greet(test_support::SmtpPeer& peer, const std::string& ehlo = "250 mail.example\r\n") {
  peer.Say("220 mail.example\r\n");
  peer.HearLine();
  peer.Say(ehlo);
}

/// Answers the commands of one mail after the other, until QUIT: 250 to each, 235 to AUTH, 354 to
/// DATA.
inline void ServeCommands(test_support::SmtpPeer& peer) {
  for (std::string line = peer.HearLine(); line != "QUIT\r\n"; line = peer.HearLine()) {
    if (line == "DATA\r\n") {
      peer.Say("354 go ahead\r\n");
      peer.HearUntil("\r\n.\r\n");
      peer.Say("250 queued\r\n");
    } else {
      peer.Say(line.starts_with("AUTH") ? "235 welcome\r\n" : "250 ok\r\n");
    }
  }
  peer.Say("221 bye\r\n");
}

/// The server's side of the envelope of a mail with one recipient, up to the command DATA.
inline void TakeEnvelope(test_support::SmtpPeer& peer) {
  for (int command = 0; command < 2; ++command) {
    peer.HearLine();
    peer.Say("250 ok\r\n");
  }
  peer.HearLine();
}

/// The same, with the mail, up to its final dot.
inline void TakeMail(test_support::SmtpPeer& peer) {
  TakeEnvelope(peer);
  peer.Say("354 go ahead\r\n");
  peer.HearUntil("\r\n.\r\n");
}

/// The account of a server on this machine.
inline Account LocalAccount(int port) {
  Account account;
  account.server = "127.0.0.1";
  account.port = port;
  account.security = Security::kNone;
  account.timeout = test_support::kPatience;
  account.final_timeout = test_support::kPatience;
  return account;
}

/// Has the attempt carry this mail.
inline void Carry(std::string mail, Attempt& attempt) {
  struct Source {
    std::string mail;
    std::size_t at = 0;
  };
  auto source = std::make_shared<Source>(std::move(mail));
  attempt.open = [source](bool) {
    source->at = 0;
    return source->mail.size();
  };
  attempt.read = [source](std::span<char> buffer) {
    const std::size_t octets = source->mail.copy(buffer.data(), buffer.size(), source->at);
    source->at += octets;
    return octets;
  };
}

inline Attempt MakeAttempt(std::int64_t id, Account account, const std::string& password = "") {
  Attempt attempt;
  attempt.id = id;
  if (!account.user.empty()) attempt.secret = std::make_shared<Secret>(password);
  attempt.account = std::move(account);
  attempt.from = "pump3@plant.example";
  attempt.recipients = {"anna@plant.example"};
  Carry(kAlarm, attempt);
  return attempt;
}

inline std::string Name(End end) {
  constexpr const char* kNames[] = {"taken",       "refused",     "for now", "login",
                                    "certificate", "not offered", "unknown", "aborted"};
  return kNames[static_cast<int>(end)];
}

inline void PrintTo(End end, std::ostream* out) {
  *out << Name(end);
}

class CarrierTest : public testing::Test {
 protected:
  /// Polls until so many attempts have ended.
  std::vector<Outcome> Ends(std::size_t count) {
    std::vector<Outcome> outcomes;
    const auto end = std::chrono::steady_clock::now() + test_support::kPatience;
    while (outcomes.size() < count && std::chrono::steady_clock::now() < end) {
      for (Outcome& outcome : carrier_.Poll(std::chrono::milliseconds(100))) {
        outcomes.push_back(std::move(outcome));
      }
    }
    EXPECT_EQ(outcomes.size(), count) << "attempts have not ended";
    outcomes.resize(count);
    return outcomes;
  }

  /// Carries one mail.
  Outcome Send(Attempt attempt) {
    carrier_.Begin(std::move(attempt));
    return Ends(1).front();
  }

  MailCarrier carrier_;
};

}  // namespace corvane_mail
