// SPDX-License-Identifier: MIT
#include "libs/mail/text_check.h"

#include <gtest/gtest.h>

namespace mail {
namespace {

using namespace std::string_view_literals;

TEST(TextCheck, TakesAnyUtf8) {
  EXPECT_EQ(CheckSubject("Pegel \xE2\x89\xA5 2,3 m\r\n"), "");
  EXPECT_EQ(CheckSubject(""), "");
  EXPECT_EQ(CheckText("a\tb\x1B\nc"), "");
  EXPECT_EQ(CheckText(std::string(1 << 20, 'x')), "");
}

TEST(TextCheck, NamesTheOctetThatIsNotUtf8) {
  EXPECT_EQ(CheckSubject("Pegel \xFC"),
            "Subject is not valid UTF-8: octet 7 is wrong; check how the text was made");
  EXPECT_EQ(CheckText("\xE2\x89", "Html"),
            "Html is not valid UTF-8: octet 1 is wrong; check how the text was made");
}

TEST(TextCheck, NamesTheNul) {
  EXPECT_EQ(CheckText("ab\0c"sv),
            "Text contains a NUL: octet 3; remove it, since mail cannot carry it");
}

TEST(TextCheck, NamesTheLimit) {
  EXPECT_EQ(CheckSubject(std::string(kMaxSubject, 'x')), "");
  EXPECT_EQ(CheckSubject(std::string(kMaxSubject + 1, 'x')),
            "Subject is too long: it has 10001 octets, but 10000 is the limit; shorten it");
  EXPECT_EQ(CheckText(std::string(kMaxText + 1, '\xFF')),
            "Text is too long: it has 10000001 octets, but 10000000 is the limit; send it as an "
            "attachment");
}

}  // namespace
}  // namespace mail
