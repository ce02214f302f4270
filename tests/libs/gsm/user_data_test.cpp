// SPDX-License-Identifier: MIT
#include "libs/gsm/user_data.h"

#include <gtest/gtest.h>

#include "libs/gsm/hexadecimal.h"

namespace gsm {
namespace {

std::string Repeated(std::string_view text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

/// Writes and reads each part; the text of all of them.
std::string ThroughTheWire(const std::vector<UserData>& parts) {
  Octets payload;
  for (const UserData& part : parts) {
    Octets octets;
    WriteUserData(part, octets);
    EXPECT_LE(octets.size(), 141u);
    OctetReader in(octets);
    const UserData read =
        ReadUserData(in, DataCodingScheme(part.alphabet), part.concatenation.has_value());
    in.ExpectEnd();
    EXPECT_EQ(in.error(), PduError::kNone);
    EXPECT_EQ(read.concatenation, part.concatenation);
    EXPECT_FALSE(read.header_ignored);
    payload.insert(payload.end(), read.payload.begin(), read.payload.end());
  }
  return PayloadText(parts.front().alphabet, payload);
}

std::vector<UserData> Split(std::string_view text, bool wide = false) {
  return SplitText(text, {0x1234, wide}).value();
}

TEST(UserData, KeepsAShortTextInOnePartWithoutAHeader) {
  for (const std::string& text : {std::string(), std::string("hello"), std::string(160, 'x'),
                                  Repeated("€", 80), Repeated("Ж", 70)}) {
    const auto parts = Split(text);
    EXPECT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts.front().concatenation, std::nullopt);
    EXPECT_EQ(ThroughTheWire(parts), text);
  }
}

TEST(UserData, SplitsWhereTheStandardSays) {
  EXPECT_EQ(Split(std::string(161, 'x')).size(), 2u);
  EXPECT_EQ(Split(std::string(161, 'x')).front().payload.size(), 153u);
  EXPECT_EQ(Split(std::string(161, 'x'), true).front().payload.size(), 152u);
  EXPECT_EQ(Split(std::string(306, 'x')).size(), 2u);
  EXPECT_EQ(Split(std::string(307, 'x')).size(), 3u);
  EXPECT_EQ(Split(Repeated("Ж", 71)).front().payload.size(), 134u);
  EXPECT_EQ(Split(Repeated("Ж", 71), true).front().payload.size(), 132u);
}

TEST(UserData, EveryLengthComesBack) {
  for (int length = 0; length < 480; length += 3) {
    for (const bool wide : {false, true}) {
      const std::string plain(static_cast<std::size_t>(length), 'a');
      EXPECT_EQ(ThroughTheWire(Split(plain, wide)), plain);
      const std::string escaped = "a" + Repeated("€", length);
      EXPECT_EQ(ThroughTheWire(Split(escaped, wide)), escaped);
      const std::string emoji = "Ж" + Repeated("😀", length);
      EXPECT_EQ(ThroughTheWire(Split(emoji, wide)), emoji);
    }
  }
}

TEST(UserData, NeverTearsAnEscapeOrASurrogatePair) {
  for (const UserData& part : Split("a" + Repeated("€", 160))) {
    EXPECT_NE(part.payload.back(), 0x1B);
  }
  for (const UserData& part : Split("Ж" + Repeated("😀", 80))) {
    const std::string text = PayloadText(part.alphabet, part.payload);
    EXPECT_EQ(text.find("\uFFFD"), std::string::npos) << text;
  }
}

TEST(UserData, RefusesWhatDoesNotFit255PartsAndWhatIsNoUtf8) {
  EXPECT_TRUE(SplitText(std::string(255 * 153, 'x'), {}));
  EXPECT_FALSE(SplitText(std::string(255 * 153 + 1, 'x'), {}));
  EXPECT_FALSE(SplitText("\xFF", {}));
  EXPECT_FALSE(SplitOctets(Octets(255 * 134 + 1), {}));
}

TEST(UserData, CarriesOctets) {
  const Octets octets(141, 0xA5);
  const auto parts = SplitOctets(octets, {}).value();
  EXPECT_EQ(parts.size(), 2u);
  EXPECT_EQ(ThroughTheWire(parts), ToHexadecimal(octets));
}

UserData UserDataOf(std::string_view digits, std::uint8_t coding,
                    PduError expected = PduError::kNone) {
  const Octets octets = FromHexadecimal(digits).value();
  OctetReader in(octets);
  UserData data = ReadUserData(in, coding, true);
  EXPECT_EQ(in.error(), expected) << digits;
  return data;
}

TEST(UserDataHeader, IsIgnoredWhenItsElementsDoNotFillIt) {
  const UserData data = UserDataOf(
      "07"
      "0500020102"
      "4142",
      0x04);
  EXPECT_TRUE(data.header_ignored);
  EXPECT_EQ(ToHexadecimal(data.payload), "05000201024142");
}

TEST(UserDataHeader, IsIgnoredWhenItIsLongerThanTheData) {
  EXPECT_TRUE(UserDataOf("02"
                         "0500",
                         0x04)
                  .header_ignored);
  EXPECT_TRUE(UserDataOf("00", 0x04).header_ignored);
  EXPECT_TRUE(UserDataOf("00", 0x00).header_ignored);
}

TEST(UserDataHeader, LosesAPlaceThatMakesNoSense) {
  for (const char* digits : {"06"
                             "050003010001",
                             "06"
                             "050003010200",
                             "06"
                             "050003010203"}) {
    const UserData data = UserDataOf(digits, 0x04);
    EXPECT_FALSE(data.header_ignored) << digits;
    EXPECT_EQ(data.concatenation, std::nullopt) << digits;
  }
}

TEST(UserDataHeader, KeepsTheTextBehindOtherElements) {
  const UserData data = UserDataOf(
      "08"
      "05"
      "0504158A0000"
      "41",
      0x04);
  EXPECT_TRUE(data.header_ignored) << "element longer than the header";
  const UserData ports = UserDataOf(
      "08"
      "06"
      "05041234158A"
      "41",
      0x04);
  EXPECT_EQ(ToHexadecimal(ports.payload), "41");
}

TEST(UserData, RefusesLengthsThatAreTooLongOrNotThere) {
  UserDataOf("8D" + Repeated("00", 141), 0x04, PduError::kBadLength);
  UserDataOf("A1" + Repeated("00", 141), 0x00, PduError::kBadLength);
  UserDataOf("0541", 0x04, PduError::kTruncated);
}

TEST(DataCodingScheme, TellsTheAlphabet) {
  for (const int scheme : {0x00, 0x10, 0x11, 0x0C, 0x40, 0x80, 0xC0, 0xD0, 0xF0, 0xF1}) {
    EXPECT_EQ(AlphabetOf(static_cast<std::uint8_t>(scheme)), Alphabet::kDefault) << scheme;
  }
  for (const int scheme : {0x04, 0x15, 0x44, 0x20, 0x28, 0xF4, 0xF5}) {
    EXPECT_EQ(AlphabetOf(static_cast<std::uint8_t>(scheme)), Alphabet::kOctets) << scheme;
  }
  for (const int scheme : {0x08, 0x18, 0x48, 0xE0}) {
    EXPECT_EQ(AlphabetOf(static_cast<std::uint8_t>(scheme)), Alphabet::kUcs2) << scheme;
  }
}

}  // namespace
}  // namespace gsm
