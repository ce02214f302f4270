// SPDX-License-Identifier: MIT
// Runs the tests of a program; the log is kept for the test that wants to see it.
#include <gtest/gtest.h>

#include "tests/support/captured_log.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  test_support::CaptureLog();
  return RUN_ALL_TESTS();
}
