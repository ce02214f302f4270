// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/sms.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/support/deliver_pdu.h"

namespace {

using Bytes = std::vector<unsigned char>;

Bytes FromHex(const std::string& hex) {
  Bytes octets(hex.size() / 2);
  sms::pdu_hex2bytes(reinterpret_cast<const unsigned char*>(hex.data()),
                     static_cast<unsigned>(hex.size()), octets.data());
  return octets;
}

TEST(HexToBytes, ReadsPairsWithTheHighHalfFirst) {
  EXPECT_EQ(FromHex("0123456789ABCDEFabcdef"),
            (Bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xAB, 0xCD, 0xEF}));
}

TEST(HexToBytes, TreatsAnyOtherCharacterAsZero) {
  EXPECT_EQ(FromHex("G1 2:3@4`5/6"), (Bytes{0x01, 0x02, 0x03, 0x04, 0x05, 0x06}));
  EXPECT_EQ(FromHex(std::string("\0\xFF", 2)), Bytes{0x00});
}

TEST(HexToBytes, ConvertsNothingBelowTwoCharactersAndIgnoresAnOddLastOne) {
  std::array<unsigned char, 2> out = {0x77, 0x77};
  const unsigned char hex[] = {'1', '2', '3'};
  sms::pdu_hex2bytes(hex, 0, out.data());
  sms::pdu_hex2bytes(hex, 1, out.data());
  EXPECT_EQ(out[0], 0x77);
  sms::pdu_hex2bytes(hex, 3, out.data());
  EXPECT_EQ(out[0], 0x12);
  EXPECT_EQ(out[1], 0x77);
}

TEST(HexToString, WritesTwoUpperCaseCharactersAndNothingElse) {
  for (int value = 0; value <= 0xFF; ++value) {
    char out[] = "...";
    sms::HexToString(static_cast<unsigned char>(value), out);
    EXPECT_EQ(out, test_support::Hex({static_cast<unsigned char>(value)}) + ".");
  }
}

TEST(TextToAscii, WritesEveryByteAndNoNul) {
  char out[] = ".....";
  sms::TextToAscii({0x0A, 0xFF}, out);
  EXPECT_STREQ(out, "0AFF.");
}

TEST(TextToAscii, WritesNothingForAnEmptyVector) {
  char out[] = ".";
  sms::TextToAscii({}, out);
  EXPECT_STREQ(out, ".");
}

TEST(TextToAscii, IsUndoneByHexToBytesForEveryByte) {
  Bytes all(256);
  for (unsigned i = 0; i < 256; ++i) all[i] = static_cast<unsigned char>(i);
  std::string hex(512, '.');
  sms::TextToAscii(all, hex.data());
  EXPECT_EQ(FromHex(hex), all);
}

/// The UTF-8 form of one code unit.
std::string Utf8(unsigned unit) {
  std::string text;
  sms::ucs2_to_utf8(static_cast<unsigned short>(unit), text);
  return text;
}

TEST(Ucs2ToUtf8, WritesOneTwoOrThreeBytes) {
  EXPECT_EQ(Utf8(0x0000), std::string(1, '\0'));
  EXPECT_EQ(Utf8(0x0041), "A");
  EXPECT_EQ(Utf8(0x007F), "\x7F");
  EXPECT_EQ(Utf8(0x0080), "\xC2\x80");
  EXPECT_EQ(Utf8(0x0416), "\xD0\x96");
  EXPECT_EQ(Utf8(0x07FF), "\xDF\xBF");
  EXPECT_EQ(Utf8(0x0800), "\xE0\xA0\x80");
  EXPECT_EQ(Utf8(0x20AC), "\xE2\x82\xAC");
  EXPECT_EQ(Utf8(0xD7FF), "\xED\x9F\xBF");
  EXPECT_EQ(Utf8(0xE000), "\xEE\x80\x80");
  EXPECT_EQ(Utf8(0xFFFE), "\xEF\xBF\xBE");
}

TEST(Ucs2ToUtf8, DropsSurrogatesAndTheLastCodeUnit) {
  for (unsigned unit = 0xD800; unit <= 0xDFFF; ++unit) EXPECT_EQ(Utf8(unit), "") << unit;
  EXPECT_EQ(Utf8(0xFFFF), "");
}

TEST(Ucs2ToUtf8, AppendsToWhatIsAlreadyThere) {
  std::string text = "a";
  sms::ucs2_to_utf8('b', text);
  EXPECT_EQ(text, "ab");
}

std::string Text(const Bytes& octets, bool big_endian) {
  return sms::s_ucs2_to_utf8(octets.begin(), octets.end(), big_endian);
}

TEST(Ucs2Text, HasTheHighOctetFirstOrLast) {
  EXPECT_EQ(Text({0x04, 0x16, 0x00, 0x41}, true),
            "\xD0\x96"
            "A");
  EXPECT_EQ(Text({0x16, 0x04, 0x41, 0x00}, false),
            "\xD0\x96"
            "A");
}

TEST(Ucs2Text, OfAnOddLengthIsAnErrorText) {
  EXPECT_EQ(Text({0x00}, true), "ERROR PARSE PDU");
  EXPECT_EQ(Text({0x00, 0x41, 0x00}, false), "ERROR PARSE PDU");
}

TEST(Ucs2Text, OfNoOctetsIsEmpty) {
  EXPECT_EQ(Text({}, true), "");
}

TEST(Ucs2Text, DoesNotCombineSurrogatePairs) {
  EXPECT_EQ(Text({0xD8, 0x3D, 0xDE, 0x00, 0x00, 0x21}, true), "!");
}

std::string Unpack(const Bytes& octets) {
  return sms::DecodeTextMessage(octets.begin(), octets.end());
}

TEST(SeptetUnpacking, ReturnsEveryTextOfUpToSixCharacters) {
  EXPECT_EQ(Unpack({}), "");
  EXPECT_EQ(Unpack({0xE8, 0x32, 0x9B, 0xFD, 0x06}), "hello");
  EXPECT_EQ(Unpack(test_support::Pack("abcdef")), "abcdef");
}

TEST(SeptetUnpacking, OfSevenOctetsYieldsEightCharacters) {
  EXPECT_EQ(Unpack(test_support::Pack("abcdefgh")), "abcdefgh");
  EXPECT_EQ(Unpack(test_support::Pack("abcdefg")), std::string("abcdefg\0", 8));
}

TEST(SeptetUnpacking, OfAnyLengthYieldsEightCharactersForEverySevenOctets) {
  for (std::size_t octets = 0; octets <= 300; ++octets) {
    const Bytes all_ones(octets, 0xFF);
    const std::string text = Unpack(all_ones);
    EXPECT_EQ(text.size(), octets + octets / 7);
    EXPECT_EQ(text.substr(0, octets), std::string(octets, '\x7F'));
  }
}

TEST(SeptetUnpacking, KeepsTheRawValuesOfTheGsmAlphabet) {
  std::string all;
  for (char value = 0; value < 127; ++value) all += value;
  all += '\x7F';
  EXPECT_EQ(Unpack(test_support::Pack(all)), all);
}

Bytes PhoneNumber(const std::string& number) {
  Bytes out = {0xEE};
  sms::EncodePhoneNumber(out, number);
  return out;
}

TEST(PhoneNumber, OfEvenLengthHasNoFiller) {
  EXPECT_EQ(PhoneNumber("491711234567"), (Bytes{0xEE, 0x94, 0x71, 0x11, 0x32, 0x54, 0x76}));
}

TEST(PhoneNumber, OfOddLengthEndsWithTheFiller) {
  EXPECT_EQ(PhoneNumber("15550101234"), (Bytes{0xEE, 0x51, 0x55, 0x10, 0x10, 0x32, 0xF4}));
}

TEST(PhoneNumber, OfNoDigitsAppendsNothing) {
  EXPECT_EQ(PhoneNumber(""), Bytes{0xEE});
}

TEST(PhoneNumber, KeepsTheWholeLowPartOfACharacterThatIsNotADigit) {
  EXPECT_EQ(PhoneNumber("+1"), (Bytes{0xEE, 0xFB | 0x10}));  // 0x2B - 0x30, in eight bits
  EXPECT_EQ(PhoneNumber("A"), (Bytes{0xEE, 0x11 | 0xF0}));
  EXPECT_EQ(PhoneNumber("1A"), (Bytes{0xEE, 0x11}));
}

TEST(CodePage866, HasAllCyrillicLettersButTheLastOnes) {
  const auto& table = sms::EncodeCP866ToUnicode;
  EXPECT_EQ(std::size(table), 128u);
  for (unsigned byte = 0x80; byte <= 0xFF; ++byte) {
    unsigned expected = 0;
    if (byte <= 0x9E) expected = 0x0410 + (byte - 0x80);
    if (byte >= 0xA0 && byte <= 0xAF) expected = 0x0430 + (byte - 0xA0);
    if (byte >= 0xE0 && byte <= 0xEE) expected = 0x0440 + (byte - 0xE0);
    EXPECT_EQ(table[byte - 0x80], expected) << byte;
  }
}

}  // namespace
