// SPDX-License-Identifier: MIT
// How every subcommand responds to wrong usage.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

#include "tests/support/command.h"

namespace test_support {

/// One line on standard error that contains `message`, status 2, nothing on standard output.
inline void ExpectUsageError(const CommandResult& result, const std::string& message) {
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, testing::HasSubstr(message));
  EXPECT_THAT(result.err, testing::StartsWith("corvane"));
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  EXPECT_EQ(result.out, "");
}

}  // namespace test_support
