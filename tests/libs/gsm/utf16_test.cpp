// SPDX-License-Identifier: MIT
#include "libs/gsm/utf16.h"

#include <gtest/gtest.h>

namespace gsm {
namespace {

TEST(Utf16, PutsTheHighOctetFirst) {
  EXPECT_EQ(EncodeUtf16(U'€'), (Octets{0x20, 0xAC}));
}

TEST(Utf16, NeedsTwoUnitsAboveTheBasicPlane) {
  EXPECT_EQ(EncodeUtf16(U'😀'), (Octets{0xD8, 0x3D, 0xDE, 0x00}));
  EXPECT_EQ(DecodeUtf16(Octets{0xD8, 0x3D, 0xDE, 0x00}), "😀");
}

TEST(Utf16, ReplacesASurrogateWithoutItsOtherHalf) {
  EXPECT_EQ(DecodeUtf16(Octets{0xD8, 0x3D}), "\uFFFD");
  EXPECT_EQ(DecodeUtf16(Octets{0xDE, 0x00, 0x00, 0x41}), "\uFFFDA");
  EXPECT_EQ(DecodeUtf16(Octets{0xD8, 0x3D, 0xD8, 0x3D, 0xDE, 0x00}), "\uFFFD😀");
}

TEST(Utf16, ReplacesALastOddOctet) {
  EXPECT_EQ(DecodeUtf16(Octets{0x00, 0x41, 0x42}), "A\uFFFD");
}

TEST(Utf16, RefusesTextThatIsNotUtf8) {
  EXPECT_EQ(CodePoints("\xC3("), std::nullopt);
  EXPECT_EQ(CodePoints("\xED\xA0\x80"), std::nullopt) << "a surrogate is not a character";
  EXPECT_EQ(CodePoints("Grüße"), U"Grüße");
}

TEST(Utf16, EveryCharacterRoundTrips) {
  for (char32_t character = 0; character <= 0x10FFFF; character += 0x61) {
    if (character >= 0xD800 && character <= 0xDFFF) continue;
    EXPECT_EQ(CodePoints(DecodeUtf16(EncodeUtf16(character))), std::u32string(1, character));
  }
}

}  // namespace
}  // namespace gsm
