// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/known_answers.h"

#include <algorithm>
#include <utility>

namespace corvane {

using std::chrono::steady_clock;

void KnownAnswers::Keep(std::uint64_t client, std::vector<KnownStep> steps) {
  Forget(client);
  kept_.push_back({client, std::move(steps), 0, steady_clock::now() + lifetime_});
}

std::optional<ExchangeResult> KnownAnswers::Answer(std::uint64_t client,
                                                   const ModemRequest& request) {
  const auto kept = Find(client);
  if (kept == kept_.end()) return std::nullopt;
  if (kept->steps[kept->next].request.octets != request.octets) {
    // Start again, unless the client sends another text: then it is still owed its prompt.
    if (request.kind == RequestKind::kText) return std::nullopt;
    kept->next = 0;
    if (kept->steps.front().request.octets != request.octets) return std::nullopt;
  }
  ExchangeResult result = kept->steps[kept->next].result;
  if (++kept->next == kept->steps.size()) kept_.erase(kept);
  return result;
}

std::optional<ModemRequest> KnownAnswers::TakeAnnouncement(std::uint64_t client) {
  const auto kept = Find(client);
  if (kept == kept_.end() || kept->next == 0) return std::nullopt;
  ModemRequest announcement = std::move(kept->steps.front().request);
  kept_.erase(kept);
  return announcement;
}

void KnownAnswers::NoteWanted(std::uint64_t client) {
  if (const auto kept = Find(client); kept != kept_.end()) {
    kept->expires = steady_clock::now() + lifetime_;
  }
}

void KnownAnswers::Forget(std::uint64_t client) {
  std::erase_if(kept_, [client](const Kept& kept) { return kept.client == client; });
}

std::vector<KnownAnswers::Kept>::iterator KnownAnswers::Find(std::uint64_t client) {
  const auto now = steady_clock::now();
  std::erase_if(kept_, [now](const Kept& kept) { return kept.expires < now; });
  return std::find_if(kept_.begin(), kept_.end(),
                      [client](const Kept& kept) { return kept.client == client; });
}

}  // namespace corvane
