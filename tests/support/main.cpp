// SPDX-License-Identifier: MIT
// Runs the tests of a program, and captures the log for the tests that check it.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/captured_log.h"
#include "tests/support/temporary_folder.h"

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
  // Programs that tests start keep their state here, not beside that of the user or another test.
  const test_support::TemporaryFolder state;
  setenv("XDG_STATE_HOME", state.path().c_str(), 1);
  test_support::CaptureLog();
  return RUN_ALL_TESTS();
}
