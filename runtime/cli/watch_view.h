// SPDX-License-Identifier: MIT
// corvane run --watch: the blocks, the modem ports and the cycle statistics of a running program in
// the terminal.
// Threads: a thread of its own draws; the PLC task hands over the pictures. Neither ever waits for
// the terminal.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "libs/base/descriptor.h"
#include "runtime/cli/captured_output.h"
#include "runtime/cli/change_marks.h"
#include "runtime/cli/watch_page.h"
#include "runtime/cli/watch_terminal.h"
#include "runtime/corvane/block_observer.h"
#include "runtime/corvane/cycle_statistics.h"
#include "runtime/modem_driver/modem_port_driver.h"

namespace corvane::cli {

/// Takes the terminal in its constructor, and restores it in its destructor or when a signal other
/// than SIGKILL ends the process. Construct it before anything else catches signals or logs. One at
/// a time, and only if TerminalProblem() is empty.
class WatchView {
 public:
  explicit WatchView(std::string program);
  WatchView(const WatchView&) = delete;
  WatchView& operator=(const WatchView&) = delete;
  /// Ends within a second, even if the terminal accepts no output.
  ~WatchView();

  /// From now on, shows the blocks that are created in this state.
  void Follow(lua_State* L) { observer_.emplace(L); }
  /// From now on, shows the state of these ports, which must outlive the last Update.
  void Follow(const ModemPortDriver& modems) { modems_ = &modems; }
  /// Takes a picture if the last one is old enough. Called by the PLC task after a cycle. Throws
  /// LuaError.
  void Update(const CycleStatistics& statistics);

 private:
  using Picture = std::shared_ptr<const WatchPicture>;

  void Draw();
  [[nodiscard]] Picture Last();
  void Show();

  WatchTerminal terminal_;
  CapturedOutput output_;
  ChangeMarks marks_;
  Descriptor wake_;  // eventfd: the view ends
  std::optional<BlockObserver> observer_;
  const ModemPortDriver* modems_ = nullptr;
  std::chrono::steady_clock::time_point taken_{};
  std::mutex mutex_;  // guards picture_
  Picture picture_ = std::make_shared<WatchPicture>();
  std::thread thread_;
};

}  // namespace corvane::cli
