// SPDX-License-Identifier: MIT
#include "libs/base/aside_name.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(AsideName, HasTheTimeInUtcAndANumberIfTheNameIsTaken) {
  constexpr std::time_t kTime = 1795366800;  // 2026-11-22 17:00:00
  EXPECT_EQ(AsideName("/state/a.json", kTime, [](const auto&) { return false; }),
            "/state/a.json.damaged-20261122-170000");
  int taken = 2;
  EXPECT_EQ(AsideName("a", kTime, [&taken](const auto&) { return taken-- > 0; }),
            "a.damaged-20261122-170000-3");
}

}  // namespace
}  // namespace corvane
