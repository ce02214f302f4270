// SPDX-License-Identifier: MIT
// Commands whose parameters are numbers: their test, read and set forms (ITU-T V.250 clause 5.4.4).
#pragma once

#include <span>
#include <string_view>

#include "runtime/modem_simulator/at_command.h"
#include "runtime/modem_simulator/result.h"

namespace modem_simulator {

/// Whether a list of values, written as in a test form ("0-2,99"), contains this one.
[[nodiscard]] bool Offers(std::string_view choices, int value);

/// The whole command: "=?" shows `offered`, one list of values per parameter, "?" shows `values`,
/// and "=" sets them. A parameter that is left out keeps its value; without any, all become 0, the
/// default of the commands for which this is used. For any other value, or one parameter too many,
/// returns `refusal` and sets nothing. `offered` and `values` must have the same size.
[[nodiscard]] Result NumericParameters(const AtCommand& command,
                                       std::span<const std::string_view> offered,
                                       std::span<int> values, Result refusal, Answer& answer);

/// The same for one parameter.
[[nodiscard]] Result NumericParameter(const AtCommand& command, std::string_view offered,
                                      int& value, Result refusal, Answer& answer);

}  // namespace modem_simulator
