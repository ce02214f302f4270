// SPDX-License-Identifier: MIT
#include "libs/gsm/sms_text_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace gsm;
using testing::HasSubstr;

std::string Repeat(const std::string& text, std::size_t count) {
  std::string all;
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

TEST(CheckText, CountsTheParts) {
  EXPECT_EQ(CheckText("a").parts, 1u);
  EXPECT_EQ(CheckText(Repeat("a", 160)).parts, 1u);
  EXPECT_EQ(CheckText(Repeat("a", 161)).parts, 2u);
  EXPECT_EQ(CheckText(Repeat("€", 80)).parts, 1u) << "two septets each, in the extension table";
  EXPECT_EQ(CheckText(Repeat("ж", 70)).parts, 1u);
  EXPECT_EQ(CheckText(Repeat("ж", 71)).parts, 2u);
  EXPECT_EQ(CheckText(Repeat("😀", 35)).parts, 1u);
  EXPECT_EQ(CheckText(Repeat("😀", 36)).parts, 2u);
}

TEST(CheckText, AllowsTwentyParts) {
  EXPECT_EQ(CheckText(Repeat("a", 20 * 153)).parts, 20u);
  EXPECT_EQ(CheckText(Repeat("a", 20 * 153 + 1)).problem, TextProblem::kTooLong);
  EXPECT_EQ(CheckText(Repeat("Δ", 20 * 153)).parts, 20u);
  EXPECT_EQ(CheckText(Repeat("ж", 20 * 67)).parts, 20u);
  EXPECT_EQ(CheckText(Repeat("ж", 20 * 67 + 1)).problem, TextProblem::kTooLong);
  EXPECT_EQ(CheckText(Repeat("ж", 300 * 67)).problem, TextProblem::kTooLong);
}

TEST(CheckText, NamesTheOctetThatIsNotUtf8) {
  const TextCheck check = CheckText("Tank \xFF is full");
  EXPECT_EQ(check.problem, TextProblem::kInvalid);
  EXPECT_THAT(check.sentence, HasSubstr("octet 6 "));
  EXPECT_THAT(CheckText("\xC3").sentence, HasSubstr("octet 1 "));
  EXPECT_THAT(CheckText("ab\xED\xA0\x80").sentence, HasSubstr("octet 3 "))
      << "half a surrogate pair";
}

TEST(CheckText, RefusesAnEmptyText) {
  EXPECT_EQ(CheckText("").problem, TextProblem::kInvalid);
}

TEST(CheckText, RefusesAMegabyteWithoutReadingIt) {
  EXPECT_EQ(CheckText(std::string(1 << 20, '\xFF')).problem, TextProblem::kTooLong);
}

}  // namespace
