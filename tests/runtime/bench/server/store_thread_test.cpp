// SPDX-License-Identifier: MIT
#include "runtime/bench/server/store_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "tests/support/wait_for.h"

namespace {

using corvane::bench::StoreThread;
using messages::StoreView;
using namespace std::chrono_literals;

/// What a test can hold back: a disk that does not answer.
class Disk {
 public:
  int Read() {
    std::unique_lock lock(mutex_);
    ++waiting_;
    changed_.wait(lock, [this] { return answers_; });
    return --waiting_;
  }
  void Answer() {
    const std::scoped_lock lock(mutex_);
    answers_ = true;
    changed_.notify_all();
  }
  int waiting() {
    const std::scoped_lock lock(mutex_);
    return waiting_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool answers_ = false;
  int waiting_ = 0;
};

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "none";
}

TEST(StoreThreadTest, WithoutAFileThereIsNoStore) {
  StoreThread store("/none/messages.db");
  EXPECT_TRUE(store.Ask([](const StoreView* view) { return view == nullptr; }));
}

TEST(StoreThreadTest, PassesErrorsOn) {
  StoreThread store("/none/messages.db");
  EXPECT_EQ(
      ErrorOf([&] { store.Ask([](StoreView*) -> int { throw std::runtime_error("torn"); }); }),
      "torn");
  EXPECT_EQ(store.Ask([](StoreView*) { return 5; }), 5);
}

TEST(StoreThreadTest, ADiskThatDoesNotAnswerIsAnErrorUntilItAnswers) {
  const auto disk = std::make_shared<Disk>();
  StoreThread store("/none/messages.db", 20ms);
  const auto read = [disk](StoreView*) { return disk->Read(); };
  constexpr const char* kSilent = "the disk with the store of messages does not answer";
  EXPECT_EQ(ErrorOf([&] { store.Ask(read); }), kSilent);
  EXPECT_EQ(ErrorOf([&] { store.Ask(read); }), kSilent);
  EXPECT_EQ(disk->waiting(), 1) << "only one waits for it";
  disk->Answer();
  EXPECT_TRUE(test_support::WaitFor([&] { return ErrorOf([&] { store.Ask(read); }) == "none"; }));
}

TEST(StoreThreadTest, TheEndDoesNotWaitForADiskThatDoesNotAnswer) {
  const auto disk = std::make_shared<Disk>();
  {
    StoreThread store("/none/messages.db", 20ms);
    EXPECT_NE(ErrorOf([&] { store.Ask([disk](StoreView*) { return disk->Read(); }); }), "none");
  }
  EXPECT_EQ(disk->waiting(), 1) << "it has been left behind";
  disk->Answer();
  EXPECT_TRUE(test_support::WaitFor([&] { return disk.use_count() == 1; }));
}

}  // namespace
