// SPDX-License-Identifier: MIT
// The blocks that the modem port driver may call. A driver keeps the address of a block for ever if
// it has no ModemPortDriverUnregister, so its calls for a block that Lua has collected lead
// nowhere.
#pragma once

#include <mutex>
#include <unordered_set>
#include <utility>

#include "corvane/modem_port_driver.h"

/// A member of a block, by which its class knows that it exists. When it is destroyed, it withdraws
/// the block from the driver, if the runtime can do that.
template <class Block>
class DriverClient {
 public:
  explicit DriverClient(Block* block) : block_(block) {
    const std::lock_guard lock(mutex);
    if (existing == nullptr) existing = new std::unordered_set<const void*>;
    existing->insert(block_);
  }
  DriverClient(const DriverClient&) = delete;
  DriverClient& operator=(const DriverClient&) = delete;
  ~DriverClient() {
    if (ModemPortDriverUnregister != nullptr) ModemPortDriverUnregister(block_);
    const std::lock_guard lock(mutex);
    existing->erase(block_);
    if (existing->empty()) delete std::exchange(existing, nullptr);
  }

  /// The block that a driver calls; null: it does not exist any more.
  static Block* Of(void* context) {
    const std::lock_guard lock(mutex);
    const bool exists = existing != nullptr && existing->contains(context);
    return exists ? static_cast<Block*>(context) : nullptr;
  }

 private:
  // Both are usable to the very end of the process, when the driver may still call.
  inline static std::mutex mutex;  // Lua states, each with blocks of its own, may run at once
  inline static std::unordered_set<const void*>* existing = nullptr;  // null: no block exists

  Block* const block_;
};
