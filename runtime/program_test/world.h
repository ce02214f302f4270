// SPDX-License-Identifier: MIT
// Everything outside of a program under test: time, modems, mail servers, Modbus servers,
// commands. Nothing of it is real. Threads: one.
#pragma once

#include <vector>

#include "runtime/corvane/cycle_time.h"
#include "runtime/program_test/simulated_mail.h"
#include "runtime/program_test/simulated_modbus.h"
#include "runtime/program_test/simulated_modem.h"
#include "runtime/program_test/simulated_processes.h"

namespace corvane::program_test {

/// A block that works between its calls.
class CycleClient {
 public:
  CycleClient();
  CycleClient(const CycleClient&) = delete;
  CycleClient& operator=(const CycleClient&) = delete;
  virtual ~CycleClient();
  /// A cycle begins at this time, in seconds as plc.clock().
  virtual void BeginCycle(double clock) = 0;
};

/// There is one at a time, which doubles of blocks find with The().
class World {
 public:
  World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;
  ~World();

  [[nodiscard]] static World& The();

  /// What goes on outside until a cycle begins at this time.
  void Advance(const CycleTime& time);
  /// The program has ended, and its blocks with it; what is stored stays.
  void ProgramEnded();
  [[nodiscard]] const CycleTime& time() const { return time_; }

  SimulatedModem modem;
  SimulatedMail mail;
  SimulatedModbus modbus;
  SimulatedProcesses processes;

 private:
  friend CycleClient;
  CycleTime time_{};
  std::vector<CycleClient*> clients_;  // in the order of their creation
};

}  // namespace corvane::program_test
