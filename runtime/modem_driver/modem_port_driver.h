// SPDX-License-Identifier: MIT
// The modem ports of a runtime: implements the functions of corvane/modem_port_driver.h.
// Lifetime: one object at a time; it serves the clients while it exists.
#pragma once

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "corvane/modem_port_driver.h"
#include "runtime/corvane/scan_lock.h"
#include "runtime/modem_driver/modem_port.h"
#include "runtime/modem_driver/modem_target.h"
#include "runtime/modem_driver/pin_memory.h"

namespace corvane {

class ModemPortDriver {
 public:
  /// Opens the devices that are present, and makes the ports available to clients.
  /// @param targets with different port numbers
  /// @param lock the lock under which clients register and are called
  /// @param state_folder where refused PINs are remembered across starts; empty: they are not
  ModemPortDriver(const std::vector<ModemTarget>& targets, ScanLock& lock,
                  const std::filesystem::path& state_folder = {});
  ModemPortDriver(const ModemPortDriver&) = delete;
  ModemPortDriver& operator=(const ModemPortDriver&) = delete;
  /// Refuses further clients, then ends the ports' threads. The caller must not hold the lock.
  ~ModemPortDriver();

  /// As ModemPortDriverRegister; a number that is not configured is logged once.
  bool Register(int number, void* context, PortDriverPriorityFunction priority,
                PortDriverRequestFunction request);
  void Unregister(void* context);
  [[nodiscard]] bool HasPort(int number) const;
  /// As ModemPortDriverListen; false: the context is not a client of any port.
  bool Listen(void* context, PortDriverLineFunction hear);
  /// A port as people look at it. Any thread.
  struct ObservedPort {
    int number;
    ModemStatus* status;  ///< valid as long as the driver
  };
  [[nodiscard]] std::vector<ObservedPort> Observe() const;
  /// One line per port about its state. Any thread.
  [[nodiscard]] std::vector<std::string> Status() const;

 private:
  ScanLock& lock_;
  PinMemory pins_;
  std::vector<std::unique_ptr<ModemPort>> ports_;
  std::set<int> reported_;  // numbers that clients wanted and that are not configured
};

}  // namespace corvane
