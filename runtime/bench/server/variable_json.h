// SPDX-License-Identifier: MIT
// Variables as JSON, and JSON as their values: protocol version 1, docs/bench.md. Pure functions.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "runtime/bench/sampling/variables.h"

namespace corvane::bench {

/// Number, boolean, text or null; {"special":...} for what JSON has no number for, and
/// {"text":...,"length":...} for a text that is cut.
[[nodiscard]] nlohmann::ordered_json JsonOfValue(const Value& value);

/// {"type":"variables",...} at this time, in seconds since 1970.
[[nodiscard]] std::string JsonOfChanges(const VariableChanges& changes, double time);

/// A value that a client has written (see WriteRequest); empty: null, which no variable takes.
[[nodiscard]] std::optional<Value> ValueOfJson(const nlohmann::json& json);

}  // namespace corvane::bench
