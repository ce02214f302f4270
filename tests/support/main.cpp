// SPDX-License-Identifier: MIT
// Runs the tests of a program; the log is kept for the test that wants to see it.
#include <gtest/gtest.h>

#include "tests/support/captured_log.h"

/// The address sanitizer ends the program at memory that cannot be had; a test wants the null.
extern "C" const char* __asan_default_options() {  // NOLINT: the sanitizer's name
  return "allocator_may_return_null=1";
}

/// The C library guards its time zone by a lock that the thread sanitizer does not see.
extern "C" const char* __tsan_default_suppressions() {  // NOLINT: the sanitizer's name
  return "race:tzset";
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  test_support::CaptureLog();
  return RUN_ALL_TESTS();
}
