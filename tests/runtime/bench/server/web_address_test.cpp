// SPDX-License-Identifier: MIT
#include "runtime/bench/server/web_address.h"

#include <gtest/gtest.h>

namespace corvane::bench {
namespace {

TEST(WebAddressTest, APortAloneIsForThisMachine) {
  const WebAddress address = ParseWebAddress("8080");
  EXPECT_EQ(address.Text(), "127.0.0.1:8080");
  EXPECT_TRUE(address.IsLoopback());
}

TEST(WebAddressTest, KnowsWhatOtherMachinesReach) {
  EXPECT_TRUE(ParseWebAddress("localhost:80").IsLoopback());
  EXPECT_TRUE(ParseWebAddress("[::1]:80").IsLoopback());
  EXPECT_TRUE(ParseWebAddress("127.3.2.1:80").IsLoopback());
  EXPECT_FALSE(ParseWebAddress("0.0.0.0:80").IsLoopback());
  EXPECT_FALSE(ParseWebAddress("[::]:80").IsLoopback());
  EXPECT_EQ(ParseWebAddress("[::]:80").Text(), "[::]:80");
}

TEST(WebAddressTest, RefusesEverythingElse) {
  for (const char* const text : {"", ":", "80 ", "-1", "65536", "x:80", "::1:80", "[1.2.3.4]:80",
                                 "1.2.3.4:", "example.org:80", "[::1]", "1.2.3.4:80:80"}) {
    EXPECT_THROW((void)ParseWebAddress(text), BenchError) << text;
  }
}

}  // namespace
}  // namespace corvane::bench
