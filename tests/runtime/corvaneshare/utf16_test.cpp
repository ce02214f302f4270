// SPDX-License-Identifier: MIT
#include "share/utf16.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Converted {
  int result;
  std::vector<unsigned char> octets;
};

Converted Convert(const std::string& text, int capacity = 2000) {
  // One octet more than the room, to see that it stays.
  std::vector<unsigned char> target(static_cast<std::size_t>(capacity) * 2 + 1, 0xEE);
  const int result =
      convert_utf8_to_utf16(text.data(), static_cast<int>(text.size()), target.data(), capacity, 0);
  EXPECT_EQ(target.back(), 0xEE);
  target.resize(result > 0 ? static_cast<std::size_t>(result) : 0);
  return {result, target};
}

TEST(Utf16, PutsTheHighOctetFirst) {
  EXPECT_EQ(Convert("Aё€").octets,
            (std::vector<unsigned char>{0x00, 0x41, 0x04, 0x51, 0x20, 0xAC}));
}

TEST(Utf16, BeyondTheBasicPlaneNeedsASurrogatePair) {
  EXPECT_EQ(Convert("😀").octets, (std::vector<unsigned char>{0xD8, 0x3D, 0xDE, 0x00}));
  EXPECT_EQ(Convert("😁").octets, (std::vector<unsigned char>{0xD8, 0x3D, 0xDE, 0x01}));
  EXPECT_EQ(Convert("🚰").octets, (std::vector<unsigned char>{0xD8, 0x3D, 0xDE, 0xB0}));
  EXPECT_EQ(Convert("𐀀").octets, (std::vector<unsigned char>{0xD8, 0x00, 0xDC, 0x00}));
  EXPECT_EQ(Convert("\U000103FF").octets, (std::vector<unsigned char>{0xD8, 0x00, 0xDF, 0xFF}));
  EXPECT_EQ(Convert("\U0010FFFF").octets, (std::vector<unsigned char>{0xDB, 0xFF, 0xDF, 0xFF}));
}

TEST(Utf16, AnEmptyTextYieldsNothing) {
  EXPECT_EQ(Convert("").result, 0);
}

TEST(Utf16, ANulIsACharacter) {
  EXPECT_EQ(Convert(std::string("a\0b", 3)).octets,
            (std::vector<unsigned char>{0, 'a', 0, 0, 0, 'b'}));
}

TEST(Utf16, InvalidUtf8IsAFailureThatSurvivesHalving) {
  for (const std::string& text :
       {std::string("\xFF"), std::string("\xC3"), std::string("a\x80"), std::string("\xED\xA0\x80"),
        std::string("\xF5\x80\x80\x80"), std::string("\xC0\x80")}) {
    const int result = Convert(text).result;
    EXPECT_LT(result / 2, 0) << testing::PrintToString(text);
  }
}

TEST(Utf16, TextThatFillsOrExceedsTheBufferReturnsItsFullSize) {
  EXPECT_EQ(Convert(std::string(1999, 'x')).result, 3998);
  EXPECT_EQ(Convert(std::string(2000, 'x')).result, 4000);
  EXPECT_EQ(Convert(std::string(5000, 'x')).result, 4000);
  EXPECT_EQ(Convert("abc", 2).octets, (std::vector<unsigned char>{0, 'a', 0, 'b'}));
}

TEST(Utf16, InvalidUtf8BeyondTheBufferIsAlsoAFailure) {
  EXPECT_LT(Convert(std::string(3000, 'x') + "\xFF").result, -1);
}

TEST(Utf16, InvalidArgumentsAreAFailure) {
  unsigned char octet = 0;
  EXPECT_LT(convert_utf8_to_utf16(nullptr, 1, &octet, 1, 0), -1);
  EXPECT_LT(convert_utf8_to_utf16("a", 1, nullptr, 1, 0), -1);
  EXPECT_LT(convert_utf8_to_utf16("a", -1, &octet, 1, 0), -1);
}

}  // namespace
