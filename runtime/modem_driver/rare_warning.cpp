// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/rare_warning.h"

#include <spdlog/spdlog.h>

namespace corvane {
namespace {

constexpr std::size_t kMost = 100;  // a modem may say anything

}  // namespace

void RareWarning::Log(const std::string& what, const std::string& text) {
  const auto now = std::chrono::steady_clock::now();
  if (last_.size() >= kMost && last_.find(what) == last_.end()) last_.clear();
  const auto [entry, first] = last_.try_emplace(what, Last{now});
  Last& last = entry->second;
  if (!first && now < last.logged + interval_) {
    ++last.kept_back;
    return;
  }
  if (last.kept_back == 0) {
    spdlog::warn("{}", text);
  } else {
    spdlog::warn("{}; {} times since this was last logged", text, last.kept_back + 1);
  }
  last = {now};
}

}  // namespace corvane
