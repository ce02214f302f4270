// SPDX-License-Identifier: MIT
#include "runtime/corvane/os_execute.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "runtime/corvane/call_tracking.h"

namespace corvane {
namespace {

/// Runs the command in a shell. @return its wait status; -1 with errno when it could not be run
int RunInShell(const char* command) {
  std::array<const char*, 4> words{"sh", "-c", command, nullptr};
  pid_t child = -1;
  const int error = posix_spawn(&child, "/bin/sh", nullptr, nullptr,
                                const_cast<char* const*>(words.data()), environ);
  if (error != 0) {
    errno = error;
    return -1;
  }
  int status = -1;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  return status;
}

}  // namespace

int ExecuteCommand(lua_State* L) {
  const char* command = luaL_optstring(L, 1, nullptr);
  if (command != nullptr) {
    const char* const former = EnterCall(L, "os.execute");
    const int status = RunInShell(command);
    const int error = errno;
    LeaveCall(former);
    errno = error;  // which luaL_execresult reports
    return luaL_execresult(L, status);
  }
  lua_pushboolean(L, access("/bin/sh", X_OK) == 0);
  return 1;
}

}  // namespace corvane
