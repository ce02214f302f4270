// SPDX-License-Identifier: MIT
#include "runtime/bench/server/cycle_topic.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "runtime/bench/server/json_text.h"

namespace corvane::bench {

using nlohmann::ordered_json;

void CycleTopic::SetWatched(bool /*watched*/) {
  report_ = {};
}

std::vector<Frame> CycleTopic::Changes() {
  CycleReport report = bench_.Cycles();
  if (report.cycles == report_.cycles) return {};
  const double known = report_.last.empty() ? 0 : report_.last.back().time;
  report_ = std::move(report);
  return {FrameOf(report_, known)};
}

std::vector<Frame> CycleTopic::Complete() {
  return {FrameOf(report_, 0)};
}

Frame CycleTopic::FrameOf(const CycleReport& report, double after) const {
  auto last = ordered_json::array();
  for (const CycleSpan& span : report.last) {
    if (span.time <= after) continue;
    last.push_back(
        ordered_json::array({span.time, span.mean, span.longest, span.latest, span.overruns}));
  }
  auto histogram = ordered_json::array();
  for (std::size_t i = 0; i < report.histogram.size(); ++i) {
    const bool is_last = i == kCycleBounds.size();
    histogram.push_back(ordered_json::array(
        {is_last ? ordered_json() : ordered_json(kCycleBounds.at(i)), report.histogram.at(i)}));
  }
  return JsonText({{"type", "cycle"},
                   {"time", SecondsNow()},
                   {"count", report.cycles},
                   {"overruns", report.overruns},
                   {"longest", report.longest},
                   {"last", std::move(last)},
                   {"histogram", std::move(histogram)},
                   {"cycle", period_}});
}

}  // namespace corvane::bench
