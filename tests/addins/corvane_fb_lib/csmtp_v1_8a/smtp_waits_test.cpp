// SPDX-License-Identifier: MIT
// What takes ten seconds by design. All of it runs at once, on separate threads, before the first
// test looks at a result; CTest runs the program as one test.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <map>

#include "addins/corvane_fb_lib/csmtp_v1_8a/smtp_socket.h"
#include "tests/addins/corvane_fb_lib/csmtp_v1_8a/smtp_test_tools.h"

namespace {

using test_support::CodeOf;
using test_support::ScriptedSmtpServer;
using test_support::SmallMail;
using test_support::SmtpPeer;
using test_support::SmtpReplies;
using test_support::TemporaryFolder;

struct Outcome {
  int code;
  double seconds;
};

Outcome TimedCodeOf(const std::function<void()>& action) {
  const auto begin = std::chrono::steady_clock::now();
  const int code = CodeOf(action);
  return {code, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count()};
}

Outcome SendTo(const ScriptedSmtpServer& server) {
  return TimedCodeOf([&] { SmallMail(server.port())->Send(); });
}

Outcome SendToSilence() {
  return SendTo(ScriptedSmtpServer([](SmtpPeer& peer) { peer.Idle(); }));
}

/// Sends to a server that stops answering at `stage`.
std::function<Outcome()> SilenceAt(std::string SmtpReplies::*stage) {
  return [stage] {
    SmtpReplies replies;
    replies.*stage = "\x01";  // not a line, so the client keeps waiting
    return SendTo(ScriptedSmtpServer([replies](SmtpPeer& peer) {
      Serve(peer, replies);
      peer.Idle();
    }));
  };
}

/// A byte every three seconds: each wait is short, but the line takes too long.
Outcome SendToDrippingServer() {
  return SendTo(ScriptedSmtpServer([](SmtpPeer& peer) {
    for (;;) {
      peer.Say("2");
      peer.Pause(3000);
    }
  }));
}

/// Each line takes six seconds: longer than ten in all, but each has its own ten.
Outcome SendToSlowServer() {
  return SendTo(ScriptedSmtpServer([](SmtpPeer& peer) {
    peer.Pause(6000);
    peer.Say("220 ready\r\n");
    peer.HearLine();
    peer.Pause(6000);
    peer.Say("502 no\r\n");
  }));
}

/// The greeting's last bytes arrive after its ten seconds, the first ones in time.
Outcome SendToServerWithLateLineEnd() {
  return SendTo(ScriptedSmtpServer([](SmtpPeer& peer) {
    peer.Say("220 ready");
    peer.Pause(11000);
    peer.Say("\r\n");
    peer.Idle();
  }));
}

Outcome SendToServerThatRefusesRecipient() {
  SmtpReplies replies;
  replies.recipient = "550 no such user\r\n";
  return SendTo(ScriptedSmtpServer([replies](SmtpPeer& peer) { Serve(peer, replies); }));
}

/// A script that stops reading when the message arrives.
void StopReadingAtData(SmtpPeer& peer) {
  ServeUpToMessage(peer);
  peer.Idle();
}

Outcome SendTextToServerThatStopsReading() {
  const ScriptedSmtpServer server(StopReadingAtData);
  const auto mail = SmallMail(server.port());
  mail->AddMsgLine(std::string(20 << 20, 'x').c_str());
  return TimedCodeOf([&] { mail->Send(); });
}

Outcome SendFileToServerThatStopsReading() {
  const TemporaryFolder folder;
  const std::string path = folder.Write("big", std::string(5 << 20, 'x'));
  const ScriptedSmtpServer server(StopReadingAtData);
  const auto mail = SmallMail(server.port());
  mail->AddAttachment(path.c_str());
  return TimedCodeOf([&] { mail->Send(); });
}

/// Reads the message a little at a time: for more than ten seconds, but never ten without progress.
Outcome SendToSlowReader() {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    ServeUpToMessage(peer);
    for (int i = 0; i < 4; ++i) {
      peer.HearUntil(std::string(1 << 20, 'x'));
      peer.Pause(3000);
    }
    peer.HearUntil("\r\n.\r\n");
    peer.Say("250 queued\r\n");
    peer.HearLine();
    peer.Say("221 bye\r\n");
  });
  const auto mail = SmallMail(server.port());
  mail->AddMsgLine(std::string(20 << 20, 'x').c_str());
  return TimedCodeOf([&] { mail->Send(); });
}

/// A listener whose queue is full drops what arrives, so the handshake never ends.
Outcome ConnectToFullListener() {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* any = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener, any, length) != 0 || listen(listener, 0) != 0 ||
      getsockname(listener, any, &length) != 0) {
    return {-1, 0};
  }
  const unsigned short port = ntohs(address.sin_port);
  const int queued = smtp_socket::Connect("127.0.0.1", port);
  const Outcome outcome = TimedCodeOf([&] { close(smtp_socket::Connect("127.0.0.1", port)); });
  close(queued);
  close(listener);
  return outcome;
}

class SmtpWait : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    const std::map<std::string, std::function<Outcome()>> scenarios = {
        {"silence", SendToSilence},
        {"silence after EHLO", SilenceAt(&SmtpReplies::ehlo)},
        {"silence after AUTH", SilenceAt(&SmtpReplies::auth)},
        {"silence after login", SilenceAt(&SmtpReplies::login)},
        {"silence after password", SilenceAt(&SmtpReplies::password)},
        {"silence after MAIL", SilenceAt(&SmtpReplies::mail)},
        {"silence after RCPT", SilenceAt(&SmtpReplies::recipient)},
        {"silence after DATA", SilenceAt(&SmtpReplies::data)},
        {"silence after message", SilenceAt(&SmtpReplies::message)},
        {"silence after QUIT", SilenceAt(&SmtpReplies::quit)},
        {"dripping", SendToDrippingServer},
        {"slow", SendToSlowServer},
        {"late line end", SendToServerWithLateLineEnd},
        {"refused recipient", SendToServerThatRefusesRecipient},
        {"text not read", SendTextToServerThatStopsReading},
        {"file not read", SendFileToServerThatStopsReading},
        {"slow reader", SendToSlowReader},
        {"full listener", ConnectToFullListener}};
    std::map<std::string, std::future<Outcome>> running;
    for (const auto& [name, scenario] : scenarios) {
      running[name] = std::async(std::launch::async, scenario);
    }
    for (auto& [name, outcome] : running) outcomes_[name] = outcome.get();
  }

  static void ExpectAfterTenSeconds(const std::string& name, int code) {
    const Outcome outcome = outcomes_.at(name);
    EXPECT_EQ(outcome.code, code) << name;
    EXPECT_GE(outcome.seconds, 9.9) << name;
    EXPECT_LT(outcome.seconds, 20) << name;
  }

  static inline std::map<std::string, Outcome> outcomes_;
};

TEST_F(SmtpWait, ForAReplyEndsAfterTenSecondsWith402AtEveryStage) {
  ExpectAfterTenSeconds("silence", 402);
  for (const char* stage :
       {"EHLO", "AUTH", "login", "password", "MAIL", "RCPT", "DATA", "message", "QUIT"}) {
    ExpectAfterTenSeconds("silence after " + std::string(stage), 402);
  }
}

TEST_F(SmtpWait, IsTenSecondsForAWholeLineNotForEachByte) {
  ExpectAfterTenSeconds("dripping", 402);
  ExpectAfterTenSeconds("late line end", 402);
}

TEST_F(SmtpWait, StartsAgainWithEachLine) {
  EXPECT_EQ(outcomes_.at("slow").code, 301);
  EXPECT_GE(outcomes_.at("slow").seconds, 11.9);
}

TEST_F(SmtpWait, ForAConnectionEndsAfterTenSecondsWith403) {
  ExpectAfterTenSeconds("full listener", 403);
}

TEST_F(SmtpWait, ForAServerThatStopsReadingEndsAfterTenSecondsWith402) {
  ExpectAfterTenSeconds("text not read", 402);
  ExpectAfterTenSeconds("file not read", 402);
}

TEST_F(SmtpWait, StartsAgainWithEachPieceThatASlowReaderAccepts) {
  EXPECT_EQ(outcomes_.at("slow reader").code, 0);
  EXPECT_GE(outcomes_.at("slow reader").seconds, 11.9);
}

TEST_F(SmtpWait, AfterARefusedRecipientIsForAReplyThatNoServerSends) {
  ExpectAfterTenSeconds("refused recipient", 402);
}

}  // namespace
