// SPDX-License-Identifier: MIT
// The topic "log". Threads: the server's.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "runtime/bench/server/log_tap.h"
#include "runtime/bench/server/topic.h"

namespace corvane::bench {

class LogTopic : public Topic {
 public:
  explicit LogTopic(std::shared_ptr<LogTap> tap) : tap_(std::move(tap)) {}

  void SetWatched(bool watched) override;
  [[nodiscard]] std::vector<Frame> Changes() override;
  [[nodiscard]] std::vector<Frame> Complete() override;

 private:
  std::shared_ptr<LogTap> tap_;
  std::uint64_t next_ = 0;  // number of the first line that was not sent yet
};

}  // namespace corvane::bench
