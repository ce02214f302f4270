// SPDX-License-Identifier: MIT
#include "libs/messages/store_opening.h"

#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "libs/messages/store.h"
#include "libs/messages/store_schema.h"
#include "tests/libs/messages/store_tools.h"

namespace messages {
namespace {

namespace fs = std::filesystem;
using test_support::kPatience;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr int kReadWrite = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;

class StoreOpening : public testing::Test {
 protected:
  [[nodiscard]] const fs::path& folder() const { return folder_.path(); }
  [[nodiscard]] fs::path file() const { return folder() / "messages.db"; }
  [[nodiscard]] fs::path log() const { return folder() / "messages.db-wal"; }

  /// Expects that the file is put aside, with this in the notice, and that the new store works.
  void ExpectPutAside(const std::string& why) {
    const std::string before = fs::is_regular_file(file()) ? FileContent(file()) : "";
    {
      Store store(folder(), "sms", Quick());
      EXPECT_THAT(LoadedFrom(store).waiting, IsEmpty());
      EXPECT_THAT(store.TakeNotices(), ElementsAre(AllOf(HasSubstr(file().string()), HasSubstr(why),
                                                         HasSubstr(".damaged-"))));
      EXPECT_EQ(store.problem(), "");
      WriteMessages(store, {"110"});
    }
    EXPECT_THAT(Receivers(ContentOf(folder())), ElementsAre("110"));
    const auto kept = NamesThatBeginWith(folder(), "messages.db.damaged-");
    ASSERT_THAT(kept, testing::Not(IsEmpty()));
    EXPECT_TRUE(before.empty() || FileContent(folder() / kept.front()) == before);
  }

  /// Expects that the store is refused with these words, and that the file stays as it is.
  void ExpectRefused(const std::string& why) {
    const std::string before = FileContent(file());
    const std::string log_before = FileContent(log());
    {
      Store store(folder(), "sms", Quick());
      EXPECT_THAT(ProblemOf(store), AllOf(HasSubstr(file().filename().string()), HasSubstr(why)));
      store.Write({NewMessage(store, "110")});
      EXPECT_FALSE(store.Flush(std::chrono::milliseconds(50)));
      EXPECT_FALSE(store.loaded());
    }
    EXPECT_EQ(FileContent(file()), before);
    EXPECT_EQ(FileContent(log()), log_before);
  }

 private:
  test_support::TemporaryFolder folder_;
};

TEST_F(StoreOpening, MakesTheFolderAndFilesForTheOwnerOnly) {
  Store store(folder() / "new" / "one", "sms", Quick());
  WriteMessages(store, {"112"});
  EXPECT_EQ(fs::status(folder() / "new").permissions(), fs::perms::owner_all);
  EXPECT_EQ(fs::status(folder() / "new" / "one").permissions(), fs::perms::owner_all);
  const auto names = NamesThatBeginWith(folder() / "new" / "one", "");
  EXPECT_THAT(names, testing::UnorderedElementsAre("messages.db", "messages.db-wal",
                                                   "messages.db-shm", "messages.db.lock"));
  for (const std::string& name : names) {
    EXPECT_EQ(fs::status(folder() / "new" / "one" / name).permissions(),
              fs::perms::owner_read | fs::perms::owner_write)
        << name;
  }
}

TEST_F(StoreOpening, LeavesOneFileAfterAnOrderlyEnd) {
  MakeStoreIn(folder());
  EXPECT_THAT(NamesThatBeginWith(folder(), ""),
              testing::UnorderedElementsAre("messages.db", "messages.db.lock"));
}

TEST_F(StoreOpening, FollowsALinkInThePlaceOfTheFolder) {
  fs::create_directory(folder() / "real");
  fs::create_directory_symlink(folder() / "real", folder() / "link");
  MakeStoreIn(folder() / "link");
  EXPECT_THAT(Receivers(ContentOf(folder() / "real")), ElementsAre("112"));
}

TEST_F(StoreOpening, PutsAsideAFileOfAnotherKind) {
  SetFileContent(file(), std::string(5000, 'x'));
  ExpectPutAside("not a database");
}

TEST_F(StoreOpening, PutsAsideAFileThatWasCutOff) {
  MakeStoreIn(folder(), std::vector<std::string>(500, "112"));
  fs::resize_file(file(), fs::file_size(file()) / 2);
  ExpectPutAside("damaged");
}

TEST_F(StoreOpening, PutsAsideAFileWithADamagedPage) {
  MakeStoreIn(folder(), std::vector<std::string>(500, "112"));
  std::string content = FileContent(file());
  content.replace(content.size() / 2, 8192, 8192, '\xA5');
  SetFileContent(file(), content);
  ExpectPutAside("damaged");
}

TEST_F(StoreOpening, PutsAsideAnEmptyFile) {
  SetFileContent(file(), "");
  ExpectPutAside("it was empty");
}

TEST_F(StoreOpening, PutsAsideAFolderInItsPlace) {
  fs::create_directory(file());
  SetFileContent(file() / "kept", "x");
  ExpectPutAside("not a file");
  const auto kept = NamesThatBeginWith(folder(), "messages.db.damaged-");
  ASSERT_THAT(kept, SizeIs(1));
  EXPECT_TRUE(fs::exists(folder() / kept.front() / "kept"));
}

TEST_F(StoreOpening, PutsAsideAFifoInItsPlace) {
  ASSERT_EQ(mkfifo(file().c_str(), 0600), 0);
  ExpectPutAside("not a file");
}

TEST_F(StoreOpening, PutsAsideALogWhoseFileIsGone) {
  SetFileContent(log(), "what was not in the file yet");
  ExpectPutAside("only its log was left");
  EXPECT_EQ(FileContent(folder() / NamesThatBeginWith(folder(), "messages.db.damaged-").front()),
            "what was not in the file yet");
}

TEST_F(StoreOpening, PutsAsideAStoreWithOtherTables) {
  MakeStoreIn(folder());
  SQLite::Database(file().string(), kReadWrite).exec("ALTER TABLE outgoing DROP COLUMN reason");
  ExpectPutAside("reason");
}

TEST_F(StoreOpening, PutsAsideAStoreThatHasNoNumbersLeft) {
  MakeStoreIn(folder());
  SQLite::Database(file().string(), kReadWrite)
      .exec("UPDATE sqlite_sequence SET seq = 9223372036854775807");
  ExpectPutAside("numbers are used up");
}

TEST_F(StoreOpening, PutsAsideEachDamagedFileUnderAnotherName) {
  for (std::size_t count = 1; count <= 3; ++count) {
    SetFileContent(file(), "no store");
    static_cast<void>(ContentOf(folder()));
    EXPECT_THAT(NamesThatBeginWith(folder(), "messages.db.damaged-"), SizeIs(count));
  }
}

TEST_F(StoreOpening, RefusesASymbolicLinkAndLeavesItAlone) {
  fs::create_symlink(folder() / "elsewhere", file());
  ExpectRefused("is a symbolic link");
  EXPECT_TRUE(fs::is_symlink(file()));
  EXPECT_FALSE(fs::exists(folder() / "elsewhere"));
}

TEST_F(StoreOpening, RefusesALinkInThePlaceOfTheLogAndLeavesItAlone) {
  MakeStoreIn(folder());
  SetFileContent(folder() / "elsewhere", "another program's");
  fs::create_symlink(folder() / "elsewhere", log());
  ExpectRefused("is a symbolic link");
  EXPECT_TRUE(fs::is_symlink(log()));
}

TEST_F(StoreOpening, RefusesANewerVersionAndLeavesItAlone) {
  MakeStoreIn(folder());
  // Another program has it open, so that the version is only in the log.
  SQLite::Database newer(file().string(), kReadWrite);
  newer.exec("PRAGMA user_version=" + std::to_string(kSchemaVersion + 1));
  ASSERT_GT(fs::file_size(log()), 0U);
  ExpectRefused("has a newer version (" + std::to_string(kSchemaVersion + 1) + ";");
}

TEST_F(StoreOpening, RefusesAnotherProgramsDatabaseAndLeavesItAlone) {
  SQLite::Database(file().string(), kReadWrite).exec("CREATE TABLE recipes (name TEXT)");
  ExpectRefused("belongs to another program");
}

TEST_F(StoreOpening, BringsAnOlderVersionUpToDate) {
  SQLite::Database(file().string(), kReadWrite)
      .exec("PRAGMA application_id=" + std::to_string(kApplicationId));
  MakeStoreIn(folder());
  SQLite::Database database(file().string());
  EXPECT_EQ(database.execAndGet("PRAGMA user_version").getInt(), kSchemaVersion);
  EXPECT_THAT(NamesThatBeginWith(folder(), "messages.db.damaged-"), IsEmpty());
}

TEST_F(StoreOpening, StartsAgainAfterAnInterruptedStart) {
  SetFileContent(folder() / "messages.db.new", "half a file");
  SetFileContent(folder() / "messages.db.new-journal", "half a journal");
  MakeStoreIn(folder());
  EXPECT_THAT(NamesThatBeginWith(folder(), "messages.db.new"), IsEmpty());
}

TEST_F(StoreOpening, RunsNothingThatIsDefinedInTheFile) {
  MakeStoreIn(folder());
  SQLite::Database(file().string(), kReadWrite)
      .exec("CREATE TRIGGER gone AFTER INSERT ON outgoing BEGIN DELETE FROM outgoing; END");
  MakeStoreIn(folder(), {"110"});
  EXPECT_THAT(Receivers(ContentOf(folder())), ElementsAre("112", "110"));
}

TEST_F(StoreOpening, LimitsImpossibleValues) {
  MakeStoreIn(folder(), {"112", "110"});
  SQLite::Database(file().string(), kReadWrite)
      .exec(
          "UPDATE outgoing SET state = 77, attempts = 5000000000, unknown_ends = 4294967295, "
          "expires = 9223372036854775807, created = -9223372036854775808 WHERE id = 1;"
          "UPDATE outgoing SET state = 4294967296, attempts = -9, unknown_ends = -1, "
          "expires = -1 WHERE id = 2;"
          "UPDATE outgoing SET report_awaited = 5");
  const Content content = ContentOf(folder());
  ASSERT_THAT(content.waiting, SizeIs(2));
  const Outgoing& large = content.waiting.front();
  EXPECT_EQ(large.state, OutgoingState::kFailed);
  EXPECT_EQ(large.attempts, 1'000'000'000) << "one more must not overflow";
  EXPECT_EQ(large.unknown_ends, 1'000'000'000);
  EXPECT_EQ(large.created, WallTime());
  EXPECT_GT(large.expires - large.created, std::chrono::years(200));
  const auto now = std::chrono::steady_clock::now();
  EXPECT_GT(now + (large.expires - large.created), now) << "a clock cannot add it";
  const Outgoing& small = content.waiting.back();
  EXPECT_EQ(small.state, OutgoingState::kFailed) << "not a state, so it must not be sent";
  EXPECT_EQ(small.attempts, 0);
  EXPECT_EQ(small.unknown_ends, 0);
  EXPECT_EQ(small.expires, WallTime());
}

TEST_F(StoreOpening, LeavesOutMessagesWithImpossibleNumbers) {
  MakeStoreIn(folder(), {"112", "110"});
  SQLite::Database(file().string(), kReadWrite).exec("UPDATE outgoing SET id = -5 WHERE id = 1");
  EXPECT_THAT(Receivers(ContentOf(folder())), ElementsAre("110"));
}

TEST_F(StoreOpening, ReportsThatThereIsNoFolder) {
  Store store("", "sms", Quick());
  EXPECT_THAT(ProblemOf(store), HasSubstr("there is no folder for the store of messages"));
}

TEST_F(StoreOpening, ReportsAFolderThatCannotBeMade) {
  SetFileContent(folder() / "file", "x");
  Store store(folder() / "file" / "below", "sms", Quick());
  EXPECT_THAT(ProblemOf(store),
              AllOf(HasSubstr("cannot be written"), HasSubstr("Not a directory")));
}

/// Gives up root's rights to files, also for threads that are started meanwhile: permissions do not
/// bind root.
class WithoutRoot {
 public:
  WithoutRoot() {
    if (geteuid() == 0) setfsuid(65534);
  }
  WithoutRoot(const WithoutRoot&) = delete;
  WithoutRoot& operator=(const WithoutRoot&) = delete;
  ~WithoutRoot() { setfsuid(geteuid()); }
};

TEST_F(StoreOpening, ReportsAReadOnlyFolderAndGoesOnWhenItIsWritable) {
  fs::permissions(folder(), fs::perms::owner_read | fs::perms::owner_exec | fs::perms::others_read |
                                fs::perms::others_exec);
  std::optional<Store> store;
  {
    const WithoutRoot user;
    store.emplace(folder(), "sms", Quick());
  }
  EXPECT_THAT(ProblemOf(*store), AllOf(HasSubstr("cannot be written"),
                                       HasSubstr("Permission denied"), HasSubstr(file().string())));
  const auto sequence = store->Write({NewMessage(*store, "112")});
  EXPECT_FALSE(store->IsOnDisk(sequence));
  fs::permissions(folder(), fs::perms::all);
  EXPECT_TRUE(store->Flush(kPatience)) << store->problem();
  EXPECT_TRUE(test_support::WaitFor([&] { return store->problem().empty(); }));
  store.reset();
  EXPECT_THAT(Receivers(ContentOf(folder())), ElementsAre("112"));
}

TEST_F(StoreOpening, BeginsAgainWhenTheFileIsRemovedWhileItIsInUse) {
  Store store(folder(), "sms", Quick());
  WriteMessages(store, {"112"});
  EXPECT_FALSE(store.TakeBegunAgain());
  fs::remove(file());
  ASSERT_TRUE(test_support::WaitFor([&] { return store.TakeBegunAgain(); }));
  EXPECT_FALSE(store.TakeBegunAgain());
  WriteMessages(store, {"110"});
  EXPECT_TRUE(fs::exists(file()));
}

TEST_F(StoreOpening, BeginsAgainWhenTheFileIsDamagedWhileItIsInUse) {
  Store store(folder(), "sms", Quick());
  WriteMessages(store, std::vector<std::string>(20000, "112"));  // more than the cache keeps
  SQLite::Database(file().string(), kReadWrite).exec("PRAGMA wal_checkpoint");
  ASSERT_GT(fs::file_size(file()), 1000000U);
  {
    std::fstream out(file(), std::ios::binary | std::ios::in | std::ios::out);
    out << std::string(static_cast<std::size_t>(fs::file_size(file())), '\xA5');
  }
  std::int64_t id = kFirstNewId;
  ASSERT_TRUE(test_support::WaitFor([&] {
    Outgoing row = NewMessage(store, "110");
    row.id = id += 100;  // rows of pages that are no longer in memory
    store.Write({row});
    return store.TakeBegunAgain();
  }));
  EXPECT_TRUE(store.Flush(kPatience)) << store.problem();
  EXPECT_THAT(store.TakeNotices(), ElementsAre(HasSubstr("was damaged")));
}

}  // namespace
}  // namespace messages
