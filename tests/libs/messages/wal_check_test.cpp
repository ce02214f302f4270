// SPDX-License-Identifier: MIT
#include "libs/messages/wal_check.h"

#include <SQLiteCpp/Database.h>
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

#include "tests/libs/messages/store_tools.h"

namespace messages {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr std::size_t kFrame = 24 + 4096;
constexpr std::size_t kHeader = 32;

/// A database with ten transactions in its log, as a killed program leaves it.
class WalCheck : public testing::Test {
 protected:
  void SetUp() override {
    const fs::path original = folder_.path() / "original.db";
    SQLite::Database database(original.string(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    database.exec("PRAGMA journal_mode=WAL; CREATE TABLE t (i INTEGER)");
    for (int i = 0; i < 10; ++i) database.exec("INSERT INTO t VALUES (1)");
    fs::copy_file(original.string() + "-wal", log());
    content_ = FileContent(log());
    ASSERT_GT(content_.size(), kHeader + 10 * kFrame);
  }
  [[nodiscard]] fs::path log() const { return folder_.path() / "copy-wal"; }
  [[nodiscard]] std::size_t frames() const { return (content_.size() - kHeader) / kFrame; }
  /// With one octet of it changed.
  bool IsLostWith(std::size_t at) {
    std::string damaged = content_;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x55);
    SetFileContent(log(), damaged);
    return LostTransactions(log());
  }

  std::string content_;

 private:
  test_support::TemporaryFolder folder_;
};

TEST_F(WalCheck, FindsNothingInAnIntactLog) {
  EXPECT_FALSE(LostTransactions(log()));
}

TEST_F(WalCheck, FindsNothingInAMissingOrEmptyLog) {
  SetFileContent(log(), "");
  EXPECT_FALSE(LostTransactions(log()));
  fs::remove(log());
  EXPECT_FALSE(LostTransactions(log()));
}

TEST_F(WalCheck, TakesALogThatWasCutForAnInterruptedTransaction) {
  for (std::size_t size = 1; size < content_.size(); size += 997) {
    SetFileContent(log(), content_.substr(0, size));
    EXPECT_FALSE(LostTransactions(log())) << size;
  }
}

TEST_F(WalCheck, TakesADamagedEndForAnInterruptedTransaction) {
  EXPECT_FALSE(IsLostWith(content_.size() - 1));
}

TEST_F(WalCheck, FindsADamagedOctetAnywhereElse) {
  for (std::size_t frame = 0; frame + 2 < frames(); ++frame) {
    const std::size_t begin = kHeader + frame * kFrame;
    EXPECT_TRUE(IsLostWith(begin)) << "page number of frame " << frame;
    EXPECT_TRUE(IsLostWith(begin + 9)) << "salt of frame " << frame;
    EXPECT_TRUE(IsLostWith(begin + 17)) << "checksum of frame " << frame;
    EXPECT_TRUE(IsLostWith(begin + 24 + 2000)) << "page of frame " << frame;
  }
}

TEST_F(WalCheck, FindsADamagedHeader) {
  for (std::size_t at = 0; at < kHeader; ++at) EXPECT_TRUE(IsLostWith(at)) << at;
}

TEST_F(WalCheck, IgnoresWhatAnEarlierLogLeft) {
  std::string older = content_.substr(kHeader, 5 * kFrame);
  for (std::size_t frame = 0; frame < 5; ++frame) older[frame * kFrame + 8] ^= 1;  // its salt
  SetFileContent(log(), content_ + older);
  EXPECT_FALSE(LostTransactions(log()));
}

TEST_F(WalCheck, GoesOnWithWhatIsIntactAndKeepsACopy) {
  const test_support::TemporaryFolder folder;
  const fs::path file = folder.path() / "messages.db";
  std::string damaged;
  {
    Store store(folder.path(), "sms", Quick());
    for (int i = 0; i < 20; ++i) WriteMessages(store, {std::to_string(i)});
    fs::copy_file(file, folder.path() / "copy");
    damaged = FileContent(file.string() + "-wal");
  }
  fs::rename(folder.path() / "copy", file);
  damaged.at(damaged.size() / 2) ^= 1;
  SetFileContent(file.string() + "-wal", damaged);
  {
    Store store(folder.path(), "sms", Quick());
    const auto receivers = Receivers(LoadedFrom(store));
    EXPECT_LT(receivers.size(), 20U);
    for (std::size_t i = 0; i < receivers.size(); ++i) EXPECT_EQ(receivers[i], std::to_string(i));
    EXPECT_THAT(store.TakeNotices(), ElementsAre(HasSubstr("its last changes are lost")));
  }
  const auto kept = NamesThatBeginWith(folder.path(), "messages.db.damaged-");
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_EQ(FileContent(folder.path() / kept.front()), damaged);
  Store again(folder.path(), "sms", Quick());
  static_cast<void>(LoadedFrom(again));
  EXPECT_THAT(again.TakeNotices(), testing::IsEmpty());
}

}  // namespace
}  // namespace messages
