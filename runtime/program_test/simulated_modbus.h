// SPDX-License-Identifier: MIT
// The Modbus servers of a program under test: each has every address, with 0 in it at first.
// Threads: one.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <tuple>

#include "libs/modbus/outcome.h"
#include "libs/modbus/request.h"

namespace corvane::program_test {

class SimulatedModbus {
 public:
  bool away = false;    ///< no server can be reached
  bool silent = false;  ///< servers take requests, and do not answer
  double delay = 0;     ///< s until a server answers

  /// What a server has, as a text; for the test. Throws LuaError when the request cannot work.
  [[nodiscard]] std::string Read(const modbus::Inputs& inputs) const;
  /// Changes it.
  void Write(const modbus::Inputs& inputs);
  /// Servers refuse this address of a table with this exception from now on; 0: not any more.
  void Refuse(const std::string& table, int address, int exception);

  /// What becomes of a request that began at `begin`; nothing: not known yet.
  [[nodiscard]] std::optional<modbus::Outcome> Poll(const modbus::Plan& plan, double begin,
                                                    double now);
  /// What blocks have written: an array of objects.
  [[nodiscard]] const nlohmann::json& written() const { return written_; }

 private:
  using Place = std::tuple<std::string, int, const modbus::Table*, int>;  // endpoint, unit, address

  [[nodiscard]] modbus::Outcome Answer(const modbus::Plan& plan) const;
  void Store(const modbus::Plan& plan);
  [[nodiscard]] int ExceptionOf(const modbus::Request& request) const;

  std::map<Place, std::uint16_t> values_;
  std::map<std::pair<const modbus::Table*, int>, int> exceptions_;
  nlohmann::json written_ = nlohmann::json::array();
};

}  // namespace corvane::program_test
