// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "opcua/opcua.h"
#include "tests/support/captured_log.h"

namespace {

TEST(Trace, WarningsAndDebugLinesKeepTheirLevelAndPosition) {
  test_support::TakeLog();
  OpcUa_Trace_Imp(0x10, "a/file", 12, "status 0x%08X\n", 7u);
  OpcUa_Trace_Imp(0x20, "b/file", 3, "%s=%d\r\n", "n", 5);
  EXPECT_THAT(test_support::TakeLog(), testing::ElementsAre("warning status 0x00000007 (a/file:12)",
                                                            "debug n=5 (b/file:3)"));
}

TEST(Trace, ALongLineIsTruncated) {
  test_support::TakeLog();
  OpcUa_Trace_Imp(0x20, "f", 1, "%s", std::string(10000, 'x').c_str());
  EXPECT_EQ(test_support::TakeLog().at(0).length(), std::string("debug  (f:1)").length() + 511);
}

}  // namespace
