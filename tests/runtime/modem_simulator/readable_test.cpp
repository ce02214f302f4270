// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/readable.h"

#include <gtest/gtest.h>

namespace modem_simulator {
namespace {

TEST(Readable, KeepsTextOnOneLine) {
  EXPECT_EQ(Escape("a\r\nb\tc\\d\x1A Grüße"), "a\\r\\nb\\tc\\\\d\\x1A Grüße");
}

TEST(Readable, EveryByteRoundTrips) {
  std::string all;
  for (int value = 0; value <= 0xFF; ++value) all += static_cast<char>(value);
  EXPECT_EQ(Unescape(Escape(all)), all);
}

TEST(Readable, RefusesABackslashThatStartsNothing) {
  for (const char* text : {"\\", "a\\", "\\q", "\\x", "\\x1", "\\xZZ"}) {
    EXPECT_EQ(Unescape(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace modem_simulator
