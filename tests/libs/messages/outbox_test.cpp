// SPDX-License-Identifier: MIT
// The test plays the clock, the disk and the sender.
#include "libs/messages/outbox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

namespace {

using namespace std::chrono_literals;
using namespace messages;
using std::chrono::sys_days;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr WallTime kNoon = sys_days(std::chrono::year(2026) / 11 / 22) + 12h;

class OutboxTest : public testing::Test {
 protected:
  OutboxTest() : outbox_(Make()) {}

  Outbox Make() {
    return Outbox("sms", {[this] { return next_id_++; },
                          [this](std::vector<Change> changes) {
                            for (Change& change : changes) Keep(change);
                            return ++sequence_;
                          }});
  }
  void Keep(Change& change) {
    if (auto* const row = std::get_if<Outgoing>(&change)) rows_[row->id] = *row;
    if (auto* const answer = std::get_if<AnswerRequest>(&change)) answer_ = *answer;
    if (auto* const limit = std::get_if<SetLimit>(&change)) limit_ = limit->per_hour;
  }
  /// An empty store, loaded.
  void Open() {
    outbox_.Load({}, {}, {}, std::nullopt, now_);
    outbox_.Tick(now_);
  }
  /// The program is killed and starts again, later.
  void Restart(std::chrono::milliseconds later = 0ms) {
    now_.wall += later;
    now_.steady = SteadyTime(1s);  // the machine, too
    std::deque<Outgoing> waiting;
    std::deque<SentKey> keys;
    std::vector<RecentSend> recent;
    for (const auto& [id, row] : rows_) {
      if (row.state == OutgoingState::kWaiting || row.report_awaited) waiting.push_back(row);
      if (row.state == OutgoingState::kSent && !row.key.empty()) {
        keys.push_back({"sms", row.key, row.finished});
      }
      if (row.state == OutgoingState::kSent && now_.wall - row.finished < 1h) {
        recent.push_back({"sms", row.route, row.finished});
      }
    }
    outbox_.~Outbox();
    new (&outbox_) Outbox(Make());
    outbox_.Load(waiting, keys, recent, limit_, now_);
    for (int i = 0; i < 1000 && !outbox_.ready(); ++i) outbox_.Tick(now_);
  }
  void Pass(std::chrono::milliseconds time) {
    now_.steady += time;
    now_.wall += time;
    outbox_.Tick(now_);
  }

  std::shared_ptr<const OutboxJob> Add(std::vector<std::string> receivers, bool urgent = false,
                                       const std::string& key = "",
                                       std::chrono::milliseconds valid_for = 24h,
                                       const std::string& route = "1") {
    NewJob job{
        .route = route, .key = key, .urgent = urgent, .valid_for = valid_for, .messages = {}};
    for (std::string& receiver : receivers) job.messages.push_back({std::move(receiver), "text"});
    return outbox_.Add(std::move(job), now_);
  }
  /// The receiver whose turn it is; empty: none.
  std::string Next(const std::string& route = "1") {
    const auto id = outbox_.Next(route, now_);
    return id ? outbox_.Find(*id)->receiver : "";
  }
  std::int64_t Begin(const std::string& route = "1") {
    const auto id = outbox_.Next(route, now_);
    if (!id) {
      ADD_FAILURE() << "nothing may go out";
      return 0;
    }
    outbox_.Begin(*id, now_);
    return *id;
  }
  void Send() { outbox_.Sent(Begin(), "", false, now_); }
  const Outgoing& OnDisk(std::int64_t id) { return rows_.at(id); }
  Request About(RequestKind kind, std::int64_t id) {
    return {.id = 7, .kind = kind, .value = 0, .message = rows_.at(id)};
  }

  Now now_{SteadyTime(1000h), kNoon};
  std::int64_t next_id_ = kFirstNewId;
  std::uint64_t sequence_ = 0;
  std::map<std::int64_t, Outgoing> rows_;
  std::optional<AnswerRequest> answer_;
  std::optional<std::int64_t> limit_;
  Outbox outbox_;
};

TEST_F(OutboxTest, StoresOneMessageForEachReceiverInOneChange) {
  Open();
  const auto job = Add({"+491", "+492"});
  EXPECT_EQ(job->sequence, 1u);
  ASSERT_EQ(rows_.size(), 2u);
  const Outgoing& first = OnDisk(job->id);
  EXPECT_EQ(first.receiver, "+491");
  EXPECT_EQ(first.channel, "sms");
  EXPECT_EQ(first.route, "1");
  EXPECT_EQ(first.created, kNoon);
  EXPECT_EQ(first.expires, kNoon + 24h);
  EXPECT_EQ(first.state, OutgoingState::kWaiting);
  EXPECT_EQ(rows_.rbegin()->second.job, job->id);
  EXPECT_EQ(outbox_.Waiting("1"), 2u);
}

TEST_F(OutboxTest, AJobEndsWhenEveryReceiverHasTheMessage) {
  Open();
  const auto job = Add({"+491", "+492"});
  Send();
  EXPECT_EQ(job->sent, 1);
  EXPECT_FALSE(job->ended());
  Send();
  EXPECT_TRUE(job->ended());
  EXPECT_EQ(outbox_.Waiting("1"), 0u);
  EXPECT_EQ(OnDisk(job->id).state, OutgoingState::kSent);
  EXPECT_EQ(OnDisk(job->id).finished, kNoon);
  EXPECT_EQ(outbox_.Find(job->id), nullptr) << "what has ended takes memory";
}

/// A message as a store may have it.
Outgoing StoredWaitingRow() {
  Outgoing row;
  row.id = row.job = 1;
  row.channel = "sms";
  row.route = "1";
  row.receiver = "a";
  row.created = kNoon;
  row.expires = kNoon + 1h;
  return row;
}

TEST_F(OutboxTest, ANumberThatTheStoreHasTwiceIsOneMessage) {
  const Outgoing row = StoredWaitingRow();
  Outgoing again = row;
  again.urgent = true;
  outbox_.Load({row, again}, {}, {}, std::nullopt, now_);
  outbox_.Tick(now_);
  Send();
  EXPECT_EQ(Next(), "");
  EXPECT_EQ(outbox_.Waiting("1"), 0U);
}

TEST_F(OutboxTest, ANumberThatTheStoreHasTwiceHasEndedOnce) {
  Outgoing row = StoredWaitingRow();
  Outgoing again = row;
  row.in_transfer = true;  // for the second time: it ends
  row.unknown_ends = 1;
  outbox_.Load({row, again}, {}, {}, std::nullopt, now_);
  outbox_.Tick(now_);
  EXPECT_EQ(Next(), "") << "what has ended is not sent again";
}

TEST_F(OutboxTest, WhatHasEndedAndAwaitsAReportIsNotSentAgainWhenItsRouteWorks) {
  const Outgoing row = StoredWaitingRow();
  Outgoing ends = row;
  ends.id = ends.job = 2;
  ends.error_id = 30;  // it was kept since its account did not work
  ends.in_transfer = ends.report_awaited = true;
  ends.unknown_ends = 1;
  outbox_.Load({row, ends}, {}, {}, std::nullopt, now_);
  outbox_.Tick(now_);
  Send();
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, UrgentMessagesGoFirstAndOthersInTheirOrder) {
  Open();
  Add({"a", "b"});
  Add({"c"}, true);
  std::string order;
  for (int i = 0; i < 3; ++i) {
    order += Next();
    Send();
  }
  EXPECT_EQ(order, "cab");
}

TEST_F(OutboxTest, EachRouteHasItsOwnOrder) {
  Open();
  Add({"a"});
  Add({"b"}, false, "", 24h, "2");
  Begin("1");
  EXPECT_EQ(Next("2"), "b");
}

TEST_F(OutboxTest, OneMessageIsInTransferOnARouteAtATime) {
  Open();
  Add({"a", "b"});
  const std::int64_t id = Begin();
  EXPECT_TRUE(OnDisk(id).in_transfer);
  EXPECT_EQ(OnDisk(id).attempts, 1);
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, NothingGoesOutBeforeTheStoreIsLoaded) {
  Add({"a"});
  outbox_.Tick(now_);
  EXPECT_EQ(Next(), "");
  EXPECT_EQ(outbox_.Waiting("1"), 1u);
  Open();
  EXPECT_EQ(Next(), "a");
}

TEST_F(OutboxTest, GoesOnFromMemoryWhenTheStoreCannotBeRead) {
  Add({"a"});
  outbox_.GoOnWithoutStore();
  outbox_.Tick(now_);
  EXPECT_EQ(Next(), "a");
}

TEST_F(OutboxTest, WhatWasStoredEarlierGoesOutBeforeWhatCameMeanwhile) {
  Open();
  Add({"old"});
  Restart();
  EXPECT_EQ(Next(), "old");
  Add({"new"});
  EXPECT_EQ(Next(), "old");
}

TEST_F(OutboxTest, AFailureForNowIsTriedAgainAfterGrowingTimes) {
  Open();
  Add({"a"});
  for (const auto delay : {15s, 30s, 60s, 120s, 240s, 480s, 900s, 900s}) {
    outbox_.FailForNow(Begin(), "busy", now_);
    Pass(delay - 1ms);
    EXPECT_EQ(Next(), "") << delay.count();
    Pass(1ms);
    EXPECT_EQ(Next(), "a") << delay.count();
  }
  EXPECT_EQ(rows_.begin()->second.reason, "busy");
  EXPECT_EQ(rows_.begin()->second.attempts, 8);
}

TEST_F(OutboxTest, AMessageThatFailsForNowLetsOthersPass) {
  Open();
  Add({"a", "b"});
  outbox_.FailForNow(Begin(), "busy", now_);
  EXPECT_EQ(Next(), "b");
}

TEST_F(OutboxTest, ThreeFailuresInARowHoldTheRoute) {
  Open();
  Add({"a", "b", "c", "d"});
  for (int i = 0; i < 3; ++i) outbox_.FailForNow(Begin(), "busy", now_);
  EXPECT_EQ(Next(), "");
  Pass(15s);
  EXPECT_EQ(Next(), "a");
}

TEST_F(OutboxTest, AFailureOfTheRouteHoldsAllOfItAndShowsTheNextTry) {
  Open();
  Add({"a", "b"});
  const std::int64_t id = Begin();
  outbox_.FailOnRoute(id, "no network", now_);
  EXPECT_EQ(OnDisk(id).next_try, kNoon + 15s);
  EXPECT_FALSE(OnDisk(id).in_transfer);
  Pass(15s - 1ms);
  EXPECT_EQ(Next(), "");
  Pass(1ms);
  EXPECT_EQ(Next(), "a");
  outbox_.FailOnRoute(Begin(), "no network", now_);
  Pass(29s);
  EXPECT_EQ(Next(), "") << "the second time it waits for 30 s";
  Pass(1s);
  Send();
  EXPECT_EQ(Next(), "b") << "a route that works holds nothing";
}

TEST_F(OutboxTest, AMessageThatTheModemNeverTakesDoesNotHoldUpTheOthersForLong) {
  Open();
  Add({"poison", "b"});
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(Next(), "poison") << "the order is kept at first";
    outbox_.FailOnRoute(Begin(), "ME failure", now_);
    Pass(15min);
  }
  EXPECT_EQ(Next(), "b");
}

TEST_F(OutboxTest, ANewMessageIsTriedSoonOnARouteThatHasFailedForLong) {
  Open();
  Add({"a"});
  for (int i = 0; i < 8; ++i) {
    outbox_.FailOnRoute(Begin(), "no network", now_);
    Pass(15min);
  }
  outbox_.FailOnRoute(Begin(), "no network", now_);
  Pass(5s);
  Add({"b"});
  EXPECT_EQ(Next(), "");
  Pass(10s);
  EXPECT_EQ(Next(), "b");
}

TEST_F(OutboxTest, AReleasedRouteIsTriedAtOnce) {
  Open();
  Add({"a"});
  outbox_.FailOnRoute(Begin(), "no modem", now_);
  outbox_.ReleaseRoute("1", now_);
  outbox_.ReleaseRoute("99", now_);
  EXPECT_EQ(Next(), "a");
}

TEST_F(OutboxTest, AFailureForGoodIsTheJobsError) {
  Open();
  const auto job = Add({"+491", "+492"});
  outbox_.FailForGood(Begin(), kRefusedError, "the number is unassigned", now_);
  Send();
  EXPECT_TRUE(job->ended());
  EXPECT_EQ(job->sent, 1);
  EXPECT_EQ(job->failed, 1);
  EXPECT_EQ(job->error_id, 21);
  EXPECT_EQ(job->errors, "+491: the number is unassigned");
  EXPECT_EQ(OnDisk(job->id).state, OutgoingState::kFailed);
  EXPECT_EQ(OnDisk(job->id).error_id, 21);
}

TEST_F(OutboxTest, TheErrorsOfManyReceiversStayReadable) {
  Open();
  std::vector<std::string> receivers(100, "+4915112345678");
  const auto job = Add(receivers);
  for (int i = 0; i < 100; ++i) outbox_.FailForGood(Begin(), 21, "the number is unassigned", now_);
  EXPECT_LT(job->errors.size(), 1200u);
  EXPECT_THAT(job->errors, testing::EndsWith(" ..."));
}

TEST_F(OutboxTest, AMessageExpiresWithoutAModem) {
  Open();
  const auto job = Add({"+491"}, false, "", 10s);
  Pass(10s - 1ms);
  EXPECT_FALSE(job->ended());
  Pass(1ms);
  EXPECT_TRUE(job->ended());
  EXPECT_EQ(job->error_id, 20);
  EXPECT_THAT(job->errors, HasSubstr("+491: not sent within ValidFor; attempts: 0"));
  EXPECT_EQ(OnDisk(job->id).state, OutgoingState::kExpired);
  EXPECT_EQ(outbox_.Waiting("1"), 0u);
}

TEST_F(OutboxTest, AnExpiredMessageNamesItsLastAttempt) {
  Open();
  const auto job = Add({"+491"}, false, "", 20s);
  outbox_.FailForNow(Begin(), "the network is busy", now_);
  Pass(20s);
  EXPECT_THAT(job->errors, HasSubstr("attempts: 1; the last one: the network is busy"));
}

TEST_F(OutboxTest, AMessageInTransferDoesNotExpireBeforeTheAttemptEnds) {
  Open();
  const auto job = Add({"a"}, false, "", 10s);
  const std::int64_t id = Begin();
  Pass(1min);
  EXPECT_FALSE(job->ended());
  outbox_.FailForNow(id, "busy", now_);
  Pass(0ms);
  EXPECT_EQ(job->error_id, 20);
}

TEST_F(OutboxTest, NothingThatHasExpiredGoesOutEvenBeforeATick) {
  Open();
  Add({"a"}, false, "", 10s);
  now_.steady += 10s;
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, ManyThatExpireTogetherAreEndedInSeveralCalls) {
  Open();
  for (int i = 0; i < 1000; ++i) Add({"a"}, false, "", 1s);
  Pass(1s);
  EXPECT_GT(outbox_.Waiting("1"), 900u) << "one call would take too long";
  for (int i = 0; i < 30; ++i) Pass(1ms);
  EXPECT_EQ(outbox_.Waiting("1"), 0u);
}

TEST_F(OutboxTest, TheHourlyLimitHoldsAllButUrgentMessages) {
  Open();
  limit_ = 3;
  Restart();
  Add({"a", "b", "c", "d"});
  for (int i = 0; i < 3; ++i) {
    Send();
    Pass(1min);
  }
  EXPECT_EQ(Next(), "");
  Add({"urgent"}, true);
  EXPECT_EQ(Next(), "urgent");
  Send();
  Pass(57min - 1ms);
  EXPECT_EQ(Next(), "") << "the first of the last hour is still counted";
  Pass(1ms);
  EXPECT_EQ(Next(), "") << "the urgent one is counted, too";
  Pass(1min);
  EXPECT_EQ(Next(), "d");
}

TEST_F(OutboxTest, TheLimitIsReportedOnceWhileItHolds) {
  limit_ = 1;
  Restart();
  Add({"a", "b", "c"});
  Send();
  EXPECT_EQ(Next() + Next(), "");
  const auto notices = outbox_.TakeNotices();
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_THAT(notices.front(), HasSubstr("port 1: 1 messages have gone out within an hour"));
  EXPECT_THAT(notices.front(), HasSubstr("2 wait"));
  Pass(1h);
  Send();
  EXPECT_EQ(Next(), "");
  EXPECT_EQ(outbox_.TakeNotices().size(), 1u) << "the next time, too";
}

TEST_F(OutboxTest, WhatIsGivenUpIsReported) {
  Open();
  Add({"+491"});
  outbox_.FailForGood(Begin(), kRefusedError, "the number is unassigned", now_);
  EXPECT_THAT(outbox_.TakeNotices(),
              testing::ElementsAre("message to +491 given up: the number is unassigned"));
  EXPECT_THAT(outbox_.TakeNotices(), IsEmpty());
}

TEST_F(OutboxTest, SixtyAnHourIsTheDefaultLimit) {
  Open();
  Add(std::vector<std::string>(61, "a"));
  for (int i = 0; i < 60; ++i) Send();
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, TheLimitCountsWhatWasSentBeforeARestart) {
  limit_ = 2;
  Open();
  Add({"a", "b", "c"});
  Send();
  Send();
  Restart(30min);
  EXPECT_EQ(Next(), "");
  Pass(30min);
  EXPECT_EQ(Next(), "c");
}

TEST_F(OutboxTest, ALimitOfZeroLetsOnlyUrgentMessagesOut) {
  limit_ = 0;
  Restart();
  Add({"a"});
  EXPECT_EQ(Next(), "");
  Add({"b"}, true);
  EXPECT_EQ(Next(), "b");
}

TEST_F(OutboxTest, AKeyThatWaitsIsNotQueuedAgain) {
  Open();
  Add({"a"}, false, "heartbeat");
  const auto second = Add({"a"}, false, "heartbeat");
  EXPECT_TRUE(second->duplicate);
  EXPECT_TRUE(second->ended());
  EXPECT_EQ(second->sent, 0);
  EXPECT_EQ(outbox_.Waiting("1"), 1u);
}

TEST_F(OutboxTest, AKeyThatWasSentIsNotQueuedUntilItsValidityIsOver) {
  Open();
  Add({"a"}, false, "heartbeat", 1h);
  Send();
  Pass(1h - 1ms);
  EXPECT_TRUE(Add({"a"}, false, "heartbeat", 1h)->duplicate);
  Pass(1ms);
  EXPECT_FALSE(Add({"a"}, false, "heartbeat", 1h)->duplicate);
}

TEST_F(OutboxTest, AKeyThatWasSentIsKnownAfterARestart) {
  Open();
  Add({"a"}, false, "heartbeat");
  Send();
  Restart(23h);
  EXPECT_TRUE(Add({"a"}, false, "heartbeat")->duplicate);
  Pass(1h);
  EXPECT_FALSE(Add({"a"}, false, "heartbeat")->duplicate);
}

TEST_F(OutboxTest, AKeyWhoseMessageFailedIsFreeAgain) {
  Open();
  Add({"a"}, false, "alarm");
  outbox_.FailForGood(Begin(), 21, "unassigned", now_);
  EXPECT_FALSE(Add({"a"}, false, "alarm")->duplicate);
}

TEST_F(OutboxTest, AKeyIsLookedUpOnlyOnceTheStoreIsLoaded) {
  Open();
  Add({"a"}, false, "heartbeat");
  Send();
  auto rows = std::exchange(rows_, {});
  outbox_.~Outbox();
  new (&outbox_) Outbox(Make());
  const auto job = Add({"a"}, false, "heartbeat");
  outbox_.Tick(now_);
  EXPECT_FALSE(job->decided);
  EXPECT_THAT(rows_, IsEmpty());
  EXPECT_EQ(outbox_.Waiting("1"), 1u);
  outbox_.Load({}, {{"sms", "heartbeat", kNoon}}, {}, std::nullopt, now_);
  outbox_.Tick(now_);
  EXPECT_TRUE(job->duplicate);
  EXPECT_EQ(outbox_.Waiting("1"), 0u);
}

TEST_F(OutboxTest, OneJobWithAKeyReachesAllItsReceivers) {
  Open();
  const auto job = Add({"a", "b"}, false, "alarm");
  Send();
  Send();
  EXPECT_EQ(job->sent, 2);
}

TEST_F(OutboxTest, AnUnknownEndIsTriedAgainOnceAndReported) {
  Open();
  const auto job = Add({"+491"});
  const std::int64_t id = Begin();
  outbox_.EndUnknown(id, "no confirmation within 180 s", now_);
  EXPECT_EQ(OnDisk(id).unknown_ends, 1);
  EXPECT_EQ(OnDisk(id).state, OutgoingState::kWaiting);
  EXPECT_EQ(Next(), "");
  Pass(15s);
  Send();
  EXPECT_EQ(job->sent, 1);
  EXPECT_EQ(job->error_id, 0);
  EXPECT_THAT(job->repeats, HasSubstr("+491: "));
  EXPECT_THAT(job->repeats, HasSubstr("no confirmation within 180 s"));
}

TEST_F(OutboxTest, ASecondUnknownEndIsTheEnd) {
  Open();
  const auto job = Add({"+491"});
  outbox_.EndUnknown(Begin(), "no confirmation", now_);
  Pass(15s);
  outbox_.EndUnknown(Begin(), "no confirmation", now_);
  EXPECT_TRUE(job->ended());
  EXPECT_EQ(job->error_id, 23);
  EXPECT_EQ(OnDisk(job->id).state, OutgoingState::kFailed);
  Pass(1h);
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, ARunThatWasKilledInATransferLeavesAnUnknownEnd) {
  Open();
  Add({"a"});
  const std::int64_t id = Begin();
  Restart(1s);
  EXPECT_EQ(OnDisk(id).unknown_ends, 1);
  EXPECT_FALSE(OnDisk(id).in_transfer);
  EXPECT_EQ(Next(), "a") << "it is repeated at once";
  Begin();
  Restart(1s);
  EXPECT_EQ(OnDisk(id).error_id, 23);
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, AnUnknownEndCountsForTheHourlyLimit) {
  limit_ = 1;
  Restart();
  Add({"a", "b"});
  outbox_.EndUnknown(Begin(), "no confirmation", now_);
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, AnAttemptThatIsWithdrawnHasNotHappened) {
  Open();
  Add({"a"});
  const std::int64_t id = Begin();
  outbox_.Withdraw(id, now_);
  EXPECT_FALSE(OnDisk(id).in_transfer);
  EXPECT_EQ(OnDisk(id).attempts, 0);
  EXPECT_EQ(Next(), "a");
}

TEST_F(OutboxTest, AnAttemptIsOnTheDiskOnlyOnceTheMessageIsHandedOver) {
  Open();
  const auto job = Add({"+491"});
  const std::int64_t id = outbox_.Next("1", now_).value_or(0);
  outbox_.Take(id);
  EXPECT_EQ(Next(), "") << "one at a time";
  EXPECT_FALSE(OnDisk(id).in_transfer);
  Pass(25h);
  EXPECT_FALSE(job->ended()) << "the end of the attempt decides";
  outbox_.HandOver(id, now_);
  EXPECT_TRUE(OnDisk(id).in_transfer);
  outbox_.Withdraw(id, now_);
  EXPECT_FALSE(OnDisk(id).in_transfer);
  EXPECT_EQ(OnDisk(id).attempts, 0);
}

TEST_F(OutboxTest, ARunThatWasKilledBeforeTheHandOverHasTriedNothing) {
  Open();
  Add({"+491"});
  outbox_.Take(outbox_.Next("1", now_).value_or(0));
  Restart();
  EXPECT_EQ(Next(), "+491");
  EXPECT_EQ(OnDisk(kFirstNewId).unknown_ends, 0);
}

TEST_F(OutboxTest, WhatWasTakenInPartIsTriedAgainAloneAndCountsOnce) {
  Open();
  outbox_.Apply({.id = 1, .kind = RequestKind::kLimit, .value = 2, .message = {}}, now_);
  const auto job = Add({"one"});
  Add({"other"});
  const std::int64_t id = Begin();
  outbox_.FailForRest(id, "half", "450 later", now_);
  EXPECT_FALSE(job->ended());
  EXPECT_EQ(OnDisk(id).progress, "half");
  EXPECT_FALSE(OnDisk(id).in_transfer);
  EXPECT_EQ(Next(), "other");
  Pass(15s);
  ASSERT_EQ(Next(), "one");
  Send();
  EXPECT_TRUE(job->ended());
  EXPECT_EQ(Next(), "other") << "the first one has counted once";
}

TEST_F(OutboxTest, ARouteThatRefusesEverythingEndsItsJobsAndKeepsTheMessages) {
  Open();
  const auto one = Add({"one"});
  const auto other = Add({"other"});
  const auto elsewhere = Add({"third"}, false, "", 24h, "2");
  const std::int64_t id = Begin();
  outbox_.EndJobsOnRoute(id, 31, "login refused", 15min, now_);
  EXPECT_TRUE(one->ended());
  EXPECT_EQ(one->error_id, 31);
  EXPECT_EQ(one->errors, "one: login refused");
  EXPECT_TRUE(other->ended());
  EXPECT_EQ(other->errors, "other: login refused");
  EXPECT_FALSE(elsewhere->ended());
  EXPECT_EQ(OnDisk(id).state, OutgoingState::kWaiting);
  EXPECT_EQ(OnDisk(id + 1).next_try, now_.wall + 15min);
  EXPECT_EQ(outbox_.Waiting("1"), 2u);
  const auto late = Add({"late"}, true);
  Pass(15min - 1s);
  EXPECT_EQ(Next(), "") << "a new message does not lead to another attempt";
  Pass(1s);
  EXPECT_EQ(Next(), "late");
  Send();
  EXPECT_TRUE(late->ended());
  EXPECT_EQ(Next(), "one");
}

TEST_F(OutboxTest, AReleaseLetsOutWhatARouteHasKept) {
  Open();
  Add({"one"});
  outbox_.EndJobsOnRoute(Begin(), 31, "login refused", 15min, now_);
  EXPECT_EQ(Next(), "");
  outbox_.ReleaseRoute("1", now_);
  EXPECT_EQ(Next(), "one");
}

TEST_F(OutboxTest, WhatWasKeptWaitsAfterARestartUntilANewMessageHasSucceeded) {
  Open();
  Add({"one"});
  Add({"other"});
  outbox_.EndJobsOnRoute(Begin(), 31, "login refused", 15min, now_);
  Restart(1min);
  EXPECT_EQ(Next(), "") << "a program that restarts again and again must not lock the account";
  Add({"new"});
  EXPECT_EQ(Next(), "new");
  Send();
  EXPECT_EQ(Next(), "one");
  Send();
  EXPECT_EQ(Next(), "other");
}

TEST_F(OutboxTest, NamesItsRoutesForPeople) {
  outbox_.~Outbox();
  new (&outbox_)
      Outbox("sms", {[this] { return next_id_++; }, [](const auto&) { return 1; }}, "mail server");
  Open();
  outbox_.Apply({.id = 1, .kind = RequestKind::kLimit, .value = 0, .message = {}}, now_);
  Add({"a@plant.example"}, false, "", 24h, "mx.example:25");
  EXPECT_EQ(Next("mx.example:25"), "");
  EXPECT_THAT(outbox_.TakeNotices(),
              testing::ElementsAre(testing::StartsWith("mail server mx.example:25: ")));
}

TEST_F(OutboxTest, ARequestThatAnotherOutboxAnswersIsCarriedOutWithoutAnAnswer) {
  Open();
  Request request{.id = 1, .kind = RequestKind::kLimit, .value = 9, .message = {}};
  request.answered_elsewhere = true;
  outbox_.Apply(request, now_);
  EXPECT_EQ(outbox_.limit_per_hour(), 9);
  EXPECT_FALSE(answer_.has_value());
}

TEST_F(OutboxTest, AStoreThatIsCreatedAgainDuringLoadingGetsEveryRow) {
  Open();
  for (int i = 0; i < 1000; ++i) Add({std::to_string(i)});
  std::deque<Outgoing> waiting;
  for (const auto& [id, row] : rows_) waiting.push_back(row);
  outbox_.~Outbox();
  new (&outbox_) Outbox(Make());
  outbox_.Load(waiting, {}, {}, {}, now_);
  rows_.clear();
  outbox_.WriteAgain();
  for (int i = 0; i < 100; ++i) outbox_.Tick(now_);
  EXPECT_EQ(rows_.size(), 1000u);
}

TEST_F(OutboxTest, ProgressIsStoredWhileTheTransferGoesOn) {
  Open();
  Add({"a"});
  const std::int64_t id = Begin();
  EXPECT_EQ(outbox_.SetProgress(id, "1 of 2", now_), sequence_);
  EXPECT_EQ(OnDisk(id).progress, "1 of 2");
  EXPECT_TRUE(OnDisk(id).in_transfer);
  Restart();
  EXPECT_THAT(outbox_.TakeLoadedWithProgress(), testing::ElementsAre(id));
  EXPECT_THAT(outbox_.TakeLoadedWithProgress(), IsEmpty());
}

TEST_F(OutboxTest, AReportCountsAfterTheEndAndAfterARestart) {
  Open();
  const auto job = Add({"a", "b"});
  const std::int64_t first = Begin();
  outbox_.Sent(first, "sent", true, now_);
  const std::int64_t second = Begin();
  outbox_.Sent(second, "sent", true, now_);
  EXPECT_TRUE(job->ended());
  outbox_.TakeReport(first, "delivered", true, true, now_);
  outbox_.TakeReport(first, "delivered", true, true, now_);
  EXPECT_EQ(job->delivered, 1) << "it is counted once";
  EXPECT_FALSE(OnDisk(first).report_awaited);
  Restart(1min);
  ASSERT_NE(outbox_.Find(second), nullptr);
  outbox_.TakeReport(second, "delivered", true, true, now_);
  EXPECT_EQ(OnDisk(second).progress, "delivered");
  EXPECT_EQ(outbox_.Find(second), nullptr);
}

TEST_F(OutboxTest, AReportThatNeverComesIsGivenUpAnHourAfterTheValidity) {
  Open();
  Add({"a"}, false, "", 1h);
  const std::int64_t id = Begin();
  outbox_.Sent(id, "", true, now_);
  Pass(2h - 1ms);
  EXPECT_NE(outbox_.Find(id), nullptr);
  Pass(1ms);
  EXPECT_EQ(outbox_.Find(id), nullptr);
  EXPECT_EQ(OnDisk(id).state, OutgoingState::kSent);
  EXPECT_FALSE(OnDisk(id).report_awaited);
}

// Clocks

TEST_F(OutboxTest, AClockThatJumpsExpiresNothing) {
  now_.wall = WallTime(1min);  // a controller without a battery
  Open();
  const auto job = Add({"a"}, false, "", 1h);
  now_.wall = kNoon;  // set by the network
  Pass(1h - 1ms);
  EXPECT_FALSE(job->ended());
  Pass(1ms);
  EXPECT_TRUE(job->ended());
}

TEST_F(OutboxTest, WhatIsWrittenAfterTheClockWasSetHasTheRightTimes) {
  now_.wall = WallTime(1min);
  Open();
  const auto job = Add({"a"}, false, "", 1h);
  EXPECT_LT(OnDisk(job->id).created, kClockIsSet);
  now_.steady += 10min;
  now_.wall = kNoon;
  Begin();
  EXPECT_EQ(OnDisk(job->id).created, kNoon - 10min);
  EXPECT_EQ(OnDisk(job->id).expires, kNoon + 50min);
}

TEST_F(OutboxTest, ARowFromAClockThatWasNotSetKeepsItsWholeValidity) {
  now_.wall = WallTime(1min);
  Open();
  Add({"a"}, false, "", 1h);
  now_.wall = kNoon;
  Restart();
  EXPECT_EQ(Next(), "a");
  Pass(1h);
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, ARestartWithAClockThatIsNotSetKeepsTheRightTimesOnTheDisk) {
  Open();
  const auto job = Add({"a"}, false, "", 1h);
  now_.wall = WallTime(0ms);
  Restart();
  EXPECT_EQ(Next(), "a");
  outbox_.FailForNow(Begin(), "busy", now_);
  EXPECT_EQ(OnDisk(job->id).expires, kNoon + 1h);
}

TEST_F(OutboxTest, AMessageThatExpiredLongAgoDoesNotGoOutOnceTheClockIsSet) {
  Open();
  const auto job = Add({"a"}, false, "", 1h);
  now_.wall = WallTime(0ms);
  Restart();
  now_.wall = kNoon + 2h;
  EXPECT_EQ(Next(), "");
  outbox_.Tick(now_);
  EXPECT_EQ(OnDisk(job->id).state, OutgoingState::kExpired);
}

TEST_F(OutboxTest, AMessageFromAClockThatWasAheadIsNotKeptLongerThanItsValidity) {
  now_.wall = kNoon + std::chrono::days(3650);
  Open();
  Add({"a"}, false, "", 1h);
  now_.wall = kNoon;
  Restart();
  Pass(1h);
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, AMessageThatWasNeverTriedGoesOutAtOnceAlthoughTheClockWasSetBack) {
  Open();
  Add({"a"});
  now_.wall -= 10min;
  Restart();
  EXPECT_EQ(Next(), "a");
}

TEST_F(OutboxTest, AMessageThatExpiredBetweenTwoRunsIsEndedAtLoading) {
  Open();
  const auto job = Add({"a"}, false, "", 1h);
  Restart(2h);
  outbox_.Tick(now_);
  EXPECT_EQ(OnDisk(job->id).state, OutgoingState::kExpired);
}

TEST_F(OutboxTest, ARetryTimeOutlivesARestart) {
  Open();
  Add({"a"});
  for (int i = 0; i < 4; ++i) {
    outbox_.FailForNow(Begin(), "busy", now_);
    if (i < 3) Pass(15min);
  }
  Restart(1min);
  EXPECT_EQ(Next(), "");
  Pass(1min);
  EXPECT_EQ(Next(), "a");
}

TEST_F(OutboxTest, AMessageSaysWhyItWaitsUntilItIsTried) {
  Open();
  const auto job = Add({"a"});
  outbox_.NoteWhyItWaits("1", "the device of port 1 is not there", now_);
  EXPECT_EQ(OnDisk(job->id).reason, "the device of port 1 is not there");
  const std::uint64_t written = sequence_;
  outbox_.NoteWhyItWaits("1", "the device of port 1 is not there", now_);
  EXPECT_EQ(sequence_, written) << "it is written once";
  Send();
  EXPECT_EQ(OnDisk(job->id).reason, "");
}

// Requests

TEST_F(OutboxTest, ACancelledMessageEndsItsJob) {
  Open();
  const auto job = Add({"+491"});
  outbox_.Apply(About(RequestKind::kCancel, job->id), now_);
  EXPECT_TRUE(answer_->done);
  EXPECT_EQ(answer_->id, 7);
  EXPECT_EQ(job->failed, 1);
  EXPECT_EQ(job->cancelled, 1);
  EXPECT_THAT(job->errors, HasSubstr("cancelled"));
  EXPECT_EQ(OnDisk(job->id).state, OutgoingState::kCancelled);
  EXPECT_EQ(Next(), "");
  outbox_.Apply(About(RequestKind::kCancel, job->id), now_);
  EXPECT_FALSE(answer_->done);
}

TEST_F(OutboxTest, AMessageInTransferCannotBeCancelledOrTriedAgain) {
  Open();
  Add({"a"});
  const std::int64_t id = Begin();
  outbox_.Apply(About(RequestKind::kCancel, id), now_);
  EXPECT_FALSE(answer_->done);
  answer_.reset();
  outbox_.Apply(About(RequestKind::kRetry, id), now_);
  EXPECT_FALSE(answer_->done);
  outbox_.Sent(id, "", false, now_);
}

TEST_F(OutboxTest, ARetryOfAWaitingMessageIsImmediate) {
  Open();
  const auto job = Add({"a"});
  outbox_.FailOnRoute(Begin(), "no network", now_);
  outbox_.Apply(About(RequestKind::kRetry, job->id), now_);
  EXPECT_TRUE(answer_->done);
  EXPECT_EQ(Next(), "a");
}

TEST_F(OutboxTest, ARetryOfAFailedMessageQueuesItAgain) {
  Open();
  const auto job = Add({"a"}, false, "", 1h);
  outbox_.FailForGood(Begin(), 21, "barred", now_);
  Pass(2h);
  outbox_.Apply(About(RequestKind::kRetry, job->id), now_);
  EXPECT_TRUE(answer_->done);
  EXPECT_EQ(OnDisk(job->id).state, OutgoingState::kWaiting);
  EXPECT_EQ(OnDisk(job->id).expires, kNoon + 3h);
  EXPECT_EQ(OnDisk(job->id).reason, "");
  EXPECT_EQ(Next(), "a");
  Send();
  outbox_.Apply(About(RequestKind::kRetry, job->id), now_);
  EXPECT_FALSE(answer_->done) << "what was sent is not sent again";
}

TEST_F(OutboxTest, ARetryThatWasAskedForWhileTheMessageWaitedDoesNotSendItTwice) {
  Open();
  const auto job = Add({"a"});
  const Request request = About(RequestKind::kRetry, job->id);
  ASSERT_EQ(request.message.state, OutgoingState::kWaiting);
  Send();
  outbox_.Apply(request, now_);
  EXPECT_FALSE(answer_->done);
  EXPECT_EQ(OnDisk(job->id).state, OutgoingState::kSent);
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, ARequestAboutAMessageThatIsGoneChangesNothing) {
  Open();
  for (const RequestKind kind : {RequestKind::kCancel, RequestKind::kRetry}) {
    outbox_.Apply({.id = 7, .kind = kind, .value = 0, .message = {}}, now_);
    EXPECT_FALSE(answer_->done);
    answer_.reset();
  }
  EXPECT_EQ(Next(), "");
  EXPECT_TRUE(rows_.empty());
}

TEST_F(OutboxTest, ANewLimitIsStoredAndHoldsAtOnce) {
  Open();
  Add({"a", "b"});
  Send();
  outbox_.Apply({.id = 7, .kind = RequestKind::kLimit, .value = 1, .message = {}}, now_);
  EXPECT_EQ(limit_, 1);
  EXPECT_TRUE(answer_->done);
  EXPECT_EQ(Next(), "");
}

TEST_F(OutboxTest, AStoreThatWasCreatedAgainGetsEveryRow) {
  Open();
  for (int i = 0; i < 250; ++i) Add({"a"});
  rows_.clear();
  outbox_.WriteAgain();
  for (int i = 0; i < 3; ++i) outbox_.Tick(now_);
  EXPECT_EQ(rows_.size(), 250u);
}

TEST_F(OutboxTest, RefusesWhatMemoryCannotHold) {
  Open();
  const std::vector<std::string> receivers(1000, "a");
  for (int i = 0; i < 100; ++i) ASSERT_NE(Add(receivers), nullptr);
  EXPECT_EQ(Add({"a"}), nullptr);
}

TEST_F(OutboxTest, TenThousandThatWaitAreLoadedInManyCalls) {
  Open();
  for (int i = 0; i < 10'000; ++i) Add({"a"});
  std::deque<Outgoing> rows;
  for (const auto& [id, row] : rows_) rows.push_back(row);
  outbox_.~Outbox();
  new (&outbox_) Outbox(Make());
  outbox_.Load(rows, {}, {}, std::nullopt, now_);
  outbox_.Tick(now_);
  EXPECT_LE(outbox_.Waiting("1"), 200u) << "one call would take too long";
  for (int i = 0; i < 101; ++i) outbox_.Tick(now_);
  EXPECT_EQ(outbox_.Waiting("1"), 10'000u);
  EXPECT_TRUE(outbox_.ready());
}

}  // namespace
