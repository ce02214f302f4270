// SPDX-License-Identifier: MIT
#include "libs/messages/sent_keys.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::chrono_literals;
using messages::SentKeys;
using messages::SteadyTime;

TEST(SentKeys, KnowAKeyUntilThePeriodIsOver) {
  SentKeys keys;
  const SteadyTime start{};
  keys.Add("heartbeat", start);
  EXPECT_TRUE(keys.SentWithin("heartbeat", 24h, start + 24h - 1ms));
  EXPECT_FALSE(keys.SentWithin("heartbeat", 24h, start + 24h));
  EXPECT_FALSE(keys.SentWithin("alarm", 24h, start));
}

TEST(SentKeys, CountFromTheLastTimeAKeyWasSent) {
  SentKeys keys;
  const SteadyTime start{};
  keys.Add("heartbeat", start);
  keys.Add("heartbeat", start + 2h);
  keys.Add("heartbeat", start + 1h);  // as loaded, in any order
  EXPECT_TRUE(keys.SentWithin("heartbeat", 1h, start + 3h - 1ms));
}

TEST(SentKeys, ForgetAKeyAfterThirtyDays) {
  SentKeys keys;
  const SteadyTime start{};
  keys.Add("old", start);
  keys.Add("new", start + std::chrono::days(31));
  EXPECT_FALSE(keys.SentWithin("old", std::chrono::days(365), start + std::chrono::days(31)));
  EXPECT_TRUE(keys.SentWithin("new", 1h, start + std::chrono::days(31)));
}

TEST(SentKeys, KeepAHundredThousand) {
  SentKeys keys;
  const SteadyTime start{};
  for (int i = 0; i <= 100'000; ++i) keys.Add(std::to_string(i), start + i * 1ms);
  EXPECT_FALSE(keys.SentWithin("0", 1h, start + 101s));
  EXPECT_TRUE(keys.SentWithin("1", 1h, start + 101s));
  EXPECT_TRUE(keys.SentWithin("100000", 1h, start + 101s));
}

TEST(SentKeys, AKeySentAgainOutlivesItsFirstEntry) {
  SentKeys keys;
  const SteadyTime start{};
  keys.Add("daily", start);
  keys.Add("daily", start + std::chrono::days(20));
  keys.Add("other", start + std::chrono::days(31));
  EXPECT_TRUE(keys.SentWithin("daily", std::chrono::days(12), start + std::chrono::days(31)));
}

}  // namespace
