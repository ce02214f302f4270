// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/base64.h"

#include <gtest/gtest.h>

#include <random>

namespace {

/// Base64, a bit at a time, following the words of RFC 4648 clause 4.
std::string EncodeBitByBit(const std::string& bytes) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bits;
  for (const char byte : bytes) {
    for (int i = 7; i >= 0; --i)
      bits += (static_cast<unsigned char>(byte) >> i & 1) != 0 ? '1' : '0';
  }
  while (bits.size() % 6 != 0) bits += '0';
  std::string text;
  for (std::size_t i = 0; i < bits.size(); i += 6) {
    text += alphabet[std::stoul(bits.substr(i, 6), nullptr, 2)];
  }
  while (text.size() % 4 != 0) text += '=';
  return text;
}

TEST(Base64Encode, ThreeBytesYieldFourCharacters) {
  EXPECT_EQ(base64_encode("Man"), "TWFu");
}

TEST(Base64Encode, TwoBytesEndInOnePadCharacter) {
  EXPECT_EQ(base64_encode("Ma"), "TWE=");
}

TEST(Base64Encode, OneByteEndsInTwoPadCharacters) {
  EXPECT_EQ(base64_encode("M"), "TQ==");
}

TEST(Base64Encode, NoBytesYieldAnEmptyText) {
  EXPECT_EQ(base64_encode(nullptr, 0), "");
}

TEST(Base64Encode, FiftyFourBytesYieldSeventyTwoCharactersWithoutPadding) {
  const std::string text = base64_encode(std::string(54, '\xFF'));
  EXPECT_EQ(text, std::string(72, '/'));
}

TEST(Base64Encode, MatchesTheVectorsOfTheStandard) {  // RFC 4648 clause 10
  EXPECT_EQ(base64_encode("f"), "Zg==");
  EXPECT_EQ(base64_encode("fo"), "Zm8=");
  EXPECT_EQ(base64_encode("foo"), "Zm9v");
  EXPECT_EQ(base64_encode("foob"), "Zm9vYg==");
  EXPECT_EQ(base64_encode("fooba"), "Zm9vYmE=");
  EXPECT_EQ(base64_encode("foobar"), "Zm9vYmFy");
}

TEST(Base64Encode, EveryLengthAgreesWithTheBitwiseDefinitionAndReadsNothingBeyondItsInput) {
  std::mt19937 random(4648);
  for (std::size_t length = 0; length < 200; ++length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    // A heap block of exactly this length: the address sanitizer detects a read past it.
    const std::vector<unsigned char> exact(bytes.begin(), bytes.end());
    EXPECT_EQ(base64_encode(exact.data(), static_cast<unsigned int>(length)),
              EncodeBitByBit(bytes));
  }
}

TEST(Base64Write, FillsItsBufferAndNothingAfterIt) {
  const std::string bytes = "0123456789";
  for (std::size_t length = 0; length <= bytes.size(); ++length) {
    std::string room(20, '#');
    const char* end =
        base64_write(room.data(), reinterpret_cast<const unsigned char*>(bytes.data()), length);
    EXPECT_EQ(static_cast<std::size_t>(end - room.data()), base64_length(length));
    EXPECT_EQ(room.substr(0, base64_length(length)), base64_encode(bytes.substr(0, length)));
    EXPECT_EQ(room.find_first_not_of('#', base64_length(length)), std::string::npos);
  }
}

TEST(Base64Decode, FourCharactersYieldThreeBytes) {
  EXPECT_EQ(base64_decode("TWFu"), "Man");
}

TEST(Base64Decode, ThreeCharactersAndAPadYieldTwoBytes) {
  EXPECT_EQ(base64_decode("TWE="), "Ma");
}

TEST(Base64Decode, ASpaceEndsTheText) {
  EXPECT_EQ(base64_decode("TW Fu"), "M");
}

TEST(Base64Decode, AnInvalidFirstCharacterYieldsNothing) {
  EXPECT_EQ(base64_decode("!TWFu"), "");
  EXPECT_EQ(base64_decode("=TWFu"), "");
  EXPECT_EQ(base64_decode(""), "");
}

TEST(Base64Decode, ASingleLeftOverCharacterYieldsNothing) {
  EXPECT_EQ(base64_decode("T"), "");
  EXPECT_EQ(base64_decode("TWFuT"), "Man");
}

TEST(Base64Decode, EveryCharacterOutsideTheAlphabetEndsTheText) {
  for (int value = 0; value < 256; ++value) {
    const char c = static_cast<char>(value);
    const bool known = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                       c == '+' || c == '/';
    EXPECT_EQ(base64_decode(std::string("TWFu") + c + "WFu").size(), known ? 6U : 3U)
        << "character " << value;
  }
}

TEST(Base64, DecodingRestoresWhatWasEncoded) {
  std::mt19937 random(54);
  for (std::size_t length = 0; length < 300; ++length) {
    std::string bytes(length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    EXPECT_EQ(base64_decode(base64_encode(bytes)), bytes);
  }
}

}  // namespace
