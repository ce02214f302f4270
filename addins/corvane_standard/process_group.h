// SPDX-License-Identifier: MIT
// Whether a process group still has members. Threads: any.
#pragma once

#include <sys/types.h>

namespace corvane_standard {

/// Whether a process of the group runs. Zombies do not count: in a container, nobody may wait for
/// those whose parents have ended. While a group has members, zombies included, its number is not
/// given to another. Takes some milliseconds on a machine with many processes.
[[nodiscard]] bool GroupRuns(pid_t group);

}  // namespace corvane_standard
