// SPDX-License-Identifier: MIT
#include "runtime/bench/server/modem_topic.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "libs/base/printable.h"
#include "runtime/bench/server/json_text.h"

namespace corvane::bench {

using nlohmann::ordered_json;

void ObservedModem::UpdateFacts() {
  status_.Want();
  const ModemStatus::Part part = status_.From(facts_next_);
  facts_next_ = part.next;
  for (const DialogueLine& line : part.lines) {
    if (!line.sent) facts_.Take(line.text);
  }
}

std::vector<DialogueLine> ObservedModem::Update() {
  UpdateFacts();
  ModemStatus::Part part = status_.From(next_);
  next_ = part.next;
  return std::move(part.lines);
}

std::vector<DialogueLine> ObservedModem::AllLines() const {
  ModemStatus::Part part = status_.From(0);
  const auto too_new = static_cast<std::size_t>(part.next - next_);  // they come with the changes
  part.lines.resize(part.lines.size() - std::min(too_new, part.lines.size()));
  return std::move(part.lines);
}

std::string ObservedModem::Summary() const {
  return fmt::format("{} {} {} {} {}", status_.state(), status_.Get(), facts_.signal().value_or(0),
                     facts_.registration(), facts_.network());
}

Frame ObservedModem::FrameOf(const std::vector<DialogueLine>& lines) const {
  auto list = ordered_json::array();
  for (const DialogueLine& line : lines) {
    list.push_back({{"time", line.time}, {"sent", line.sent}, {"text", Printable(line.text)}});
  }
  const auto signal = facts_.signal();
  return JsonText({{"type", "modem"},
                   {"port", std::to_string(number_)},
                   {"state", status_.state()},
                   {"status", Printable(status_.Get())},
                   {"operator", Printable(facts_.network())},
                   {"signal", signal ? ordered_json(*signal) : ordered_json()},
                   {"registration", facts_.registration()},
                   {"lines", std::move(list)}});
}

void ModemTopic::SetWatched(bool /*watched*/) {
  summaries_.assign(modems_.size(), "");
}

std::vector<Frame> ModemTopic::Changes() {
  std::vector<Frame> frames;
  for (std::size_t i = 0; i < modems_.size(); ++i) {
    const std::vector<DialogueLine> lines = modems_[i].Update();
    std::string summary = modems_[i].Summary();
    const bool changed = std::exchange(summaries_[i], summary) != summary;
    if (changed || !lines.empty()) frames.push_back(modems_[i].FrameOf(lines));
  }
  return frames;
}

std::vector<Frame> ModemTopic::Complete() {
  std::vector<Frame> frames;
  for (const ObservedModem& modem : modems_) frames.push_back(modem.FrameOf(modem.AllLines()));
  return frames;
}

}  // namespace corvane::bench
