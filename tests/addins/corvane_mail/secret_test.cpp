// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/secret.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>

namespace corvane_mail {
namespace {

/// The flags of the mapping that this address is in (proc(5), smaps).
std::string FlagsOf(const void* address) {
  std::ifstream maps("/proc/self/smaps");
  const auto wanted = reinterpret_cast<std::uintptr_t>(address);
  bool is_it = false;
  for (std::string line; std::getline(maps, line);) {
    std::istringstream words(line);
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    char dash = 0;
    if (words >> std::hex >> begin >> dash >> end && dash == '-') {
      is_it = begin <= wanted && wanted < end;
    } else if (is_it && line.starts_with("VmFlags:")) {
      return line + " ";
    }
  }
  return {};
}

/// Whether advice about memory is carried out, and shown. An emulator makes the flags up, or leaves
/// the advice out.
bool TakesAdvice() {
  const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  void* const page =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  madvise(page, size, MADV_DONTDUMP);
  const std::string flags = FlagsOf(page);
  munmap(page, size);
  return flags.find(" rd ") != std::string::npos && flags.find(" dd ") != std::string::npos;
}

TEST(Secret, IsLockedAndNeitherDumpedNorInherited) {
  const Secret secret("s3cret");
  EXPECT_EQ(secret.text(), "s3cret");
  if (!TakesAdvice()) GTEST_SKIP() << "the emulator leaves the protections out";
  const std::string flags = FlagsOf(secret.text().data());
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they leave mlock out
  EXPECT_THAT(flags, testing::HasSubstr(" lo "));
#endif
  EXPECT_THAT(flags, testing::HasSubstr(" dd "));
  EXPECT_THAT(flags, testing::HasSubstr(" wf "));
}

TEST(Secret, IsNotInAProcessThatIsForked) {
  if (!TakesAdvice()) GTEST_SKIP() << "the emulator leaves the protections out";
  const Secret secret("s3cret");
  const pid_t child = fork();
  if (child == 0) {
    const std::string_view text = secret.text();
    const bool is_wiped = std::all_of(text.begin(), text.end(), [](char c) { return c == '\0'; });
    _exit(is_wiped ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(secret.text(), "s3cret");
}

TEST(Secret, MayBeEmpty) {
  EXPECT_EQ(Secret("").text(), "");
}

TEST(LockedMemory, IsMoved) {
  LockedMemory first(3);
  first.octets()[0] = 'a';
  LockedMemory second(std::move(first));
  first = LockedMemory(1);
  EXPECT_EQ(second.text(), std::string_view("a\0\0", 3));
  EXPECT_EQ(first.text().size(), 1U);
}

}  // namespace
}  // namespace corvane_mail
