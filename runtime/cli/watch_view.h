// SPDX-License-Identifier: MIT
// corvane run --watch: the blocks, the modem ports and the cycle statistics of a running program in
// the terminal.
// Threads: one of its own draws; the PLC task hands over what there is to see and never waits for
// the terminal.
#pragma once

#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "runtime/cli/captured_output.h"
#include "runtime/cli/terminal_guard.h"
#include "runtime/corvane/block_observer.h"
#include "runtime/corvane/cycle_statistics.h"
#include "runtime/modem_driver/modem_port_driver.h"

struct screen;  // of ncurses

namespace corvane::cli {

/// Why this process cannot show anything; empty when it can.
[[nodiscard]] std::string WatchProblem();

/// Takes the terminal when it is made, and gives it back as it was when it goes; also when a signal
/// ends the process, but for SIGKILL. Make it before anything else catches signals or logs. One at
/// a time; WatchProblem() is empty.
class WatchView {
 public:
  explicit WatchView(std::string program);
  WatchView(const WatchView&) = delete;
  WatchView& operator=(const WatchView&) = delete;
  ~WatchView();

  /// From now on the blocks that are created in this state are shown.
  void Follow(lua_State* L) { observer_.emplace(L); }
  /// From now on the state of these ports is shown. They live until the last Update.
  void Follow(const ModemPortDriver& modems) { modems_ = &modems; }
  /// Takes a picture, if the last one is old enough. The PLC task, after a cycle. Throws LuaError.
  void Update(const CycleStatistics& statistics);

 private:
  struct Picture {
    std::string statistics;
    std::vector<std::string> modems;
    std::vector<BlockState> blocks;
  };

  void Draw();
  void DrawLines();
  void TakeKeys();
  [[nodiscard]] Picture picture() const;

  std::string program_;
  TerminalGuard guard_;
  CapturedOutput output_;
  std::unique_ptr<FILE, int (*)(FILE*)> in_;
  std::unique_ptr<FILE, int (*)(FILE*)> out_;
  screen* screen_ = nullptr;
  int wake_;            // eventfd: the view goes
  int first_line_ = 0;  // of the blocks' lines, on top
  std::optional<BlockObserver> observer_;
  const ModemPortDriver* modems_ = nullptr;
  std::chrono::steady_clock::time_point taken_{};
  mutable std::mutex mutex_;  // guards picture_
  Picture picture_;
  std::thread thread_;
};

}  // namespace corvane::cli
