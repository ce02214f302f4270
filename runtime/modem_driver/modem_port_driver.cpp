// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_port_driver.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <chrono>
#include <mutex>

namespace corvane {
namespace {

/// A connection that is not made within this time does not hold up the program.
constexpr std::chrono::seconds kFirstAttempts(2);
constexpr std::size_t kMaxReported = 16;  // a program may try any port number

ModemPortDriver* the_driver = nullptr;  // guarded by the scan lock, as the clients are

}  // namespace

ModemPortDriver::ModemPortDriver(const std::vector<ModemTarget>& targets, ScanLock& lock,
                                 const std::filesystem::path& state_folder)
    : lock_(lock), pins_(state_folder) {
  for (const ModemTarget& target : targets) {
    ports_.push_back(std::make_unique<ModemPort>(target, lock, pins_));
  }
  const auto deadline = std::chrono::steady_clock::now() + kFirstAttempts;
  for (const auto& port : ports_) port->WaitForFirstAttempt(deadline);
  const std::lock_guard guard(lock_);
  the_driver = this;
}

ModemPortDriver::~ModemPortDriver() {
  const std::lock_guard guard(lock_);
  the_driver = nullptr;
}

bool ModemPortDriver::Register(int number, void* context, PortDriverPriorityFunction priority,
                               PortDriverRequestFunction request) {
  const auto found = std::find_if(ports_.begin(), ports_.end(),
                                  [number](const auto& port) { return port->number() == number; });
  if (found != ports_.end()) return (*found)->Register(context, priority, request);
  if (reported_.size() < kMaxReported && reported_.insert(number).second) {
    spdlog::warn(
        "modem port {}: a block needs it, but it is not configured; start with --modem {}=DEVICE",
        number, number);
  }
  return false;
}

void ModemPortDriver::Unregister(void* context) {
  for (const auto& port : ports_) port->Unregister(context);
}

bool ModemPortDriver::HasPort(int number) const {
  return std::any_of(ports_.begin(), ports_.end(),
                     [number](const auto& port) { return port->number() == number; });
}

bool ModemPortDriver::Listen(void* context, PortDriverLineFunction hear) {
  bool found = false;
  for (const auto& port : ports_) found = port->Listen(context, hear) || found;
  return found;
}

std::vector<ModemPortDriver::ObservedPort> ModemPortDriver::Observe() const {
  std::vector<ObservedPort> observed;
  for (const auto& port : ports_) observed.push_back({port->number(), &port->status()});
  return observed;
}

std::vector<std::string> ModemPortDriver::Status() const {
  std::vector<std::string> lines;
  for (const auto& port : ports_) {
    lines.push_back(fmt::format("modem {}: {}", port->number(), port->Status()));
  }
  return lines;
}

}  // namespace corvane

int ModemPortDriverRegister(int port, void* context, PortDriverPriorityFunction priority,
                            PortDriverRequestFunction request, void* /*extra*/) {
  corvane::ModemPortDriver* const driver = corvane::the_driver;
  return driver != nullptr && driver->Register(port, context, priority, request) ? 0 : 1;
}

void ModemPortDriverUnregister(void* context) {
  if (corvane::the_driver != nullptr) corvane::the_driver->Unregister(context);
}

int ModemPortDriverHasPort(int port) {
  return corvane::the_driver != nullptr && corvane::the_driver->HasPort(port) ? 1 : 0;
}

int ModemPortDriverListen(void* context, PortDriverLineFunction hear) {
  return corvane::the_driver != nullptr && corvane::the_driver->Listen(context, hear) ? 0 : 1;
}
