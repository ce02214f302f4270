// SPDX-License-Identifier: MIT
#include "runtime/cli/messages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using corvane::cli::PrintableMessage;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

TEST(PrintableMessage, OfAVeryLongTextIsItsBeginningAndItsEnd) {
  const std::string message =
      PrintableMessage("name: '" + std::string(100'000, 'x') + "' is wrong");
  EXPECT_LT(message.size(), 2000u);
  EXPECT_THAT(message, StartsWith("name: 'xxx"));
  EXPECT_THAT(message, HasSubstr("x ... x"));
  EXPECT_THAT(message, EndsWith("x' is wrong"));
  EXPECT_EQ(PrintableMessage(std::string(1200, 'x')), std::string(1200, 'x'));
}

}  // namespace
