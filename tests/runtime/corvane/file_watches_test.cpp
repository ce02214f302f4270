// SPDX-License-Identifier: MIT
// Files that hang, vanish or are no files at all.
#include "runtime/corvane/file_watches.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <vector>

#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using test_support::WaitFor;

constexpr milliseconds kOften(10);

class ReadValueFileTest : public testing::Test {
 protected:
  FileContent Read(const std::string& name) const { return ReadValueFile(folder_.path() / name); }
  test_support::TemporaryFolder folder_;
};

TEST_F(ReadValueFileTest, GivesTheTextWithoutItsLastLineFeed) {
  const std::pair<std::string, std::string> rows[] = {
      {"45123\n", "45123"}, {"a\nb\n", "a\nb"},
      {"\n\n", "\n"},       {"", ""},
      {"x", "x"},           {std::string("a\0b", 3), std::string("a\0b", 3)}};
  for (const auto& [content, text] : rows) {
    folder_.Write("file", content);
    EXPECT_EQ(Read("file").text, text);
    EXPECT_EQ(Read("file").error, "");
  }
  EXPECT_NE(ReadValueFile("/proc/self/status").text, "") << "which does not tell its size";
}

TEST_F(ReadValueFileTest, RefusesWhatIsNotASmallFile) {
  EXPECT_EQ(Read("missing").error, "No such file or directory");
  EXPECT_EQ(Read(".").error, "it is a folder");
  mkfifo((folder_.path() / "fifo").c_str(), 0600);
  EXPECT_EQ(Read("fifo").error, "it is a device, a FIFO or a socket, not a file");
  EXPECT_EQ(ReadValueFile("/dev/zero").error, "it is a device, a FIFO or a socket, not a file");
  folder_.Write("largest", std::string(kLargestValueFile, 'x'));
  EXPECT_EQ(Read("largest").text.size(), kLargestValueFile);
  folder_.Write("huge", std::string(kLargestValueFile + 1, 'x'));
  EXPECT_EQ(Read("huge").error, "the file is larger than 64 KB");
  EXPECT_EQ(Read("huge").text, "");
}

TEST(FileWatchesTest, FollowAFileAsItChangesVanishesAndComesBack) {
  const test_support::TemporaryFolder folder;
  const std::string path = folder.Write("value", "1");
  FileWatches watches;
  const auto watch = watches.Add(path, kOften);
  ASSERT_TRUE(WaitFor([&] { return watch->value()->text == "1"; }));
  folder.Write("value", "2");
  ASSERT_TRUE(WaitFor([&] { return watch->value()->text == "2"; }));
  std::filesystem::remove(path);
  ASSERT_TRUE(WaitFor([&] { return !watch->value()->error.empty(); }));
  const auto last = watch->value();
  EXPECT_EQ(last->text, "2") << "the last value stays";
  EXPECT_TRUE(last->read.has_value());
  folder.Write("value", "3");
  ASSERT_TRUE(WaitFor([&] { return watch->value()->text == "3"; }));
  EXPECT_EQ(watch->value()->error, "");
  EXPECT_GT(*watch->value()->read, *last->read);
}

TEST(FileWatchesTest, AThousandFilesAreAllRead) {
  const test_support::TemporaryFolder folder;
  FileWatches watches;
  std::vector<std::shared_ptr<FileWatch>> all;
  for (int i = 0; i < 1000; ++i) {
    all.push_back(watches.Add(folder.Write(std::to_string(i), std::to_string(i)), kOften));
  }
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_TRUE(WaitFor([&] { return all[i]->value()->text == std::to_string(i); })) << i;
  }
}

/// Reads of these paths hang until the test lets them go.
class HangingReads {
 public:
  FileContent Read(const std::string& path) {
    std::unique_lock lock(mutex_);
    if (path.starts_with("hangs")) {
      ++hanging_;
      changed_.wait(lock, [this] { return free_; });
      --hanging_;
    }
    return {path, {}};
  }
  int hanging() {
    const std::lock_guard guard(mutex_);
    return hanging_;
  }
  void Free() {
    const std::lock_guard guard(mutex_);
    free_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool free_ = false;
  int hanging_ = 0;
};

TEST(FileWatchesTest, AReadThatHangsHoldsNoOtherUp) {
  const auto reads = std::make_shared<HangingReads>();
  FileWatches watches([reads](const std::string& path) { return reads->Read(path); });
  std::vector<std::shared_ptr<FileWatch>> all;
  for (int i = 0; i < 3; ++i) all.push_back(watches.Add("hangs" + std::to_string(i), kOften));
  const auto good = watches.Add("good", kOften);
  ASSERT_TRUE(WaitFor([&] { return good->value()->text == "good"; }));
  ASSERT_TRUE(WaitFor([&] { return reads->hanging() == 3; }));
  const auto last = *good->value()->read;
  EXPECT_TRUE(WaitFor([&] { return *good->value()->read > last; })) << "again and again";
  EXPECT_EQ(all[0]->value()->error, "it has not been read yet");
  reads->Free();
  EXPECT_TRUE(WaitFor([&] { return all[0]->value()->text == "hangs0"; }));
}

TEST(FileWatchesTest, TheEndWaitsForNoReadThatHangs) {
  const auto reads = std::make_shared<HangingReads>();
  {
    FileWatches watches([reads](const std::string& path) { return reads->Read(path); });
    const auto watch = watches.Add("hangs", kOften);
    ASSERT_TRUE(WaitFor([&] { return reads->hanging() == 1; }));
  }
  EXPECT_EQ(reads->hanging(), 1);
  reads->Free();
  EXPECT_TRUE(WaitFor([&] { return reads->hanging() == 0 && reads.use_count() == 1; }));
}

TEST(FileWatchesTest, AFileThatNobodyWatchesIsNotRead) {
  const auto count = std::make_shared<std::atomic<int>>(0);
  FileWatches watches([count](const std::string&) {
    ++*count;
    return FileContent{};
  });
  auto watch = watches.Add("file", kOften);
  ASSERT_TRUE(WaitFor([&] { return *count > 2; }));
  watch.reset();
  const auto other = watches.Add("other", std::chrono::hours(1));
  ASSERT_TRUE(WaitFor([&] { return other->value()->read.has_value(); }));
  const auto end = std::chrono::steady_clock::now() + 20 * kOften;
  int before = *count;
  ASSERT_TRUE(WaitFor([&] {
    if (std::chrono::steady_clock::now() < end - 10 * kOften) before = *count;
    return std::chrono::steady_clock::now() > end;
  }));
  EXPECT_EQ(*count, before);
}

}  // namespace
}  // namespace corvane
