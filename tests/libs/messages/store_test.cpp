// SPDX-License-Identifier: MIT
#include "libs/messages/store.h"

#include <gmock/gmock.h>

#include <chrono>
#include <optional>

#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace messages {
namespace {

using std::chrono::hours;
using test_support::kPatience;
using test_support::WaitFor;

WallTime Now() {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

Content Loaded(Store& store) {
  std::optional<Content> content;
  EXPECT_TRUE(WaitFor([&] { return (content = store.TakeContent()).has_value(); }))
      << store.problem();
  return content.value_or(Content{});
}

Outgoing Waiting(Store& store, const std::string& receiver) {
  Outgoing row;
  row.id = row.job = store.NewId();
  row.channel = "sms";
  row.route = "1";
  row.receiver = receiver;
  row.content = R"({"text":"Tank 2 is full"})";
  row.created = Now();
  row.expires = row.created + hours(24);
  return row;
}

TEST(Store, GivesBackWhatWaitsAfterARestart) {
  const test_support::TemporaryFolder folder;
  Outgoing written;
  {
    Store store(folder.path());
    written = Waiting(store, "+491711234567");
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
  const Content content = Loaded(store);
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
    const Outgoing row = Waiting(store, "1");
    store.Write({row});
    ASSERT_TRUE(store.Flush(kPatience)) << store.problem();
    EXPECT_EQ(store.Number(row.id), run);
  }
}

}  // namespace
}  // namespace messages
