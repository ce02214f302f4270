// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/secret.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

/// An emulator makes its flags up, and leaves the protections out: this memory can surely be read.
bool IsEmulated(const std::string& flags) {
  return flags.find(" rd ") == std::string::npos;
}

TEST(Secret, IsLockedAndNeitherDumpedNorInherited) {
  const Secret secret("s3cret");
  EXPECT_EQ(secret.text(), "s3cret");
  const std::string flags = FlagsOf(secret.text().data());
  if (IsEmulated(flags)) GTEST_SKIP() << "the emulator leaves the protections out";
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they leave mlock out
  EXPECT_THAT(flags, testing::HasSubstr(" lo "));
#endif
  EXPECT_THAT(flags, testing::HasSubstr(" dd "));
  EXPECT_THAT(flags, testing::HasSubstr(" wf "));
}

TEST(Secret, IsNotInAProcessThatIsForked) {
  const Secret secret("s3cret");
  if (IsEmulated(FlagsOf(secret.text().data()))) GTEST_SKIP() << "the emulator leaves them out";
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
