// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_desk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/support/wait_for.h"

namespace corvane_mail {
namespace {

using std::chrono::milliseconds;
using test_support::kPatience;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr milliseconds kNoTime(0);
constexpr const char* kRoute = "mail.example:587";

MailOrder OrderTo(const std::string& server, const std::string& subject = "") {
  MailOrder order;
  order.content.account.server = server;
  order.content.account.port = 587;
  order.content.message.subject = subject;
  return order;
}

/// Queues a mail that the desk takes.
std::shared_ptr<MailTicket> Queue(MailDesk& desk, const std::string& server = "mail.example",
                                  const std::string& subject = "") {
  auto ticket = desk.Submit(OrderTo(server, subject));
  EXPECT_NE(ticket, nullptr);
  return ticket;
}

/// What a command is about, for a comparison.
std::string NameOf(const MailCommand& command) {
  if (const auto* const submission = std::get_if<Submission>(&command)) {
    return "mail " + submission->order.content.message.subject;
  }
  if (const auto* const credentials = std::get_if<Credentials>(&command)) {
    return "credentials of " + credentials->route;
  }
  return "attachments of " +
         std::get<AttachmentsTaken>(command).submission.order.content.message.subject;
}

std::vector<std::string> Names(const std::vector<MailCommand>& commands) {
  std::vector<std::string> names;
  for (const MailCommand& command : commands) names.push_back(NameOf(command));
  return names;
}

TEST(MailDesk, GivesCommandsOutOnceInTheOrderInWhichTheyCame) {
  MailDesk desk;
  EXPECT_THAT(desk.Take(), IsEmpty());
  Queue(desk, "mail.example", "one");
  desk.Bring({"route", nullptr, false});
  desk.Give({{OrderTo("mail.example", "two"), nullptr}, {}});
  Queue(desk, "mail.example", "three");
  EXPECT_THAT(Names(desk.Take()),
              ElementsAre("mail one", "credentials of route", "attachments of two", "mail three"));
  EXPECT_THAT(desk.Take(), IsEmpty());
}

TEST(MailDesk, RefusesMailsWhenTenThousandWaitToBeTaken) {
  MailDesk desk;
  for (std::size_t i = 0; i < MailDesk::kMaxCommands; ++i) {
    ASSERT_NE(desk.Submit(OrderTo("mail.example")), nullptr) << i;
  }
  EXPECT_EQ(desk.Submit(OrderTo("mail.example")), nullptr);
  EXPECT_EQ(desk.Waiting(kRoute), 10'000) << "the refused one does not count";
  desk.Give({{OrderTo("mail.example"), nullptr}, {}});
  desk.Bring({"route", nullptr, false});
  EXPECT_EQ(desk.Take().size(), 10'002U) << "what was begun is not refused";
  EXPECT_NE(desk.Submit(OrderTo("mail.example")), nullptr);
}

TEST(MailDesk, CountsWhatWaitsByRouteInWhateverStage) {
  MailDesk desk;
  EXPECT_EQ(desk.Waiting(kRoute), 0);
  Queue(desk);
  Queue(desk);
  Queue(desk, "other.example");
  EXPECT_EQ(desk.Waiting(kRoute), 2);
  EXPECT_EQ(desk.Waiting("other.example:587"), 1);
  static_cast<void>(desk.Take());
  EXPECT_EQ(desk.Waiting(kRoute), 2) << "taken by the thread, not yet in the outbox";
  desk.SetWaiting(kRoute, 1, 1);
  EXPECT_EQ(desk.Waiting(kRoute), 2) << "one in the outbox, one on its way there";
  desk.SetWaiting(kRoute, 2, 1);
  EXPECT_EQ(desk.Waiting(kRoute), 2);
  desk.SetWaiting(kRoute, 0, 0);
  EXPECT_EQ(desk.Waiting(kRoute), 0);
  EXPECT_EQ(desk.Waiting("other.example:587"), 1);
  desk.SetWaiting("loaded.example:587", 7, 0);
  EXPECT_EQ(desk.Waiting("loaded.example:587"), 7) << "of an earlier run";
}

TEST(MailDesk, AStateIsSeenAsItWasPublished) {
  MailDesk desk;
  const auto ticket = Queue(desk);
  const auto first = desk.StateOf(*ticket);
  EXPECT_EQ(*first, MailState{});
  EXPECT_EQ(desk.StateOf(*ticket), first) << "the same object while nothing has changed";
  desk.Publish(*ticket, {true, JobProgress::Done("words"), "a@x: 550"});
  EXPECT_EQ(*first, MailState{}) << "who still looks at the old one is not disturbed";
  const auto next = desk.StateOf(*ticket);
  EXPECT_TRUE(next->stored);
  EXPECT_EQ(next->progress, JobProgress::Done("words"));
  EXPECT_EQ(next->refused, "a@x: 550");
}

/// Runs in a thread of its own until the desk wakes it.
class Waiter {
 public:
  explicit Waiter(MailDesk& desk) : thread_([&desk] { desk.Wait(kPatience); }) {}
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;
  ~Waiter() { thread_.join(); }

 private:
  std::thread thread_;
};

milliseconds TimeOf(const std::function<void()>& action) {
  const auto begin = std::chrono::steady_clock::now();
  action();
  return std::chrono::ceil<milliseconds>(std::chrono::steady_clock::now() - begin);
}

TEST(MailDesk, EveryCommandWakesTheThread) {
  MailDesk desk;
  const std::function<void()> commands[] = {
      [&desk] { Queue(desk); },
      [&desk] {
        desk.Bring({"route", nullptr, false});
      },
      [&desk] {
        desk.Give({{OrderTo("mail.example"), nullptr}, {}});
      },
      [&desk] { desk.Wake(); },
      [&desk] { desk.Stop(); },
  };
  for (const auto& command : commands) {
    EXPECT_LT(TimeOf([&] {
                const Waiter waiter(desk);
                command();
              }),
              kPatience);
    EXPECT_LT(TimeOf([&] {
                command();
                desk.Wait(kPatience);
              }),
              kPatience)
        << "a command that came before is not missed";
  }
}

TEST(MailDesk, AWaitIsOverAfterItsTime) {
  MailDesk desk;
  desk.Wake();
  desk.Wait(kPatience);
  EXPECT_GE(TimeOf([&desk] { desk.Wait(milliseconds(20)); }), milliseconds(20))
      << "one Wake ends one wait";
}

/// Whether an attempt that begins now ends as withdrawn.
bool Withdraws(MailCarrier& carrier) {
  Attempt attempt;
  attempt.id = 7;
  attempt.account.server = "127.0.0.1";
  attempt.account.port = 9;
  attempt.recipients = {"anna@plant.example"};
  attempt.open = [](bool) { return 0; };
  attempt.read = [](std::span<char>) { return 0; };
  carrier.Begin(std::move(attempt));
  const auto outcomes = carrier.Poll(kPatience);
  return outcomes.size() == 1 && outcomes[0].end == End::kAborted;
}

TEST(MailDesk, CommandsAndTheStopReachACarrierThatWaits) {
  MailDesk desk;
  MailCarrier carrier;
  desk.SetCarrier(&carrier);
  Queue(desk);
  EXPECT_LT(TimeOf([&carrier] { static_cast<void>(carrier.Poll(kPatience)); }), kPatience);
  desk.Stop();
  EXPECT_TRUE(Withdraws(carrier));
  desk.SetCarrier(nullptr);
}

TEST(MailDesk, ACarrierThatComesAfterTheStopIsStoppedToo) {
  MailDesk desk;
  EXPECT_FALSE(desk.stopping());
  desk.Stop();
  EXPECT_TRUE(desk.stopping());
  MailCarrier carrier;
  desk.SetCarrier(&carrier);
  EXPECT_TRUE(Withdraws(carrier));
  desk.SetCarrier(nullptr);
}

TEST(MailDesk, TheEndOfTheThreadIsWaitedForAsLongAsItMayTake) {
  MailDesk desk;
  EXPECT_FALSE(desk.WaitForEnd(kNoTime));
  std::thread thread([&desk] {
    desk.Wait(kPatience);
    desk.SetEnded();
  });
  desk.Stop();
  EXPECT_TRUE(desk.WaitForEnd(kPatience));
  thread.join();
  EXPECT_TRUE(desk.WaitForEnd(kNoTime));
}

}  // namespace
}  // namespace corvane_mail
