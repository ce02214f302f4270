// SPDX-License-Identifier: MIT
#include "libs/messages/store_cleaning.h"

#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <string>

#include "libs/messages/store_schema.h"
#include "tests/libs/messages/store_tools.h"

namespace messages {
namespace {

using std::chrono::days;
using std::chrono::hours;

constexpr WallTime kToday = std::chrono::sys_days(std::chrono::year(2026) / 11 / 22);
constexpr int kStep = 200;

class StoreCleaning : public testing::Test {
 protected:
  void SetUp() override {
    database_.exec("PRAGMA synchronous=OFF");
    Migrate(database_);
  }
  /// Adds `count` messages that ended then.
  void AddSent(int count, WallTime finished, int state = 1) {
    Add(count,
        "INSERT INTO outgoing (job, channel, route, receiver, content, progress, key, urgent, "
        "created, expires, next_try, finished, state, attempts, unknown_ends, in_transfer, "
        "report_awaited, error_id, reason) SELECT 1,'sms','1','112','','','',0,0,0,0," +
            Text(finished) + "," + std::to_string(state) + ",1,0,0,0,0,''");
  }
  void AddAccepted(int count, WallTime accepted) {
    Add(count,
        "INSERT INTO incoming (route, sender, text, time, has_time, kind, received, accepted) "
        "SELECT '1','112','',0,0,0,0," +
            Text(accepted));
  }
  int CountOf(const std::string& table) {
    return database_.execAndGet("SELECT count(*) FROM " + table).getInt();
  }
  void CleanUp(WallTime now) {
    while (RemoveOld(database_, now, kStep)) {
    }
  }
  SQLite::Database& database() { return database_; }

 private:
  static std::string Text(WallTime time) { return std::to_string(time.time_since_epoch().count()); }
  void Add(int count, const std::string& row) {
    database_.exec("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                   std::to_string(count) + ") " + row + " FROM n");
  }

  SQLite::Database database_{":memory:", SQLITE_OPEN_READWRITE};
};

TEST_F(StoreCleaning, RemovesWhatEndedMoreThanThirtyDaysAgo) {
  AddSent(3, kToday - days(30) - hours(1));
  AddSent(2, kToday - days(29));
  AddAccepted(3, kToday - days(30) - hours(1));
  AddAccepted(2, kToday - days(29));
  CleanUp(kToday);
  EXPECT_EQ(CountOf("outgoing"), 2);
  EXPECT_EQ(CountOf("incoming"), 2);
}

TEST_F(StoreCleaning, KeepsWhatWaitsHoweverOldItIs) {
  AddSent(3, kToday - days(300), 0);
  database().exec(
      "INSERT INTO incoming (route, sender, text, time, has_time, kind, received) "
      "VALUES ('1','112','',0,0,0,0)");
  CleanUp(kToday);
  EXPECT_EQ(CountOf("outgoing"), 3);
  EXPECT_EQ(CountOf("incoming"), 1);
}

TEST_F(StoreCleaning, GoesInSmallSteps) {
  AddSent(2 * kStep + 1, kToday - days(31));
  EXPECT_TRUE(RemoveOld(database(), kToday, kStep));
  EXPECT_EQ(CountOf("outgoing"), kStep + 1);
  EXPECT_TRUE(RemoveOld(database(), kToday, kStep));
  EXPECT_FALSE(RemoveOld(database(), kToday, kStep));
  EXPECT_EQ(CountOf("outgoing"), 0);
}

TEST_F(StoreCleaning, KeepsTheLatestHundredThousand) {
  AddSent(50, kToday - days(2));
  AddSent(kMostHistory, kToday - days(1));
  AddSent(10, kToday - days(2), 0);
  CleanUp(kToday);
  EXPECT_EQ(CountOf("outgoing WHERE state = 1"), kMostHistory);
  EXPECT_EQ(CountOf("outgoing WHERE state = 0"), 10);
  EXPECT_EQ(
      CountOf("outgoing WHERE finished = " +
              std::to_string((kToday - days(2)).time_since_epoch().count()) + " AND state = 1"),
      0);
}

TEST_F(StoreCleaning, CountsNothingAsOldWhileTheClockIsNotSet) {
  AddSent(3, WallTime(hours(1)));
  CleanUp(WallTime(days(200)));
  EXPECT_EQ(CountOf("outgoing"), 3);
}

TEST_F(StoreCleaning, GivesWhatEndedBeforeTheClockWasSetATimeOfItsOwn) {
  AddSent(3, WallTime(hours(1)));
  AddAccepted(3, WallTime(hours(1)));
  CleanUp(kToday);
  EXPECT_EQ(CountOf("outgoing"), 3);
  EXPECT_EQ(CountOf("incoming"), 3);
  CleanUp(kToday + days(31));
  EXPECT_EQ(CountOf("outgoing"), 0);
  EXPECT_EQ(CountOf("incoming"), 0);
}

TEST_F(StoreCleaning, RemovesOldAnswers) {
  for (int i = 0; i < 150; ++i) {
    database().exec("INSERT INTO request (kind, message, value, done) VALUES (0, 1, 0, 1)");
  }
  database().exec("UPDATE request SET done = NULL WHERE id = 3");
  CleanUp(kToday);
  EXPECT_EQ(CountOf("request"), 101);
}

TEST_F(StoreCleaning, IsDoneByARunningStore) {
  const test_support::TemporaryFolder folder;
  {
    Store store(folder.path(), "sms", Quick());
    std::vector<Change> changes;
    for (int i = 0; i < 450; ++i) {
      Outgoing row = NewMessage(store, "112");
      row.state = OutgoingState::kSent;
      row.finished = TimeNow() - days(31);
      changes.emplace_back(std::move(row));
    }
    store.Write(changes);
    ASSERT_TRUE(store.Flush(test_support::kPatience));
  }
  const Store store(folder.path(), "sms", Quick());
  const std::string file = store.file().string();
  EXPECT_TRUE(test_support::WaitFor([&] {
    if (!store.loaded()) return false;
    SQLite::Database reader(file, SQLITE_OPEN_READONLY, 1000);
    return reader.execAndGet("SELECT count(*) FROM outgoing").getInt() == 0;
  }));
}

}  // namespace
}  // namespace messages
