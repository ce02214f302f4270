// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/send_email_log.h"

#include <gmock/gmock.h>

#include <boost/make_shared.hpp>

#include "tests/addins/corvane_fb_lib/csmtp_v1_8a/smtp_test_tools.h"

namespace {

using test_support::ScriptedSmtpServer;
using test_support::SmallMail;
using test_support::SmtpPeer;
using test_support::SmtpReplies;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// What is logged about a small mail that `server` accepts or refuses.
std::string DescriptionBy(const ScriptedSmtpServer& server) {
  const auto mail = SmallMail(server.port());
  try {
    mail->Send();
  } catch (const ECSmtp& error) {
    return DescribeFailure("SEND_EMAIL of pump.lua:3", *mail, error);
  }
  return "sent";
}

std::string DescriptionWith(std::string SmtpReplies::*stage, const std::string& reply) {
  SmtpReplies replies;
  replies.*stage = reply;
  return DescriptionBy(ScriptedSmtpServer(replies));
}

TEST(DescribeFailure, NamesBlockSubjectServerAndPort) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Say("554 no\r\n"); });
  EXPECT_EQ(DescriptionBy(server),
            "SEND_EMAIL of pump.lua:3, \"Alarm\" via 127.0.0.1 port " +
                std::to_string(server.port()) +
                ": code 401 waiting for the greeting; the server's last line: 554 no");
}

TEST(DescribeFailure, NamesTheStepWithTheServersLastLine) {
  const auto ends_with = [](std::string SmtpReplies::*stage, const std::string& reply,
                            const std::string& end) {
    EXPECT_THAT(DescriptionWith(stage, reply), EndsWith(end));
  };
  ends_with(&SmtpReplies::ehlo, "550 no name\r\n",
            ": code 301 after EHLO; the server's last line: 550 no name");
  ends_with(&SmtpReplies::login, "501 no\r\n",
            ": code 407 after the login; the server's last line: 501 no");
  ends_with(&SmtpReplies::password, "535 5.7.8 no\r\n",
            ": code 406 after the password; the server's last line: 535 5.7.8 no");
  ends_with(&SmtpReplies::mail, "553 no\r\n",
            ": code 300 after MAIL FROM:<pump3@plant.example>; the server's last line: 553 no");
  ends_with(&SmtpReplies::data, "451 no\r\n",
            ": code 303 after DATA; the server's last line: 451 no");
}

TEST(DescribeFailure, NamesTlsAsTheUsualReasonFor302) {
  EXPECT_THAT(DescriptionWith(&SmtpReplies::auth, "530 5.7.0 Must issue STARTTLS first\r\n"),
              EndsWith(": code 302 after AUTH LOGIN; usually the server allows a login only over "
                       "TLS, which SEND_EMAIL does not speak; the server's last line: 530 5.7.0 "
                       "Must issue STARTTLS first"));
}

TEST(DescribeFailure, SaysAtWhichStepTheConnectionWasClosedAndWhoHasTheMessage) {
  const auto closed = [](std::string SmtpReplies::*stage) { return DescriptionWith(stage, ""); };
  EXPECT_THAT(closed(&SmtpReplies::recipient),
              EndsWith(": code 408 after RCPT TO:<operator@plant.example>; usually the server has "
                       "closed the connection; the server's last line: 250 sender ok"));
  EXPECT_THAT(closed(&SmtpReplies::message),
              EndsWith(" after the end of the message; usually the server has closed the "
                       "connection; the server may have the message; the server's last line: 354 "
                       "go ahead"));
  EXPECT_THAT(closed(&SmtpReplies::quit),
              HasSubstr(" after QUIT; usually the server has closed the connection; the server has "
                        "the message; the"));
}

TEST(DescribeFailure, SaysAfterATwoLineConfirmationThatTheServerHasTheMessage) {
  EXPECT_THAT(DescriptionWith(&SmtpReplies::message, "250-taken\r\n250 thanks\r\n"),
              EndsWith(": code 304 after QUIT; the server has the message; the server's last "
                       "line: 250 thanks"));
}

TEST(DescribeFailure, ShowsForeignTextsInOneLine) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Say("554 \x1B[2J\r\x9B\r\n"); });
  const auto mail = SmallMail(server.port());
  mail->SetSubject("Al\r\narm");
  mail->SetSMTPServer("no\nsuch.invalid", 25);
  EXPECT_EQ(test_support::CodeOf([&] { mail->Send(); }), 105);
  EXPECT_EQ(DescribeFailure("SEND_EMAIL", *mail, ECSmtp(105)),
            "SEND_EMAIL, \"Al\\r\\narm\" via no\\nsuch.invalid port 25: code 105 connecting");
  EXPECT_THAT(DescriptionBy(server), EndsWith("last line: 554 \\x1B[2J\\r\\x9B"));
}

TEST(DescribeFailure, SaysNothingAboutAnEarlierConnection) {
  int connection = 0;
  const ScriptedSmtpServer server([&connection](SmtpPeer& peer) {
    if (++connection == 1) peer.Say("554 first\r\n");
  });
  const auto mail = SmallMail(server.port());
  EXPECT_EQ(test_support::CodeOf([&] { mail->Send(); }), 401);
  EXPECT_EQ(mail->ShownReply(), "554 first");
  EXPECT_NE(test_support::CodeOf([&] { mail->Send(); }), 0);
  EXPECT_EQ(mail->ShownReply(), "");
}

TEST(DescribeDropped, NamesTheFirstTenSubjects) {
  std::deque<boost::shared_ptr<CSmtp>> mails;
  const auto add = [&mails](const std::string& subject) {
    mails.push_back(boost::make_shared<CSmtp>());
    mails.back()->SetSubject(subject.c_str());
  };
  add("Alarm\n");
  EXPECT_EQ(DescribeDropped("X", mails), "X is gone; 1 message was not sent: \"Alarm\\n\"");
  for (int i = 2; i <= 10; ++i) add(std::to_string(i));
  EXPECT_THAT(DescribeDropped("X", mails),
              StartsWith("X is gone; 10 messages were not sent: \"Alarm\\n\", \"2\", "));
  EXPECT_THAT(DescribeDropped("X", mails), EndsWith("\"10\""));
  add(std::string(1000, 'x'));
  EXPECT_THAT(DescribeDropped("X", mails), EndsWith("\"10\" and 1 more"));
}

TEST(NameOfBlock, IsOnlyTheTypeWhenNoProgramRuns) {
  lua_State* L = luaL_newstate();
  EXPECT_EQ(NameOfBlock("SEND_EMAIL", L), "SEND_EMAIL");
  lua_close(L);
}

}  // namespace
