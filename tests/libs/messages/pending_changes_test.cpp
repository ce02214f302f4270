// SPDX-License-Identifier: MIT
#include "libs/messages/pending_changes.h"

#include <gmock/gmock.h>

namespace messages {
namespace {

Outgoing Row(std::int64_t number, OutgoingState state) {
  Outgoing row;
  row.id = kFirstNewId + number;
  row.state = state;
  return row;
}

TEST(PendingChanges, KeepsTheLastOfEachRow) {
  PendingChanges changes;
  EXPECT_TRUE(changes.empty());
  changes.Add(Row(1, OutgoingState::kWaiting));
  changes.Add(Row(1, OutgoingState::kSent));
  ASSERT_EQ(changes.outgoing.size(), 1U);
  EXPECT_EQ(changes.outgoing.begin()->second.state, OutgoingState::kSent);
  EXPECT_FALSE(changes.empty());
  changes.Clear();
  EXPECT_TRUE(changes.empty());
}

TEST(PendingChanges, ForgetsPartsOfARemovedGroupButNotLaterOnes) {
  PendingChanges changes;
  Part part;
  part.group = 7;
  part.sequence = 1;
  changes.Add(part);
  part.group = 8;
  changes.Add(part);
  changes.Add(RemoveParts{7});
  EXPECT_EQ(changes.parts.size(), 1U);
  part.group = 7;
  part.sequence = 2;
  changes.Add(part);
  EXPECT_EQ(changes.parts.size(), 2U);
  EXPECT_EQ(changes.removed_groups.count(7), 1U);
}

TEST(PendingChanges, LimitsTheHistoryOfADiskThatNeverTookIt) {
  PendingChanges changes;
  changes.Add(Row(0, OutgoingState::kWaiting));
  changes.Add(Row(1, OutgoingState::kWaiting));
  changes.Clear();  // both are on the disk now
  changes.Add(Row(0, OutgoingState::kSent));
  for (int i = 2; i < 100; ++i) {
    changes.Add(Row(i, i == 50 ? OutgoingState::kWaiting : OutgoingState::kSent));
  }
  changes.ForgetHistory(10);
  EXPECT_EQ(changes.outgoing.count(kFirstNewId), 1U) << "it would go out again after a restart";
  EXPECT_EQ(changes.outgoing.count(kFirstNewId + 50), 1U) << "it waits";
  EXPECT_EQ(changes.outgoing.count(kFirstNewId + 2), 0U);
  EXPECT_EQ(changes.outgoing.count(kFirstNewId + 90), 1U) << "one of the newest ten";
  EXPECT_EQ(changes.outgoing.size(), 12U);
}

TEST(PendingChanges, ForgetsNothingOfAShortHistory) {
  PendingChanges changes;
  for (int i = 0; i < 10; ++i) changes.Add(Row(i, OutgoingState::kSent));
  changes.ForgetHistory(10);
  EXPECT_EQ(changes.outgoing.size(), 10U);
}

}  // namespace
}  // namespace messages
