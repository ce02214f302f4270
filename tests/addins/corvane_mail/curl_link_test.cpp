// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/curl_link.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "libs/base/descriptor.h"
#include "tests/addins/corvane_mail/carrier_test.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_certificate.h"

namespace corvane_mail {
namespace {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""h;
using test_support::ScriptedSmtpServer;
using test_support::SmtpPeer;
using test_support::TestCertificate;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class OpeningTest : public CarrierTest {
 protected:
  /// The account of a server with this certificate.
  Account Trusting(int port, Security security, const TestCertificate& trusted) {
    Account account = LocalAccount(port);
    account.security = security;
    account.user = "plc";
    account.ca_file = folder_.Write("ca.pem", trusted.Pem());
    return account;
  }

  test_support::TemporaryFolder folder_;
};

/// A server that offers STARTTLS, up to the secure connection.
void BeginTls(SmtpPeer& peer, const TestCertificate& certificate) {
  Greet(peer, "250-mail.example\r\n250 STARTTLS\r\n");
  peer.HearLine();
  peer.Say("220 go ahead\r\n");
  peer.StartTls(certificate);
}

TEST_F(OpeningTest, StartTlsSecuresTheConnectionBeforeTheLogin) {
  const TestCertificate certificate({});
  ScriptedSmtpServer server([&](SmtpPeer& peer) {
    BeginTls(peer, certificate);
    peer.HearLine();
    peer.Say("250-mail.example\r\n250 AUTH PLAIN\r\n");
    ServeCommands(peer);
  });
  const Account account = Trusting(server.port(), Security::kStartTls, certificate);
  const Outcome outcome = Send(MakeAttempt(1, account, "s3cret"));
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
  EXPECT_THAT(server.heard(), HasSubstr("STARTTLS\r\nEHLO"));
  EXPECT_THAT(server.heard(), HasSubstr("AUTH PLAIN AHBsYwBzM2NyZXQ=\r\nMAIL FROM"));
}

TEST_F(OpeningTest, TlsIsThereFromTheFirstOctetOn) {
  const TestCertificate certificate({});
  ScriptedSmtpServer server([&](SmtpPeer& peer) {
    peer.StartTls(certificate);
    Greet(peer, "250-mail.example\r\n250 AUTH PLAIN\r\n");
    ServeCommands(peer);
  });
  const Account account = Trusting(server.port(), Security::kTls, certificate);
  Attempt attempt = MakeAttempt(1, account, "s3cret");
  const std::string line(70, 'x');
  std::string mail;
  while (mail.size() < 3'000'000) mail += line + "\r\n";
  Carry(mail, attempt);
  EXPECT_EQ(Send(std::move(attempt)).end, End::kTaken);
  EXPECT_THAT(server.heard(), HasSubstr("DATA\r\n" + mail + ".\r\n"));
}

struct BadCertificate {
  const char* name;
  TestCertificate::Wanted wanted;
  bool is_trusted;  // the certificate itself, or its issuer
  const char* reason;
};

void PrintTo(const BadCertificate& bad, std::ostream* out) {
  *out << bad.name;
}

class BadCertificateTest : public OpeningTest,
                           public testing::WithParamInterface<BadCertificate> {};

TEST_P(BadCertificateTest, StopsTheMailBeforeTheLoginWithItsOwnText) {
  const TestCertificate issuer({.may_issue = true});
  TestCertificate::Wanted wanted = GetParam().wanted;
  if (std::string_view(GetParam().name) == "UnknownIssuer") wanted.issuer = &issuer;
  const TestCertificate certificate(wanted);
  const TestCertificate other({});
  for (const Security security : {Security::kTls, Security::kStartTls}) {
    ScriptedSmtpServer server([&](SmtpPeer& peer) {
      if (security == Security::kStartTls) return BeginTls(peer, certificate);
      peer.StartTls(certificate);
    });
    const TestCertificate& trusted = GetParam().is_trusted ? certificate : other;
    const Outcome outcome =
        Send(MakeAttempt(1, Trusting(server.port(), security, trusted), "s3cret"));
    EXPECT_EQ(outcome.end, End::kCertificate) << outcome.reason;
    EXPECT_THAT(outcome.reason,
                AllOf(HasSubstr("the certificate of 127.0.0.1:"), HasSubstr(GetParam().reason)));
    EXPECT_THAT(server.heard(), AllOf(Not(HasSubstr("AUTH")), Not(HasSubstr("MAIL"))));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Certificates, BadCertificateTest,
    testing::Values(
        BadCertificate{"Expired", {.valid_from = -48h, .valid_until = -24h}, true, "has expired"},
        BadCertificate{"NotYetValid", {.valid_from = 24h}, true, "is not valid yet"},
        BadCertificate{
            "OtherHost", {.names = "DNS:other.example"}, true, "belongs to another server"},
        BadCertificate{"SelfSigned", {}, false, "is self-signed"},
        BadCertificate{"UnknownIssuer", {}, false, "comes from an issuer that is not trusted"}),
    [](const auto& parameter) { return parameter.param.name; });

TEST_F(OpeningTest, ACaFileThatCannotBeReadIsNamed) {
  const TestCertificate certificate({});
  ScriptedSmtpServer server([&](SmtpPeer& peer) { peer.StartTls(certificate); });
  Account account = Trusting(server.port(), Security::kTls, certificate);
  account.ca_file = "/missing/ca.pem";
  const Outcome outcome = Send(MakeAttempt(1, account, "s3cret"));
  EXPECT_EQ(outcome.end, End::kCertificate);
  EXPECT_THAT(outcome.reason, HasSubstr("CaFile /missing/ca.pem cannot be read"));
}

TEST_F(OpeningTest, AServerWithoutStartTlsGetsNeitherLoginNorMail) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer, "250-mail.example\r\n250 AUTH PLAIN\r\n");
    peer.Idle();
  });
  Account account = LocalAccount(server.port());
  account.security = Security::kStartTls;
  account.user = "plc";
  const Outcome outcome = Send(MakeAttempt(1, account, "s3cret"));
  EXPECT_EQ(outcome.end, End::kNotOffered);
  EXPECT_THAT(outcome.reason, HasSubstr("does not offer STARTTLS; set Security"));
  EXPECT_THAT(server.heard(), AllOf(Not(HasSubstr("AUTH")), Not(HasSubstr("MAIL"))));
}

TEST_F(OpeningTest, StartTlsRefusedForNowIsTriedAgain) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer, "250-mail.example\r\n250 STARTTLS\r\n");
    peer.HearLine();
    peer.Say("454 4.7.0 TLS is not available\r\n");
    peer.Idle();
  });
  Account account = LocalAccount(server.port());
  account.security = Security::kStartTls;
  const Outcome outcome = Send(MakeAttempt(1, account));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("454 4.7.0 TLS is not available"));
}

TEST_F(OpeningTest, TextInjectedBehindTheReplyToStartTlsEndsTheConnection) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer, "250-mail.example\r\n250 STARTTLS\r\n");
    peer.HearLine();
    peer.Say("220 go ahead\r\n250-mail.example\r\n250 AUTH PLAIN\r\n");
    peer.Idle();
  });
  Account account = LocalAccount(server.port());
  account.security = Security::kStartTls;
  account.user = "plc";
  const Outcome outcome = Send(MakeAttempt(1, account, "s3cret"));
  EXPECT_EQ(outcome.end, End::kNotOffered) << outcome.reason;
  EXPECT_THAT(outcome.reason, HasSubstr("find out who interferes"));
  EXPECT_THAT(server.heard(), testing::EndsWith("STARTTLS\r\n"));
}

TEST_F(OpeningTest, GarbageInPlaceOfTlsIsTriedAgain) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer, "250-mail.example\r\n250 STARTTLS\r\n");
    peer.HearLine();
    peer.Say("220 go ahead\r\n");
    peer.HearUntil({"\x16\x03", 2});  // the client's first record
    peer.Say(std::string(3000, '\0') + "garbage");
    peer.Idle();
  });
  Account account = LocalAccount(server.port());
  account.security = Security::kStartTls;
  const Outcome outcome = Send(MakeAttempt(1, account));
  EXPECT_EQ(outcome.end, End::kForNow) << outcome.reason;
  EXPECT_THAT(outcome.reason, HasSubstr("no secure connection to 127.0.0.1:"));
}

TEST_F(OpeningTest, APlainServerAtThePortForTlsIsNotWhatIsWanted) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("220 mail.example\r\n");
    peer.Idle();
  });
  Account account = LocalAccount(server.port());
  account.security = Security::kTls;
  const Outcome outcome = Send(MakeAttempt(1, account));
  EXPECT_EQ(outcome.end, End::kNotOffered) << outcome.reason;
  EXPECT_THAT(outcome.reason, HasSubstr("does not begin with TLS"));
}

TEST_F(OpeningTest, NoLoginGoesOverAPlainConnectionToAnotherMachine) {
  Account account = LocalAccount(25);
  account.server = "192.0.2.1";  // reserved for documentation (RFC 5737)
  account.user = "plc";
  const Outcome outcome = Send(MakeAttempt(1, account, "s3cret"));
  EXPECT_EQ(outcome.end, End::kNotOffered);
  EXPECT_THAT(outcome.reason, HasSubstr("no login at 192.0.2.1:25 over a connection that is not"));
}

TEST_F(OpeningTest, APortWhereNobodyListensIsTriedAgain) {
  const int port = ScriptedSmtpServer().port();  // it was free a moment ago
  const Outcome outcome = Send(MakeAttempt(1, LocalAccount(port)));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("cannot be reached (Connection refused)"));
}

TEST_F(OpeningTest, ANameThatMakesNoSenseIsToldAsSuch) {
  Account account = LocalAccount(25);
  account.server = "mail server";
  const Outcome outcome = Send(MakeAttempt(1, account));
  EXPECT_THAT(outcome.reason, HasSubstr("is not a name or an address"));
}

TEST_F(OpeningTest, AnUnwelcomingGreetingIsTriedAgain) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("554-no service\r\n554 for you\r\n");
    peer.Idle();
  });
  const Outcome outcome = Send(MakeAttempt(1, LocalAccount(server.port())));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("does not serve this machine: 554 no service for you"));
}

// Servers that hold a client up.

TEST_F(OpeningTest, AServerThatAcceptsAndIsSilentCostsTheTimeoutOnly) {
  ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Idle(); });
  for (const Security security : {Security::kNone, Security::kStartTls, Security::kTls}) {
    Account account = LocalAccount(server.port());
    account.security = security;
    account.timeout = 200ms;
    const Outcome outcome = Send(MakeAttempt(1, account));
    EXPECT_EQ(outcome.end, End::kForNow);
    EXPECT_THAT(outcome.reason, HasSubstr("did not answer within 200 ms"));
  }
}

TEST_F(OpeningTest, AFullBacklogCostsTheTimeoutOnly) {
  const corvane::Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(listener.get(), any, length), 0);
  ASSERT_EQ(listen(listener.get(), 0), 0);
  ASSERT_EQ(getsockname(listener.get(), any, &length), 0);
  std::vector<corvane::Descriptor> clients;
  for (int i = 0; i < 3; ++i) {
    clients.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    connect(clients.back().get(), any, length);
  }
  Account account = LocalAccount(ntohs(address.sin_port));
  account.timeout = 200ms;
  const Outcome outcome = Send(MakeAttempt(1, account));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("did not answer within 200 ms"));
}

TEST_F(OpeningTest, AGreetingThatComesInDropsDoesNotProlongTheWait) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    for (;;) {
      peer.Say("2");
      peer.Pause(20);
    }
  });
  Account account = LocalAccount(server.port());
  account.timeout = 300ms;
  const Outcome outcome = Send(MakeAttempt(1, account));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("did not answer within 300 ms"));
}

TEST_F(OpeningTest, LinesWithoutEndDoNotProlongTheWait) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("220 mail.example\r\n");
    peer.HearLine();
    for (;;) {
      peer.Say("250-and more\r\n");
      peer.Pause(20);
    }
  });
  Account account = LocalAccount(server.port());
  account.timeout = 300ms;
  const Outcome outcome = Send(MakeAttempt(1, account));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("did not answer within 300 ms"));
}

TEST_F(OpeningTest, AFloodOfLinesEndsTheConnection) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("220 mail.example\r\n");
    peer.HearLine();
    for (;;) peer.Say("250-and more and more and more and more and more and more and more\r\n");
  });
  const Outcome outcome = Send(MakeAttempt(1, LocalAccount(server.port())));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_THAT(outcome.reason, HasSubstr("check the network and the server"));
}

TEST_F(OpeningTest, AGreetingOfAMegabyteDoesNoHarm) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("220 " + std::string(1'000'000, 'x') + "\r\n");
    peer.Idle();
  });
  Account account = LocalAccount(server.port());
  account.timeout = 500ms;
  const Outcome outcome = Send(MakeAttempt(1, account));
  EXPECT_EQ(outcome.end, End::kForNow);
  EXPECT_LT(outcome.reason.size(), 1000U);
}

TEST_F(OpeningTest, EachReplyHasTheWholeTimeout) {
  ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Pause(700);
    peer.Say("220 mail.example\r\n");
    peer.HearLine();
    peer.Pause(700);
    peer.Say("250 mail.example\r\n");
    peer.HearLine();
    peer.Pause(700);
    peer.Say("250 ok\r\n");
    ServeCommands(peer);
  });
  Account account = LocalAccount(server.port());
  account.timeout = 1500ms * CORVANE_TEST_TIME_FACTOR;
  const Outcome outcome = Send(MakeAttempt(1, account));
  EXPECT_EQ(outcome.end, End::kTaken) << outcome.reason;
}

}  // namespace
}  // namespace corvane_mail
