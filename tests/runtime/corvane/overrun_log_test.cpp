// SPDX-License-Identifier: MIT
#include "runtime/corvane/overrun_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/captured_log.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::TakeLog;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(OverrunLog, ReportsTheFirstAtOnceAndTheOthersOnceAMinute) {
  TakeLog();
  OverrunLog log;
  const ScanClock::TimePoint start{};
  log.Note(3, start, milliseconds(153), milliseconds(100));
  EXPECT_THAT(TakeLog(), ElementsAre("warning overrun: cycle 3 ended 153ms after its start was "
                                     "due; the period is 100ms"));
  log.Note(4, start + seconds(1), milliseconds(900), milliseconds(100));
  log.Note(5, start + seconds(59), milliseconds(200), milliseconds(100));
  EXPECT_THAT(TakeLog(), IsEmpty());
  log.Note(6, start + seconds(60), milliseconds(300), milliseconds(100));
  EXPECT_THAT(
      TakeLog(),
      ElementsAre("warning 3 more overruns since the last such line; the longest cycle ended "
                  "900ms after its start was due; the period is 100ms"));
  log.Note(7, start + seconds(121), milliseconds(110), milliseconds(100));
  EXPECT_THAT(TakeLog(), ElementsAre("warning overrun: cycle 7 ended 110ms after its start was "
                                     "due; the period is 100ms"));
}

}  // namespace
}  // namespace corvane
