// SPDX-License-Identifier: MIT
// What the log says about a `Receiver` that is probably not what was meant. A pure function.
#pragma once

#include <string>
#include <vector>

/// Advice on a `Receiver` that SEND_SMS splits into `numbers`, of which one has fewer than four
/// digits: it may be a piece of a number that was written with spaces ("+49 151 12345678"). One
/// line for the log; empty when all numbers are longer, or there are none.
[[nodiscard]] std::string AdviceOnReceiver(const std::string& receiver,
                                           const std::vector<std::string>& numbers);
