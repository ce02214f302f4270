// SPDX-License-Identifier: MIT
#include "runtime/bench/server/log_tap.h"

#include <gtest/gtest.h>
#include <spdlog/logger.h>

#include <memory>
#include <string>

namespace {

using corvane::bench::LogTap;

class LogTapTest : public testing::Test {
 protected:
  const std::shared_ptr<LogTap> tap_ = std::make_shared<LogTap>();
  spdlog::logger log_{"log", tap_};
};

TEST_F(LogTapTest, GivesEachLineOnceToWhoAsksFromWhereHeWas) {
  log_.info("one");
  log_.warn("two");
  const LogTap::Part first = tap_->From(0);
  ASSERT_EQ(first.lines.size(), 2U);
  EXPECT_EQ(first.lines[1].text, "two");
  EXPECT_EQ(first.lines[1].level, spdlog::level::warn);
  EXPECT_GT(first.lines[1].time, 1.7e9);
  EXPECT_TRUE(tap_->From(first.next).lines.empty());
  log_.info("three");
  const LogTap::Part second = tap_->From(first.next);
  ASSERT_EQ(second.lines.size(), 1U);
  EXPECT_EQ(second.lines[0].text, "three");
}

TEST_F(LogTapTest, KeepsTheLastLinesAndCountsTheOthers) {
  for (std::size_t i = 0; i < LogTap::kLines + 7; ++i) log_.info("{}", i);
  const LogTap::Part all = tap_->From(0);
  EXPECT_EQ(all.dropped, 7U);
  ASSERT_EQ(all.lines.size(), LogTap::kLines);
  EXPECT_EQ(all.lines.front().text, "7");
  EXPECT_EQ(tap_->From(5).dropped, 2U);
  EXPECT_EQ(tap_->From(7).dropped, 0U);
}

TEST_F(LogTapTest, ShowsNoControlCharacterAndCutsLongLines) {
  log_.info("a\x1B[31m\nb");
  log_.info("{}", std::string(LogTap::kLongestLine + 1, 'x'));
  const LogTap::Part part = tap_->From(0);
  EXPECT_EQ(part.lines.at(0).text, "a\\x1B[31m\\nb");
  EXPECT_EQ(part.lines.at(1).text, std::string(LogTap::kLongestLine, 'x') + "...");
}

TEST_F(LogTapTest, FromALineThatIsStillToComeGivesNothing) {
  log_.info("one");
  const LogTap::Part part = tap_->From(9);
  EXPECT_TRUE(part.lines.empty());
  EXPECT_EQ(part.next, 1U);
}

}  // namespace
