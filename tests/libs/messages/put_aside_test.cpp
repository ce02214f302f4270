// SPDX-License-Identifier: MIT
#include "libs/messages/put_aside.h"

#include <gmock/gmock.h>

#include "tests/libs/messages/store_tools.h"

namespace messages {
namespace {

using testing::UnorderedElementsAre;

constexpr WallTime kMorning = std::chrono::sys_days(std::chrono::year(2026) / 11 / 22) +
                              std::chrono::hours(6) + std::chrono::seconds(5);

TEST(PutAside, NamesFileAndLogByTheTimeAndRemovesTheIndex) {
  const test_support::TemporaryFolder folder;
  const auto file = folder.path() / "messages.db";
  SetFileContent(file, "file");
  SetFileContent(WithSuffix(file, "-wal"), "log");
  SetFileContent(WithSuffix(file, "-shm"), "index");
  EXPECT_EQ(PutAside(file, kMorning), WithSuffix(file, ".damaged-20261122-060005"));
  EXPECT_THAT(NamesThatBeginWith(folder.path(), ""),
              UnorderedElementsAre("messages.db.damaged-20261122-060005",
                                   "messages.db.damaged-20261122-060005-wal"));
}

TEST(PutAside, NeverReplacesWhatWasPutAsideBefore) {
  const test_support::TemporaryFolder folder;
  const auto file = folder.path() / "messages.db";
  for (const std::string content : {"1", "2", "3"}) {
    SetFileContent(file, content);
    EXPECT_EQ(FileContent(PutAside(file, kMorning)), content);
  }
  EXPECT_EQ(NamesThatBeginWith(folder.path(), "messages.db.damaged-").size(), 3U);
}

TEST(PutAside, DropsAnEmptyLog) {
  const test_support::TemporaryFolder folder;
  const auto file = folder.path() / "messages.db";
  SetFileContent(file, "file");
  SetFileContent(WithSuffix(file, "-wal"), "");
  PutAside(file, kMorning);
  EXPECT_EQ(NamesThatBeginWith(folder.path(), "").size(), 1U);
}

}  // namespace
}  // namespace messages
