// SPDX-License-Identifier: MIT
// Changes on their way from the calls of blocks to the store's writer, as octets in blocks of
// memory. Were they handed over as objects, the writer would free thousands of small pieces of
// memory that calls have allocated, and the next allocation of a call would sort them all (more
// than a millisecond in glibc). Threads: one at a time.
#pragma once

#include <cstddef>
#include <list>
#include <string>

#include "libs/messages/pending_changes.h"
#include "libs/messages/store.h"

namespace messages {

class ChangeQueue {
 public:
  /// Takes a copy. Nothing that is queued already is moved.
  void Push(const Change& change);
  [[nodiscard]] bool empty() const { return blocks_.empty(); }
  /// Adds all changes to `pending`, the oldest first.
  void MoveTo(PendingChanges& pending);
  /// Both stay valid; takes the same time whatever they hold.
  void Swap(ChangeQueue& other) noexcept { blocks_.swap(other.blocks_); }

 private:
  std::list<std::string> blocks_;
};

}  // namespace messages
