// SPDX-License-Identifier: MIT
#include "libs/gsm/data_coding.h"

#include <gtest/gtest.h>

namespace gsm {
namespace {

Alphabet AlphabetOf(int scheme) {
  return ReadDataCoding(static_cast<std::uint8_t>(scheme)).alphabet;
}

TEST(DataCoding, NamesTheAlphabet) {
  for (const int scheme :
       {0x00, 0x10, 0x11, 0x0C, 0x40, 0x80, 0xB0, 0xC0, 0xD0, 0xF0, 0xF3, 0xF8}) {
    EXPECT_EQ(AlphabetOf(scheme), Alphabet::kDefault) << scheme;
  }
  for (const int scheme : {0x04, 0x15, 0x44, 0x20, 0x28, 0x60, 0xF4, 0xF7}) {
    EXPECT_EQ(AlphabetOf(scheme), Alphabet::kOctets) << scheme;
  }
  for (const int scheme : {0x08, 0x18, 0x48, 0x5B, 0xE0, 0xEF}) {
    EXPECT_EQ(AlphabetOf(scheme), Alphabet::kUcs2) << scheme;
  }
}

TEST(DataCoding, HasAClassOnlyWhereTheGroupSaysSo) {
  for (const int scheme : {0x00, 0x03, 0x0B, 0x43, 0x83, 0xC3, 0xD3, 0xE3}) {
    EXPECT_EQ(ReadDataCoding(static_cast<std::uint8_t>(scheme)).message_class, std::nullopt)
        << scheme;
  }
  for (const int scheme : {0x12, 0x1A, 0x52, 0xF2, 0xF6}) {
    EXPECT_EQ(ReadDataCoding(static_cast<std::uint8_t>(scheme)).message_class, 2) << scheme;
  }
  EXPECT_EQ(ReadDataCoding(0x10).message_class, 0);
}

TEST(DataCoding, NamesWhatIsWaiting) {
  EXPECT_EQ(ReadDataCoding(0xC8).waiting, (WaitingIndication{Waiting::kVoiceMail, true, true}));
  EXPECT_EQ(ReadDataCoding(0xD2).waiting, (WaitingIndication{Waiting::kEmail, false, false}));
  EXPECT_EQ(ReadDataCoding(0xEB).waiting, (WaitingIndication{Waiting::kOther, true, false}));
  EXPECT_EQ(ReadDataCoding(0x08).waiting, std::nullopt);
  EXPECT_EQ(ReadDataCoding(0xF8).waiting, std::nullopt);
}

TEST(DataCoding, MarksWhatIsCompressedOrToBeDeleted) {
  EXPECT_TRUE(ReadDataCoding(0x20).compressed);
  EXPECT_FALSE(ReadDataCoding(0xF0).compressed);
  EXPECT_TRUE(ReadDataCoding(0x40).delete_on_read);
  EXPECT_FALSE(ReadDataCoding(0x00).delete_on_read);
}

TEST(DataCodingScheme, RoundTripsWithItsAlphabetAndClass) {
  for (const Alphabet alphabet : {Alphabet::kDefault, Alphabet::kOctets, Alphabet::kUcs2}) {
    DataCoding expected;
    expected.alphabet = alphabet;
    EXPECT_EQ(ReadDataCoding(DataCodingScheme(alphabet)), expected);
    for (std::uint8_t message_class = 0; message_class < 4; ++message_class) {
      expected.message_class = message_class;
      EXPECT_EQ(ReadDataCoding(DataCodingScheme(alphabet, message_class)), expected);
    }
  }
  EXPECT_EQ(DataCodingScheme(Alphabet::kUcs2), 0x08);
  EXPECT_EQ(DataCodingScheme(Alphabet::kDefault, 0), 0x10);
}

}  // namespace
}  // namespace gsm
