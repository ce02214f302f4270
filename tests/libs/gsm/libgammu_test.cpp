// SPDX-License-Identifier: MIT
// Our codec and libgammu's: each reads what the other writes.
#include <gtest/gtest.h>

#include <iterator>
#include <random>

#include "libs/gsm/pdu.h"
#include "libs/gsm/utf16.h"
#include "tests/support/gammu_codec.h"

namespace gsm {
namespace {

/// A text of up to `longest` characters from `alphabet`.
std::string RandomText(std::mt19937& random, std::u32string_view alphabet, std::size_t longest) {
  Octets units;
  for (std::size_t left = 1 + random() % longest; left > 0; --left) {
    const Octets unit = EncodeUtf16(alphabet[random() % alphabet.size()]);
    units.insert(units.end(), unit.begin(), unit.end());
  }
  return DecodeUtf16(units);
}

constexpr std::u32string_view kPlain =
    U"abcXYZ 0189@£$¥èéùìòÇØøÅåΔ_ΦΓΛΩΠΨΣΘΞÆæßÉ!\"#¤%&'()*+,-./:;<=>?";
constexpr std::u32string_view kEscaped = U"az[]{}\\|~^€";
constexpr std::u32string_view kUcs2 = U"aßЖЯ漢字€ç";

constexpr int kWritten = 12'000;
constexpr int kRead = 12'000;

TEST(LibGammu, ReadsWhatWeWrite) {
  std::mt19937 random(23040);
  for (int round = 0; round < kWritten; ++round) {
    const std::u32string_view alphabets[] = {kPlain, kEscaped, kUcs2};
    const std::string text = RandomText(random, alphabets[round % 3], 300);
    const auto reference = static_cast<std::uint16_t>(1 + random() % 255);
    const auto parts = SplitText(text, {reference, false}).value();
    const TimeStamp time{2026, 12, 31, 23, 59, round % 60, 15 * (round % 40)};
    for (const UserData& part : parts) {
      const auto read = test_support::GammuDecode(
          EncodeDeliver({"+31624000000", "+4915112345678", 0, 0, time, part}));
      ASSERT_TRUE(read.decoded) << text;
      EXPECT_EQ(read.number, "+4915112345678");
      EXPECT_EQ(read.text, TextOf(part));
      EXPECT_EQ(read.year * 100 + read.month, 202612);
      EXPECT_EQ(read.second, time.second);
      if (!part.header.concatenation) continue;
      EXPECT_EQ(read.ref, reference);
      EXPECT_EQ(read.total, part.header.concatenation->total);
      EXPECT_EQ(read.seq, part.header.concatenation->sequence);
    }
  }
}

TEST(LibGammu, WritesWhatWeRead) {
  std::mt19937 random(23038);
  for (int round = 0; round < kRead; ++round) {
    const bool ucs2 = round % 2 == 0;
    const std::string text = RandomText(random, ucs2 ? kUcs2 : kPlain, 400);
    const auto parts = test_support::GammuEncode(text, "+15550101234", ucs2);
    std::vector<UserData> data;
    for (std::size_t i = 0; i < parts.size(); ++i) {
      Octets octets{static_cast<std::uint8_t>(parts[i].length)};
      octets.insert(octets.end(), parts[i].octets.begin(), parts[i].octets.end());
      OctetReader in(octets);
      const UserData read = ReadUserData(in, ucs2 ? 0x08 : 0x00, parts.size() > 1);
      in.ExpectEnd();
      ASSERT_EQ(in.error(), PduError::kNone) << text;
      EXPECT_FALSE(read.header_ignored);
      EXPECT_EQ(read.header.concatenation ? read.header.concatenation->sequence : 1U, i + 1);
      data.push_back(read);
    }
    EXPECT_EQ(TextOf(data), text);
  }
}

}  // namespace
}  // namespace gsm
