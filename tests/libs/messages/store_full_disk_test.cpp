// SPDX-License-Identifier: MIT
// A disk that has no room, or does not answer.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>

#include <atomic>
#include <mutex>

#include "libs/messages/store.h"
#include "tests/libs/messages/store_tools.h"
#include "tests/support/shim_vfs.h"

namespace messages {
namespace {

using test_support::DiskCall;
using test_support::kPatience;
using test_support::ShimVfs;
using test_support::WaitFor;
using testing::AllOf;
using testing::ContainsRegex;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

StoreOptions Through(const ShimVfs& vfs) {
  StoreOptions options = Quick();
  options.vfs = vfs.name();
  return options;
}

/// A disk that takes `room` writes, and then no more.
class FullDisk {
 public:
  explicit FullDisk(int room) : room_(room) {}

  void SetRoom(int room) { room_ = room; }
  [[nodiscard]] StoreOptions options() const { return Through(vfs_); }

 private:
  std::atomic<int> room_;
  ShimVfs vfs_{[this](const DiskCall& call) {
    return call.kind == DiskCall::Kind::kWrite && room_-- <= 0 ? SQLITE_FULL : SQLITE_OK;
  }};
};

constexpr int kPlenty = 1000000;

TEST(StoreOnAFullDisk, ReportsItAndWritesEverythingWhenThereIsRoom) {
  const test_support::TemporaryFolder folder;
  FullDisk disk(kPlenty);
  {
    Store store(folder.path(), "sms", disk.options());
    WriteMessages(store, {"112"});
    disk.SetRoom(0);
    const auto sequence = store.Write({NewMessage(store, "110")});
    EXPECT_THAT(ProblemOf(store), AllOf(HasSubstr("is full"), HasSubstr(store.file().string()),
                                        HasSubstr("Free some space")));
    EXPECT_FALSE(store.IsOnDisk(sequence));
    EXPECT_FALSE(store.Flush(std::chrono::milliseconds(50)));
    const auto later = store.Write({NewMessage(store, "115")});
    disk.SetRoom(kPlenty);
    EXPECT_TRUE(store.Flush(kPatience));
    EXPECT_TRUE(store.IsOnDisk(later));
    EXPECT_TRUE(WaitFor([&] { return store.problem().empty(); }));
  }
  EXPECT_THAT(Receivers(ContentOf(folder.path())), ElementsAre("112", "110", "115"));
}

TEST(StoreOnAFullDisk, BeginsWhenThereIsRoom) {
  const test_support::TemporaryFolder folder;
  FullDisk disk(0);
  Store store(folder.path(), "sms", disk.options());
  store.Write({NewMessage(store, "112")});
  EXPECT_THAT(ProblemOf(store), HasSubstr("is full"));
  disk.SetRoom(kPlenty);
  EXPECT_TRUE(store.Flush(kPatience)) << store.problem();
}

TEST(StoreOnAFullDisk, WritesTheLastOfManyChangesOfAMessage) {
  const test_support::TemporaryFolder folder;
  FullDisk disk(kPlenty);
  {
    Store store(folder.path(), "sms", disk.options());
    Outgoing row = NewMessage(store, "112");
    ASSERT_TRUE(WaitFor([&] { return store.loaded(); }));
    disk.SetRoom(0);
    for (row.attempts = 0; row.attempts < 1000; ++row.attempts) store.Write({row});
    static_cast<void>(ProblemOf(store));
    disk.SetRoom(kPlenty);
    EXPECT_TRUE(store.Flush(kPatience)) << store.problem();
  }
  const Content content = ContentOf(folder.path());
  ASSERT_THAT(content.waiting, SizeIs(1));
  EXPECT_EQ(content.waiting.front().attempts, 999);
}

TEST(StoreOnAFullDisk, LosesNothingWhereverTheRoomEnds) {
  const test_support::TemporaryFolder folder;
  FullDisk disk(kPlenty);
  std::size_t expected = 0;
  for (int room = 0; room < 40; ++room) {
    {
      Store store(folder.path(), "sms", disk.options());
      ASSERT_TRUE(WaitFor([&] { return store.loaded(); })) << store.problem();
      disk.SetRoom(room);
      for (int batch = 0; batch < 3; ++batch) {
        store.Write({NewMessage(store, "112"), NewMessage(store, "110")});
        static_cast<void>(store.Flush(std::chrono::milliseconds(3)));
        expected += 2;
      }
      disk.SetRoom(kPlenty);
      ASSERT_TRUE(store.Flush(kPatience)) << store.problem();
      EXPECT_THAT(store.TakeNotices(), testing::IsEmpty());
    }
    ASSERT_THAT(ContentOf(folder.path()).waiting, SizeIs(expected)) << "room for " << room;
  }
}

/// What a killed program leaves: its log is not merged into the file.
void CopyInUse(const Store& store, const std::filesystem::path& folder) {
  for (const std::string suffix : {"", "-wal"}) {
    std::filesystem::copy_file(store.file().string() + suffix, folder / ("messages.db" + suffix));
  }
}

TEST(StoreOnAFullDisk, GivesWhatItHasBeforeThereIsRoom) {
  for (const auto without_room : {DiskCall::Kind::kWrite, DiskCall::Kind::kShare}) {
    const test_support::TemporaryFolder before, folder;
    {
      Store store(before.path(), "sms", Quick());
      WriteMessages(store, {"112"});
      CopyInUse(store, folder.path());
    }
    std::atomic<bool> is_full = true;
    const ShimVfs disk([&](const DiskCall& call) {
      return is_full && call.kind == without_room ? SQLITE_FULL : SQLITE_OK;
    });
    {
      Store store(folder.path(), "sms", Through(disk));
      EXPECT_THAT(Receivers(LoadedFrom(store)), ElementsAre("112"));
      EXPECT_THAT(ProblemOf(store), HasSubstr("is full"));
      store.Write({NewMessage(store, "110")});
      is_full = false;
      EXPECT_TRUE(store.Flush(kPatience)) << store.problem();
    }
    EXPECT_THAT(Receivers(ContentOf(folder.path())), ElementsAre("112", "110"));
  }
}

/// Limits the size of the files that the process may write, as a quota does.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t octets) {
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &before_);
    const struct rlimit limit = {octets, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, SIG_DFL);
  }

 private:
  struct rlimit before_ {};
};

TEST(StoreOnAFullDisk, TakesALimitOfTheSystemForAFullDisk) {
  const test_support::TemporaryFolder folder;
  std::atomic<int> writes = 0;
  const ShimVfs counting([&](const DiskCall&) { return ++writes, SQLITE_OK; });
  Store store(folder.path(), "sms", Through(counting));
  WriteMessages(store, {"112"});
  {
    const FileSizeLimit limit(200000);
    std::vector<Change> changes;
    for (int i = 0; i < 5000; ++i) changes.emplace_back(NewMessage(store, "110"));
    store.Write(changes);
    EXPECT_THAT(ProblemOf(store), HasSubstr("is full"));
    const int first_attempt = writes;
    EXPECT_TRUE(WaitFor([&] { return writes >= 4 * first_attempt; }));
    EXPECT_THAT(store.problem(), HasSubstr("is full"));
  }
  EXPECT_TRUE(store.Flush(kPatience)) << store.problem();
}

/// A disk that does not answer until it is released.
class StalledDisk {
 public:
  ~StalledDisk() { Release(); }
  void Stall() { gate_.lock(); }
  void Release() {
    if (!released_.exchange(true)) gate_.unlock();
  }
  [[nodiscard]] StoreOptions options() const { return Through(vfs_); }
  [[nodiscard]] bool IsWaitedFor() const { return waiting_ > 0; }

 private:
  std::mutex gate_;
  std::atomic<bool> released_ = false;
  std::atomic<int> waiting_ = 0;
  ShimVfs vfs_{[this](const DiskCall&) {
    ++waiting_;
    { const std::scoped_lock wait(gate_); }
    --waiting_;
    return SQLITE_OK;
  }};
};

TEST(StoreOnAStalledDisk, MakesOnlyTheWriterWait) {
  const test_support::TemporaryFolder folder;
  StalledDisk disk;
  Store store(folder.path(), "sms", disk.options());
  WriteMessages(store, {"112"});
  disk.Stall();
  store.Write({NewMessage(store, "110")});
  ASSERT_TRUE(WaitFor([&] { return disk.IsWaitedFor(); }));
  std::uint64_t last = 0;
  for (int i = 0; i < 1000; ++i) {
    last = store.Write({NewMessage(store, "115")});
    EXPECT_FALSE(store.IsOnDisk(last));
    EXPECT_EQ(store.problem(), "");
    static_cast<void>(store.TakeContent());
    EXPECT_THAT(store.TakeRequests(), testing::IsEmpty());
    EXPECT_THAT(store.TakeNotices(), testing::IsEmpty());
  }
  EXPECT_TRUE(disk.IsWaitedFor());
  EXPECT_FALSE(store.Flush(std::chrono::milliseconds(5)));
  disk.Release();
  EXPECT_TRUE(store.Flush(kPatience));
  EXPECT_TRUE(store.IsOnDisk(last));
}

TEST(StoreOnAStalledDisk, IsMadeWithoutWaiting) {
  const test_support::TemporaryFolder folder;
  StalledDisk disk;
  disk.Stall();
  Store store(folder.path(), "sms", disk.options());
  store.Write({NewMessage(store, "110")});
  ASSERT_TRUE(WaitFor([&] { return disk.IsWaitedFor(); }));
  EXPECT_FALSE(store.loaded());
  disk.Release();
  EXPECT_TRUE(store.Flush(kPatience));
}

TEST(StoreOnAStalledDisk, ReportsItAfterAWhile) {
  const test_support::TemporaryFolder folder;
  StalledDisk disk;
  StoreOptions options = disk.options();
  options.stall = std::chrono::milliseconds(30);
  Store store(folder.path(), "sms", options);
  WriteMessages(store, {"112"});
  disk.Stall();
  store.Write({NewMessage(store, "110")});
  EXPECT_THAT(ProblemOf(store), AllOf(ContainsRegex("has not answered for [0-9]+ s"),
                                      HasSubstr(store.file().string())));
  disk.Release();
  EXPECT_TRUE(WaitFor([&] { return store.problem().empty(); }));
}

TEST(StoreOnAStalledDisk, EndsWithoutWaitingLong) {
  const test_support::TemporaryFolder folder;
  StalledDisk disk;
  StoreOptions options = disk.options();
  options.longest_end = std::chrono::milliseconds(20);
  {
    Store store(folder.path(), "sms", options);
    WriteMessages(store, {"112"});
    disk.Stall();
    store.Write({NewMessage(store, "110")});
    ASSERT_TRUE(WaitFor([&] { return disk.IsWaitedFor(); }));
  }
  EXPECT_TRUE(disk.IsWaitedFor());
  disk.Release();
  // The thread that was left behind still writes what it had; then it gives up the lock.
  EXPECT_THAT(Receivers(ContentOf(folder.path())), ElementsAre("112", "110"));
}

}  // namespace
}  // namespace messages
