// SPDX-License-Identifier: MIT
#include "libs/mail/encoded_word.h"

#include <gtest/gtest.h>

#include <vector>

namespace mail {
namespace {

std::vector<std::string> Words(std::string_view text, std::size_t room = 75) {
  std::vector<std::string> words;
  for (EncodedWords encoder(text); !encoder.done();) words.push_back(encoder.Next(room));
  return words;
}

std::string Repeated(std::string_view text, int times) {
  std::string all;
  while (times-- > 0) all += text;
  return all;
}

using Strings = std::vector<std::string>;

TEST(EncodedWords, AreReadableWhereThatIsNotLonger) {
  EXPECT_EQ(Words("Pegel zu hoch, pr\xC3\xBC"
                  "fen!"),
            Strings{"=?utf-8?q?Pegel_zu_hoch=2C_pr=C3=BCfen!?="});
  EXPECT_EQ(Words("_=?\t\""), Strings{"=?utf-8?b?Xz0/CSI=?="});
  EXPECT_EQ(Words("a=?\t1 level"), Strings{"=?utf-8?q?a=3D=3F=091_level?="});
  EXPECT_EQ(Words("\xE6\xBC\xA2\xE5\xAD\x97"), Strings{"=?utf-8?b?5ryi5a2X?="});
}

TEST(EncodedWords, HaveAtMost75OctetsAndNeverCutACharacter) {
  for (const std::string_view character : {"\xC3\xBC", "\xE6\xBC\xA2", "\xF0\x9F\x94\xA5"}) {
    for (const std::string_view mixed : {"", "abcdefgh "}) {
      const std::string text = Repeated(std::string(character).append(mixed), 30);
      const Strings words = Words(text);
      ASSERT_GT(words.size(), 1U);
      for (const std::string& word : words) {
        EXPECT_LE(word.size(), 75U) << word;
        EXPECT_GE(word.size(), 60U - (&word == &words.back() ? 50 : 0)) << word;
      }
    }
  }
  EXPECT_EQ(Words(Repeated("\xE6\xBC\xA2", 16)),
            (Strings{"=?utf-8?b?" + Repeated("5ryi", 15) + "?=", "=?utf-8?b?5ryi?="}));
  // 62 columns would do for 20 escapes and two more octets: not for another character.
  EXPECT_EQ(
      Words(Repeated("\xC3\xBC", 11) + "abcdefghijklmnopqrstuvwxyz abcdefghijklmnopqrstuvwxyz"),
      (Strings{"=?utf-8?q?" + Repeated("=C3=BC", 10) + "?=",
               "=?utf-8?q?=C3=BCabcdefghijklmnopqrstuvwxyz_abcdefghijklmnopqrstuvwxyz?="}));
}

TEST(EncodedWords, FitIntoTheRoomOrWaitForMore) {
  EncodedWords words("\xE6\xBC\xA2\xE5\xAD\x97");
  EXPECT_EQ(words.Next(15), "");
  EXPECT_EQ(words.Next(16), "=?utf-8?b?5ryi?=");
  EXPECT_EQ(words.Next(75), "=?utf-8?b?5a2X?=");
  EXPECT_TRUE(words.done());
}

}  // namespace
}  // namespace mail
