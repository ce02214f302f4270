// SPDX-License-Identifier: MIT
#include "runtime/bench/server/metrics_text.h"

#include <fmt/format.h>

#include <cmath>

namespace corvane::bench {
namespace {

std::string Number(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "+Inf" : "-Inf";
  return fmt::format("{}", value);
}

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '\\' || c == '"') escaped += '\\';
    if (c == '\n') {
      escaped += "\\n";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

}  // namespace

void MetricsText::Begin(std::string_view name, std::string_view type, std::string_view help) {
  name_ = name;
  text_ += fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
}

void MetricsText::Add(double value, const Labels& labels, std::string_view suffix) {
  std::string list;
  for (const auto& [name, text] : labels) {
    list += fmt::format("{}{}=\"{}\"", list.empty() ? "" : ",", name, Escaped(text));
  }
  if (!list.empty()) list = "{" + list + "}";
  text_ += fmt::format("{}{}{} {}\n", name_, suffix, list, Number(value));
}

}  // namespace corvane::bench
