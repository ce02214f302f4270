// SPDX-License-Identifier: MIT
#include "libs/messages/store.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <optional>
#include <string>
#include <utility>

#include "tests/libs/messages/store_tools.h"

namespace messages {
namespace {

using std::chrono::hours;
using test_support::kPatience;
using test_support::WaitFor;
using testing::ElementsAre;
using testing::SizeIs;

TEST(Store, GivesBackWhatWaitsAfterARestart) {
  const test_support::TemporaryFolder folder;
  Outgoing written;
  {
    Store store(folder.path(), "sms");
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
  Store store(folder.path(), "sms");
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
    Store store(folder.path(), "sms");
    const Outgoing row = NewMessage(store, "1");
    store.Write({row});
    ASSERT_TRUE(store.Flush(kPatience)) << store.problem();
    EXPECT_EQ(store.Number(row.id), run);
  }
}

/// A store that has just written, so that what comes gathers for long.
class GatheringStore : public testing::Test {
 protected:
  GatheringStore() : store_(std::in_place, folder_.path(), "sms", Slow()) {
    WriteMessages(*store_, {"1"});
  }
  static StoreOptions Slow() {
    StoreOptions options;
    options.gather = hours(1);
    return options;
  }
  std::uint64_t Write(const std::string& receiver) {
    return store_->Write({NewMessage(*store_, receiver)});
  }

  const test_support::TemporaryFolder folder_;
  std::optional<Store> store_;
};

TEST_F(GatheringStore, WritesAtOnceWhatSomebodyWaitsForAndAllBeforeIt) {
  Write("2");
  const std::uint64_t awaited = Write("3");
  EXPECT_FALSE(store_->IsOnDisk(awaited));
  store_->Hurry();
  ASSERT_TRUE(WaitFor([&] { return store_->IsOnDisk(awaited); })) << store_->problem();
  const std::uint64_t later = Write("4");
  EXPECT_FALSE(store_->IsOnDisk(later)) << "the hurry was for what came before it";
}

TEST_F(GatheringStore, WritesAtOnceWhenItIsFlushedAndAtTheEnd) {
  Write("2");
  EXPECT_TRUE(store_->Flush(kPatience)) << store_->problem();
  Write("3");
  store_.reset();
  EXPECT_THAT(Receivers(ContentOf(folder_.path())), ElementsAre("1", "2", "3"));
}

TEST(Store, WritesWhatHasGatheredWithoutBeingAsked) {
  const test_support::TemporaryFolder folder;
  Store store(folder.path(), "sms");
  WriteMessages(store, {"1"});
  const std::uint64_t sequence = store.Write({NewMessage(store, "2")});
  EXPECT_TRUE(WaitFor([&] { return store.IsOnDisk(sequence); })) << store.problem();
}

TEST(Store, KnowsNoNumberBeforeItIsLoaded) {
  const test_support::TemporaryFolder folder;
  Store unloaded("", "sms", Quick());
  const std::int64_t first = unloaded.NewId();
  EXPECT_GT(unloaded.NewId(), first);
  EXPECT_EQ(unloaded.Number(first), 0);
  EXPECT_EQ(unloaded.Number(7), 7) << "of a loaded message";
}

TEST(Store, GivesItsContentOnce) {
  const test_support::TemporaryFolder folder;
  Store store(folder.path(), "sms", Quick());
  static_cast<void>(LoadedFrom(store));
  EXPECT_FALSE(store.TakeContent().has_value());
  EXPECT_TRUE(store.loaded());
}

TEST(Store, LoadsOnlyWhatWaitsOrAwaitsAReport) {
  const test_support::TemporaryFolder folder;
  {
    Store store(folder.path(), "sms", Quick());
    std::vector<Change> changes;
    for (const OutgoingState state :
         {OutgoingState::kWaiting, OutgoingState::kSent, OutgoingState::kFailed,
          OutgoingState::kExpired, OutgoingState::kCancelled}) {
      Outgoing row = NewMessage(store, std::to_string(static_cast<int>(state)));
      row.state = state;
      row.finished = TimeNow();
      row.report_awaited = state == OutgoingState::kSent;
      changes.emplace_back(std::move(row));
    }
    store.Write(changes);
  }
  const Content content = ContentOf(folder.path());
  EXPECT_THAT(Receivers(content), ElementsAre("0", "1"));
  EXPECT_TRUE(content.waiting.back().report_awaited);
  EXPECT_EQ(content.waiting.back().state, OutgoingState::kSent);
}

TEST(Store, LoadsTheKeysOfThirtyDaysAndWhatWasSentInTheLastHour) {
  const test_support::TemporaryFolder folder;
  const WallTime now = TimeNow();
  {
    Store store(folder.path(), "sms", Quick());
    std::vector<Change> changes;
    for (const auto age : {hours(31 * 24), hours(29 * 24), hours(2), hours(0)}) {
      Outgoing row = NewMessage(store, "112");
      row.key = std::to_string(age.count());
      row.state = OutgoingState::kSent;
      row.finished = now - age;
      changes.emplace_back(row);
      row.id = store.NewId();
      row.key.clear();
      changes.emplace_back(row);
    }
    store.Write(changes);
  }
  const Content content = ContentOf(folder.path());
  ASSERT_THAT(content.keys, SizeIs(3));
  EXPECT_EQ(content.keys.front().key, std::to_string(29 * 24));
  EXPECT_EQ(content.keys.front().channel, "sms");
  EXPECT_EQ(content.keys.back().finished, now);
  ASSERT_THAT(content.recent, SizeIs(2));
  EXPECT_EQ(content.recent.front().route, "1");
  EXPECT_EQ(content.recent.front().finished, now);
}

TEST(Store, KeepsReceivedMessagesUntilTheyAreAccepted) {
  const test_support::TemporaryFolder folder;
  const WallTime now = TimeNow();
  {
    Store store(folder.path(), "sms", Quick());
    const std::int64_t first = store.NewId();
    const std::int64_t second = store.NewId();
    const std::string text("a\0b\n\xC3\xA4", 6);
    store.Write({Incoming{first, "1", "+49171", "gone", now, true, 0, now},
                 Incoming{second, "2", "Bank", text, now, true, 2, now}});
    store.Write({AcceptIncoming{first, now}, AcceptIncoming{12345, now}});
  }
  const Content content = ContentOf(folder.path());
  ASSERT_THAT(content.inbox, SizeIs(1));
  const Incoming& row = content.inbox.front();
  EXPECT_EQ(row.id, 2);
  EXPECT_EQ(row.route, "2");
  EXPECT_EQ(row.sender, "Bank");
  EXPECT_EQ(row.text, std::string("a\0b\n\xC3\xA4", 6));
  EXPECT_EQ(row.time, now);
  EXPECT_TRUE(row.has_time);
  EXPECT_EQ(row.kind, 2);
  EXPECT_EQ(row.received, now);
}

TEST(Store, KeepsPartsUntilTheirGroupIsRemoved) {
  const test_support::TemporaryFolder folder;
  const WallTime now = TimeNow();
  {
    Store store(folder.path(), "sms", Quick());
    Part part{1, 2, "3", "+49171", 77, true, 5, "0791", now, true, now};
    store.Write({part});
    part.sequence = 4;
    store.Write({part});
    part.group = 2;
    store.Write({part});
    store.Write({RemoveParts{2}});
  }
  const Content content = ContentOf(folder.path());
  ASSERT_THAT(content.parts, SizeIs(2));
  const Part& part = content.parts.front();
  EXPECT_EQ(part.group, 1);
  EXPECT_EQ(part.sequence, 2);
  EXPECT_EQ(part.route, "3");
  EXPECT_EQ(part.sender, "+49171");
  EXPECT_EQ(part.reference, 77);
  EXPECT_TRUE(part.wide);
  EXPECT_EQ(part.total, 5);
  EXPECT_EQ(part.pdu, "0791");
  EXPECT_EQ(part.time, now);
  EXPECT_TRUE(part.has_time);
  EXPECT_EQ(part.first_seen, now);
  EXPECT_EQ(content.parts.back().sequence, 4);
}

TEST(Store, KeepsWhatTheModemHoldsAndTheLimit) {
  const test_support::TemporaryFolder folder;
  {
    Store store(folder.path(), "sms", Quick());
    store.Write({Held{"1", 3, "old"}, Held{"1", 4, "gone"}, SetLimit{10}});
    ASSERT_TRUE(store.Flush(kPatience));
    store.Write({Held{"1", 3, "new"}, RemoveHeld{"1", 4}, SetLimit{20}});
  }
  const Content content = ContentOf(folder.path());
  ASSERT_THAT(content.held, SizeIs(1));
  EXPECT_EQ(content.held.front().route, "1");
  EXPECT_EQ(content.held.front().index, 3);
  EXPECT_EQ(content.held.front().digest, "new");
  EXPECT_EQ(content.limit_per_hour, 20);
}

TEST(Store, HasNoLimitUntilOneIsSet) {
  const test_support::TemporaryFolder folder;
  EXPECT_FALSE(ContentOf(folder.path()).limit_per_hour.has_value());
}

/// What the command does while the program runs.
class OtherProgram {
 public:
  explicit OtherProgram(const Store& store)
      : database_(store.file().string(), SQLITE_OPEN_READWRITE, 2000) {}
  void Ask(int kind, int message, int value) {
    SQLite::Statement row(database_, "INSERT INTO request (kind, message, value) VALUES (?, ?, ?)");
    row.bind(1, kind);
    row.bind(2, message);
    row.bind(3, value);
    row.exec();
  }
  std::string AnswerTo(int request) {
    SQLite::Statement row(database_, "SELECT done, outcome FROM request WHERE id = ?");
    row.bind(1, request);
    if (!row.executeStep() || row.isColumnNull(0)) return "";
    return row.getColumn(0).getString() + " " + row.getColumn(1).getString();
  }

 private:
  SQLite::Database database_;
};

std::vector<Request> RequestsOf(Store& store, std::size_t count) {
  std::vector<Request> requests;
  EXPECT_TRUE(WaitFor([&] {
    for (Request& request : store.TakeRequests()) requests.push_back(std::move(request));
    return requests.size() >= count;
  }));
  return requests;
}

TEST(Store, HandsOverRequestsOfOtherProgramsOnceAndTheAnswersBack) {
  const test_support::TemporaryFolder folder;
  MakeStoreIn(folder.path());
  Store store(folder.path(), "sms", Quick());
  const Outgoing row = NewMessage(store, "110");
  store.Write({row});
  ASSERT_TRUE(store.Flush(kPatience));
  OtherProgram other(store);
  other.Ask(0, 1, 0);
  other.Ask(1, 2, 0);
  other.Ask(1, 99, 0);
  other.Ask(2, 0, 5);
  other.Ask(77, 0, 5);  // of an unknown kind
  const auto requests = RequestsOf(store, 4);
  ASSERT_THAT(requests, SizeIs(4));
  EXPECT_EQ(requests[0].kind, RequestKind::kCancel);
  EXPECT_EQ(requests[0].message.id, 1);
  EXPECT_EQ(requests[0].message.receiver, "112");
  EXPECT_EQ(requests[1].kind, RequestKind::kRetry);
  EXPECT_EQ(requests[1].message.id, row.id) << "as the program knows it";
  EXPECT_EQ(requests[1].message.job, row.id);
  EXPECT_EQ(requests[2].message.id, 0);
  EXPECT_EQ(requests[3].kind, RequestKind::kLimit);
  EXPECT_EQ(requests[3].value, 5);
  EXPECT_EQ(other.AnswerTo(1), "");
  store.Write({AnswerRequest{1, true, "it is cancelled"}, AnswerRequest{2, false, "it is sent"}});
  ASSERT_TRUE(store.Flush(kPatience));
  EXPECT_EQ(other.AnswerTo(1), "1 it is cancelled");
  EXPECT_EQ(other.AnswerTo(2), "0 it is sent");
  other.Ask(2, 0, 6);
  EXPECT_THAT(RequestsOf(store, 1), SizeIs(1)) << "unanswered ones are not given again";
}

TEST(Store, WaitsForAnotherProgramThatIsWriting) {
  const test_support::TemporaryFolder folder;
  Store store(folder.path(), "sms", Quick());
  WriteMessages(store, {"112"});
  // The store may still be looking for old messages to remove.
  constexpr int kBusyMilliseconds = 10'000;
  SQLite::Database other(store.file().string(), SQLITE_OPEN_READWRITE, kBusyMilliseconds);
  other.exec("BEGIN IMMEDIATE");
  store.Write({NewMessage(store, "110")});
  EXPECT_FALSE(store.Flush(std::chrono::milliseconds(30)));
  other.exec("COMMIT");
  EXPECT_TRUE(store.Flush(kPatience)) << store.problem();
}

TEST(Store, LoadsTenThousandMessagesInOrder) {
  const test_support::TemporaryFolder folder;
  std::vector<std::string> receivers;
  for (int i = 0; i < 10000; ++i) receivers.push_back(std::to_string(i));
  MakeStoreIn(folder.path(), receivers);
  EXPECT_EQ(Receivers(ContentOf(folder.path())), receivers);
}

}  // namespace
}  // namespace messages
