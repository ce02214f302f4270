// SPDX-License-Identifier: MIT
// A control program under test: its cycles, in the time that the test sets. Threads: one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "runtime/corvane/control_program.h"
#include "runtime/corvane/retain_store.h"
#include "runtime/program_test/program_variables.h"
#include "runtime/program_test/world.h"

namespace corvane::program_test {

class TestedProgram {
 public:
  struct Options {
    std::filesystem::path file;
    std::vector<std::string> arguments;
    double period = 0.1;  ///< s from one cycle to the next
    double now = 0;       ///< time of day when it starts, seconds since 1970
    std::filesystem::path state_folder;
  };

  /// Loads the program. Throws LuaError.
  TestedProgram(Options options, World& world);
  TestedProgram(const TestedProgram&) = delete;
  TestedProgram& operator=(const TestedProgram&) = delete;
  ~TestedProgram();

  /// Runs the next cycle, one period after the one before, the first one when the program starts.
  /// Throws LuaError, with the number of the cycle.
  void Step();
  /// Time passes in which the program does not run.
  void Advance(double seconds) { skipped_ += seconds; }
  /// The system's clock is set.
  void SetNow(double now) { now_offset_ += now - time().now; }
  /// Ends the program and starts it again after this time, in seconds. What plc.retain keeps is
  /// there again; after a power cut, as it was a second before at most. Throws LuaError.
  void Restart(double off, bool power_cut);

  [[nodiscard]] CycleTime time() const;
  [[nodiscard]] std::uint64_t cycle() const { return cycle_; }
  [[nodiscard]] std::optional<int> status() const {
    return program_ == nullptr ? std::nullopt : program_->stop_status();
  }
  /// Throws LuaError when the program could not be started.
  [[nodiscard]] ProgramVariables& variables();

 private:
  void Start();
  void End();
  void Prepare(lua_State* L);

  Options options_;
  World& world_;
  std::uint64_t cycle_ = 0;
  std::uint64_t periods_ = 0;  // all that have passed, of earlier starts, too
  double skipped_ = 0;
  double now_offset_;
  std::unique_ptr<RetainStore> retained_;
  std::unique_ptr<ControlProgram> program_;
  std::unique_ptr<ProgramVariables> variables_;
};

}  // namespace corvane::program_test
