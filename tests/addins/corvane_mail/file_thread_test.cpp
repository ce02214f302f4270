// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/file_thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <csignal>
#include <future>
#include <vector>

#include "tests/support/wait_for.h"

namespace corvane_mail {
namespace {

using test_support::kPatience;

TEST(FileThread, DoesOnePieceOfWorkAfterTheOther) {
  FileThread thread;
  auto numbers = std::make_shared<std::vector<int>>();
  auto done = std::make_shared<std::promise<void>>();
  for (int i = 0; i < 100; ++i) thread.Post([numbers, i] { numbers->push_back(i); });
  thread.Post([done] { done->set_value(); });
  ASSERT_EQ(done->get_future().wait_for(kPatience), std::future_status::ready);
  ASSERT_EQ(numbers->size(), 100U);
  EXPECT_TRUE(std::ranges::is_sorted(*numbers));
}

TEST(FileThread, LeavesWhatHasBegunBehindAndDropsTheRest) {
  auto begun = std::make_shared<std::promise<void>>();
  auto disk = std::make_shared<std::promise<void>>();
  auto ended = std::make_shared<std::promise<void>>();
  auto dropped = std::make_shared<int>(0);
  {
    FileThread thread;
    thread.Post([begun, disk, ended] {
      begun->set_value();
      disk->get_future().wait();
      ended->set_value();
    });
    ASSERT_EQ(begun->get_future().wait_for(kPatience), std::future_status::ready);
    thread.Post([dropped] { ++*dropped; });
  }  // does not wait for the disk
  disk->set_value();
  EXPECT_EQ(ended->get_future().wait_for(kPatience), std::future_status::ready);
  EXPECT_TRUE(test_support::WaitFor([&dropped] { return dropped.use_count() == 1; }))
      << "the thread is gone, with what it had";
  EXPECT_EQ(*dropped, 0);
}

TEST(FileThread, LeavesSignalsToOthersAndHasAName) {
  struct Found {
    sigset_t blocked;
    std::array<char, 16> name;
  };
  FileThread thread;
  auto promise = std::make_shared<std::promise<Found>>();
  thread.Post([promise] {
    Found found{};
    pthread_sigmask(SIG_BLOCK, nullptr, &found.blocked);
    pthread_getname_np(pthread_self(), found.name.data(), found.name.size());
    promise->set_value(found);
  });
  auto future = promise->get_future();
  ASSERT_EQ(future.wait_for(kPatience), std::future_status::ready);
  const Found found = future.get();
  EXPECT_EQ(sigismember(&found.blocked, SIGTERM), 1);
  EXPECT_EQ(sigismember(&found.blocked, SIGINT), 1);
  EXPECT_STREQ(found.name.data(), "mail-files");
}

}  // namespace
}  // namespace corvane_mail
