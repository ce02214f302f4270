// SPDX-License-Identifier: MIT
// The dialogue with a scripted server: what the client says, and the code it ends with. What takes
// ten seconds is in smtp_waits_test.cpp.
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "addins/corvane_fb_lib/base64.h"
#include "tests/addins/corvane_fb_lib/csmtp_v1_8a/smtp_test_tools.h"
#include "tests/support/failing_calls.h"
#include "tests/support/memory_limit.h"

namespace {

using test_support::CallsGuard;
using test_support::CodeOf;
using test_support::CodeOfSending;
using test_support::ScriptedSmtpServer;
using test_support::SmallMail;
using test_support::SmtpPeer;
using test_support::SmtpReplies;
using test_support::TemporaryFolder;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

const std::string kBoundary = "--__MESSAGE__ID__54yg6f6h6y456345";

/// What was said between "DATA" and the end mark, without the mark.
std::string MessageOf(const std::string& heard) {
  const std::size_t begin = heard.find("DATA\r\n") + 6;
  return heard.substr(begin, heard.rfind("\r\n.\r\nQUIT\r\n") - begin);
}

/// The part of the message after the header.
std::string BodyOf(const std::string& heard) {
  const std::string message = MessageOf(heard);
  return message.substr(message.find("\r\n\r\n") + 4);
}

std::size_t Occurrences(const std::string& text, const std::string& of) {
  std::size_t count = 0;
  for (std::size_t at = text.find(of); at != std::string::npos; at = text.find(of, at + 1)) ++count;
  return count;
}

TEST(SmtpDialogue, IsExactlyThis) {
  setenv("TZ", "UTC", 1);
  const CallsGuard calls({.time = 1709629623, .host_name = "plc-7"});
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->AddRecipient("second@plant.example");
  mail->AddCCRecipient("copy@plant.example");
  mail->AddBCCRecipient("hidden@plant.example");
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  EXPECT_EQ(server.heard(),
            "EHLO plc-7\r\n"
            "AUTH LOGIN\r\n"
            "cGxj\r\n"
            "czNjcmV0\r\n"
            "MAIL FROM:<pump3@plant.example>\r\n"
            "RCPT TO:<operator@plant.example>\r\n"
            "RCPT TO:<second@plant.example>\r\n"
            "RCPT TO:<copy@plant.example>\r\n"
            "RCPT TO:<hidden@plant.example>\r\n"
            "DATA\r\n"
            "Date: 5 Mar 2024 9:7:3\r\n"
            "From: Pump 3 <pump3@plant.example>\r\n"
            "X-Priority: 3 (Normal)\r\n"
            "To: <operator@plant.example>,<second@plant.example>\r\n"
            "Cc: <copy@plant.example>\r\n"
            "Bcc: <hidden@plant.example>\r\n"
            "Subject: Alarm\r\n"
            "MIME-Version: 1.0\r\n"
            "Content-type: text/plain; charset=utf-8\r\n"
            "Content-Transfer-Encoding: 7bit\r\n"
            "\r\n"
            "Level too high\r\n"
            "\r\n.\r\n"
            "QUIT\r\n");
}

TEST(SmtpDialogue, SaysDomainIfTheMachineHasNoName) {
  const CallsGuard calls({.host_name = ""});
  const ScriptedSmtpServer server;
  EXPECT_EQ(CodeOfSending(server), 0);
  EXPECT_THAT(server.heard(), testing::StartsWith("EHLO domain\r\n"));
}

TEST(SmtpDialogue, CanBeRepeatedWithTheSameMail) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  EXPECT_EQ(server.connections(), 2);
}

TEST(SmtpDialogue, ClosesItsConnectionAfterSuccess) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    Serve(peer, {});
    peer.HearLine();  // ends with the client's close
  });
  const auto before = test_support::OpenDescriptors();
  const auto mail = SmallMail(server.port());
  mail->Send();
  // The server's side of the connection may still be open.
  EXPECT_LE(test_support::OpenDescriptors(), before + 1);
}

TEST(SmtpDialogue, LeavesItsConnectionOpenAfterAFailureEvenWhenTheMailIsGone) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("554 no\r\n");
    peer.Idle();
  });
  const auto before = test_support::OpenDescriptors();
  EXPECT_EQ(CodeOfSending(server), 401);
  EXPECT_EQ(test_support::OpenDescriptors(), before + 2);  // the client's and the server's
}

// ---- Each stage with an unexpected reply

struct Refusal {
  std::string name;
  std::string SmtpReplies::*stage;
  std::string reply;
  int code;
};

class SmtpRefusal : public testing::TestWithParam<Refusal> {};

TEST_P(SmtpRefusal, EndsWithTheCodeOfItsStage) {
  SmtpReplies replies;
  replies.*GetParam().stage = GetParam().reply;
  const ScriptedSmtpServer server(replies);
  EXPECT_EQ(CodeOfSending(server), GetParam().code);
  if (GetParam().stage == &SmtpReplies::greeting) {
    EXPECT_EQ(server.heard(), "");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Stages, SmtpRefusal,
    testing::Values(Refusal{"Greeting554", &SmtpReplies::greeting, "554 no service\r\n", 401},
                    Refusal{"Greeting421", &SmtpReplies::greeting, "421 try later\r\n", 401},
                    Refusal{"GreetingOfNoDigits", &SmtpReplies::greeting, "hello there\r\n", 401},
                    Refusal{"GreetingOfALineFeedAlone", &SmtpReplies::greeting, "\n", 401},
                    Refusal{"GreetingOfHighBytes", &SmtpReplies::greeting, "\xB2\xB2\xB0 x\r\n",
                            401},
                    Refusal{"Ehlo502", &SmtpReplies::ehlo, "502 unknown\r\n", 301},
                    Refusal{"AuthLogin504", &SmtpReplies::auth, "504 unknown mechanism\r\n", 302},
                    Refusal{"AuthLogin503", &SmtpReplies::auth, "503 not now\r\n", 302},
                    Refusal{"Login501", &SmtpReplies::login, "501 bad base64\r\n", 407},
                    Refusal{"LoginAcceptedAtOnce", &SmtpReplies::login, "235 so soon\r\n", 407},
                    Refusal{"Password535", &SmtpReplies::password, "535 wrong\r\n", 406},
                    Refusal{"Password454", &SmtpReplies::password, "454 later\r\n", 407},
                    Refusal{"MailFrom550", &SmtpReplies::mail, "550 who are you\r\n", 300},
                    Refusal{"MailFrom530", &SmtpReplies::mail, "530 log in first\r\n", 300},
                    Refusal{"Data554", &SmtpReplies::data, "554 no valid recipients\r\n", 303},
                    Refusal{"Message552", &SmtpReplies::message, "552 too much mail data\r\n", 306},
                    Refusal{"Message451", &SmtpReplies::message, "451 later\r\n", 306},
                    Refusal{"Quit500", &SmtpReplies::quit, "500 what\r\n", 304}),
    [](const auto& tested) { return tested.param.name; });

/// A stage at which the server ends the connection, in an orderly way or by a reset.
class SmtpEarlyEnd : public testing::TestWithParam<std::string SmtpReplies::*> {};

TEST_P(SmtpEarlyEnd, IsALackOfMemoryAtOnce) {
  SmtpReplies replies;
  (replies.*GetParam()).clear();
  const ScriptedSmtpServer server(replies);
  const auto begin = std::chrono::steady_clock::now();
  const int code = CodeOfSending(server);
  // A server that closes with bytes unread resets the connection: then the call itself fails.
  EXPECT_THAT(code, testing::AnyOf(408, 103));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

INSTANTIATE_TEST_SUITE_P(EveryStage, SmtpEarlyEnd,
                         testing::Values(&SmtpReplies::greeting, &SmtpReplies::ehlo,
                                         &SmtpReplies::auth, &SmtpReplies::login,
                                         &SmtpReplies::password, &SmtpReplies::mail,
                                         &SmtpReplies::recipient, &SmtpReplies::data,
                                         &SmtpReplies::message, &SmtpReplies::quit));

TEST(SmtpReply, OfAClosedConnectionIs408EvenAfterALineThatIsStillInTheBuffer) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("220 ready\r\n");
    peer.HearLine();
    peer.Close();
  });
  EXPECT_EQ(CodeOfSending(server), 408);
}

TEST(SmtpReply, OfAConnectionThatIsResetIs103) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("220 ready\r\n");
    peer.HearLine();
    peer.Reset();
  });
  EXPECT_EQ(CodeOfSending(server), 103);
}

TEST(SmtpReply, InPiecesOfOneByteIsUnderstood) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.SayByteByByte("220 ready\r\n");
    peer.HearLine();
    peer.SayByteByByte("250-mail.example\r\n250 AUTH LOGIN\r\n");
    peer.HearLine();
    peer.SayByteByByte("504 no\r\n");
  });
  EXPECT_EQ(CodeOfSending(server), 302);
}

TEST(SmtpReply, OfManyLinesToEhloIsConsumedWhenAuthLoginWasSent) {
  SmtpReplies replies;
  replies.ehlo.clear();
  for (int i = 0; i < 50; ++i) replies.ehlo += "250-EXTENSION-" + std::to_string(i) + "\r\n";
  replies.ehlo += "250 HELP\r\n";
  const ScriptedSmtpServer server(replies);
  EXPECT_EQ(CodeOfSending(server), 0);
}

TEST(SmtpReply, ToEhloIsAnsweredAfterItsFirstLineWithoutWaitingForTheOthers) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("220 ready\r\n");
    peer.HearLine();
    peer.Say("250-first\r\n");
    if (peer.HearLine() != "AUTH LOGIN\r\n") return;
    peer.Say("250 last\r\n504 no\r\n");
  });
  EXPECT_EQ(CodeOfSending(server), 302);
}

TEST(SmtpReply, LinesOf334AfterThePasswordAreSkipped) {
  SmtpReplies replies;
  replies.password = "334 more\r\n334 and more\r\n235 welcome\r\n";
  const ScriptedSmtpServer server(replies);
  EXPECT_EQ(CodeOfSending(server), 0);
}

TEST(SmtpReply, LinesOf250AfterDataAreSkipped) {
  SmtpReplies replies;
  replies.data = "250 late\r\n250 later\r\n354 go\r\n";
  const ScriptedSmtpServer server(replies);
  EXPECT_EQ(CodeOfSending(server), 0);
}

TEST(SmtpReply, FillsTheBufferToItsLastByte) {
  SmtpReplies replies;
  replies.greeting = "220 " + std::string(CSmtp::kBufferSize - 5, 'x') + "\n";
  const ScriptedSmtpServer server(replies);
  EXPECT_EQ(CodeOfSending(server), 0);
}

TEST(SmtpReply, OneByteLongerThanTheBufferIs408) {
  SmtpReplies replies;
  replies.greeting = "220 " + std::string(CSmtp::kBufferSize - 4, 'x') + "\n";
  const ScriptedSmtpServer server(replies);
  EXPECT_EQ(CodeOfSending(server), 408);
}

TEST(SmtpReply, OfAMegabyteWithoutALineEndIs408) {
  SmtpReplies replies;
  replies.ehlo = std::string(1 << 20, '2');
  const ScriptedSmtpServer server(replies);
  EXPECT_EQ(CodeOfSending(server), 408);
}

TEST(SmtpReply, Is109WhenASignalInterruptsTheWait) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  sigaction(SIGUSR2, &action, nullptr);
  const pthread_t client = pthread_self();
  const ScriptedSmtpServer server([client](SmtpPeer& peer) {
    peer.Say("220 ready\r\n");
    peer.HearLine();
    for (;;) {  // until the client waits and is interrupted; the test's end stops this
      pthread_kill(client, SIGUSR2);
      peer.Pause(10);
    }
  });
  EXPECT_EQ(CodeOfSending(server), 109);
}

// ---- Recipients

TEST(SmtpRecipient, ThatIsRefusedMakesTheClientWaitForAnotherReply) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    SmtpReplies replies;
    replies.recipient = "550 no such user\r\n250 but go on\r\n";
    Serve(peer, replies);
  });
  const auto mail = SmallMail(server.port());
  mail->AddRecipient("second@plant.example");
  mail->AddRecipient("third@plant.example");
  // As many refusals as there are recipients.
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 305);
}

TEST(SmtpRecipient, TheCodeIs305OnlyIfThereAreAsManyRefusalsAsRecipients) {
  for (const auto& [refusals, code] : {std::pair(1, 0), {2, 305}, {3, 0}}) {
    int left = refusals;
    const ScriptedSmtpServer server([&left](SmtpPeer& peer) {
      for (const char* reply :
           {"220 a\r\n", "250 b\r\n", "334 c\r\n", "334 d\r\n", "235 e\r\n", "250 f\r\n"}) {
        peer.Say(reply);
        peer.HearLine();
      }
      for (; left > 0; --left) peer.Say("550 no\r\n");  // all for the first recipient
      peer.Say("250 yes\r\n");
      peer.HearLine();
      peer.Say("250 yes\r\n");
      peer.HearLine();  // DATA
      peer.Say("354 go\r\n");
      peer.HearUntil("\r\n.\r\n");
      peer.Say("250 queued\r\n");
      peer.HearLine();
      peer.Say("221 bye\r\n");
    });
    const auto mail = SmallMail(server.port());
    mail->AddRecipient("second@plant.example");
    EXPECT_EQ(CodeOf([&] { mail->Send(); }), code) << refusals << " refusals";
  }
}

TEST(SmtpRecipient, OfACopyThatIsRefusedCausesNoCode) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    SmtpReplies replies;
    replies.recipient = "250 yes\r\n";
    Serve(peer, replies);
  });
  const auto mail = SmallMail(server.port());
  mail->AddCCRecipient("cc@plant.example");
  mail->AddBCCRecipient("bcc@plant.example");
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);

  const ScriptedSmtpServer refusing([](SmtpPeer& peer) {
    SmtpReplies replies;
    replies.recipient = "550 no\r\n551 no\r\n250 yes\r\n";
    Serve(peer, replies);
  });
  const auto copy = SmallMail(refusing.port());
  copy->AddCCRecipient("cc@plant.example");
  copy->AddBCCRecipient("bcc@plant.example");
  EXPECT_EQ(CodeOf([&] { copy->Send(); }), 0) << "two refusals of one To recipient are not 305";
}

TEST(SmtpRecipient, MissingAltogetherIs203AfterMailFromEvenWithCopies) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->DelRecipients();
  mail->AddCCRecipient("cc@plant.example");
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 203);
  EXPECT_THAT(server.heard(), EndsWith("MAIL FROM:<pump3@plant.example>\r\n"));
}

// ---- Missing fields

TEST(SmtpLogin, ThatIsEmptyIs204AfterAuthLogin) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->SetLogin("");
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 204);
  EXPECT_THAT(server.heard(), EndsWith("AUTH LOGIN\r\n"));
}

TEST(SmtpLogin, WithoutAPasswordIs205AfterTheLogin) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->SetPassword("");
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 205);
  EXPECT_THAT(server.heard(), EndsWith("AUTH LOGIN\r\ncGxj\r\n"));
}

TEST(SmtpSender, ThatIsMissingIs201AfterTheLogin) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->SetSenderMail("");
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 201);
  EXPECT_THAT(server.heard(), EndsWith("\r\nczNjcmV0\r\n"));
}

TEST(SmtpTime, ThatIsMissingIs409AfterData) {
  const CallsGuard calls({.time = 0});
  const ScriptedSmtpServer server;
  EXPECT_EQ(CodeOfSending(server), 409);
  EXPECT_THAT(server.heard(), EndsWith("DATA\r\n"));
}

TEST(SmtpLogin, OfEightKilobytesEachIsSentWhole) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  const std::string login(8192, 'l');
  const std::string password(8192, 'p');
  mail->SetLogin(login.c_str());
  mail->SetPassword(password.c_str());
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  EXPECT_THAT(server.heard(), HasSubstr("AUTH LOGIN\r\n" + base64_encode(login) + "\r\n" +
                                        base64_encode(password) + "\r\nMAIL"));
}

// ---- The text

TEST(SmtpBody, WithoutLinesIsASpace) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->DelMsgLines();
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  EXPECT_EQ(BodyOf(server.heard()), " \r\n");
}

TEST(SmtpBody, OfAnEmptyLineIsALineEnd) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->DelMsgLines();
  mail->AddMsgLine("");
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  EXPECT_EQ(BodyOf(server.heard()), "\r\n");
}

TEST(SmtpBody, LinesAreSentInOrderAndAsTheyAre) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->DelMsgLines();
  mail->AddMsgLine("first\nwith a break");
  mail->AddMsgLine(".dots are not doubled %d%s%n");
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  EXPECT_EQ(BodyOf(server.heard()), "first\nwith a break\r\n.dots are not doubled %d%s%n\r\n");
}

TEST(SmtpBody, ADotAloneOnALineEndsTheMessageEarly) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    test_support::ServeUpToMessage(peer);
    peer.HearUntil("\r\n.\r\n");
    peer.Say("250 the message has ended\r\n");
    peer.HearUntil("QUIT\r\n");
    peer.Say("221 bye\r\n");
  });
  const auto mail = SmallMail(server.port());
  mail->AddMsgLine(".");
  mail->AddMsgLine("lost");
  mail->Send();
  EXPECT_THAT(server.heard(), HasSubstr("Level too high\r\n.\r\nlost\r\n"));
}

/// Texts around the size of the send buffer, and far above it.
class SmtpLongText : public testing::TestWithParam<std::size_t> {};

TEST_P(SmtpLongText, IsSentWhole) {
  std::string text;
  while (text.size() < GetParam()) text += std::to_string(text.size()) + ' ';
  text.resize(GetParam());
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->DelMsgLines();
  mail->AddMsgLine(text.c_str());
  mail->SetSubject(text.substr(0, 100000).c_str());
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  EXPECT_TRUE(BodyOf(server.heard()) == text + "\r\n");
  EXPECT_TRUE(server.heard().find("\r\nSubject: " + text.substr(0, 100000) + "\r\n") !=
              std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(OfSize, SmtpLongText,
                         testing::Values(10236, 10237, 10238, 10239, 10240, 10241, 20476, 20478,
                                         1 << 20, 10 << 20));

// ---- Attachments

class SmtpAttachment : public testing::Test {
 protected:
  /// The code with which sending a mail with these files ends; `heard_` holds what the server
  /// heard, up to and including `end`.
  int Send(const std::vector<std::string>& paths, const std::string& end = "QUIT\r\n") {
    const ScriptedSmtpServer server;
    const auto mail = SmallMail(server.port());
    for (const std::string& path : paths) mail->AddAttachment(path.c_str());
    const int code = CodeOf([&] { mail->Send(); });
    heard_ = server.HeardUpTo(end);
    return code;
  }
  static std::string PartHeader(const std::string& name) {
    return kBoundary +
           "\r\n"
           "Content-Type: application/x-msdownload; name=\"" +
           name +
           "\"\r\n"
           "Content-Transfer-Encoding: base64\r\n"
           "Content-Disposition: attachment; filename=\"" +
           name +
           "\"\r\n"
           "\r\n";
  }
  static std::string Lines(const std::string& content) {
    std::string lines;
    for (std::size_t at = 0; at <= content.size(); at += 54) {
      lines += base64_encode(content.substr(at, 54)) + "\r\n";
    }
    return lines;
  }
  static std::string Bytes(std::size_t count) {
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(i * 2654435761U >> 13);
    return bytes;
  }

  TemporaryFolder folder_;
  std::string heard_;
};

TEST_F(SmtpAttachment, FollowsTheTextInASeparatePart) {
  const std::string path = folder_.Write("report.csv", "level;2.4\n");
  EXPECT_EQ(Send({path}), 0);
  EXPECT_THAT(MessageOf(heard_),
              EndsWith("charset=US-ASCII\r\nContent-Transfer-Encoding: 7bit\r\n\r\n"
                       "Level too high\r\n" +
                       PartHeader(path) + "bGV2ZWw7Mi40Cg==\r\n" + "\r\n" + kBoundary + "--\r\n"));
}

TEST_F(SmtpAttachment, HasTheBoundaryThreeTimesAfterTheContentTypeLine) {
  EXPECT_EQ(Send({folder_.Write("a", "x")}), 0);
  const std::string message = MessageOf(heard_);
  EXPECT_EQ(Occurrences(message.substr(message.find("boundary=\"") + 45),
                        "__MESSAGE__ID__54yg6f6h6y456345"),
            3U);
}

TEST_F(SmtpAttachment, OfEverySizeAroundALineAndABatchArrivesWhole) {
  for (const std::size_t size : {0,    1,    2,    3,    53,   54,   55,   107,  108,  109,
                                 4913, 4914, 4915, 4967, 4968, 4969, 5022, 5120, 9828, 100000}) {
    const std::string content = Bytes(size);
    const std::string path = folder_.Write("file.bin", content);
    EXPECT_EQ(Send({path}), 0);
    EXPECT_THAT(MessageOf(heard_),
                EndsWith(PartHeader(path) + Lines(content) + "\r\n" + kBoundary + "--\r\n"))
        << size << " bytes";
  }
}

TEST_F(SmtpAttachment, WhoseSizeIsAMultipleOfALineEndsWithAnEmptyLine) {
  EXPECT_EQ(Send({folder_.Write("file.bin", std::string(54, '\xFF'))}), 0);
  EXPECT_THAT(heard_, HasSubstr("\r\n\r\n" + std::string(72, '/') + "\r\n\r\n\r\n" + kBoundary));
}

TEST_F(SmtpAttachment, IsSentOnceForEachOfSeveralFiles) {
  const std::string first = folder_.Write("first", "1");
  const std::string second = folder_.Write("second", "2");
  EXPECT_EQ(Send({first, second}), 0);
  EXPECT_THAT(MessageOf(heard_), EndsWith(PartHeader(first) + "MQ==\r\n" + PartHeader(second) +
                                          "Mg==\r\n\r\n" + kBoundary + "--\r\n"));
}

TEST_F(SmtpAttachment, IsNamedByWhatFollowsTheLastBackslash) {
  const std::string path = folder_.Write("C:\\reports\\today.csv", "x");
  EXPECT_EQ(Send({path}), 0);
  EXPECT_THAT(heard_, HasSubstr("name=\"today.csv\"\r\n"));
  EXPECT_THAT(heard_, HasSubstr("filename=\"today.csv\"\r\n"));
}

TEST_F(SmtpAttachment, IsNamedByItsWholePathWithSlashes) {
  const std::string path = folder_.Write("today.csv", "x");
  EXPECT_EQ(Send({path}), 0);
  EXPECT_THAT(heard_, HasSubstr("filename=\"" + path + "\"\r\n"));
}

TEST_F(SmtpAttachment, WithANameOfThousandsOfCharactersIsAnnouncedWhole) {
  std::string path = folder_.path().string() + "/";
  for (int i = 0; i < 1200; ++i) path += "./";  // still the same folder
  path += "long";
  folder_.Write("long", "x");
  EXPECT_EQ(Send({path}), 0);
  EXPECT_THAT(heard_, HasSubstr(PartHeader(path)));
}

TEST_F(SmtpAttachment, OfThePermittedSizeIsSentAndOneByteMoreIs405) {
  const std::string content = Bytes(5243903);
  const std::string path = folder_.Write("big", content);
  EXPECT_EQ(Send({path}), 0);
  EXPECT_TRUE(MessageOf(heard_).ends_with(PartHeader(path) + Lines(content) + "\r\n" + kBoundary +
                                          "--\r\n"));
  folder_.Write("big", content + "x");
  EXPECT_EQ(Send({path}, PartHeader(path)), 405);
  EXPECT_THAT(heard_, EndsWith(PartHeader(path)));
}

TEST_F(SmtpAttachment, CountsTowardsOneLimitForAllOfThem) {
  const std::string half = folder_.Write("half", Bytes(5243902));
  const std::string byte = folder_.Write("byte", "x");
  EXPECT_EQ(Send({half, byte}), 0);
  const std::string end = PartHeader(byte) + "eA==\r\n" + PartHeader(byte);
  EXPECT_EQ(Send({half, byte, byte}, end), 405);
  EXPECT_TRUE(heard_.ends_with(end));
}

TEST(SmtpAttachments, ThatAreDeletedAreNotSent) {
  const TemporaryFolder folder;
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->AddAttachment(folder.Write("file", "content").c_str());
  mail->DelAttachments();
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  EXPECT_EQ(BodyOf(server.heard()), "Level too high\r\n");
}

TEST_F(SmtpAttachment, ThatIsMissingIs404AfterItsHeader) {
  const std::string path = folder_.path() / "missing";
  EXPECT_EQ(Send({path}, PartHeader(path)), 404);
  EXPECT_THAT(heard_, EndsWith(PartHeader(path)));
}

TEST_F(SmtpAttachment, StaysOpenWhenSendingItFails) {
  const std::string path = folder_.Write("big", Bytes(5243904));
  const auto before = test_support::OpenDescriptors();
  EXPECT_EQ(Send({path}, PartHeader(path)), 405);
  EXPECT_EQ(test_support::OpenDescriptors(), before + 2);  // the connection, and the file
}

// ---- A connection that breaks while the client sends

TEST(SmtpSending, ToAPeerThatHasClosedIs102AndDoesNotEndTheProcess) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    ServeUpToMessage(peer);
    peer.Reset();
  });
  const auto mail = SmallMail(server.port());
  mail->DelMsgLines();
  mail->AddMsgLine(std::string(20 << 20, 'x').c_str());
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 102);
}

TEST(SmtpSending, GoesOnWhereTheSystemTookOnlyAPart) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->DelMsgLines();
  mail->AddMsgLine(std::string(1000, 'x').c_str());
  {
    const CallsGuard guard({.longest_send = 7});
    EXPECT_EQ(CodeOf([&] { mail->Send(); }), 0);
  }
  EXPECT_EQ(BodyOf(server.heard()), std::string(1000, 'x') + "\r\n");
}

TEST(SmtpSending, OfALineThatDoesNotFitInMemoryIs408) {
  const ScriptedSmtpServer server;
  const auto mail = SmallMail(server.port());
  mail->AddMsgLine(std::string(1 << 20, 'x').c_str());
  const test_support::MemoryLimit limit(1 << 19);
  EXPECT_EQ(CodeOf([&] { mail->Send(); }), 408);
}

TEST(SmtpSending, OfTheBufferAgainRepeatsWhatWasSentLast) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    peer.Say("220 a\r\n");
    peer.HearLine();
    peer.Say("554 no\r\n");
    peer.HearLine();
    peer.Say("221 b\r\n");
  });
  const auto mail = SmallMail(server.port());
  ASSERT_EQ(CodeOf([&] { mail->Send(); }), 301);
  mail->SendData();
  mail->ReceiveData();
  EXPECT_EQ(mail->SmtpXYZdigits(), 221);
  const std::string greeting = std::string("EHLO ") + mail->GetLocalHostName() + "\r\n";
  EXPECT_EQ(server.heard(), greeting + greeting);
}

TEST(SmtpSending, AThousandTimesInVainLeavesAHundredSocketsOpenAndThenIs106) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit few{static_cast<rlim_t>(test_support::OpenDescriptors()) + 100, limit.rlim_max};
  unsigned short port = 0;
  { port = ScriptedSmtpServer().port(); }  // nothing listens there any more
  setrlimit(RLIMIT_NOFILE, &few);
  std::map<int, int> codes;
  for (int i = 0; i < 1000; ++i) ++codes[CodeOf([port] { SmallMail(port)->Send(); })];
  setrlimit(RLIMIT_NOFILE, &limit);
  // Linux reports the refusal on the first read; the socket stays open by design.
  EXPECT_GT(codes[103] + codes[104], 90);
  EXPECT_GT(codes[106], 800);
  EXPECT_EQ(codes[103] + codes[104] + codes[106], 1000);
}

TEST(SmtpSending, WorksOnDescriptorsAbove1024) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < 1200)
    GTEST_SKIP() << "this machine allows " << limit.rlim_max << " descriptors";
  const rlimit enough{std::max<rlim_t>(limit.rlim_cur, 1200), limit.rlim_max};
  setrlimit(RLIMIT_NOFILE, &enough);
  std::vector<int> taken;
  while (taken.empty() || taken.back() < 1100) taken.push_back(dup(0));
  const ScriptedSmtpServer server;
  EXPECT_EQ(CodeOfSending(server), 0);
  for (const int descriptor : taken) close(descriptor);
}

}  // namespace
