// SPDX-License-Identifier: MIT
#include "libs/messages/store.h"

#include <gmock/gmock.h>

#include "tests/libs/messages/store_tools.h"

namespace messages {
namespace {

using test_support::kPatience;
using test_support::WaitFor;

TEST(Store, GivesBackWhatWaitsAfterARestart) {
  const test_support::TemporaryFolder folder;
  Outgoing written;
  {
    Store store(folder.path());
    written = NewMessage(store, "+491711234567");
    written.progress = "half";
    written.key = "heartbeat";
    written.urgent = true;
    written.attempts = 2;
    written.unknown_ends = 1;
    written.in_transfer = true;
    written.error_id = 21;
    written.reason = "the network refused it";
    const auto sequence = store.Write({written});
    ASSERT_TRUE(WaitFor([&] { return store.IsOnDisk(sequence); })) << store.problem();
    EXPECT_EQ(store.Number(written.id), 1);
  }
  Store store(folder.path());
  const Content content = LoadedFrom(store);
  ASSERT_EQ(content.waiting.size(), 1U);
  const Outgoing& row = content.waiting.front();
  EXPECT_EQ(row.id, 1);
  EXPECT_EQ(row.job, 1);
  EXPECT_EQ(row.channel, "sms");
  EXPECT_EQ(row.route, "1");
  EXPECT_EQ(row.receiver, "+491711234567");
  EXPECT_EQ(row.content, written.content);
  EXPECT_EQ(row.progress, "half");
  EXPECT_EQ(row.key, "heartbeat");
  EXPECT_TRUE(row.urgent);
  EXPECT_EQ(row.created, written.created);
  EXPECT_EQ(row.expires, written.expires);
  EXPECT_EQ(row.state, OutgoingState::kWaiting);
  EXPECT_EQ(row.attempts, 2);
  EXPECT_EQ(row.unknown_ends, 1);
  EXPECT_TRUE(row.in_transfer);
  EXPECT_EQ(row.error_id, 21);
  EXPECT_EQ(row.reason, "the network refused it");
}

TEST(Store, NumbersNewMessagesAfterThoseOfEarlierRuns) {
  const test_support::TemporaryFolder folder;
  for (int run = 1; run <= 3; ++run) {
    Store store(folder.path());
    const Outgoing row = NewMessage(store, "1");
    store.Write({row});
    ASSERT_TRUE(store.Flush(kPatience)) << store.problem();
    EXPECT_EQ(store.Number(row.id), run);
  }
}

}  // namespace
}  // namespace messages
