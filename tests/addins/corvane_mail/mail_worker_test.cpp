// SPDX-License-Identifier: MIT
// The thread of mails from its desk to a mail server, which the test plays.
#include "addins/corvane_mail/mail_worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <thread>

#include "libs/messages/store_view.h"
#include "tests/addins/corvane_mail/carrier_test.h"
#include "tests/support/captured_log.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_certificate.h"

namespace corvane_mail {
namespace {

namespace fs = std::filesystem;
using test_support::ScriptedSmtpServer;
using test_support::SmtpPeer;
using test_support::SmtpReplies;
using test_support::WaitFor;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kTakes = "250 mail.example\r\n";
constexpr const char* kAsksForLogin = "250-mail.example\r\n250 AUTH PLAIN\r\n";

/// A server that takes every mail of every connection.
void TakeAll(SmtpPeer& peer) {
  Greet(peer, kAsksForLogin);
  ServeCommands(peer);
}

/// A worker and its thread, as a program has them from its begin to its end.
class RunningWorker {
 public:
  explicit RunningWorker(const fs::path& folder)
      : thread_([folder, desk = desk_] { MailWorker(folder, desk).Run(); }) {}
  RunningWorker(const RunningWorker&) = delete;
  RunningWorker& operator=(const RunningWorker&) = delete;
  ~RunningWorker() {
    desk_->Stop();
    thread_.join();
  }

  MailDesk& desk() { return *desk_; }
  MailState StateOf(const std::shared_ptr<MailTicket>& ticket) { return *desk_->StateOf(*ticket); }
  /// Waits for the end of the job. @return how it ended
  MailState EndOf(const std::shared_ptr<MailTicket>& ticket) {
    EXPECT_TRUE(WaitFor([&] {
      return StateOf(ticket).progress.state != JobProgress::State::kBusy;
    })) << "the job has not ended";
    return StateOf(ticket);
  }
  bool WaitForStored(const std::shared_ptr<MailTicket>& ticket) {
    return WaitFor([&] { return StateOf(ticket).stored; });
  }

 private:
  std::shared_ptr<MailDesk> desk_ = std::make_shared<MailDesk>();
  std::thread thread_;
};

class Worker : public testing::Test {
 protected:
  Worker() { test_support::TakeLog(); }

  static MailOrder OrderFor(int port, const std::string& subject = "Level high") {
    MailOrder order;
    order.content.account = LocalAccount(port);
    order.content.message.from = {"", "pump3@plant.example"};
    order.content.message.to = {{"", "anna@plant.example"}};
    order.content.message.subject = subject;
    order.valid_for = std::chrono::hours(1);
    order.added = Now::Get();
    order.content.message.date = std::chrono::floor<std::chrono::seconds>(order.added.wall);
    return order;
  }
  static MailOrder OrderOfUser(int port) {
    MailOrder order = OrderFor(port);
    order.content.account.user = "pump";
    return order;
  }
  static std::shared_ptr<MailTicket> Submit(RunningWorker& worker, MailOrder order) {
    auto ticket = worker.desk().Submit(std::move(order));
    EXPECT_NE(ticket, nullptr);
    return ticket;
  }
  static void Bring(RunningWorker& worker, const MailOrder& order, const std::string& password) {
    worker.desk().Bring(
        {RouteOf(order.content.account), std::make_shared<const Secret>(password), false});
  }
  /// What the store has of the mails, oldest first.
  [[nodiscard]] std::vector<messages::Outgoing> Rows() const {
    if (!fs::exists(folder_.path() / "messages.db")) return {};
    return messages::StoreView(folder_.path() / "messages.db").OutgoingMessages(100);
  }
  /// Asks for another attempt at once, as `corvane messages retry` does.
  void Retry() const {
    messages::StoreView view(folder_.path() / "messages.db");
    view.AddRequest(messages::RequestKind::kRetry, view.OutgoingMessages(1).at(0).id, 0);
  }
  bool WaitForRow(const std::function<bool(const messages::Outgoing&)>& condition) {
    return WaitFor([&] {
      const auto rows = Rows();
      return !rows.empty() && condition(rows.back());
    });
  }
  [[nodiscard]] fs::path Copies() const { return folder_.path() / "attachments"; }
  /// Whether all copies of attachments are gone.
  bool WaitForNoCopies() {
    return WaitFor([this] { return !fs::exists(Copies()) || fs::is_empty(Copies()); });
  }
  /// How the job of one mail ends with this server.
  MailState EndWith(const SmtpReplies& replies, const std::vector<std::string>& to = {}) {
    const ScriptedSmtpServer server([replies](SmtpPeer& peer) {
      Greet(peer, kTakes);
      peer.HearLine();
      peer.Say(replies.mail);
      for (std::string line = peer.HearLine(); line.starts_with("RCPT"); line = peer.HearLine()) {
        peer.Say(line.find("refused") == std::string::npos ? "250 ok\r\n" : replies.recipient);
      }
      peer.Say(replies.data);
      peer.HearUntil("\r\n.\r\n");
      peer.Say(replies.message);
      peer.Idle();
    });
    MailOrder order = OrderFor(server.port());
    for (const std::string& mailbox : to) order.content.message.to.push_back({"", mailbox});
    RunningWorker worker(folder_.path());
    return worker.EndOf(Submit(worker, std::move(order)));
  }

  test_support::TemporaryFolder folder_;
};

std::string MessageIdIn(const std::string& mail) {
  std::smatch found;
  return std::regex_search(mail, found, std::regex("Message-ID:\\s*(<[^>]*>)")) ? found.str(1) : "";
}

TEST_F(Worker, StoresAMailAndSendsIt) {
  const ScriptedSmtpServer server(TakeAll);
  {
    RunningWorker worker(folder_.path());
    const auto ticket = Submit(worker, OrderFor(server.port()));
    EXPECT_EQ(worker.EndOf(ticket).progress, JobProgress::Done());
    EXPECT_TRUE(worker.WaitForStored(ticket));
    EXPECT_EQ(worker.StateOf(ticket).refused, "");
    EXPECT_TRUE(
        WaitFor([&] { return worker.desk().Waiting(RouteOf(LocalAccount(server.port()))) == 0; }));
  }
  const std::string heard = server.heard();
  EXPECT_THAT(heard, AllOf(HasSubstr("MAIL FROM:<pump3@plant.example>"),
                           HasSubstr("RCPT TO:<anna@plant.example>"),
                           HasSubstr("Subject: Level high\r\n")));
  const auto rows = Rows();
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].state, messages::OutgoingState::kSent);
  EXPECT_EQ(rows[0].channel, "mail");
  EXPECT_EQ(rows[0].receiver, "anna@plant.example");
}

TEST_F(Worker, IsStoredBeforeTheServerAnswers) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Idle(); });
  RunningWorker worker(folder_.path());
  const auto ticket = Submit(worker, OrderFor(server.port()));
  EXPECT_TRUE(worker.WaitForStored(ticket));
  EXPECT_EQ(worker.StateOf(ticket).progress, JobProgress::Busy());
}

TEST_F(Worker, UrgentMailsGoFirstAndOneConnectionServesAll) {
  const ScriptedSmtpServer server(TakeAll);
  MailOrder first = OrderOfUser(server.port());
  MailOrder urgent = first;
  urgent.urgent = true;
  urgent.content.message.subject = "Urgent";
  RunningWorker worker(folder_.path());
  const auto second = Submit(worker, first);
  const auto other = Submit(worker, urgent);
  ASSERT_TRUE(worker.WaitForStored(second));
  ASSERT_TRUE(worker.WaitForStored(other));
  EXPECT_EQ(server.connections(), 0) << "without a secret nothing can be tried";
  Bring(worker, first, "pw");
  EXPECT_EQ(worker.EndOf(second).progress, JobProgress::Done());
  EXPECT_EQ(worker.EndOf(other).progress, JobProgress::Done());
  const std::string heard = server.heard();
  EXPECT_LT(heard.find("Subject: Urgent"), heard.find("Subject: Level high"));
  EXPECT_EQ(server.connections(), 1);
}

TEST_F(Worker, ARefusedRecipientIsError30AndTheOthersHaveTheMail) {
  const MailState state =
      EndWith({.recipient = "550 5.1.1 no such user\r\n"}, {"refused@plant.example"});
  EXPECT_EQ(state.progress.id, ErrorId::kRecipientsRefused);
  EXPECT_EQ(state.refused, "refused@plant.example: 550 5.1.1 no such user");
  EXPECT_THAT(state.progress.text, HasSubstr("the others have the mail"));
}

TEST_F(Worker, AMailRefusedForGoodIsError34WithTheServersWords) {
  const MailState state = EndWith({.message = "554 5.7.1 looks like spam\r\n"});
  EXPECT_EQ(state.progress.id, ErrorId::kMailRefused);
  EXPECT_THAT(state.progress.text, HasSubstr("554 5.7.1 looks like spam"));
  EXPECT_THAT(Rows().at(0).reason, HasSubstr("looks like spam"));
}

TEST_F(Worker, ASenderRefusedForGoodIsError34) {
  EXPECT_EQ(EndWith({.mail = "550 you may not\r\n"}).progress.id, ErrorId::kMailRefused);
}

TEST_F(Worker, AServerWithoutTlsIsError33AndTheMailIsKept) {
  const ScriptedSmtpServer server(TakeAll);
  MailOrder order = OrderFor(server.port());
  order.content.account.security = Security::kStartTls;
  RunningWorker worker(folder_.path());
  const MailState state = worker.EndOf(Submit(worker, order));
  EXPECT_EQ(state.progress.id, ErrorId::kNotOffered);
  EXPECT_THAT(state.progress.text, HasSubstr("the mail is kept, and tried again in 15 minutes"));
  EXPECT_EQ(server.heard().find("MAIL FROM"), std::string::npos);
  EXPECT_TRUE(WaitForRow([](const messages::Outgoing& row) {
    return row.state == messages::OutgoingState::kWaiting && row.error_id == 33;
  }));
}

TEST_F(Worker, ACertificateThatNobodyKnowsIsError32) {
  const test_support::TestCertificate certificate({});
  const ScriptedSmtpServer server([&certificate](SmtpPeer& peer) { peer.StartTls(certificate); });
  MailOrder order = OrderFor(server.port());
  order.content.account.security = Security::kTls;
  RunningWorker worker(folder_.path());
  const MailState state = worker.EndOf(Submit(worker, order));
  EXPECT_EQ(state.progress.id, ErrorId::kCertificate);
  EXPECT_THAT(state.progress.text, HasSubstr("CaFile"));
}

/// NUL, the user "pump", NUL, the password "good".
constexpr const char* kGoodLogin = "AUTH PLAIN AHB1bXAAZ29vZA==\r\n";

/// A server that wants the password "good".
void WantGoodPassword(SmtpPeer& peer) {
  Greet(peer, kAsksForLogin);
  for (std::string line = peer.HearLine(); line.starts_with("AUTH"); line = peer.HearLine()) {
    if (line == kGoodLogin) {
      peer.Say("235 welcome\r\n");
      return ServeCommands(peer);
    }
    peer.Say("535 5.7.8 wrong password\r\n");
  }
}

TEST_F(Worker, ARefusedLoginIsError31ForEveryMailOfTheAccountWithOneAttempt) {
  const ScriptedSmtpServer server(WantGoodPassword);
  const MailOrder order = OrderOfUser(server.port());
  RunningWorker worker(folder_.path());
  const auto first = Submit(worker, order);
  const auto second = Submit(worker, order);
  Bring(worker, order, "bad");
  for (const auto& ticket : {first, second}) {
    const MailState state = worker.EndOf(ticket);
    EXPECT_EQ(state.progress.id, ErrorId::kLoginRefused);
    EXPECT_THAT(state.progress.text, HasSubstr("535 5.7.8 wrong password"));
  }
  EXPECT_EQ(worker.desk().Waiting(RouteOf(order.content.account)), 2) << "they are kept";
  Bring(worker, order, "bad");
  EXPECT_TRUE(worker.WaitForStored(Submit(worker, order)));
  EXPECT_EQ(server.connections(), 1) << "the same password is not tried again";
}

TEST_F(Worker, OtherCredentialsLetOutWhatWasKept) {
  const ScriptedSmtpServer server(WantGoodPassword);
  const MailOrder order = OrderOfUser(server.port());
  RunningWorker worker(folder_.path());
  const auto ticket = Submit(worker, order);
  Bring(worker, order, "bad");
  ASSERT_EQ(worker.EndOf(ticket).progress.id, ErrorId::kLoginRefused);
  Bring(worker, order, "good");
  EXPECT_TRUE(WaitForRow(
      [](const messages::Outgoing& row) { return row.state == messages::OutgoingState::kSent; }));
  EXPECT_THAT(server.heard(), HasSubstr("Subject: Level high"));
}

TEST_F(Worker, ARestartDoesNotShortenThePauseOfAnAccount) {
  const ScriptedSmtpServer server(WantGoodPassword);
  const MailOrder order = OrderOfUser(server.port());
  {
    RunningWorker worker(folder_.path());
    const auto ticket = Submit(worker, order);
    Bring(worker, order, "bad");
    ASSERT_EQ(worker.EndOf(ticket).progress.id, ErrorId::kLoginRefused);
  }
  const auto next_try = Rows().at(0).next_try;
  EXPECT_GT(next_try, order.added.wall + std::chrono::minutes(14));
  RunningWorker worker(folder_.path());
  Bring(worker, order, "good");
  // A mail of another account shows that the worker has looked at all that waits.
  EXPECT_TRUE(worker.WaitForStored(Submit(worker, OrderOfUser(25))));
  EXPECT_EQ(server.connections(), 1) << "the program cannot know that the password is another one";
  EXPECT_EQ(Rows().at(0).next_try, next_try);
  messages::StoreView(folder_.path() / "messages.db")
      .AddRequest(messages::RequestKind::kRetry, Rows().at(0).id, 0);
  EXPECT_TRUE(WaitFor([&] { return server.connections() == 2; }));
}

TEST_F(Worker, CredentialsThatComeWhileOthersAreTriedAreTriedNext) {
  std::atomic<bool> answers = false;
  const ScriptedSmtpServer server([&answers](SmtpPeer& peer) {
    Greet(peer, kAsksForLogin);
    for (std::string line = peer.HearLine(); line.starts_with("AUTH"); line = peer.HearLine()) {
      while (!answers) peer.Pause(1);
      if (line == kGoodLogin) {
        peer.Say("235 welcome\r\n");
        return ServeCommands(peer);
      }
      peer.Say("535 5.7.8 wrong password\r\n");
    }
  });
  const MailOrder order = OrderOfUser(server.port());
  RunningWorker worker(folder_.path());
  const auto ticket = Submit(worker, order);
  Bring(worker, order, "bad");
  ASSERT_THAT(server.HeardUpTo("AHB1bXAAYmFk\r\n"), HasSubstr("AUTH PLAIN AHB1bXAAYmFk\r\n"));
  Bring(worker, order, "good");
  ASSERT_TRUE(worker.WaitForStored(Submit(worker, order))) << "so the password was taken before";
  answers = true;
  EXPECT_EQ(worker.EndOf(ticket).progress, JobProgress::Done());
}

TEST_F(Worker, NoSecretIsInTheStoreOrTheLog) {
  const ScriptedSmtpServer server(WantGoodPassword);
  const MailOrder order = OrderOfUser(server.port());
  {
    RunningWorker worker(folder_.path());
    const auto ticket = Submit(worker, order);
    Bring(worker, order, "very-secret-word");
    ASSERT_EQ(worker.EndOf(ticket).progress.id, ErrorId::kLoginRefused);
    ASSERT_TRUE(worker.WaitForStored(Submit(worker, order)));
  }
  int files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(folder_.path())) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string content(std::istreambuf_iterator<char>(file), {});
    EXPECT_EQ(content.find("very-secret-word"), std::string::npos) << entry.path();
    files += content.find("anna@plant.example") == std::string::npos ? 0 : 1;
  }
  EXPECT_GT(files, 0) << "the mail itself is there";
  for (const std::string& line : test_support::TakeLog()) {
    EXPECT_EQ(line.find("very-secret-word"), std::string::npos) << line;
  }
}

TEST_F(Worker, AMailThatIsNotTakenInTimeExpiresWithError20) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer, kTakes);
    peer.HearLine();
    peer.Say("451 try later\r\n");
    peer.Idle();
  });
  MailOrder order = OrderFor(server.port());
  order.valid_for = std::chrono::milliseconds(300);
  RunningWorker worker(folder_.path());
  const MailState state = worker.EndOf(Submit(worker, order));
  EXPECT_EQ(state.progress.id, ErrorId::kExpired);
  EXPECT_THAT(state.progress.text, HasSubstr("allow more time with ValidFor"));
}

TEST_F(Worker, AnAttemptThatASilentServerHoldsEndsWhenTheMailExpires) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Idle(); });
  MailOrder order = OrderFor(server.port());
  order.valid_for = std::chrono::milliseconds(300);
  RunningWorker worker(folder_.path());
  const MailState state = worker.EndOf(Submit(worker, order));
  EXPECT_EQ(state.progress.id, ErrorId::kExpired);
  EXPECT_THAT(state.progress.text, HasSubstr("the server had not taken it when"));
}

TEST_F(Worker, TheMarkOfASmallMailIsOnTheDiskBeforeTheServerAnswersData) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer, kTakes);
    for (int i = 0; i < 2; ++i) {  // MAIL and RCPT
      peer.HearLine();
      peer.Say("250 ok\r\n");
    }
    peer.Idle();
  });
  RunningWorker worker(folder_.path());
  Submit(worker, OrderFor(server.port()));
  EXPECT_TRUE(WaitForRow([](const messages::Outgoing& row) { return row.in_transfer; }));
}

TEST_F(Worker, AMarkedMailOfWhichTheServerHasNothingYetStillExpires) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer, kTakes);
    for (int i = 0; i < 2; ++i) {  // MAIL and RCPT
      peer.HearLine();
      peer.Say("250 ok\r\n");
    }
    peer.Idle();
  });
  MailOrder order = OrderFor(server.port());
  order.valid_for = std::chrono::milliseconds(300);
  RunningWorker worker(folder_.path());
  EXPECT_EQ(worker.EndOf(Submit(worker, order)).progress.id, ErrorId::kExpired);
  EXPECT_TRUE(WaitForRow([](const messages::Outgoing& row) { return !row.in_transfer; }));
  EXPECT_EQ(Rows().back().unknown_ends, 0);
}

TEST_F(Worker, ALostReplyIsTriedOnceMoreWithTheSameMessageIdAndThenError23) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) {
    Greet(peer, kTakes);
    TakeMail(peer);
    peer.Close();
  });
  RunningWorker worker(folder_.path());
  const auto ticket = Submit(worker, OrderFor(server.port()));
  ASSERT_TRUE(WaitForRow([](const messages::Outgoing& row) { return row.unknown_ends == 1; }));
  EXPECT_EQ(worker.StateOf(ticket).progress.state, JobProgress::State::kBusy);
  const std::string first = server.heard();
  Retry();
  const MailState state = worker.EndOf(ticket);
  EXPECT_EQ(state.progress.id, ErrorId::kUnknownEnd);
  EXPECT_THAT(state.progress.text, HasSubstr("ask the receiver before you send it again"));
  EXPECT_NE(MessageIdIn(first), "");
  EXPECT_EQ(MessageIdIn(server.heard().substr(first.size())), MessageIdIn(first));
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(Worker, ALostReplyFollowedBySuccessIsDoneAndReported) {
  std::atomic<bool> loses_reply = true;
  const ScriptedSmtpServer server([&loses_reply](SmtpPeer& peer) {
    Greet(peer, kTakes);
    if (!loses_reply.exchange(false)) return ServeCommands(peer);
    TakeMail(peer);
    peer.Close();
  });
  RunningWorker worker(folder_.path());
  const auto ticket = Submit(worker, OrderFor(server.port()));
  ASSERT_TRUE(WaitForRow([](const messages::Outgoing& row) { return row.unknown_ends == 1; }));
  Retry();
  const MailState state = worker.EndOf(ticket);
  EXPECT_EQ(state.progress.state, JobProgress::State::kDone);
  EXPECT_THAT(state.progress.text, HasSubstr("may arrive twice, with the same Message-ID"));
}

TEST_F(Worker, ARecipientRefusedForNowIsTriedAloneLater) {
  std::atomic<bool> is_busy = true;
  const ScriptedSmtpServer server([&is_busy](SmtpPeer& peer) {
    Greet(peer, kTakes);
    for (std::string line = peer.HearLine(); line != "QUIT\r\n"; line = peer.HearLine()) {
      if (line == "DATA\r\n") {
        peer.Say("354 go ahead\r\n");
        peer.HearUntil("\r\n.\r\n");
      }
      const bool later = line.find("ben@") != std::string::npos && is_busy.exchange(false);
      peer.Say(later ? "450 mailbox busy\r\n" : "250 ok\r\n");
    }
  });
  MailOrder order = OrderFor(server.port());
  order.content.message.to.push_back({"", "ben@plant.example"});
  RunningWorker worker(folder_.path());
  const auto ticket = Submit(worker, order);
  ASSERT_TRUE(WaitForRow(
      [](const messages::Outgoing& row) { return row.reason.find("busy") != std::string::npos; }));
  const std::size_t first = server.heard().size();
  Retry();
  EXPECT_EQ(worker.EndOf(ticket).progress, JobProgress::Done());
  const std::string second = server.heard().substr(first);
  EXPECT_THAT(second, HasSubstr("RCPT TO:<ben@plant.example>"));
  EXPECT_EQ(second.find("RCPT TO:<anna@plant.example>"), std::string::npos);
}

TEST_F(Worker, AKeyThatWaitsOrWasSentQueuesNothingAndIsDone) {
  const ScriptedSmtpServer server(TakeAll);
  MailOrder order = OrderOfUser(server.port());
  order.key = "tank 2";
  RunningWorker worker(folder_.path());
  const auto first = Submit(worker, order);
  ASSERT_TRUE(worker.WaitForStored(first));
  EXPECT_EQ(worker.EndOf(Submit(worker, order)).progress, JobProgress::Done())
      << "the first one still waits";
  Bring(worker, order, "pw");
  EXPECT_EQ(worker.EndOf(first).progress, JobProgress::Done());
  EXPECT_EQ(worker.EndOf(Submit(worker, order)).progress, JobProgress::Done());
  EXPECT_EQ(Rows().size(), 1U);
}

TEST_F(Worker, TheNextRunSendsWhatWaitsWithoutAUser) {
  std::atomic<bool> is_silent = true;
  const ScriptedSmtpServer server([&is_silent](SmtpPeer& peer) {
    if (is_silent) peer.HearLine();  // without a greeting, so until the client gives up
    TakeAll(peer);
  });
  {
    RunningWorker worker(folder_.path());
    ASSERT_TRUE(worker.WaitForStored(Submit(worker, OrderFor(server.port()))));
    ASSERT_TRUE(WaitFor([&server] { return server.connections() == 1; }));
  }
  EXPECT_THAT(test_support::TakeLog(),
              Contains(HasSubstr("mail: the program ends while 1 mail waits; kept in ")));
  EXPECT_EQ(Rows().at(0).attempts, 0) << "the attempt was withdrawn: nothing has happened";
  is_silent = false;
  RunningWorker worker(folder_.path());
  EXPECT_TRUE(WaitForRow(
      [](const messages::Outgoing& row) { return row.state == messages::OutgoingState::kSent; }));
  EXPECT_THAT(server.heard(), HasSubstr("Subject: Level high"));
}

TEST_F(Worker, TheNextRunWaitsForTheSecretAndSendsThenWithTheAttachment) {
  const ScriptedSmtpServer server(TakeAll);
  MailOrder order = OrderOfUser(server.port());
  const test_support::TemporaryFolder files;
  order.attachments = {files.Write("report.csv", "the whole report")};
  {
    RunningWorker worker(folder_.path());
    ASSERT_TRUE(worker.WaitForStored(Submit(worker, order)));
  }
  fs::remove(order.attachments[0]);
  fs::create_directories(Copies() / "orphan");
  RunningWorker worker(folder_.path());
  EXPECT_TRUE(WaitFor([&] { return worker.desk().Waiting(RouteOf(order.content.account)) == 1; }));
  EXPECT_TRUE(WaitFor([this] { return !fs::exists(Copies() / "orphan"); }));
  EXPECT_FALSE(fs::is_empty(Copies())) << "what belongs to the mail stays";
  EXPECT_EQ(server.connections(), 0);
  Bring(worker, order, "pw");
  EXPECT_TRUE(WaitForRow(
      [](const messages::Outgoing& row) { return row.state == messages::OutgoingState::kSent; }));
  EXPECT_THAT(server.heard(), HasSubstr("report.csv"));
  EXPECT_TRUE(WaitForNoCopies());
}

TEST_F(Worker, AnAttachmentIsCopiedBeforeStoredAndRemovedAfterTheEnd) {
  const ScriptedSmtpServer server(TakeAll);
  MailOrder order = OrderOfUser(server.port());
  const test_support::TemporaryFolder files;
  order.attachments = {files.Write("report.csv", "x")};
  RunningWorker worker(folder_.path());
  const auto ticket = Submit(worker, order);
  ASSERT_TRUE(worker.WaitForStored(ticket));
  EXPECT_FALSE(fs::is_empty(Copies()));
  Bring(worker, order, "pw");
  EXPECT_EQ(worker.EndOf(ticket).progress, JobProgress::Done());
  EXPECT_TRUE(WaitForNoCopies());
}

TEST_F(Worker, AnAttachmentOfADuplicateIsRemoved) {
  MailOrder order = OrderOfUser(25);
  order.key = "tank 2";
  RunningWorker worker(folder_.path());
  ASSERT_TRUE(worker.WaitForStored(Submit(worker, order)));
  const test_support::TemporaryFolder files;
  order.attachments = {files.Write("report.csv", "x")};
  EXPECT_EQ(worker.EndOf(Submit(worker, order)).progress, JobProgress::Done());
  EXPECT_TRUE(WaitForNoCopies());
}

TEST_F(Worker, AnAttachmentThatCannotBeReadIsError15AndNothingIsQueued) {
  MailOrder order = OrderFor(25);
  order.attachments = {"/no/such/file"};
  RunningWorker worker(folder_.path());
  const MailState state = worker.EndOf(Submit(worker, order));
  EXPECT_EQ(state.progress.id, ErrorId::kAttachment);
  EXPECT_THAT(state.progress.text, HasSubstr("/no/such/file cannot be read"));
  EXPECT_FALSE(state.stored);
  EXPECT_EQ(worker.desk().Waiting(RouteOf(order.content.account)), 0);
  EXPECT_TRUE(Rows().empty());
}

TEST_F(Worker, ACopyThatIsGoneWhenItsTurnComesIsError15) {
  MailOrder order = OrderOfUser(25);
  const test_support::TemporaryFolder files;
  order.attachments = {files.Write("report.csv", "x")};
  RunningWorker worker(folder_.path());
  const auto ticket = Submit(worker, order);
  ASSERT_TRUE(worker.WaitForStored(ticket));
  fs::remove_all(Copies());
  Bring(worker, order, "pw");
  EXPECT_EQ(worker.EndOf(ticket).progress.id, ErrorId::kAttachment);
}

TEST_F(Worker, WithoutAStoreAMailGoesOutFromMemoryWithItsAttachment) {
  const ScriptedSmtpServer server(TakeAll);
  MailOrder order = OrderOfUser(server.port());
  const test_support::TemporaryFolder files;
  order.attachments = {files.Write("report.csv", "x")};
  const std::string no_folder = folder_.Write("file", "");
  RunningWorker worker(no_folder);
  const auto ticket = Submit(worker, order);
  ASSERT_TRUE(WaitFor([&] { return worker.StateOf(ticket).progress.id == ErrorId::kStore; }))
      << "error 22 is shown while the mail waits";
  EXPECT_EQ(worker.StateOf(ticket).progress.state, JobProgress::State::kBusy);
  Bring(worker, order, "pw");
  EXPECT_EQ(worker.EndOf(ticket).progress, JobProgress::Done());
  EXPECT_FALSE(worker.StateOf(ticket).stored);
  EXPECT_THAT(server.heard(), HasSubstr("report.csv"));
}

TEST_F(Worker, IsNotStoredWhileItsAttachmentIsInMemoryOnly) {
  const ScriptedSmtpServer server(TakeAll);
  MailOrder order = OrderOfUser(server.port());
  const test_support::TemporaryFolder files;
  order.attachments = {files.Write("report.csv", "x")};
  folder_.Write("attachments", "not a folder");
  RunningWorker worker(folder_.path());
  const auto ticket = Submit(worker, order);
  ASSERT_TRUE(WaitForRow([](const messages::Outgoing&) { return true; }));
  ASSERT_TRUE(WaitFor([&] { return worker.StateOf(ticket).progress.id == ErrorId::kStore; }));
  EXPECT_FALSE(worker.StateOf(ticket).stored);
  EXPECT_THAT(worker.StateOf(ticket).progress.text, HasSubstr("attachments are in memory only"));
  Bring(worker, order, "pw");
  EXPECT_EQ(worker.EndOf(ticket).progress, JobProgress::Done());
  EXPECT_THAT(server.heard(), HasSubstr("report.csv"));
}

TEST_F(Worker, SavesAnAttachmentFromMemoryAsSoonAsTheDiskTakesIt) {
  const ScriptedSmtpServer server(TakeAll);
  MailOrder order = OrderOfUser(server.port());
  const test_support::TemporaryFolder files;
  order.attachments = {files.Write("report.csv", "x")};
  const std::string obstacle = folder_.Write("attachments", "not a folder");
  {
    RunningWorker worker(folder_.path());
    const auto ticket = Submit(worker, order);
    ASSERT_TRUE(WaitFor([&] { return worker.StateOf(ticket).progress.id == ErrorId::kStore; }));
    fs::remove(obstacle);
    ASSERT_TRUE(worker.WaitForStored(ticket));
  }
  RunningWorker worker(folder_.path());
  Bring(worker, order, "pw");
  ASSERT_TRUE(WaitForRow([](const messages::Outgoing& row) {
    return row.state == messages::OutgoingState::kSent;
  })) << "the next run has the attachment";
  EXPECT_THAT(server.heard(), HasSubstr("report.csv"));
}

TEST_F(Worker, ASecondProgramLeavesTheCopiesOfTheFirstAloneAndWritesNone) {
  MailOrder order = OrderOfUser(25);
  const test_support::TemporaryFolder files;
  order.attachments = {files.Write("report.csv", "x")};
  RunningWorker first(folder_.path());
  ASSERT_TRUE(first.WaitForStored(Submit(first, order)));
  const auto copies = [this] {
    std::set<fs::path> found;
    for (const auto& entry : fs::recursive_directory_iterator(Copies())) found.insert(entry.path());
    return found;
  };
  const std::set<fs::path> of_first = copies();
  const ScriptedSmtpServer server(TakeAll);
  MailOrder other = OrderOfUser(server.port());
  other.attachments = {files.Write("alarms.csv", "y")};
  RunningWorker second(folder_.path());
  const auto ticket = Submit(second, other);
  ASSERT_TRUE(WaitFor([&] { return second.StateOf(ticket).progress.id == ErrorId::kStore; }));
  EXPECT_EQ(copies(), of_first) << "while the mail of the second program waits";
  Bring(second, other, "pw");
  EXPECT_EQ(second.EndOf(ticket).progress, JobProgress::Done());
  EXPECT_THAT(server.heard(), HasSubstr("alarms.csv"));
  EXPECT_EQ(copies(), of_first);
}

TEST_F(Worker, AFailureThatLastsIsLoggedOnce) {
  const ScriptedSmtpServer server([](SmtpPeer& peer) { peer.Say("421 4.3.2 closing\r\n"); });
  RunningWorker worker(folder_.path());
  Submit(worker, OrderFor(server.port()));
  for (int connections = 1; connections <= 2; ++connections) {
    ASSERT_TRUE(WaitForRow([connections](const messages::Outgoing& row) {
      return row.attempts == connections && row.reason.find("421") != std::string::npos;
    }));
    Retry();
  }
  ASSERT_TRUE(WaitForRow([](const messages::Outgoing& row) { return row.attempts >= 3; }));
  int lines = 0;
  for (const std::string& line : test_support::TakeLog()) {
    if (line.find("421 4.3.2 closing") == std::string::npos) continue;
    EXPECT_THAT(line, HasSubstr("what waits is kept and tried again"));
    ++lines;
  }
  EXPECT_EQ(lines, 1);
}

}  // namespace
}  // namespace corvane_mail
