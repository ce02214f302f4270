// SPDX-License-Identifier: MIT
// The sockets of all connections, so that another thread can cut them. Threads: any.
#pragma once

#include <mutex>
#include <set>

namespace corvane_mail {

class OpenSockets {
 public:
  /// A socket that is closed on exec, and does not wait. @return its descriptor; negative if there
  /// is none, or after ShutDownAll
  int Open(int family, int type, int protocol);
  /// Closes a socket of Open.
  void Close(int descriptor);
  /// Ends all connections: whatever reads or writes them fails at once. No new ones open.
  void ShutDownAll() noexcept;

 private:
  std::mutex mutex_;  // a descriptor is never closed, and given to somebody else, meanwhile
  std::set<int> descriptors_;
  bool is_shut_ = false;
};

}  // namespace corvane_mail
