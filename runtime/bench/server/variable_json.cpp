// SPDX-License-Identifier: MIT
#include "runtime/bench/server/variable_json.h"

#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>
#include <variant>

#include "runtime/bench/server/json_text.h"

namespace corvane::bench {
namespace {

using nlohmann::ordered_json;

const char* NameOf(NodeKind kind) {
  switch (kind) {
    case NodeKind::kBlock: return "block";
    case NodeKind::kTable: return "table";
    case NodeKind::kValue: return "value";
  }
  return "";
}

ordered_json JsonOfNumber(double number) {
  if (std::isfinite(number)) return number;
  const char* const infinity = number > 0 ? "inf" : "-inf";
  return {{"special", std::isnan(number) ? "nan" : infinity}};
}

ordered_json JsonOfNode(const Node& node) {
  ordered_json object = {{"id", node.id},     {"parent", node.parent},
                         {"name", node.name}, {"kind", NameOf(node.kind)},
                         {"type", node.type}, {"direction", node.direction}};
  if (node.secret) object["secret"] = true;
  if (node.writable) object["writable"] = true;
  return object;
}

}  // namespace

ordered_json JsonOfValue(const Value& value) {
  return std::visit(
      [](const auto& held) -> ordered_json {
        using Held = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<Held, std::monostate>) {
          return nullptr;
        } else if constexpr (std::is_same_v<Held, double>) {
          return JsonOfNumber(held);
        } else if constexpr (std::is_same_v<Held, LongText>) {
          return {{"text", held.beginning}, {"length", held.length}};
        } else {
          return held;
        }
      },
      value);
}

std::string JsonOfChanges(const VariableChanges& changes, double time) {
  auto added = ordered_json::array();
  for (const Node& node : changes.added) added.push_back(JsonOfNode(node));
  auto values = ordered_json::array();
  for (const auto& [id, value] : changes.values) {
    values.push_back(ordered_json::array({id, JsonOfValue(value)}));
  }
  ordered_json object = {{"type", "variables"},
                         {"time", time},
                         {"add", std::move(added)},
                         {"remove", changes.removed},
                         {"set", std::move(values)}};
  if (changes.truncated) object["truncated"] = true;
  return JsonText(object);
}

std::optional<Value> ValueOfJson(const nlohmann::json& json) {
  if (json.is_boolean()) return json.get<bool>();
  if (json.is_string()) return json.get<std::string>();
  if (json.is_number_unsigned() &&
      json.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
    return json.get<double>();
  }
  if (json.is_number_integer()) return json.get<std::int64_t>();
  if (json.is_number()) return json.get<double>();
  if (!json.is_object()) return std::nullopt;
  const double infinity = std::numeric_limits<double>::infinity();
  const std::string special = json.value("special", "");
  if (special == "nan") return std::numeric_limits<double>::quiet_NaN();
  return special == "inf" ? infinity : -infinity;
}

}  // namespace corvane::bench
