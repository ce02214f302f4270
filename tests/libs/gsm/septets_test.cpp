// SPDX-License-Identifier: MIT
#include "libs/gsm/septets.h"

#include <gtest/gtest.h>

#include "libs/gsm/hexadecimal.h"

namespace gsm {
namespace {

Octets Characters(std::string_view text) {
  return {text.begin(), text.end()};
}

TEST(Septets, PackHelloAsEveryModemDoes) {
  EXPECT_EQ(ToHexadecimal(PackSeptets(Characters("hello"))), "E8329BFD06");
}

TEST(Septets, EightCharactersFillSevenOctets) {
  const Octets packed = PackSeptets(Characters("12345678"));
  EXPECT_EQ(ToHexadecimal(packed), "31D98C56B3DD70");
  EXPECT_EQ(UnpackSeptets(packed, 8), Characters("12345678"));
}

TEST(Septets, RoundTripForEveryLengthAndFill) {
  for (unsigned fill = 0; fill < 7; ++fill) {
    for (std::size_t length = 0; length <= 160; ++length) {
      Octets septets;
      for (std::size_t i = 0; i < length; ++i) {
        septets.push_back(static_cast<std::uint8_t>((i * 37 + length) & 0x7F));
      }
      const Octets packed = PackSeptets(septets, fill);
      EXPECT_EQ(packed.size(), (length * 7 + fill + 7) / 8) << length << " after " << fill;
      EXPECT_EQ(UnpackSeptets(packed, length, fill), septets) << length << " after " << fill;
    }
  }
}

TEST(Septets, EndWhereTheOctetsEnd) {
  EXPECT_EQ(UnpackSeptets(Octets{0xFF}, 100).size(), 1u);
  EXPECT_TRUE(UnpackSeptets({}, 100).empty());
  EXPECT_TRUE(UnpackSeptets(Octets{0xFF}, 1, 2).empty());
}

}  // namespace
}  // namespace gsm
