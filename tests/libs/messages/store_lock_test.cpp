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

/// Another process that uses the store, as far as the store can see.
class OtherProcess {
 public:
  explicit OtherProcess(const fs::path& store) : lock_(store) {
    SetFileContent(store.string() + ".lock", "1\n");
  }

 private:
  StoreLock lock_;
};

TEST(StoreLock, MakesASecondProgramWaitUntilTheFirstHasEnded) {
  const test_support::TemporaryFolder folder;
  MakeStoreIn(folder.path());
  auto first = std::make_optional<OtherProcess>(folder.path() / "messages.db");
  Store second(folder.path(), "sms", Quick());
  EXPECT_THAT(ProblemOf(second), AllOf(HasSubstr("in use by process 1: "),
                                       HasSubstr("give this one a folder of its own")));
  const auto sequence = second.Write({NewMessage(second, "110")});
  EXPECT_FALSE(second.loaded());
  EXPECT_FALSE(second.IsOnDisk(sequence));
  first.reset();
  EXPECT_THAT(Receivers(LoadedFrom(second)), ElementsAre("112"));
  EXPECT_TRUE(second.Flush(test_support::kPatience)) << second.problem();
}

TEST(StoreLock, AsksForTheSameVersionOfAllAddInsThatUseTheStore) {
  const test_support::TemporaryFolder folder;
  MakeStoreIn(folder.path());
  const StoreLock of_another_version(folder.path() / "messages.db");
  Store store(folder.path(), "sms", Quick());
  EXPECT_THAT(ProblemOf(store), AllOf(HasSubstr("in use by process " + std::to_string(getpid())),
                                      HasSubstr("install the same version of all its add-ins")));
}

TEST(StoreLock, IsTakenAgainWhenItsFileWasRemoved) {
  const test_support::TemporaryFolder folder;
  Store first(folder.path(), "sms", Quick());
  WriteMessages(first, {"112"});
  const fs::path lock = folder.path() / "messages.db.lock";
  fs::remove(lock);
  // The process id is written once the lock is held.
  ASSERT_TRUE(test_support::WaitFor([&] { return !FileContent(lock).empty(); }));
  EXPECT_THROW(StoreLock{folder.path() / "messages.db"}, StoreError);
  EXPECT_FALSE(first.TakeBegunAgain());
}

}  // namespace
}  // namespace messages
