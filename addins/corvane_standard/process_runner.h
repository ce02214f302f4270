// SPDX-License-Identifier: MIT
// Runs the processes of all PROCESS blocks, in one thread, which starts them, reads their output
// and ends them. Threads: that of Lua, which never waits here.
#pragma once

#include <memory>

#include "addins/corvane_standard/process_handle.h"
#include "addins/corvane_standard/spawn.h"

namespace corvane_standard {

class ProcessRunner {
 public:
  /// The one of the process; the first use starts its thread. Throws std::system_error if the
  /// system refuses that.
  static ProcessRunner& The();
  /// Ends all process groups, SIGKILL after 0.7 s, and the thread; in at most a second. Nothing
  /// happens if The() was not used.
  static void End();
  /// The same, from any thread, while that of Lua may be in a call of this class: for a host that
  /// ends the process with std::quick_exit, because its program hangs. No process starts any more.
  static void EndBesideLua() noexcept;

  /// Has the thread start a process. Its group is ended when nobody owns `owner` any more; whoever
  /// gives that up calls Wake.
  std::shared_ptr<ProcessHandle> Start(ProcessOrder order, std::weak_ptr<const void> owner);
  /// Has the thread look at what has changed.
  void Wake();
  /// Wakes the thread if there is one.
  static void WakeIfAny();

 private:
  struct Shared;
  struct Latest;

  ProcessRunner();

  static std::unique_ptr<ProcessRunner>& Instance();
  static Latest& TheLatest();

  std::shared_ptr<Shared> shared_;  // also the thread's, which may be left behind in a dead disk
};

}  // namespace corvane_standard
