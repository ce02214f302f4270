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

/// Writes and reads each part. @return the text of all of them
std::string ThroughTheWire(const std::vector<UserData>& parts) {
  std::vector<UserData> data;
  for (const UserData& part : parts) {
    Octets octets;
    WriteUserData(part, octets);
    EXPECT_LE(octets.size(), 141u);
    OctetReader in(octets);
    const UserData read =
        ReadUserData(in, DataCodingScheme(part.alphabet), part.header.concatenation.has_value());
    in.ExpectEnd();
    EXPECT_EQ(in.error(), PduError::kNone);
    EXPECT_EQ(read.header.concatenation, part.header.concatenation);
    EXPECT_FALSE(read.header_ignored);
    data.push_back(read);
  }
  return TextOf(data);
}

std::vector<UserData> Split(std::string_view text, bool wide = false) {
  return SplitText(text, {0x1234, wide}).value();
}

TEST(UserData, KeepsAShortTextInOnePartWithoutAHeader) {
  for (const std::string& text : {std::string(), std::string("hello"), std::string(160, 'x'),
                                  Repeated("€", 80), Repeated("Ж", 70)}) {
    const auto parts = Split(text);
    EXPECT_EQ(parts.size(), 1u);
    EXPECT_EQ(parts.front().header.concatenation, std::nullopt);
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

TEST(UserData, EveryLengthRoundTrips) {
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

TEST(UserData, NeverSplitsAnEscapeOrASurrogatePair) {
  for (const UserData& part : Split("a" + Repeated("€", 160))) {
    EXPECT_NE(part.payload.back(), 0x1B);
  }
  for (const UserData& part : Split("Ж" + Repeated("😀", 80))) {
    const std::string text = TextOf(part);
    EXPECT_EQ(text.find("\uFFFD"), std::string::npos) << text;
  }
}

TEST(UserData, RefusesWhatDoesNotFitInto255PartsAndInvalidUtf8) {
  EXPECT_TRUE(SplitText(std::string(255 * 153, 'x'), {}));
  EXPECT_FALSE(SplitText(std::string(255 * 153 + 1, 'x'), {}));
  EXPECT_TRUE(SplitText(Repeated("€", 255 * 76), {}));
  EXPECT_FALSE(SplitText(Repeated("€", 255 * 76 + 1), {}));
  EXPECT_FALSE(SplitText(std::string(1'000'000, 'x'), {}));
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

TEST(UserDataHeader, DropsAPartNumberThatMakesNoSense) {
  for (const char* digits : {"06"
                             "050003010001",
                             "06"
                             "050003010200",
                             "06"
                             "050003010203"}) {
    const UserData data = UserDataOf(digits, 0x04);
    EXPECT_FALSE(data.header_ignored) << digits;
    EXPECT_EQ(data.header.concatenation, std::nullopt) << digits;
  }
}

TEST(UserDataHeader, KeepsTheTextAfterOtherElements) {
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

TEST(UserData, RefusesLengthsThatAreTooLongOrMissing) {
  UserDataOf("8D" + Repeated("00", 141), 0x04, PduError::kBadLength);
  UserDataOf("A1" + Repeated("00", 141), 0x00, PduError::kBadLength);
  UserDataOf("0541", 0x04, PduError::kTruncated);
}

}  // namespace
}  // namespace gsm
