// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/list_task.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "addins/corvane_sms/incoming_pdu.h"
#include "corvane/modem_port_driver.h"
#include "tests/support/deliver_pdu.h"

namespace corvane_sms {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::string PduOf(const std::string& text) {
  return test_support::TextMessage(text).ToHex();
}

constexpr const char* kReport = "0006C80B915155101032F4621013210000406210132100304000";

/// A modem's store and how it answers, and a disk, and the task between them.
class ListTaskTest : public testing::Test {
 protected:
  struct Entry {
    std::string pdu;
    int stored_as = 1;
  };

  ListTaskTest() {
    inbox_.Load({}, {}, {});
    inbox_.Tick(now_);
    task_.SetEnabled(true, now_);
  }

  messages::InboxHooks InboxHooks() {
    return {[this] { return next_id_++; },
            [this](const std::vector<messages::Change>&) {
              if (prompt_disk_) synced_ = written_ + 1;
              return ++written_;
            },
            [this](std::uint64_t sequence) { return sequence <= synced_; },
            [](std::span<const messages::Part> parts) { return ReadParts(parts); },
            [](const messages::Part& a, const messages::Part& b) { return HaveSameContent(a, b); }};
  }
  ListHooks Hooks() {
    return {[this] { return can_store_; }, [this] { return awaits_reports_; },
            [this](const gsm::StatusReportPdu& report, const Now&) {
              reports_.push_back(report.message_reference);
            },
            [this](const std::string& text) { warnings_.push_back(text); }};
  }

  std::string Answer(const std::string& command) {
    log_.push_back(command.substr(0, command.size() - 1));
    if (!silent_answer_.empty()) return {};
    if (command == "AT+CMGL=4\r") {
      ++lists_;
      if (!list_answer_.empty()) return list_answer_;
      std::string list;
      for (const auto& [index, entry] : store_) {
        list += fmt::format("+CMGL: {},{},,20\r\n{}\r\n", index, entry.stored_as, entry.pdu);
      }
      return list + "OK\r\n";
    }
    const int index = std::stoi(command.substr(8));
    if (!delete_answer_.empty()) return delete_answer_;
    if (!lies_) store_.erase(index);
    if (!next_text_.empty()) {  // the network has waited for the place
      store_[index] = {PduOf(std::exchange(next_text_, {}))};
      task_.OnLine("+CMTI: \"SM\"," + std::to_string(index), {}, now_);
    }
    return "OK\r\n";
  }

  /// What the port's client does, until the task wants nothing.
  void Run(int most = 10000) {
    while (most-- > 0 && task_.Priority(now_) > 0) {
      task_.OnBegin(now_);
      bool goes_on = true;
      while (goes_on) {
        const auto request = task_.Next(now_);
        if (!request) break;
        const std::string answer = Answer(request->octets);
        goes_on = task_.OnAnswer(answer, answer.empty() ? -1 : 0, now_);
      }
    }
  }
  void Pass(milliseconds time) {
    now_.steady += time;
    now_.wall += time;
    Run();
  }
  std::vector<std::string> All() {
    std::vector<std::string> texts;
    while (const messages::Incoming* message = inbox_.Offered("1")) {
      texts.push_back(message->text);
      EXPECT_TRUE(inbox_.Accept("1", message->id, now_));
    }
    return texts;
  }

  Now now_{std::chrono::steady_clock::time_point(std::chrono::hours(5)),
           messages::kClockIsSet + std::chrono::hours(1000)};
  std::map<int, Entry> store_;
  std::string list_answer_, delete_answer_, silent_answer_;
  bool lies_ = false;
  std::string next_text_;  // arrives during the next deletion
  bool can_store_ = true;
  bool awaits_reports_ = false;
  bool prompt_disk_ = true;
  std::int64_t next_id_ = 1;
  std::uint64_t written_ = 0, synced_ = 0;
  int lists_ = 0;
  std::vector<std::string> log_;
  std::vector<int> reports_;
  std::vector<std::string> warnings_;
  messages::Inbox inbox_{InboxHooks()};
  ListTask task_{"1", inbox_, Hooks()};
};

TEST_F(ListTaskTest, ListsAtOnceTakesAndDeletes) {
  store_ = {{1, {PduOf("first")}}, {7, {PduOf("second"), 0}}};
  EXPECT_FALSE(task_.state().valid);
  Run();
  EXPECT_THAT(log_, ElementsAre("AT+CMGL=4", "AT+CMGD=1", "AT+CMGD=7"));
  EXPECT_TRUE(task_.state().valid);
  EXPECT_THAT(All(), ElementsAre("first", "second"));
}

TEST_F(ListTaskTest, ListsAgainEveryThirtySecondsAndAtAnAnnouncement) {
  Run();
  EXPECT_EQ(lists_, 1);
  Pass(seconds(29));
  EXPECT_EQ(lists_, 1);
  Pass(seconds(1));
  EXPECT_EQ(lists_, 2);
  task_.OnLine("+CMTI: \"SM\",3", "", now_);
  Run();
  EXPECT_EQ(lists_, 3);
  task_.OnLine("+CREG: 1", "", now_);
  Run();
  EXPECT_EQ(lists_, 3);
}

TEST_F(ListTaskTest, ListsAgainAfterAnAnnouncementDuringAList) {
  ASSERT_GT(task_.Priority(now_), 0);
  const auto request = task_.Next(now_);
  ASSERT_TRUE(request);
  const std::string answer = Answer(request->octets);
  task_.OnLine("+CMTI: \"SM\",1", "", now_);
  store_[1] = {PduOf("late")};
  task_.OnAnswer(answer, 0, now_);
  Run();
  EXPECT_THAT(All(), ElementsAre("late"));
}

TEST_F(ListTaskTest, DeletesOnlyWhatIsOnTheDisk) {
  prompt_disk_ = false;
  store_ = {{1, {PduOf("first")}}};
  Run();
  EXPECT_THAT(log_, ElementsAre("AT+CMGL=4"));
  EXPECT_EQ(task_.Priority(now_), 0) << "it does not keep the port busy meanwhile";
  synced_ = written_;
  Run();
  EXPECT_THAT(store_, IsEmpty());
}

TEST_F(ListTaskTest, DeletesOnlyByAFreshList) {
  prompt_disk_ = false;
  store_ = {{1, {PduOf("first")}}};
  Run();
  now_.steady += minutes(5);  // the disk did not answer; the SIM card may have been exchanged
  synced_ = written_;
  store_ = {{1, {PduOf("another")}}};
  prompt_disk_ = true;
  Run();
  EXPECT_EQ(log_[1], "AT+CMGL=4");
  EXPECT_THAT(All(), ElementsAre("first", "another"));
}

TEST_F(ListTaskTest, LeavesWhatIsToBeSentInTheModem) {
  const std::string submit = "0001000B915155101032F4000005E8329BFD06";
  store_ = {{1, {submit, 2}}, {2, {submit, 3}}, {3, {submit, 9}}, {4, {PduOf("in")}}};
  Run();
  EXPECT_THAT(store_, SizeIs(3));
  EXPECT_THAT(All(), ElementsAre("in"));
}

TEST_F(ListTaskTest, HandsOverWhatCannotBeDecoded) {
  store_ = {{1, {"0791"}}, {2, {""}}, {3, {"0001000B915155101032F4000005E8329BFD06"}}};
  Run();
  EXPECT_THAT(store_, IsEmpty());
  EXPECT_THAT(All(), ElementsAre("0791", "", "0001000B915155101032F4000005E8329BFD06"));
}

TEST_F(ListTaskTest, JoinsPartsOfSeveralLists) {
  store_ = {{1, {test_support::Part(5, 3, 3, "c").ToHex()}},
            {2, {test_support::Part(5, 3, 1, "a").ToHex()}}};
  Run();
  EXPECT_THAT(store_, IsEmpty());
  EXPECT_THAT(All(), IsEmpty());
  store_ = {{1, {test_support::Part(5, 3, 2, "b").ToHex()}}};
  Pass(seconds(30));
  EXPECT_THAT(All(), ElementsAre("abc"));
}

TEST_F(ListTaskTest, TakesTheSameTextInTwoPlacesTwice) {
  store_ = {{1, {PduOf("x")}}, {2, {PduOf("x")}}};
  Run();
  EXPECT_THAT(All(), ElementsAre("x", "x"));
}

TEST_F(ListTaskTest, DoesNotTakeAgainWhatTheModemCannotDelete) {
  store_ = {{1, {PduOf("stuck")}}};
  delete_answer_ = "+CMS ERROR: 500\r\n";
  Run();
  EXPECT_EQ(task_.state().error_id, 0) << "once may be by chance";
  for (int i = 0; i < 500; ++i) Pass(seconds(30));
  EXPECT_THAT(All(), ElementsAre("stuck"));
  EXPECT_EQ(task_.state().error_id, 24);
  EXPECT_TRUE(task_.state().valid);
  EXPECT_THAT(task_.state().error_text, HasSubstr("does not delete 1 message. "));
  EXPECT_LE(warnings_.size(), 6u) << "more than one an hour";
  EXPECT_THAT(warnings_[0], HasSubstr("+CMS ERROR: 500, unknown error"));
  const auto deletions = std::ranges::count(log_, "AT+CMGD=1");
  EXPECT_GT(deletions, 10);
  EXPECT_LT(deletions, 30) << "after pauses of up to 15 minutes";
  delete_answer_.clear();
  Pass(minutes(16));
  Pass(seconds(30));
  Pass(seconds(30));
  EXPECT_THAT(store_, IsEmpty());
  EXPECT_EQ(task_.state().error_id, 0);
}

TEST_F(ListTaskTest, DoesNotTakeAgainWhatTheModemOnlyClaimsToDelete) {
  store_ = {{1, {PduOf("stuck")}}};
  lies_ = true;
  for (int i = 0; i < 100; ++i) Pass(seconds(30));
  EXPECT_THAT(All(), ElementsAre("stuck"));
  ASSERT_THAT(warnings_, SizeIs(1));
  EXPECT_THAT(warnings_[0], HasSubstr("lists it again"));
  EXPECT_EQ(task_.state().error_id, 24);
}

TEST_F(ListTaskTest, TakesTheSameTextAgainWhenTheModemAnnouncesItInAPlaceThatItHasCleared) {
  store_ = {{1, {PduOf("tick")}}};
  Run();
  store_ = {{1, {PduOf("tick")}}};
  task_.OnLine("+CMTI: \"SM\",1", {}, now_);
  Run();
  EXPECT_THAT(All(), ElementsAre("tick", "tick"));
  EXPECT_THAT(store_, IsEmpty());
  EXPECT_THAT(warnings_, IsEmpty());
}

TEST_F(ListTaskTest, TakesTheSameTextAgainWhenItIsAnnouncedDuringTheDeletion) {
  store_ = {{1, {PduOf("tick")}}};
  next_text_ = "tick";
  Run();
  EXPECT_THAT(All(), ElementsAre("tick", "tick"));
  EXPECT_THAT(store_, IsEmpty());
}

TEST_F(ListTaskTest, DoesNotTakeAgainWhatIsAnnouncedOnlyAfterItWasListed) {
  store_ = {{1, {PduOf("before")}}};
  Run();
  prompt_disk_ = false;  // so that it is still there when it is announced
  store_ = {{1, {PduOf("tick")}}};
  Pass(seconds(30));
  task_.OnLine("+CMTI: \"SM\",1", {}, now_);
  Run();
  prompt_disk_ = true;
  Pass(seconds(30));
  EXPECT_THAT(All(), ElementsAre("before", "tick"));
}

TEST_F(ListTaskTest, DoesNotTakeAgainWhatIsAnnouncedWhereNothingWasCleared) {
  store_ = {{1, {PduOf("stuck")}}};
  delete_answer_ = "ERROR\r\n";
  Run();
  task_.OnLine("+CMTI: \"SM\",1", {}, now_);
  Run();
  EXPECT_THAT(All(), ElementsAre("stuck"));
}

TEST_F(ListTaskTest, EndsARoundOfDeletionsThatFailAndTakesTheRest) {
  for (int i = 1; i <= 50; ++i) store_[i] = {PduOf("n" + std::to_string(i))};
  delete_answer_ = "ERROR\r\n";
  Run();
  EXPECT_THAT(log_, SizeIs(4)) << "a list and three deletions";
  for (int i = 0; i < 5; ++i) task_.Work(now_);
  EXPECT_THAT(All(), SizeIs(50));
}

TEST_F(ListTaskTest, TakesAPlaceThatIsListedTwiceOnce) {
  list_answer_ =
      "+CMGL: 1,1,,20\r\n" + PduOf("a") + "\r\n+CMGL: 1,1,,20\r\n" + PduOf("b") + "\r\nOK\r\n";
  delete_answer_ = "ERROR\r\n";
  for (int i = 0; i < 5; ++i) Pass(seconds(30));
  EXPECT_THAT(All(), ElementsAre("a"));
}

TEST_F(ListTaskTest, CountsAnEmptyPlaceAsCleared) {
  store_ = {{1, {PduOf("x")}}};
  delete_answer_ = "+CMS ERROR: 321\r\n";
  Run();
  EXPECT_THAT(warnings_, IsEmpty());
}

TEST_F(ListTaskTest, TakesANewMessageFromAPlaceThatWasStuck) {
  store_ = {{1, {PduOf("old")}}};
  delete_answer_ = "ERROR\r\n";
  Run();
  delete_answer_.clear();
  store_ = {{1, {PduOf("new")}}};
  Pass(seconds(30));
  EXPECT_THAT(All(), ElementsAre("old", "new"));
  EXPECT_THAT(store_, IsEmpty());
}

TEST_F(ListTaskTest, ForgetsAMessageOnlyWhenTwoListsLackIt) {
  store_ = {{1, {PduOf("x")}}};
  delete_answer_ = "ERROR\r\n";
  Run();
  list_answer_ = "OK\r\n";  // the modem still reads its SIM card
  Pass(seconds(30));
  list_answer_.clear();
  Pass(seconds(30));
  EXPECT_THAT(All(), ElementsAre("x"));
  store_.clear();
  Pass(seconds(30));
  Pass(seconds(30));
  store_ = {{1, {PduOf("x")}}};
  Pass(seconds(30));
  EXPECT_THAT(All(), ElementsAre("x")) << "a repetition by the network is another message";
}

TEST_F(ListTaskTest, ForgetsNothingAfterAListThatBreaksOff) {
  store_ = {{1, {PduOf("a")}}, {2, {PduOf("b")}}};
  delete_answer_ = "ERROR\r\n";
  Run();
  list_answer_ = "+CMGL: 1,1,,20\r\n" + PduOf("a") + "\r\n";
  Pass(seconds(30));
  EXPECT_EQ(task_.state().error_id, 24);
  Pass(seconds(5));
  Pass(seconds(5));
  list_answer_.clear();
  Pass(seconds(5));
  EXPECT_TRUE(task_.state().valid);
  EXPECT_THAT(All(), ElementsAre("a", "b"));
}

TEST_F(ListTaskTest, TakesWholeEntriesOfAListThatBreaksOff) {
  list_answer_ = "+CMGL: 1,1,,20\r\n" + PduOf("a") + "\r\n+CMGL: 2,1,,20\r\n";
  Run();
  EXPECT_THAT(All(), testing::Contains("a"));
}

TEST_F(ListTaskTest, SaysThatTheModemDoesNotAnswerAndTriesEveryFiveSeconds) {
  silent_answer_ = "silent";
  Run();
  EXPECT_FALSE(task_.state().valid);
  EXPECT_EQ(task_.state().error_id, 24);
  EXPECT_THAT(task_.state().error_text, HasSubstr("modem port 1: the modem does not answer"));
  silent_answer_.clear();
  Pass(seconds(5));
  EXPECT_TRUE(task_.state().valid);
  EXPECT_EQ(task_.state().error_id, 0);
  EXPECT_EQ(task_.state().error_text, "");
}

TEST_F(ListTaskTest, SaysThatTheModemDoesNotAnswerWhenItsClientCannotBegin) {
  task_.OnNotReady("", -1, now_);
  EXPECT_EQ(task_.state().error_id, 24);
  task_.OnNotReady("+CME ERROR: 10\r\n", 0, now_);
  EXPECT_EQ(task_.state().error_id, 25);
}

TEST_F(ListTaskTest, TellsFaultsOfTheSimCardFromThoseOfTheModem) {
  for (const auto& [answer, error] :
       {std::pair("+CMS ERROR: 310\r\n", 25), std::pair("+CMS ERROR: 316\r\n", 25),
        std::pair("+CME ERROR: 11\r\n", 25), std::pair("+CME ERROR: SIM not inserted\r\n", 25),
        std::pair("+CMS ERROR: 500\r\n", 24), std::pair("ERROR\r\n", 24),
        std::pair("+CMS ERROR: 314\r\n", 25),
        std::pair("+CME ERROR: operation not allowed\r\n", 24),
        std::pair("+CMS ERROR: 3100\r\n", 24)}) {
    list_answer_ = answer;
    Pass(seconds(30));
    EXPECT_EQ(task_.state().error_id, error) << answer;
    EXPECT_FALSE(task_.state().valid);
    EXPECT_THAT(task_.state().error_text, HasSubstr(list_answer_.substr(0, 5)));
  }
}

TEST_F(ListTaskTest, LeavesEverythingInTheModemWhileTheStoreHasAProblem) {
  can_store_ = false;
  store_ = {{1, {PduOf("x")}}, {2, {kReport}}};
  for (int i = 0; i < 5; ++i) Pass(seconds(30));
  EXPECT_TRUE(task_.state().valid);
  EXPECT_THAT(store_, SizeIs(2));
  EXPECT_EQ(inbox_.Waiting("1"), 0u);
  can_store_ = true;
  Run();
  EXPECT_THAT(All(), ElementsAre("x")) << "at once";
  EXPECT_THAT(store_, IsEmpty());
}

TEST_F(ListTaskTest, LeavesTheRestInTheModemWhenTenThousandMessagesWait) {
  messages::Incoming message;
  message.route = "1";
  for (std::size_t i = 0; i < messages::Inbox::kMostWaiting - 1; ++i) {
    inbox_.Take(message, std::nullopt, now_);
  }
  store_ = {{1, {PduOf("last")}}, {2, {PduOf("too many")}}};
  Run();
  EXPECT_THAT(store_, SizeIs(1));
  All();
  Pass(seconds(30));
  EXPECT_THAT(All(), ElementsAre("too many"));
}

TEST_F(ListTaskTest, TakesALongListInManySteps) {
  for (int i = 1; i <= 1000; ++i) store_[i] = {PduOf("n" + std::to_string(i))};
  ASSERT_GT(task_.Priority(now_), 0);
  const auto request = task_.Next(now_);
  ASSERT_TRUE(request);
  task_.OnAnswer(Answer(request->octets), 0, now_);
  EXPECT_LT(inbox_.Waiting("1"), 50u);
  EXPECT_GT(inbox_.Waiting("1"), 0u);
  for (int i = 0; i < 100; ++i) task_.Work(now_);
  EXPECT_EQ(inbox_.Waiting("1"), 1000u);
}

TEST_F(ListTaskTest, GivesReportsToTheOutboxOnceAndDeletesThem) {
  store_ = {{1, {kReport}}, {2, {PduOf("x")}}};
  delete_answer_ = "ERROR\r\n";
  Run();
  Pass(seconds(30));
  EXPECT_THAT(reports_, ElementsAre(0xC8));
  delete_answer_.clear();
  Pass(minutes(2));
  EXPECT_THAT(store_, IsEmpty());
  task_.OnLine("+CDS: 25", kReport, now_);
  EXPECT_THAT(reports_, ElementsAre(0xC8, 0xC8));
  EXPECT_THAT(All(), ElementsAre("x"));
}

TEST_F(ListTaskTest, WithoutAnInboxTakesOnlyReportsThatAreAwaited) {
  task_.SetEnabled(false, now_);
  store_ = {{1, {kReport}}, {2, {PduOf("x")}}};
  Run();
  EXPECT_EQ(lists_, 0);
  awaits_reports_ = true;
  Run();
  EXPECT_THAT(reports_, ElementsAre(0xC8));
  EXPECT_THAT(store_, SizeIs(1)) << "other messages are left alone";
  EXPECT_EQ(inbox_.Waiting("1"), 0u);
  task_.SetEnabled(true, now_);
  Run();
  EXPECT_THAT(All(), ElementsAre("x"));
}

TEST_F(ListTaskTest, TakesWhatTheModemHandsOnDirectly) {
  can_store_ = false;
  task_.OnLine("+CMT: ,30", PduOf("x"), now_);
  EXPECT_EQ(inbox_.Waiting("1"), 0u);
  can_store_ = true;
  task_.Work(now_);
  EXPECT_THAT(All(), ElementsAre("x"));
  task_.OnLine("+CBM: 88", "00", now_);
  task_.OnLine("+CMTI: \"SM\",1", "", now_);
  Run();
  EXPECT_THAT(All(), IsEmpty());
}

TEST_F(ListTaskTest, ListsAgainAfterARestartOfTheModemBeforeItDeletes) {
  prompt_disk_ = false;
  store_ = {{1, {PduOf("x")}}};
  Run();
  task_.OnLine(kPortDriverRestart, "", now_);
  synced_ = written_;
  Run();
  EXPECT_THAT(log_, ElementsAre("AT+CMGL=4", "AT+CMGL=4", "AT+CMGD=1"));
}

TEST_F(ListTaskTest, SurvivesARestartOfTheModemDuringADeletion) {
  store_ = {{1, {PduOf("x")}}};
  Run(1);
  store_[2] = {PduOf("y")};
  Pass(seconds(29));
  ASSERT_GT(task_.Priority(now_ = {now_.steady + seconds(1), now_.wall}), 0);
  Run(1);
  task_.OnLine(kPortDriverRestart, "", now_);
  task_.OnAnswer("OK\r\n", 0, now_);
  task_.OnAnswer("", -1, now_);
  Run();
  EXPECT_THAT(All(), ElementsAre("x", "y"));
}

TEST_F(ListTaskTest, ListsAfterAFailedDeletionWithoutAnAnswer) {
  store_ = {{1, {PduOf("x")}}};
  Run(1);
  silent_answer_ = "silent";
  Run();
  EXPECT_EQ(task_.state().error_id, 24);
  silent_answer_.clear();
  Pass(seconds(5));
  EXPECT_THAT(store_, IsEmpty());
  EXPECT_THAT(All(), ElementsAre("x"));
}

TEST_F(ListTaskTest, LeavesTimeForOthersBetweenLongLists) {
  ASSERT_GT(task_.Priority(now_), 0);
  auto request = task_.Next(now_);
  now_.steady += seconds(95);  // at 9600 baud
  task_.OnLine("+CMTI: \"SM\",1", "", now_);
  task_.OnAnswer("OK\r\n", 0, now_);
  EXPECT_EQ(task_.Priority(now_), 0);
  now_.steady += seconds(96);
  EXPECT_GT(task_.Priority(now_), 0);
}

TEST_F(ListTaskTest, GoesAfterWhatIsSentUnlessItHasWaitedForLong) {
  EXPECT_LT(task_.Priority(now_), kSendPriority);
  now_.steady += seconds(11);
  EXPECT_GT(task_.Priority(now_), kSendPriority);
  EXPECT_LT(task_.Priority(now_), kUrgentPriority);
}

}  // namespace
}  // namespace corvane_sms
