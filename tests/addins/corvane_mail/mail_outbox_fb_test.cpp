// SPDX-License-Identifier: MIT
// MAIL_OUTBOX; the test plays the mail server.
#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>

#include "tests/addins/corvane_mail/carrier_test.h"
#include "tests/addins/corvane_mail/mail_block_test.h"

namespace {

using test_support::ScriptedSmtpServer;
using test_support::SmtpPeer;
using testing::HasSubstr;

/// Takes mails without a login, and with the password "good" or the token "fresh".
/// `is_silent`: no greeting, so until the client gives up.
void TakeAfterLogin(SmtpPeer& peer, bool is_silent) {
  if (is_silent) peer.HearLine();
  corvane_mail::Greet(peer, "250-mail.example\r\n250 AUTH PLAIN XOAUTH2\r\n");
  std::string line = peer.HearLine();
  while (line.starts_with("AUTH")) {
    const bool is_welcome = line == "AUTH PLAIN AHB1bXAAZ29vZA==\r\n" ||
                            line == "AUTH XOAUTH2 dXNlcj1wdW1wAWF1dGg9QmVhcmVyIGZyZXNoAQE=\r\n";
    peer.Say(is_welcome ? "235 welcome\r\n" : "535 5.7.8 not you\r\n");
    if (is_welcome) return corvane_mail::ServeCommands(peer);
    line = peer.HearLine();
  }
  if (line == "QUIT\r\n") return;
  peer.Say("250 ok\r\n");
  corvane_mail::ServeCommands(peer);
}

class MailOutbox : public MailBlockTest {
 protected:
  MailOutbox() { Create("fb"); }

  /// A block that only lacks an edge.
  void Create(const std::string& name) {
    Run(name +
        " = MAIL_OUTBOX.new { Server = '127.0.0.1', Port = " + std::to_string(server_.port()) +
        ", Security = 'none', From = 'pump3@plant.example', To = 'anna@plant.example', Text = "
        "'Level high' }");
  }
  std::string Get(const std::string& name) { return Eval("fb." + name); }
  void Start() { Run("fb.Execute = false fb() fb.Execute = true fb()"); }
  /// `Busy Done Error ErrorId`.
  std::string Outputs() {
    return Get("Busy") + " " + Get("Done") + " " + Get("Error") + " " + Get("ErrorId");
  }

  std::atomic<bool> is_silent_ = false;
  ScriptedSmtpServer server_{[this](SmtpPeer& peer) { TakeAfterLogin(peer, is_silent_); }};
};

TEST_F(MailOutbox, SendsAndIsDone) {
  Start();
  EXPECT_EQ(Outputs(), "true false false 0");
  EXPECT_EQ(Get("Waiting"), "1");
  EXPECT_EQ(Get("Stored"), "false");
  ASSERT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(Outputs(), "false true false 0");
  EXPECT_EQ(Get("ErrorText"), "");
  EXPECT_EQ(Get("Refused"), "");
  EXPECT_TRUE(CallUntil("fb.Stored and fb.Waiting == 0"));
  EXPECT_EQ(Get("Done"), "true") << "while Execute is TRUE";
  Run("fb.Execute = false fb()");
  EXPECT_EQ(Outputs(), "false false false 0");
  EXPECT_EQ(Get("Stored"), "true") << "until the next job";
  EXPECT_THAT(server_.heard(), HasSubstr("Level high"));
}

TEST_F(MailOutbox, LoadingAProgramTouchesNothing) {
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
  EXPECT_EQ(server_.connections(), 0);
}

TEST_F(MailOutbox, InputsThatCannotWorkAreAnErrorInTheSameCall) {
  const std::pair<const char*, const char*> cases[] = {
      {"fb.Server = ''", "10"},      {"fb.Port = 65536", "10"},
      {"fb.Security = 'ssl'", "10"}, {"fb.User = 'a\\nb'", "10"},
      {"fb.ValidFor = 0/0", "10"},   {"fb.Timeout = -1", "10"},
      {"fb.From = ''", "11"},        {"fb.To = 'anna'", "11"},
      {"fb.Bcc = 'a@b@c'", "11"},    {"fb.Subject = 'a\\xFFb'", "12"},
      {"fb.Text = ''", "12"},        {"fb.Attachments = 'a\\0b'", "15"},
  };
  for (const auto& [input, error] : cases) {
    Create("fb");
    Run(input);
    Start();
    EXPECT_EQ(Outputs(), std::string("false false true ") + error) << input;
    EXPECT_GT(Get("ErrorText").size(), 20U) << input;
    EXPECT_EQ(Get("Waiting"), "0") << input;
    Run("fb()");
    EXPECT_EQ(Get("Error"), "true") << "while Execute is TRUE";
    Run("fb.Execute = false fb()");
    EXPECT_EQ(Outputs(), "false false false 0");
    EXPECT_EQ(Get("ErrorText"), "");
  }
  EXPECT_EQ(server_.connections(), 0);
}

TEST_F(MailOutbox, AnAttachmentThatCannotBeReadIsError15) {
  Run("fb.Attachments = '/no/such/file'");
  Start();
  EXPECT_EQ(Get("Busy"), "true") << "no call waits for a disk";
  ASSERT_TRUE(CallUntil("fb.Error"));
  EXPECT_EQ(Outputs(), "false false true 15");
  EXPECT_EQ(Get("Stored"), "false");
}

TEST_F(MailOutbox, ANewEdgeWhileBusyQueuesAnotherMail) {
  Run("fb.User = 'pump' fb.Password = 'good'");
  Start();
  Run("fb.Text = 'second'");
  Start();
  ASSERT_TRUE(CallUntil("fb.Done and fb.Waiting == 0"));
  EXPECT_THAT(server_.heard(), HasSubstr("Level high"));
  EXPECT_THAT(server_.heard(), HasSubstr("second"));
}

TEST_F(MailOutbox, ARefusedPasswordIsError31AndAnotherOneSendsTheMailWithoutAnEdge) {
  Run("fb.User = 'pump' fb.Password = 'bad'");
  Start();
  ASSERT_TRUE(CallUntil("fb.Error"));
  EXPECT_EQ(Outputs(), "false false true 31");
  EXPECT_THAT(Get("ErrorText"), HasSubstr("535 5.7.8 not you"));
  EXPECT_TRUE(CallUntil("fb.Stored and fb.Waiting == 1"));
  Run("fb.Password = 'good'");
  EXPECT_TRUE(CallUntil("fb.Waiting == 0"));
  EXPECT_THAT(server_.heard(), HasSubstr("Level high"));
}

TEST_F(MailOutbox, ATokenIsUsedInsteadOfThePassword) {
  Run("fb.User = 'pump' fb.Password = 'bad' fb.Token = 'fresh'");
  Start();
  EXPECT_TRUE(CallUntil("fb.Done"));
  EXPECT_EQ(server_.connections(), 1);
}

TEST_F(MailOutbox, AfterARestartACallBringsTheSecretWithoutAnEdge) {
  is_silent_ = true;
  Run("fb.User = 'pump' fb.Password = 'good'");
  Start();
  ASSERT_TRUE(CallUntil("fb.Stored"));
  Restart();
  is_silent_ = false;
  Create("fb");
  EXPECT_TRUE(CallUntil("fb.User == '' and fb.Waiting == 0"));
  EXPECT_EQ(server_.heard(), "") << "without the secret nothing goes out";
  Run("fb.User = 'pump' fb.Password = 'good'");
  EXPECT_TRUE(test_support::WaitFor([this] {
    Run("fb()");
    return server_.heard().find("Level high") != std::string::npos && Get("Waiting") == "0";
  }));
  EXPECT_EQ(Outputs(), "false false false 0");
}

TEST_F(MailOutbox, AfterARestartWhatALoginHasKeptWaitsForOtherCredentials) {
  Run("fb.User = 'pump' fb.Password = 'bad'");
  Start();
  ASSERT_TRUE(CallUntil("fb.Error and fb.Stored"));
  Restart();
  const int connections = server_.connections();
  Create("fb");
  Run("fb.User = 'pump' fb.Password = 'bad'");
  EXPECT_TRUE(CallUntil("fb.Waiting == 1"));
  EXPECT_EQ(server_.connections(), connections)
      << "a program that restarts again and again must not lock the account";
  Run("fb.Password = 'good'");
  EXPECT_TRUE(CallUntil("fb.Waiting == 0"));
  EXPECT_THAT(server_.heard(), HasSubstr("Level high"));
}

TEST_F(MailOutbox, WaitingIsThatOfItsOwnServerAndUser) {
  Run("fb.User = 'pump' fb.Password = 'bad'");
  Start();
  ASSERT_TRUE(CallUntil("fb.Error and fb.Waiting == 1"));
  Create("other");
  Run("other()");
  EXPECT_EQ(Eval("other.Waiting"), "0");
  Run("other.User = 'pump' other.Password = 'bad' other()");
  EXPECT_EQ(Eval("other.Waiting"), "1");
  Run("other.Port = -1 other()");
  EXPECT_EQ(Eval("other.Waiting"), "0") << "of no server";
}

}  // namespace
