// SPDX-License-Identifier: MIT
// The topic "variables": what the program's variables are. Threads: the server's.
#pragma once

#include "runtime/bench/sampling/bench.h"
#include "runtime/bench/sampling/variable_model.h"
#include "runtime/bench/server/topic.h"

namespace corvane::bench {

class VariablesTopic : public Topic {
 public:
  /// Both outlive this object; `model` then has the variables as the clients know them.
  VariablesTopic(Bench& bench, VariableModel& model) : bench_(bench), model_(model) {}

  void SetWatched(bool watched) override;
  [[nodiscard]] std::vector<Frame> Changes() override;
  [[nodiscard]] std::vector<Frame> Complete() override;

 private:
  Bench& bench_;
  VariableModel& model_;
};

}  // namespace corvane::bench
