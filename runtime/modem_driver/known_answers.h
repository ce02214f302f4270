// SPDX-License-Identifier: MIT
// Answers that came after their request had been given up. They are kept for the client that asks
// again: the very same requests are then answered without the modem, and nothing is done twice.
// Threads: the port's own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "runtime/modem_driver/modem_exchange.h"
#include "runtime/modem_driver/modem_request.h"
#include "runtime/modem_driver/modem_times.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

/// A request and its answer.
struct KnownStep {
  ModemRequest request;
  ExchangeResult result;
};

class KnownAnswers {
 public:
  /// @param lifetime how long to keep an answer that its client does not ask for
  explicit KnownAnswers(ModemTimes::Time lifetime) : lifetime_(lifetime) {}

  /// Keeps the answers to the client's next requests, in this order; drops what was kept before.
  void Keep(std::uint64_t client, std::vector<KnownStep> steps);
  /// The answer, if there is one. The answer of the last step is returned only once.
  [[nodiscard]] std::optional<ExchangeResult> Answer(std::uint64_t client,
                                                     const ModemRequest& request);
  /// The announcement whose prompt this client got from memory, for when it then sends a different
  /// text: the modem knows nothing of that prompt. What was kept for the client is dropped.
  [[nodiscard]] std::optional<ModemRequest> TakeAnnouncement(std::uint64_t client);
  /// The client wants something: what is kept for it is kept longer.
  void NoteWanted(std::uint64_t client);
  /// The client has gone on to something else.
  void Forget(std::uint64_t client);
  /// The modem has restarted, or the line may now lead to another one.
  void Clear() { kept_.clear(); }

 private:
  struct Kept {
    std::uint64_t client;
    std::vector<KnownStep> steps;
    std::size_t next;    // the next step
    SteadyTime expires;  // if nobody asks for it
  };

  [[nodiscard]] std::vector<Kept>::iterator Find(std::uint64_t client);

  ModemTimes::Time lifetime_;
  std::vector<Kept> kept_;  // at most one per client
};

}  // namespace corvane
