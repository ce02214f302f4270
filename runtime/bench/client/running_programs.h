// SPDX-License-Identifier: MIT
// Which programs run on this machine, by their Unix sockets. Threads: any.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace corvane::bench {

struct RunningProgram {
  std::string name;  ///< file name of the program, without .lua
  std::filesystem::path socket;
  pid_t pid = 0;  ///< 0: unknown, because the program is in another container
  uid_t user = 0;
};

/// Where programs have their sockets.
struct SocketPlaces {
  std::vector<std::filesystem::path> folders;       ///< of this user
  std::filesystem::path services = "/run/corvane";  ///< a folder for each service
  std::filesystem::path users;  ///< a folder for each user; empty: not looked at

  /// Those of this process: $RUNTIME_DIRECTORY, $XDG_RUNTIME_DIR/corvane, /run/user/UID/corvane,
  /// and for root those of every user.
  [[nodiscard]] static SocketPlaces OfThisProcess();
};

struct FoundPrograms {
  std::vector<RunningProgram> programs;  ///< by name
  std::vector<std::string> problems;  ///< sockets and folders that may not be used, one line each
};

/// Asks the kernel only, so that it never waits for a program. Sockets that nobody listens on are
/// left out.
[[nodiscard]] FoundPrograms FindPrograms(const SocketPlaces& places);

}  // namespace corvane::bench
