// SPDX-License-Identifier: MIT
// A program is killed at any moment: what it had reported to be on the disk is there afterwards,
// and every batch is whole. The program is store_child.cpp.
#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "tests/libs/messages/batches.h"
#include "tests/libs/messages/store_tools.h"
#include "tests/support/command.h"

namespace messages {
namespace {

using std::chrono::microseconds;

/// The last number in a text with one a line, without a line that was cut off; or 0.
int LastReported(const std::string& out) {
  std::istringstream lines(out.substr(0, out.rfind('\n') + 1));
  int last = 0;
  while (lines >> last) {
  }
  return last;
}

TEST(StoreAfterAKill, HasAllThatWasReportedAndOnlyWholeBatches) {
  constexpr int kRounds = 200 / CORVANE_TEST_TIME_FACTOR;
  const test_support::TemporaryFolder folder;
  std::mt19937 random(11);  // NOLINT(cert-msc51-cpp): the same each time
  int reached = 0;
  int working = 0;
  for (int round = 0; round < kRounds; ++round) {
    test_support::Command child({CORVANE_STORE_CHILD, folder.path().string()});
    // Half of them while it opens the store, half while it writes.
    if (round % 2 == 0) test_support::WaitFor([&] { return !child.out().empty(); });
    std::this_thread::sleep_for(CORVANE_TEST_TIME_FACTOR * microseconds(random() % 60000));
    child.Signal(SIGKILL);
    const int reported = LastReported(child.Wait().out);
    if (reported > 0) ++working;

    Store store(folder.path(), "sms", Quick());
    const int batch = WholeBatch(LoadedFrom(store).waiting);
    ASSERT_GE(batch, std::max(reported, reached)) << "round " << round;
    ASSERT_THAT(store.TakeNotices(), testing::IsEmpty()) << "round " << round;
    reached = batch;
  }
  EXPECT_GE(working, kRounds / 2);
  EXPECT_GT(reached, kRounds);
}

}  // namespace
}  // namespace messages
