// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/smtp_session.h"

#include <atomic>
#include <stdexcept>

#include "tests/addins/corvane_mail/carrier_test.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_certificate.h"

namespace corvane_mail {
namespace {

using std::chrono_literals::operator""ms;
using std::string_view_literals::operator""sv;
using test_support::ScriptedSmtpServer;
using test_support::SmtpPeer;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class SessionTest : public CarrierTest {
 protected:
  /// What becomes of a mail that is sent to a server with this script.
  Outcome SendTo(const ScriptedSmtpServer::Script& script) {
    ScriptedSmtpServer server(script);
    Account account = LocalAccount(server.port());
    account.timeout = timeout_;
    account.final_timeout = final_timeout_;
    account.user = user_;
    Attempt attempt = MakeAttempt(1, account, "s3cret");
    attempt.is_token = is_token_;
    if (!mail_.empty()) Carry(mail_, attempt);
    const Outcome outcome = Send(std::move(attempt));
    heard_ = server.heard();
    return outcome;
  }

  std::chrono::milliseconds timeout_ = test_support::kPatience;
  std::chrono::milliseconds final_timeout_ = test_support::kPatience;
  std::string user_;
  bool is_token_ = false;
  std::string mail_;
  std::string heard_;
};

// Logins.

/// A server that offers these mechanisms, and then answers each line with one of the replies.
ScriptedSmtpServer::Script LoginServer(std::string offered, std::vector<std::string> replies) {
  return [offered, replies](SmtpPeer& peer) {
    Greet(peer, "250-mail.example\r\n250 " + offered + "\r\n");
    for (const std::string& reply : replies) {
      peer.HearLine();
      peer.Say(reply);
    }
    ServeCommands(peer);
  };
}

TEST_F(SessionTest, LogsInWithLoginWherePlainIsNotOffered) {
  user_ = "plc";
  const Outcome outcome =
      SendTo(LoginServer("AUTH LOGIN", {"334 VXNlcg==\r\n", "334 any words\r\n", "235 ok\r\n"}));
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
  EXPECT_THAT(heard_, HasSubstr("AUTH LOGIN\r\ncGxj\r\nczNjcmV0\r\nMAIL"));
}

TEST_F(SessionTest, LogsInWithLoginWherePlainIsOfferedButNotKnown) {
  user_ = "plc";
  const Outcome outcome =
      SendTo(LoginServer("AUTH PLAIN LOGIN", {"504 5.5.4 unrecognized\r\n", "334 user\r\n",
                                              "334 password\r\n", "235 ok\r\n"}));
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
}

TEST_F(SessionTest, LogsInWithPlainWhereTheServerAsksForTheMessageAgain) {
  user_ = "plc";
  const Outcome outcome = SendTo(LoginServer("AUTH=PLAIN", {"334 \r\n", "235 ok\r\n"}));
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
  EXPECT_THAT(heard_, HasSubstr("\r\nAHBsYwBzM2NyZXQ=\r\nMAIL"));
}

TEST_F(SessionTest, LogsInWithATokenByXoauth2) {
  user_ = "plc";
  is_token_ = true;
  const Outcome outcome = SendTo(LoginServer("AUTH PLAIN XOAUTH2", {"235 ok\r\n"}));
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
  // user=plc^Aauth=Bearer s3cret^A^A
  EXPECT_THAT(heard_, HasSubstr("AUTH XOAUTH2 dXNlcj1wbGMBYXV0aD1CZWFyZXIgczNjcmV0AQE=\r\n"));
}

TEST_F(SessionTest, ARefusedTokenIsALoginRefused) {
  user_ = "plc";
  is_token_ = true;
  const Outcome outcome = SendTo(
      LoginServer("AUTH XOAUTH2", {"334 eyJzdGF0dXMiOiI0MDAifQ==\r\n", "535 5.7.8 expired\r\n"}));
  EXPECT_EQ(outcome.end, End::kLogin);
  EXPECT_THAT(outcome.reason, HasSubstr("refused the login of plc: 535 5.7.8 expired; get a new "));
}

TEST_F(SessionTest, ATokenIsNeverGivenAsAPassword) {
  user_ = "plc";
  is_token_ = true;
  const Outcome outcome = SendTo(LoginServer("AUTH PLAIN LOGIN", {}));
  EXPECT_EQ(outcome.end, End::kNotOffered);
  EXPECT_THAT(outcome.reason, HasSubstr("does not offer a login with a token"));
  EXPECT_THAT(heard_, Not(HasSubstr("AUTH")));
}

struct LoginReply {
  const char* reply;
  End end;
  const char* reason;
};

TEST_F(SessionTest, TheReplyToTheLoginDecidesItsEnd) {
  user_ = "plc";
  for (const auto& [reply, end, reason] :
       {LoginReply{"535 5.7.8 no\r\n", End::kLogin, "correct User or Password"},
        LoginReply{"454 4.7.0 later\r\n", End::kForNow, "now: 454 4.7.0 later"},
        LoginReply{"421 4.7.0 bye\r\n", End::kForNow, "now: 421"},
        LoginReply{"538 5.7.11 encrypt\r\n", End::kNotOffered, "wants a secure connection"},
        LoginReply{"what?\r\n", End::kForNow, "does not answer like a mail server"}}) {
    const Outcome outcome = SendTo(LoginServer("AUTH PLAIN", {reply}));
    EXPECT_EQ(outcome.end, end) << outcome.reason;
    EXPECT_THAT(outcome.reason, HasSubstr(reason));
  }
}

TEST_F(SessionTest, AServerWithoutLoginGetsNoMailOfAUser) {
  user_ = "plc";
  const Outcome outcome = SendTo(LoginServer("SIZE", {}));
  EXPECT_EQ(outcome.end, End::kNotOffered);
  EXPECT_THAT(heard_, Not(HasSubstr("MAIL")));
}

TEST_F(SessionTest, OtherCredentialsNeedAnotherConnection) {
  ScriptedSmtpServer server(LoginServer("AUTH PLAIN", {}));
  Account account = LocalAccount(server.port());
  account.user = "plc";
  EXPECT_EQ(Send(MakeAttempt(1, account, "s3cret")).end, End::kTaken);
  EXPECT_EQ(Send(MakeAttempt(2, account, "s3cret")).end, End::kTaken);
  EXPECT_EQ(server.connections(), 1);
  EXPECT_EQ(Send(MakeAttempt(3, account, "n3w")).end, End::kTaken);
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(SessionTest, ARefusedLoginEndsAllMailsThatWaitWithTheSameSecret) {
  std::atomic<int> logins = 0;
  ScriptedSmtpServer server([&](SmtpPeer& peer) {
    Greet(peer, "250-mail.example\r\n250 AUTH PLAIN\r\n");
    peer.HearLine();
    if (++logins == 1) return peer.Say("535 no\r\n");
    peer.Say("235 ok\r\n");
    ServeCommands(peer);
  });
  Account account = LocalAccount(server.port());
  account.user = "plc";
  carrier_.Begin(MakeAttempt(1, account, "wrong"));
  carrier_.Begin(MakeAttempt(2, account, "wrong"));
  carrier_.Begin(MakeAttempt(3, account, "right"));
  const std::vector<Outcome> outcomes = Ends(3);
  EXPECT_EQ(outcomes[0].end, End::kLogin);
  EXPECT_EQ(outcomes[1].end, End::kLogin);
  EXPECT_EQ(outcomes[2].id, 3);
  EXPECT_EQ(outcomes[2].end, End::kTaken);
  EXPECT_EQ(logins, 2);
}

// Connections that are kept open.

TEST_F(SessionTest, AConnectionThatTheServerHasClosedMeanwhileIsOpenedAgain) {
  for (const std::string farewell : {"", "421 4.4.2 idle for too long\r\n"}) {
    std::atomic<bool> is_closed = false;
    ScriptedSmtpServer server([&](SmtpPeer& peer) {
      Greet(peer);
      TakeMail(peer);
      peer.Say("250 queued\r\n");
      if (!is_closed) peer.Say(farewell);
      peer.Close();
      is_closed = true;
    });
    EXPECT_EQ(Send(MakeAttempt(1, LocalAccount(server.port()))).end, End::kTaken);
    EXPECT_TRUE(test_support::WaitFor([&] { return is_closed.load(); }));
    const Outcome outcome = Send(MakeAttempt(2, LocalAccount(server.port())));
    EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
    EXPECT_EQ(server.connections(), 2);
  }
}

TEST_F(SessionTest, AServerThatAllowsOneMailPerConnectionGetsAnotherConnection) {
  ScriptedSmtpServer server([&](SmtpPeer& peer) {
    Greet(peer);
    TakeMail(peer);
    peer.Say("250 queued\r\n");
    peer.HearLine();
    peer.Say("421 4.7.0 too many mails\r\n");
  });
  for (int id = 1; id <= 3; ++id) carrier_.Begin(MakeAttempt(id, LocalAccount(server.port())));
  for (const Outcome& outcome : Ends(3)) EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
  EXPECT_EQ(server.connections(), 3);
}

TEST_F(SessionTest, AConnectionWithoutWorkIsClosedWithQuit) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer);
    ServeCommands(peer);
  });
  MailCarrier carrier(10ms);
  carrier.Begin(MakeAttempt(1, LocalAccount(server.port())));
  EXPECT_TRUE(test_support::WaitFor([&] {
    for (const Outcome& outcome : carrier.Poll(1ms)) EXPECT_EQ(outcome.end, End::kTaken);
    return server.heard().ends_with("QUIT\r\n");
  }));
}

TEST_F(SessionTest, AMailThatNobodyMayReceiveLeavesTheConnectionClean) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer);
    peer.HearLine();
    peer.Say("250 ok\r\n");
    peer.HearLine();
    peer.Say("550 5.1.1 nobody\r\n");
    ServeCommands(peer);
  });
  carrier_.Begin(MakeAttempt(1, LocalAccount(server.port())));
  carrier_.Begin(MakeAttempt(2, LocalAccount(server.port())));
  const std::vector<Outcome> outcomes = Ends(2);
  EXPECT_EQ(outcomes[0].end, End::kRefused);
  EXPECT_THAT(outcomes[0].reason, HasSubstr("refused <anna@plant.example>: 550 5.1.1 nobody"));
  EXPECT_EQ(outcomes[1].end, End::kTaken);
  EXPECT_EQ(server.connections(), 1);
  EXPECT_THAT(server.heard(), HasSubstr("RSET\r\nMAIL"));
}

// Servers that hold a client up, or lie to it.

TEST_F(SessionTest, AServerThatReadsNothingOfTheMailCostsTheTimeoutOnly) {
  timeout_ = 300ms;
  mail_ = std::string(20'000'000, 'x');
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer);
    TakeEnvelope(peer);
    peer.Say("354 go ahead\r\n");
    peer.Idle();
  });
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("took nothing within 300 ms within the mail"));
}

TEST_F(SessionTest, AFinalDotThatIsNeverAnsweredHasAnUnknownEnd) {
  final_timeout_ = 300ms;
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer);
    TakeMail(peer);
    peer.Idle();
  });
  EXPECT_EQ(outcome.end, End::kUnknown);
  EXPECT_THAT(outcome.reason, HasSubstr("did not answer within 300 ms, after the whole mail"));
}

TEST_F(SessionTest, OneServerThatDoesNotAnswerHoldsUpNoOther) {
  ScriptedSmtpServer silent([](SmtpPeer& peer) {
    Greet(peer);
    TakeMail(peer);
    peer.Idle();
  });
  ScriptedSmtpServer other([](SmtpPeer& peer) {
    Greet(peer);
    ServeCommands(peer);
  });
  carrier_.Begin(MakeAttempt(1, LocalAccount(silent.port())));
  EXPECT_TRUE(test_support::WaitFor([&] {
    EXPECT_TRUE(carrier_.Poll(1ms).empty());
    return silent.heard().ends_with("\r\n.\r\n");
  }));
  EXPECT_EQ(Send(MakeAttempt(2, LocalAccount(other.port()))).id, 2);
  carrier_.Abort(1);
  EXPECT_EQ(Ends(1).front().end, End::kUnknown);
}

TEST_F(SessionTest, AResetAfterTheFinalReplyChangesNothing) {
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer);
    TakeMail(peer);
    peer.Say("250 queued\r\n");
    peer.Reset();
  });
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
}

TEST_F(SessionTest, AReplyCutAfterItsFirstLineHasItsCode) {
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer);
    TakeMail(peer);
    peer.Say("250-2.0.0 queued\r\n");
    peer.Close();
  });
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
  EXPECT_EQ(WordsOf(outcome.last), "250 2.0.0 queued");
}

TEST_F(SessionTest, AReplyOfAMegabyteIsShownInPart) {
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer);
    TakeMail(peer);
    peer.Say("554 " + std::string(1'000'000, 'x') + "\r\n");
    peer.Idle();
  });
  EXPECT_EQ(outcome.end, End::kRefused);
  EXPECT_THAT(outcome.reason, HasSubstr("refused the mail: 554 xxx"));
  EXPECT_LT(outcome.reason.size(), 1000U);
}

TEST_F(SessionTest, AReplyWithoutEndIsGivenUp) {
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer);
    peer.HearLine();
    for (;;) peer.Say("250-and more and more and more and more and more and more and more\r\n");
  });
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("more than a megabyte"));
}

TEST_F(SessionTest, ControlCharactersOfAReplyAreShownAsText) {
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer);
    peer.HearLine();
    peer.Say("550 a\0b\x1b[2J\xff\r\n"sv);
    peer.Idle();
  });
  EXPECT_EQ(outcome.end, End::kRefused);
  EXPECT_THAT(outcome.reason, HasSubstr("550 a\\x00b\\x1B[2J\\xFF"));
}

TEST_F(SessionTest, ARefusalWithinTheMailIsHeard) {
  mail_ = std::string(20'000'000, 'x');
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer);
    TakeEnvelope(peer);
    peer.Say("354 go ahead\r\n");
    peer.HearUntil("xxx");
    peer.Say("552 5.3.4 too big\r\n");
    peer.Idle();
  });
  EXPECT_EQ(outcome.end, End::kRefused);
  EXPECT_THAT(outcome.reason, HasSubstr("552 5.3.4 too big"));
}

TEST_F(SessionTest, AResetWithinAMailOverTlsEndsTheAttemptAndNotTheProgram) {
  const test_support::TestCertificate certificate({});
  const test_support::TemporaryFolder folder;
  ScriptedSmtpServer server([&](SmtpPeer& peer) {
    peer.StartTls(certificate);
    Greet(peer);
    TakeEnvelope(peer);
    peer.Say("354 go ahead\r\n");
    peer.HearUntil("xxx");
    peer.Reset();
  });
  Account account = LocalAccount(server.port());
  account.security = Security::kTls;
  account.ca_file = folder.Write("ca.pem", certificate.Pem());
  Attempt attempt = MakeAttempt(1, account);
  Carry(std::string(20'000'000, 'x'), attempt);
  const Outcome outcome = Send(std::move(attempt));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("was lost within the mail"));
}

TEST_F(SessionTest, AReplyThatNobodyAskedForEndsTheConnection) {
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer);
    peer.HearLine();
    peer.Say("250 ok\r\n250 ok\r\n354 go ahead\r\n250 queued\r\n");
    peer.Idle();
  });
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("sent a reply without a command"));
}

TEST_F(SessionTest, AFinalReplyWithoutSenseLeavesTheEndUnknown) {
  for (const std::string reply : {"354 go ahead\r\n", "what?\r\n", "\r\n"}) {
    const Outcome outcome = SendTo([&](SmtpPeer& peer) {
      Greet(peer);
      TakeMail(peer);
      peer.Say(reply);
      peer.Idle();
    });
    EXPECT_EQ(outcome.end, End::kUnknown) << reply;
  }
}

// Mails.

TEST_F(SessionTest, AMailThatIsTooBigForTheServerIsNotOffered) {
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer, "250-mail.example\r\n250 SIZE 10\r\n");
    peer.Idle();
  });
  EXPECT_EQ(outcome.end, End::kRefused);
  EXPECT_THAT(outcome.reason, HasSubstr("takes at most 10; send smaller attachments"));
  EXPECT_THAT(heard_, Not(HasSubstr("MAIL")));
}

TEST_F(SessionTest, TheSizeIsAnnounced) {
  const Outcome outcome = SendTo([](SmtpPeer& peer) {
    Greet(peer, "250-mail.example\r\n250 SIZE\r\n");
    ServeCommands(peer);
  });
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
  EXPECT_THAT(heard_, HasSubstr("MAIL FROM:<pump3@plant.example> SIZE=39\r\n"));
}

TEST_F(SessionTest, AddressesInUtf8GoToServersThatTakeThem) {
  for (const bool is_offered : {true, false}) {
    ScriptedSmtpServer server([&](SmtpPeer& peer) {
      Greet(peer, is_offered ? "250-mail.example\r\n250-8BITMIME\r\n250 SMTPUTF8\r\n"
                             : "250 mail.example\r\n");
      ServeCommands(peer);
    });
    Attempt attempt = MakeAttempt(1, LocalAccount(server.port()));
    attempt.recipients = {"j\xC3\xBCrgen@plant.example", "anna@plant.example"};
    attempt.has_utf8_addresses = true;
    attempt.open = [&, open = attempt.open](bool smtputf8) {
      EXPECT_EQ(smtputf8, is_offered);
      return open(smtputf8);
    };
    const Outcome outcome = Send(std::move(attempt));
    EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
    EXPECT_EQ(outcome.recipients[0].code, is_offered ? 250 : 553);
    EXPECT_EQ(outcome.recipients[1].code, 250);
    const auto parameters = HasSubstr(" BODY=8BITMIME SMTPUTF8\r\nRCPT TO:<j\xC3\xBCrgen@plant");
    EXPECT_EQ(testing::Matches(parameters)(server.heard()), is_offered);
  }
}

TEST_F(SessionTest, NoAddressCanInjectACommand) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer);
    ServeCommands(peer);
  });
  Attempt attempt = MakeAttempt(1, LocalAccount(server.port()));
  attempt.recipients = {"a@b.example>\r\nRCPT TO:<c@d.example", "anna@plant.example"};
  const Outcome outcome = Send(std::move(attempt));
  EXPECT_EQ(outcome.recipients[0].code, 553);
  Attempt other = MakeAttempt(2, LocalAccount(server.port()));
  other.from = "a@b.example>\nRSET";
  EXPECT_EQ(Send(std::move(other)).end, End::kRefused);
  EXPECT_THAT(server.heard(), AllOf(Not(HasSubstr("c@d")), Not(HasSubstr("RSET\nRSET"))));
}

TEST_F(SessionTest, AMailThatCannotBeReadEndsBeforeTheFinalDot) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer);
    ServeCommands(peer);
  });
  Attempt attempt = MakeAttempt(1, LocalAccount(server.port()));
  attempt.read = [](std::span<char>) -> std::size_t {
    throw std::runtime_error("the attachment has become shorter");
  };
  const Outcome outcome = Send(std::move(attempt));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_EQ(outcome.reason, "the attachment has become shorter");
  EXPECT_THAT(server.heard(), Not(HasSubstr("\r\n.\r\n")));
}

TEST_F(SessionTest, TheReplyToMailDecidesTheEnd) {
  for (const auto& [reply, end, reason] :
       {LoginReply{"530 5.7.0 log in\r\n", End::kLogin, "wants a login: 530 5.7.0 log in"},
        LoginReply{"550 5.7.1 not you\r\n", End::kRefused, "refused the sender"},
        LoginReply{"451 4.3.0 later\r\n", End::kForNow, "for now: 451 4.3.0 later"},
        LoginReply{"421 4.3.0 bye\r\n", End::kForNow, "for now: 421"}}) {
    const Outcome outcome = SendTo(LoginServer("SIZE", {reply}));
    EXPECT_EQ(outcome.end, end) << outcome.reason;
    EXPECT_THAT(outcome.reason, HasSubstr(reason));
  }
}

// Withdrawing.

TEST_F(SessionTest, AMailCanBeWithdrawnAtAnyPointWithoutWaiting) {
  using Clock = std::chrono::steady_clock;
  const std::vector<ScriptedSmtpServer::Script> scripts = {[](SmtpPeer& peer) { peer.Idle(); },
                                                           [](SmtpPeer& peer) {
                                                             peer.Say("220 mail.example\r\n");
                                                             peer.HearLine();
                                                             peer.Idle();
                                                           },
                                                           [](SmtpPeer& peer) {
                                                             Greet(peer);
                                                             peer.HearLine();
                                                             peer.Idle();
                                                           },
                                                           [](SmtpPeer& peer) {
                                                             Greet(peer);
                                                             TakeEnvelope(peer);
                                                             peer.Idle();
                                                           },
                                                           [](SmtpPeer& peer) {
                                                             Greet(peer);
                                                             TakeMail(peer);
                                                             peer.Idle();
                                                           }};
  const std::vector<std::string> heard = {"", "EHLO", "MAIL FROM", "DATA\r\n", "\r\n.\r\n"};
  for (std::size_t i = 0; i < scripts.size(); ++i) {
    ScriptedSmtpServer server(scripts[i]);
    MailCarrier carrier;
    carrier.Begin(MakeAttempt(1, LocalAccount(server.port())));
    ASSERT_TRUE(test_support::WaitFor([&] {
      EXPECT_TRUE(carrier.Poll(1ms).empty());
      return server.connections() == 1 && server.heard().find(heard[i]) != std::string::npos;
    }));
    const auto begin = Clock::now();
    carrier.AbortAll();
    const std::vector<Outcome> outcomes = carrier.Poll(test_support::kPatience);
    EXPECT_LT(Clock::now() - begin, 500ms * CORVANE_TEST_TIME_FACTOR) << heard[i];
    ASSERT_EQ(outcomes.size(), 1U);
    const bool is_sent = i + 1 == scripts.size();
    EXPECT_EQ(outcomes[0].end, is_sent ? End::kUnknown : End::kAborted) << outcomes[0].reason;
  }
}

}  // namespace
}  // namespace corvane_mail
