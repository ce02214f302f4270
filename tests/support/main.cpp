// SPDX-License-Identifier: MIT
// Runs the tests of a program, and captures the log for the tests that check it.
#include <gtest/gtest.h>

#include "tests/support/captured_log.h"

/// By default the address sanitizer ends the program when an allocation fails; a test needs a null
/// pointer instead.
extern "C" const char* __asan_default_options() {  // NOLINT: the sanitizer's name
  return "allocator_may_return_null=1";
}

/// The C library guards its time zone with a lock that the thread sanitizer does not see.
extern "C" const char* __tsan_default_suppressions() {  // NOLINT: the sanitizer's name
  return "race:tzset";
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  test_support::CaptureLog();
  return RUN_ALL_TESTS();
}
