// SPDX-License-Identifier: MIT
// One thing that a check of a modem has found out.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>

namespace corvane::modem_check {

enum class Grade : std::uint8_t {
  kOk,
  kWarning,  ///< messages can be sent, but something deserves attention
  kError,    ///< messages cannot be sent
};

/// Texts are single lines and may contain anything that the modem has sent: see Printable().
struct Finding {
  Grade grade = Grade::kOk;
  std::string topic;        ///< "signal"
  std::string text;         ///< what is so
  std::string advice = {};  ///< what to do; empty: nothing
  /// The same for programs: values by name, such as {"dbm": -73}.
  nlohmann::ordered_json values = nlohmann::ordered_json::object();
};

/// Gets each finding as soon as it is made.
using Report = std::function<void(const Finding&)>;

}  // namespace corvane::modem_check
