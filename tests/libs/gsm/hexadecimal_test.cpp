// SPDX-License-Identifier: MIT
#include "libs/gsm/hexadecimal.h"

#include <gtest/gtest.h>

namespace gsm {
namespace {

TEST(Hexadecimal, WritesUpperCaseAndReadsBothCases) {
  EXPECT_EQ(ToHexadecimal(Octets{0x00, 0xAB, 0xFF}), "00ABFF");
  EXPECT_EQ(FromHexadecimal("00abFF"), (Octets{0x00, 0xAB, 0xFF}));
  EXPECT_EQ(FromHexadecimal(""), Octets{});
}

TEST(Hexadecimal, RefusesAnOddNumberOfDigitsAndOtherCharacters) {
  for (const char* text : {"0", "0G", "g0", "0 ", "-1", "\x80\x80"}) {
    EXPECT_EQ(FromHexadecimal(text), std::nullopt) << text;
  }
}

TEST(Hexadecimal, EveryOctetRoundTrips) {
  for (int value = 0; value <= 0xFF; ++value) {
    const Octets octet{static_cast<std::uint8_t>(value)};
    EXPECT_EQ(FromHexadecimal(ToHexadecimal(octet)), octet);
  }
}

}  // namespace
}  // namespace gsm
