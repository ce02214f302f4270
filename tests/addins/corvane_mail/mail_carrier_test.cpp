// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_carrier.h"

#include <fcntl.h>

#include <array>
#include <atomic>
#include <thread>

#include "tests/addins/corvane_mail/carrier_test.h"

namespace corvane_mail {
namespace {

using test_support::ScriptedSmtpServer;
using test_support::SmtpPeer;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// Answers one mail after the other on a connection.
void ServeMails(SmtpPeer& peer) {
  Greet(peer);
  ServeCommands(peer);
}

TEST_F(CarrierTest, CarriesAMailWithItsDotsDoubled) {
  ScriptedSmtpServer server([](SmtpPeer& peer) { ServeMails(peer); });
  const Outcome outcome = Send(MakeAttempt(7, LocalAccount(server.port())));
  EXPECT_EQ(outcome.id, 7);
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
  EXPECT_EQ(WordsOf(outcome.last), "250 queued");
  EXPECT_EQ(outcome.reason, "");
  ASSERT_EQ(outcome.recipients.size(), 1U);
  EXPECT_EQ(WordsOf(outcome.recipients[0]), "250 ok");
  const std::string heard = server.HeardUpTo("\r\n.\r\n");
  EXPECT_THAT(heard, HasSubstr("MAIL FROM:<pump3@plant.example>\r\nRCPT TO:<anna@plant.example>\r\n"
                               "DATA\r\nSubject: alarm\r\n\r\nLevel high\r\n..hidden\r\n.\r\n"));
}

TEST_F(CarrierTest, TenMailsNeedOneLogin) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer, "250-mail.example\r\n250 AUTH PLAIN LOGIN\r\n");
    ServeCommands(peer);
  });
  Account account = LocalAccount(server.port());
  account.user = "plc";
  for (int id = 1; id <= 10; ++id) carrier_.Begin(MakeAttempt(id, account, "s3cret"));
  EXPECT_TRUE(carrier_.IsBusy(RouteOf(account)));
  const std::vector<Outcome> outcomes = Ends(10);
  for (std::size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(outcomes[i].id, static_cast<std::int64_t>(i) + 1);
    EXPECT_EQ(outcomes[i].end, End::kTaken) << outcomes[i].reason;
  }
  EXPECT_FALSE(carrier_.IsBusy(RouteOf(account)));
  EXPECT_EQ(server.connections(), 1);
  // "\0plc\0s3cret"
  EXPECT_THAT(server.heard(), HasSubstr("AUTH PLAIN AHBsYwBzM2NyZXQ=\r\n"));
}

TEST_F(CarrierTest, OneRefusedRecipientDoesNotStopTheOthers) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer);
    peer.HearLine();
    peer.Say("250 ok\r\n");
    peer.HearLine();
    peer.Say("250-fine\r\n250 indeed\r\n");
    peer.HearLine();
    peer.Say("550-5.1.1 no such user\r\n550 5.1.1 at all\r\n");
    peer.HearLine();
    peer.Say("450 4.2.0 come back later\r\n");
    peer.HearLine();
    peer.Say("354 go ahead\r\n");
    peer.HearUntil("\r\n.\r\n");
    peer.Say("250-2.0.0 taken\r\n250 2.0.0 thanks\r\n");
    peer.Idle();
  });
  Attempt attempt = MakeAttempt(1, LocalAccount(server.port()));
  attempt.recipients = {"anna@plant.example", "nobody@plant.example", "carl@plant.example"};
  const Outcome outcome = Send(std::move(attempt));
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
  ASSERT_EQ(outcome.recipients.size(), 3U);
  EXPECT_EQ(WordsOf(outcome.recipients[0]), "250 fine indeed");
  EXPECT_EQ(WordsOf(outcome.recipients[1]), "550 5.1.1 no such user 5.1.1 at all");
  EXPECT_EQ(WordsOf(outcome.recipients[2]), "450 4.2.0 come back later");
  EXPECT_EQ(WordsOf(outcome.last), "250 2.0.0 taken 2.0.0 thanks");
}

TEST_F(CarrierTest, TheFinalDotWaitsForPermission) {
  ScriptedSmtpServer server([](SmtpPeer& peer) { ServeMails(peer); });
  std::atomic<bool> may_finish = false;
  Attempt attempt = MakeAttempt(1, LocalAccount(server.port()));
  attempt.may_finish = [&] { return may_finish.load(); };
  carrier_.Begin(std::move(attempt));
  const auto has_content = [&] { return server.heard().ends_with("\r\n..hidden\r\n"); };
  EXPECT_TRUE(test_support::WaitFor([&] {
    EXPECT_TRUE(carrier_.Poll(std::chrono::milliseconds(1)).empty());
    return has_content();
  }));
  EXPECT_TRUE(carrier_.Poll(std::chrono::milliseconds(50)).empty());
  EXPECT_TRUE(has_content());
  may_finish = true;
  EXPECT_EQ(Ends(1).front().end, End::kTaken);
}

TEST_F(CarrierTest, TheEndOfASmallMailIsAnnouncedWithDataAndNotBefore) {
  for (const std::size_t size : {100U, 100'000U}) {
    std::atomic<int> announced = 0;
    std::array<std::atomic<int>, 3> at{};  // when the server has heard MAIL, RCPT, DATA
    ScriptedSmtpServer server([&](SmtpPeer& peer) {
      Greet(peer);
      for (std::size_t i = 0; i < at.size(); ++i) {
        peer.HearLine();
        at[i] = announced.load();
        peer.Say(i < 2 ? "250 ok\r\n" : "354 go ahead\r\n");
      }
      peer.HearUntil("\r\n.\r\n");
      peer.Say("250 queued\r\n");
      peer.Idle();
    });
    Attempt attempt = MakeAttempt(1, LocalAccount(server.port()));
    Carry(std::string(size, 'x'), attempt);
    attempt.will_finish = [&] { ++announced; };
    EXPECT_EQ(Send(std::move(attempt)).end, End::kTaken);
    EXPECT_EQ(at[0], 0);
    EXPECT_EQ(at[1], 0);
    EXPECT_EQ(at[2], size < 1000 ? 1 : 0);
    EXPECT_EQ(announced, at[2]);
  }
}

TEST_F(CarrierTest, AMailWhoseConnectionIsLostAfterTheFinalDotHasAnUnknownEnd) {
  ScriptedSmtpServer server(test_support::SmtpReplies{.ehlo = "250 mail.example\r\n",
                                                      .auth = "250 ok\r\n",
                                                      .login = "250 ok\r\n",
                                                      .password = "354 go ahead\r\n",
                                                      .mail = ""});
  const Outcome outcome = Send(MakeAttempt(1, LocalAccount(server.port())));
  EXPECT_EQ(outcome.end, End::kUnknown);
  EXPECT_THAT(outcome.reason, HasSubstr("not known whether the server has it"));
}

TEST_F(CarrierTest, AMailWhoseConnectionIsLostBeforeTheFinalDotIsTriedAgain) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer);
    peer.HearLine();
    peer.Say("250 ok\r\n");
    peer.HearLine();
    peer.Reset();
  });
  const Outcome outcome = Send(MakeAttempt(1, LocalAccount(server.port())));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, AllOf(HasSubstr("127.0.0.1:"), HasSubstr("lost after RCPT")));
}

TEST_F(CarrierTest, AllMailsEndAtOnceWhenAnotherThreadWithdrawsThem) {
  ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Idle(); });
  for (int id = 1; id <= 3; ++id) carrier_.Begin(MakeAttempt(id, LocalAccount(server.port())));
  EXPECT_TRUE(test_support::WaitFor([&] {
    EXPECT_TRUE(carrier_.Poll(std::chrono::milliseconds(1)).empty());
    return server.connections() == 1;
  }));
  std::thread other([this] { carrier_.AbortAll(); });
  for (const Outcome& outcome : Ends(3)) EXPECT_EQ(outcome.end, End::kAborted);
  other.join();
  carrier_.Begin(MakeAttempt(4, LocalAccount(server.port())));
  EXPECT_EQ(Ends(1).front().end, End::kAborted);
}

TEST_F(CarrierTest, AServerThatRepeatsThePasswordDoesNotGetItIntoTheReason) {
  for (const std::string echo : {"s3cret", "S3CRET", "czNjcmV0", "AHBsYwBzM2NyZXQ=", "YwBzM2Ny"}) {
    ScriptedSmtpServer server([&](SmtpPeer& peer) {
      peer.Say("220 mail.example\r\n");
      peer.HearLine();
      peer.Say("250-mail.example\r\n250 AUTH PLAIN\r\n");
      peer.HearLine();
      peer.Say("535-wrong\r\n535 credentials: " + echo + "\r\n");
      peer.Idle();
    });
    Account account = LocalAccount(server.port());
    account.user = "plc";
    const Outcome outcome = Send(MakeAttempt(1, account, "s3cret"));
    EXPECT_EQ(outcome.end, End::kLogin);
    EXPECT_THAT(outcome.reason,
                AllOf(HasSubstr("535"), HasSubstr("left out"), Not(HasSubstr(echo))));
    EXPECT_THAT(WordsOf(outcome.last), Not(HasSubstr(echo)));
  }
}

/// How many descriptors a command that is started would inherit.
int InheritedDescriptors() {
  int inherited = 0;
  for (int descriptor = 0; descriptor < 1024; ++descriptor) {
    const int flags = fcntl(descriptor, F_GETFD);
    if (flags >= 0 && (flags & FD_CLOEXEC) == 0) ++inherited;
  }
  return inherited;
}

TEST(MailCarrier, LeavesNoDescriptorToCommandsThatAreStarted) {
  ScriptedSmtpServer server([](SmtpPeer& peer) { ServeMails(peer); });
  const int before = InheritedDescriptors();
  MailCarrier carrier;
  carrier.Begin(MakeAttempt(1, LocalAccount(server.port())));
  EXPECT_EQ(carrier.Poll(test_support::kPatience).size(), 1U);
  EXPECT_EQ(InheritedDescriptors(), before);
}

TEST_F(CarrierTest, AServerThatRemembersThePasswordDoesNotGetItIntoTheReason) {
  ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Say("554 go away, s3cret\r\n"); });
  Account account = LocalAccount(server.port());
  account.user = "plc";
  const Outcome outcome = Send(MakeAttempt(1, account, "s3cret"));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, AllOf(HasSubstr("left out"), Not(HasSubstr("s3cret"))));
}

}  // namespace
}  // namespace corvane_mail
