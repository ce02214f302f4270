// SPDX-License-Identifier: MIT
// Composes the text that Prometheus reads (its exposition format, version 0.0.4). Pure functions.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::bench {

class MetricsText {
 public:
  using Labels = std::vector<std::pair<std::string_view, std::string>>;

  /// Begins a metric; `type` is "counter", "gauge" or "histogram".
  void Begin(std::string_view name, std::string_view type, std::string_view help);
  /// A value of the metric that was begun; `suffix` follows its name.
  void Add(double value, const Labels& labels = {}, std::string_view suffix = {});
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string name_;
  std::string text_;
};

}  // namespace corvane::bench
