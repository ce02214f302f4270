// SPDX-License-Identifier: MIT
// How a Modbus request ended. A value.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "block/error_ids.h"

namespace modbus {

struct Outcome {
  ErrorId error = ErrorId::kNone;
  std::string text;   ///< of an error: what, where, what to do
  int exception = 0;  ///< the server's (clause 7 of the protocol), with ErrorId::kModbusException
  std::vector<std::uint8_t> bits;        ///< read
  std::vector<std::uint16_t> registers;  ///< read

  static Outcome Failed(ErrorId error, std::string text) {
    return {error, std::move(text), 0, {}, {}};
  }
};

}  // namespace modbus
