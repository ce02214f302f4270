// SPDX-License-Identifier: MIT
#include "libs/messages/offline_request.h"

#include <deque>
#include <iterator>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "libs/messages/outbox.h"

namespace messages {

AnswerRequest CarryOut(StoreView& store, const Request& request, const Now& now) {
  std::vector<Change> changes;
  AnswerRequest answer;
  // An outbox with only this message, and nobody who sends.
  Outbox outbox(request.message.channel, {[] { return kFirstNewId; },
                                          [&](std::vector<Change> written) {
                                            std::ranges::move(written, std::back_inserter(changes));
                                            return std::uint64_t{1};
                                          }});
  std::deque<Outgoing> rows;
  const bool is_live =
      request.message.state == OutgoingState::kWaiting || request.message.report_awaited;
  if (request.message.id != 0 && is_live) {
    rows.push_back(request.message);
  }
  outbox.Load(std::move(rows), {}, {}, store.LimitPerHour(), now);
  while (!outbox.ready()) outbox.Tick(now);
  outbox.Apply(request, now);
  for (const Change& change : changes) {
    if (const auto* given = std::get_if<AnswerRequest>(&change)) answer = *given;
  }
  store.Write(changes);
  return answer;
}

}  // namespace messages
