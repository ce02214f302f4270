// SPDX-License-Identifier: MIT
// Clients' requests about messages, left in the store for the program that runs, as `corvane
// messages` leaves them. Threads: the server's.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "runtime/bench/server/hub.h"
#include "runtime/bench/server/store_thread.h"

namespace corvane::bench {

class StoreRequests {
 public:
  explicit StoreRequests(std::shared_ptr<StoreThread> store) : store_(std::move(store)) {}

  /// Leaves a request; `done` is called when the program has answered, or after 5 seconds without
  /// an answer, when the request is taken back.
  void Ask(const MessageRequest& request, RequestDone done);
  /// Looks for answers. Called now and then.
  void Poll();

 private:
  struct Pending {
    std::int64_t number;
    std::chrono::steady_clock::time_point deadline;
    RequestDone done;
  };

  /// What to say to the client: whether there is an answer, and its error.
  [[nodiscard]] std::pair<bool, std::string> Look(const Pending& pending);

  std::shared_ptr<StoreThread> store_;
  std::vector<Pending> pending_;
};

}  // namespace corvane::bench
