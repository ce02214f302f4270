// SPDX-License-Identifier: MIT
// The stores that are open in this process, so that add-ins which each have their own copy of this
// library share one store for each folder: one lock, one writer thread, one sequence of numbers.
// Threads: any.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "libs/messages/store_shared.h"

namespace messages {

/// What a handle of a store has joined.
struct JoinedStore {
  std::shared_ptr<StoreShared> shared;
  bool is_new = false;  ///< the caller starts the writer thread
};

/// Joins the open store of this folder as `channel`, or makes one; `options` count only then. A
/// channel that is in use already gets a store of its own, which then finds the file locked.
[[nodiscard]] JoinedStore JoinStore(const std::filesystem::path& folder, const std::string& channel,
                                    StoreOptions options);

/// The channel's handle ends. @return whether it was the last one: the store is stopping
[[nodiscard]] bool LeaveStore(StoreShared& shared, const std::string& channel);

}  // namespace messages
