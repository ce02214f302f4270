// SPDX-License-Identifier: MIT
#include "tests/addins/corvane_mail/pread_hook.h"

#include <sys/types.h>

#include <cstddef>

namespace test_support {

std::function<void()>& PreadHook() {
  thread_local std::function<void()> hook;
  return hook;
}

}  // namespace test_support

extern "C" {

// Which of the two the compiler calls depends on the machine. NOLINTBEGIN: the linker's names
ssize_t __real_pread(int file, void* octets, std::size_t size, off_t offset);
ssize_t __real_pread64(int file, void* octets, std::size_t size, off_t offset);

ssize_t __wrap_pread(int file, void* octets, std::size_t size, off_t offset) {
  if (test_support::PreadHook()) test_support::PreadHook()();
  return __real_pread(file, octets, size, offset);
}

ssize_t __wrap_pread64(int file, void* octets, std::size_t size, off_t offset) {
  if (test_support::PreadHook()) test_support::PreadHook()();
  return __real_pread64(file, octets, size, offset);
}
// NOLINTEND
}
