// SPDX-License-Identifier: MIT
#include "libs/messages/change_queue.h"

#include <gmock/gmock.h>

#include <chrono>
#include <string>

namespace messages {
namespace {

using testing::ElementsAre;
using testing::Pair;
using testing::SizeIs;

WallTime TimeOf(int number) {
  return kClockIsSet + std::chrono::milliseconds(number);
}

PendingChanges ChangesOf(ChangeQueue& queue) {
  PendingChanges changes;
  queue.MoveTo(changes);
  return changes;
}

TEST(ChangeQueue, KeepsEveryFieldOfAnOutgoingMessage) {
  Outgoing row;
  row.id = kFirstNewId + 3;
  row.job = kFirstNewId + 2;
  row.channel = "sms";
  row.route = "7";
  row.receiver = "+15550101234";
  row.content = std::string("with a \0 in it", 14);
  row.progress = "half";
  row.key = "heartbeat";
  row.urgent = true;
  row.created = TimeOf(1);
  row.expires = TimeOf(2);
  row.next_try = TimeOf(3);
  row.finished = TimeOf(4);
  row.state = OutgoingState::kExpired;
  row.attempts = 5;
  row.unknown_ends = 1;
  row.in_transfer = true;
  row.report_awaited = true;
  row.error_id = 20;
  row.reason = "no coverage";
  ChangeQueue queue;
  queue.Push(row);
  const PendingChanges changes = ChangesOf(queue);
  ASSERT_THAT(changes.outgoing, SizeIs(1));
  const Outgoing& got = changes.outgoing.at(row.id);
  EXPECT_EQ(got.id, row.id);
  EXPECT_EQ(got.job, row.job);
  EXPECT_EQ(got.channel, row.channel);
  EXPECT_EQ(got.route, row.route);
  EXPECT_EQ(got.receiver, row.receiver);
  EXPECT_EQ(got.content, row.content);
  EXPECT_EQ(got.progress, row.progress);
  EXPECT_EQ(got.key, row.key);
  EXPECT_EQ(got.urgent, row.urgent);
  EXPECT_EQ(got.created, row.created);
  EXPECT_EQ(got.expires, row.expires);
  EXPECT_EQ(got.next_try, row.next_try);
  EXPECT_EQ(got.finished, row.finished);
  EXPECT_EQ(got.state, row.state);
  EXPECT_EQ(got.attempts, row.attempts);
  EXPECT_EQ(got.unknown_ends, row.unknown_ends);
  EXPECT_EQ(got.in_transfer, row.in_transfer);
  EXPECT_EQ(got.report_awaited, row.report_awaited);
  EXPECT_EQ(got.error_id, row.error_id);
  EXPECT_EQ(got.reason, row.reason);
}

TEST(ChangeQueue, KeepsEveryFieldOfAnIncomingMessage) {
  Incoming row;
  row.id = kFirstNewId;
  row.route = "1";
  row.sender = "Wetter";
  row.text = "Sturm";
  row.time = TimeOf(1);
  row.has_time = true;
  row.kind = 2;
  row.received = TimeOf(2);
  ChangeQueue queue;
  queue.Push(row);
  const PendingChanges changes = ChangesOf(queue);
  ASSERT_THAT(changes.incoming, SizeIs(1));
  const Incoming& got = changes.incoming.at(row.id);
  EXPECT_EQ(got.route, row.route);
  EXPECT_EQ(got.sender, row.sender);
  EXPECT_EQ(got.text, row.text);
  EXPECT_EQ(got.time, row.time);
  EXPECT_TRUE(got.has_time);
  EXPECT_EQ(got.kind, row.kind);
  EXPECT_EQ(got.received, row.received);
}

TEST(ChangeQueue, KeepsEveryFieldOfAPart) {
  Part row;
  row.group = 4;
  row.sequence = 2;
  row.route = "1";
  row.sender = "+15550101234";
  row.reference = 300;
  row.wide = true;
  row.total = 3;
  row.pdu = "07911326040000F0";
  row.time = TimeOf(1);
  row.has_time = true;
  row.first_seen = TimeOf(2);
  ChangeQueue queue;
  queue.Push(row);
  const PendingChanges changes = ChangesOf(queue);
  ASSERT_THAT(changes.parts, SizeIs(1));
  const Part& got = changes.parts.at({4, 2});
  EXPECT_EQ(got.route, row.route);
  EXPECT_EQ(got.sender, row.sender);
  EXPECT_EQ(got.reference, row.reference);
  EXPECT_TRUE(got.wide);
  EXPECT_EQ(got.total, row.total);
  EXPECT_EQ(got.pdu, row.pdu);
  EXPECT_EQ(got.time, row.time);
  EXPECT_TRUE(got.has_time);
  EXPECT_EQ(got.first_seen, row.first_seen);
}

TEST(ChangeQueue, KeepsEveryOtherChange) {
  ChangeQueue queue;
  queue.Push(Held{"1", 3, "digest"});
  queue.Push(RemoveHeld{"1", 4});
  queue.Push(AcceptIncoming{9, TimeOf(5)});
  queue.Push(RemoveParts{6});
  queue.Push(SetLimit{12});
  queue.Push(AnswerRequest{7, true, "cancelled"});
  const PendingChanges changes = ChangesOf(queue);
  ASSERT_THAT(changes.held, SizeIs(2));
  EXPECT_EQ(changes.held.at({"1", 3})->digest, "digest");
  EXPECT_FALSE(changes.held.at({"1", 4}).has_value());
  EXPECT_THAT(changes.accepted, ElementsAre(Pair(9, TimeOf(5))));
  EXPECT_THAT(changes.removed_groups, ElementsAre(6));
  EXPECT_EQ(changes.limit_per_hour, 12);
  ASSERT_THAT(changes.answers, SizeIs(1));
  EXPECT_TRUE(changes.answers.at(7).done);
  EXPECT_EQ(changes.answers.at(7).outcome, "cancelled");
}

TEST(ChangeQueue, KeepsTheOrderOverManyBlocksAndLargeChanges) {
  ChangeQueue queue;
  Outgoing row;
  for (int i = 0; i < 3000; ++i) {
    row.id = i % 1000;
    row.attempts = i;
    row.content = std::string(i % 100 == 0 ? 100'000 : 300, 'x');
    queue.Push(row);
  }
  const PendingChanges changes = ChangesOf(queue);
  ASSERT_THAT(changes.outgoing, SizeIs(1000));
  for (const auto& [id, got] : changes.outgoing) EXPECT_EQ(got.attempts, 2000 + id);
  EXPECT_EQ(changes.outgoing.at(500).content.size(), 100'000U);
  EXPECT_TRUE(queue.empty());
}

TEST(ChangeQueue, IsEmptyAfterASwapWithAnEmptyOne) {
  ChangeQueue queue;
  EXPECT_TRUE(queue.empty());
  queue.Push(SetLimit{1});
  ChangeQueue taken;
  taken.Swap(queue);
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(ChangesOf(taken).limit_per_hour, 1);
}

}  // namespace
}  // namespace messages
