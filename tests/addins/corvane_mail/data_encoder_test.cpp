// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/data_encoder.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace corvane_mail {
namespace {

/// The wire form, fed in pieces of `step` octets.
std::string Wire(std::string_view mail, std::size_t step) {
  DataEncoder encoder;
  std::string wire;
  for (std::size_t i = 0; i < mail.size(); i += step) encoder.Encode(mail.substr(i, step), wire);
  encoder.Finish(wire);
  return wire;
}

struct Encoding {
  const char* name;
  std::string_view mail;
  std::string_view wire;
};

class DataEncoderTest : public testing::TestWithParam<Encoding> {};

TEST_P(DataEncoderTest, GivesTheSameHoweverTheMailIsCut) {
  const auto& [name, mail, wire] = GetParam();
  for (std::size_t step = 1; step <= mail.size() + 1; ++step) {
    EXPECT_EQ(Wire(mail, step), wire) << "in pieces of " << step;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Mails, DataEncoderTest,
    testing::Values(Encoding{"Empty", "", ".\r\n"}, Encoding{"OneLine", "a\r\n", "a\r\n.\r\n"},
                    Encoding{"LastLineWithoutEnd", "a", "a\r\n.\r\n"},
                    Encoding{"DotFirst", ".", "..\r\n.\r\n"},
                    Encoding{"LineOfOneDot", "a\r\n.\r\nb\r\n", "a\r\n..\r\nb\r\n.\r\n"},
                    Encoding{"DotsWithinALine", "a.b..\r\n", "a.b..\r\n.\r\n"},
                    Encoding{"BareLineFeedBeforeADot", "a\n.\nb", "a\r\n..\r\nb\r\n.\r\n"},
                    Encoding{"BareReturnBeforeADot", "a\r.\rb", "a\r\n..\r\nb\r\n.\r\n"},
                    Encoding{"ReturnAtTheEnd", "a\r", "a\r\n.\r\n"},
                    Encoding{"TwoReturns", "a\r\r\nb", "a\r\n\r\nb\r\n.\r\n"},
                    Encoding{"ManyLines",
                             "0123456789\r\nabcdefgh\r\n.dot\tand tab\r\n\r\n\r\n.\r\n"
                             "last \xF0\x9F\x98\x80 line\nbare\rcontrol \x01\x0B.\r\n",
                             "0123456789\r\nabcdefgh\r\n..dot\tand tab\r\n\r\n\r\n..\r\n"
                             "last \xF0\x9F\x98\x80 line\r\nbare\r\ncontrol \x01\x0B.\r\n.\r\n"},
                    Encoding{"SmuggledEnd", "a\r\n.\nMAIL", "a\r\n..\r\nMAIL\r\n.\r\n"}),
    [](const auto& parameter) { return parameter.param.name; });

}  // namespace
}  // namespace corvane_mail
