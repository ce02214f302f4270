// SPDX-License-Identifier: MIT
#include "libs/messages/store_lock.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "libs/messages/store_error.h"
#include "tests/libs/messages/store_tools.h"

namespace messages {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

TEST(StoreLock, NamesTheProcessThatHasIt) {
  const test_support::TemporaryFolder folder;
  const fs::path file = folder.path() / "messages.db";
  const StoreLock held(file);
  try {
    const StoreLock second(file);
    FAIL() << "it was given twice";
  } catch (const StoreError& error) {
    EXPECT_THAT(error.what(), AllOf(HasSubstr(file.string()),
                                    HasSubstr("process " + std::to_string(getpid()) + ":")));
  }
}

TEST(StoreLock, DoesNotRepeatWhatSomebodyWroteInItsFile) {
  const test_support::TemporaryFolder folder;
  const fs::path file = folder.path() / "messages.db";
  const StoreLock held(file);
  SetFileContent(file.string() + ".lock", "\x1b[2J; rm");
  try {
    const StoreLock second(file);
    FAIL() << "it was given twice";
  } catch (const StoreError& error) {
    EXPECT_THAT(error.what(), HasSubstr("in use by another process:"));
  }
}

TEST(StoreLock, IsNoLongerInPlaceWhenItsFileIsRemoved) {
  const test_support::TemporaryFolder folder;
  const fs::path file = folder.path() / "messages.db";
  const StoreLock held(file);
  EXPECT_TRUE(held.IsInPlace());
  fs::remove(file.string() + ".lock");
  EXPECT_FALSE(held.IsInPlace());
}

TEST(StoreLock, DoesNotFollowALink) {
  const test_support::TemporaryFolder folder;
  const fs::path file = folder.path() / "messages.db";
  SetFileContent(folder.path() / "other", "content");
  fs::create_symlink(folder.path() / "other", file.string() + ".lock");
  EXPECT_THROW(StoreLock{file}, fs::filesystem_error);
  EXPECT_EQ(FileContent(folder.path() / "other"), "content");
}

TEST(StoreLock, MakesASecondProgramWaitUntilTheFirstHasEnded) {
  const test_support::TemporaryFolder folder;
  auto first = std::make_optional<Store>(folder.path(), Quick());
  WriteMessages(*first, {"112"});
  Store second(folder.path(), Quick());
  EXPECT_THAT(ProblemOf(second), HasSubstr("in use by process " + std::to_string(getpid())));
  const auto sequence = second.Write({NewMessage(second, "110")});
  EXPECT_FALSE(second.loaded());
  EXPECT_FALSE(second.IsOnDisk(sequence));
  first.reset();
  EXPECT_THAT(Receivers(LoadedFrom(second)), ElementsAre("112"));
  EXPECT_TRUE(second.Flush(test_support::kPatience)) << second.problem();
}

TEST(StoreLock, IsTakenAgainWhenItsFileWasRemoved) {
  const test_support::TemporaryFolder folder;
  Store first(folder.path(), Quick());
  WriteMessages(first, {"112"});
  const fs::path lock = folder.path() / "messages.db.lock";
  fs::remove(lock);
  // The process id is written once the lock is held.
  ASSERT_TRUE(test_support::WaitFor([&] { return !FileContent(lock).empty(); }));
  Store second(folder.path(), Quick());
  EXPECT_THAT(ProblemOf(second), HasSubstr("in use by process"));
  EXPECT_FALSE(first.TakeBegunAgain());
}

}  // namespace
}  // namespace messages
