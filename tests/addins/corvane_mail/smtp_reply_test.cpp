// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/smtp_reply.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane_mail {
namespace {

using State = ReplyReader::State;

struct ReadReply {
  const char* name;
  std::string_view octets;
  State state;
  std::size_t used;
  const char* words;
};

class ReplyReaderTest : public testing::TestWithParam<ReadReply> {};

TEST_P(ReplyReaderTest, ReadsTheSameHoweverTheReplyIsCut) {
  const ReadReply& wanted = GetParam();
  for (std::size_t step = 1; step <= wanted.octets.size(); ++step) {
    ReplyReader reader;
    std::size_t used = 0;
    for (std::size_t i = 0; i < wanted.octets.size() && reader.state() == State::kMore; i += step) {
      used += reader.Feed(wanted.octets.substr(i, step));
    }
    EXPECT_EQ(reader.state(), wanted.state);
    EXPECT_EQ(used, wanted.used) << "in pieces of " << step;
    if (wanted.state == State::kComplete) {
      EXPECT_EQ(WordsOf(reader.Take()), wanted.words);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Replies, ReplyReaderTest,
    testing::Values(ReadReply{"OneLine", "250 ok\r\n", State::kComplete, 8, "250 ok"},
                    ReadReply{"TwoLines", "250-a\r\n250 b\r\nrest", State::kComplete, 14,
                              "250 a b"},
                    ReadReply{"OnlyTheCode", "354\r\n", State::kComplete, 5, "354"},
                    ReadReply{"WithoutWords", "354 \r\n", State::kComplete, 6, "354"},
                    ReadReply{"LineFeedOnly", "250 ok\n", State::kComplete, 7, "250 ok"},
                    ReadReply{"OtherCodes", "250-a\r\n550 b\r\n", State::kComplete, 14, "550 a b"},
                    ReadReply{"NoEnd", "250-a\r\n250-b\r\n", State::kMore, 14, ""},
                    ReadReply{"NoLineEnd", "250 ok", State::kMore, 6, ""},
                    ReadReply{"NoCode", "hello\r\n", State::kInvalid, 7, ""},
                    ReadReply{"TwoDigits", "25 ok\r\n", State::kInvalid, 7, ""},
                    ReadReply{"FourDigits", "2500 ok\r\n", State::kInvalid, 9, ""},
                    ReadReply{"CodeOutOfRange", "199 ok\r\n", State::kInvalid, 8, ""},
                    ReadReply{"EmptyLine", "\r\n", State::kInvalid, 2, ""}),
    [](const auto& parameter) { return parameter.param.name; });

TEST(ReplyReader, KeepsTheBeginningOfALongReply) {
  ReplyReader reader;
  for (int line = 0; line < 1000; ++line) {
    reader.Feed("250-" + std::string(900, 'x') + "\r\n");
  }
  EXPECT_EQ(reader.state(), State::kMore);
  std::size_t kept = 0;
  for (const std::string& line : reader.lines()) kept += line.size();
  EXPECT_LE(kept, ReplyReader::kMaxText + ReplyReader::kMaxLine);
  reader.Feed("250 end\r\n");
  EXPECT_EQ(reader.state(), State::kComplete);
  EXPECT_LT(reader.Take().text.size(), 600U);
}

TEST(ReplyReader, GivesUpAReplyWithoutEnd) {
  ReplyReader reader;
  std::size_t used = 0;
  while (reader.state() == State::kMore) used += reader.Feed(std::string(10'000, 'x'));
  EXPECT_EQ(reader.state(), State::kTooLong);
  EXPECT_LE(used, ReplyReader::kMaxOctets + 10'000);
  reader.Clear();
  EXPECT_EQ(reader.Feed("220 again\r\n"), 11U);
  EXPECT_EQ(reader.Take().code, 220);
}

}  // namespace
}  // namespace corvane_mail
