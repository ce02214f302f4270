// SPDX-License-Identifier: MIT
#include "runtime/bench/server/modem_facts.h"

#include <gtest/gtest.h>

namespace corvane::bench {
namespace {

TEST(ModemFactsTest, ReadsSignalRegistrationAndOperator) {
  ModemFacts facts;
  EXPECT_FALSE(facts.signal());
  facts.Take("+CSQ: 20,99");
  facts.Take("+CREG: 0,5");
  facts.Take("+COPS: 0,0,\"Operator One\",7");
  EXPECT_EQ(facts.signal(), -73);
  EXPECT_EQ(facts.registration(), "roaming");
  EXPECT_EQ(facts.network(), "Operator One");
}

TEST(ModemFactsTest, AnAnnouncementHasNoSetting) {
  ModemFacts facts;
  facts.Take("+CREG: 2");
  EXPECT_EQ(facts.registration(), "searching");
  facts.Take("+CREG: 1,\"00C3\",\"1234\"");
  EXPECT_EQ(facts.registration(), "home");
}

TEST(ModemFactsTest, WhatIsUnknownIsNotKept) {
  ModemFacts facts;
  facts.Take("+CSQ: 20,99");
  facts.Take("+COPS: 0,0,\"X\"");
  facts.Take("+CSQ: 99,99");
  facts.Take("+COPS: 0");
  facts.Take("OK");
  facts.Take("+CSQ:");
  EXPECT_FALSE(facts.signal());
  EXPECT_EQ(facts.network(), "");
}

}  // namespace
}  // namespace corvane::bench
