// SPDX-License-Identifier: MIT
// MODBUS_TCP: reads or writes coils and registers of a Modbus server, at an edge or again and
// again. Threads: the one that runs the Lua state.
#pragma once

#include <memory>
#include <optional>

#include "addins/corvane_modbus/request.h"
#include "addins/corvane_modbus/transfer.h"
#include "block/job_fb.h"
#include "block/lua_glue.h"

class ModbusTcpFB : public JobFB<ModbusTcpFB> {
 public:
  using JobFB::JobFB;
  static const FBMetaEntry* GetMetaTable();
  /// What has been sent cannot be taken back.
  static constexpr EdgeWhileBusy kEdgeWhileBusy = EdgeWhileBusy::kIsIgnored;

  void Restored() override;

 protected:
  std::optional<JobFailure> Start() override;
  JobProgress Poll() override;
  void AfterEnd() override;

 private:
  /// Begins a transfer with the inputs as they are. @return why they cannot work
  std::optional<JobFailure> Begin();
  /// Takes over what has come back and sets the outputs for it. @return nothing while the transfer
  /// is under way; Done or Failed
  std::optional<JobProgress> End();
  /// As a transfer ended while `Enable` is TRUE.
  void ShowCyclic(const JobProgress& progress);
  void Repeat(double now);
  void ShowAge(double now);

  [[nodiscard]] corvane_modbus::Inputs ReadInputs();

  std::unique_ptr<corvane_modbus::Transfer> transfer_;    // under way
  const corvane_modbus::NumberFormat* format_ = nullptr;  // of the transfer; null for bits
  corvane_modbus::NumberOrder order_;
  std::optional<double> enabled_;    // CycleClock when `Enable` rose; nothing while it is FALSE
  std::optional<double> succeeded_;  // CycleClock of the last success
  double next_ = 0;                  // CycleClock when the next transfer is due
};

DECLARE_FUNCTION_BLOCK(ModbusTcpFB)
