// SPDX-License-Identifier: MIT
// One request to a Modbus server, as the Modbus Application Protocol (V1.1b3) has them, and the
// reading of a block's inputs into one. Values; pure functions.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "libs/modbus/number_format.h"

namespace modbus {

/// A server; its blocks share one connection.
struct Endpoint {
  std::string server;  ///< name or address
  int port = 0;

  bool operator<(const Endpoint& other) const {
    return std::tie(server, port) < std::tie(other.server, other.port);
  }
  /// As messages show it: `plc1:502`, `[::1]:502`.
  [[nodiscard]] std::string Text() const;
};

/// The four tables of a server (clause 4.3).
struct Table {
  const char* name;
  const char* short_name;
  const char* one;  ///< what it has, in the singular
  bool has_bits;
  bool can_write;
  std::size_t most_read;     ///< bits or registers in one request (clauses 6.1 to 6.4)
  std::size_t most_written;  ///< the same (clauses 6.11, 6.12); 0: none
};

/// The names are matched without regard to case; an empty one means the holding registers.
/// @return null for a name that is none of the four
[[nodiscard]] const Table* FindTable(std::string_view name);

/// What is asked of a server.
struct Request {
  const Table* table = nullptr;
  bool write = false;
  int unit = 0;
  int address = 0;                            ///< of the first, from 0
  std::size_t count = 0;                      ///< bits or registers
  std::vector<std::uint8_t> bits = {};        ///< to be written, 0 or 1 each
  std::vector<std::uint16_t> registers = {};  ///< to be written

  /// For a sentence: "reading 2 holding registers from address 100".
  [[nodiscard]] std::string Text() const;
};

/// The inputs of a block.
struct Inputs {
  std::string server;
  int port = 0;
  int unit = 0;
  std::string table = {};
  bool write = false;
  int address = 0;
  int count = 0;
  std::string format = {};
  std::string order = {};
  std::string values = {};
  double timeout = 0;
};

/// What the inputs ask for.
struct Plan {
  Endpoint endpoint;
  Request request;
  const NumberFormat* format = nullptr;  ///< null for bits
  NumberOrder order;
  std::chrono::milliseconds timeout{};
  std::string problem;  ///< which input cannot work, why, and what to do; empty: none
};

/// Time for one request if `Timeout` is 0, and at most.
inline constexpr std::chrono::seconds kDefaultTimeout(3);
inline constexpr std::chrono::hours kLongestTimeout(1);

/// Checks the inputs against the limits of the protocol.
[[nodiscard]] Plan PlanFrom(const Inputs& inputs);

}  // namespace modbus
