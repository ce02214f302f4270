// SPDX-License-Identifier: MIT
// One control program: a Lua file that runs once, and its function `cycle`.
// Threads: one at a time, under the scan lock.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "runtime/corvane/cycle_time.h"
#include "runtime/corvane/file_watches.h"
#include "runtime/corvane/lua_environment.h"
#include "runtime/corvane/plc_library.h"
#include "runtime/corvane/retained_values.h"

namespace corvane {

/// A file that cannot run, however often it is started: it is not valid Lua, or defines no function
/// `cycle`.
class UnusableProgram : public LuaError {
 public:
  using LuaError::LuaError;
};

class ControlProgram {
 public:
  /// Prepares the Lua environment; the file's folder is searched first by `require`.
  /// @param retained what plc.retain uses; it must outlive the program. Null: nothing is kept
  /// Throws LuaError when a block type cannot be opened.
  ControlProgram(const std::filesystem::path& file, std::vector<std::string> arguments,
                 RetainStore* retained = nullptr);
  /// Hands over what is retained, collects every block and waits for their workers.
  ~ControlProgram();
  ControlProgram(const ControlProgram&) = delete;
  ControlProgram& operator=(const ControlProgram&) = delete;

  /// Runs the file, at the time at which this object was created. Throws UnusableProgram on a
  /// syntax error (with file and line) and when the file defines no global function `cycle`, unless
  /// it has asked to stop; LuaError on an error while it runs.
  void Load();
  /// Calls `cycle()` with plc.cycle = `number`, at this time, and then hands over what is retained
  /// if it is time. Throws LuaError.
  void Cycle(std::uint64_t number, const CycleTime& time = CycleTime::Read());
  /// What is retained and was not handed over yet is lost, as in a power cut.
  void ForgetUnwritten() { retained_.Forget(); }
  [[nodiscard]] lua_State* lua() const { return lua_.state(); }
  /// The exit status that the program has asked to end with, if it has.
  [[nodiscard]] std::optional<int> stop_status() const { return plc_.stop_status; }

 private:
  /// ProtectedCall that does not treat os.exit as an error.
  void Call(int arguments);

  StandingTime time_;
  std::filesystem::path file_;
  PlcContext plc_;
  RetainedValues retained_;
  FileWatches files_;
  LuaEnvironment lua_;  // last: blocks may still use the members above when they are collected
};

}  // namespace corvane
