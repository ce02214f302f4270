// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/process_group.h"

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/wait_for.h"

namespace {

using corvane_standard::GroupRuns;

pid_t StartInOwnGroup() {
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  const char* const words[] = {"sleep", "1000", nullptr};
  pid_t pid = 0;
  EXPECT_EQ(
      posix_spawnp(&pid, words[0], nullptr, &attributes, const_cast<char* const*>(words), environ),
      0);
  posix_spawnattr_destroy(&attributes);
  return pid;
}

TEST(ProcessGroup, RunsUntilItsLastMemberIsAZombie) {
  const pid_t pid = StartInOwnGroup();
  // In an emulator, the child may not have joined its group yet.
  EXPECT_TRUE(test_support::WaitFor([pid] { return GroupRuns(pid); }));
  kill(pid, SIGKILL);
  siginfo_t info{};
  ASSERT_EQ(waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(kill(-pid, 0), 0) << "its zombie is a member";
  EXPECT_FALSE(GroupRuns(pid));
  waitpid(pid, nullptr, 0);
  EXPECT_FALSE(GroupRuns(pid));
}

TEST(ProcessGroup, OurOwnRuns) {
  EXPECT_TRUE(GroupRuns(getpgrp()));
}

}  // namespace
