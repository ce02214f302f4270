// SPDX-License-Identifier: MIT
#include "runtime/program_test/simulated_modbus.h"

#include <chrono>

#include "libs/modbus/outcome_text.h"
#include "runtime/corvane/lua_environment.h"

namespace corvane::program_test {
namespace {

using modbus::Outcome;
using modbus::Plan;

Plan CheckedPlan(const modbus::Inputs& inputs) {
  Plan plan = modbus::PlanFrom(inputs);
  if (!plan.problem.empty()) throw LuaError("modbus: " + plan.problem);
  return plan;
}

std::string ValuesAsText(const Plan& plan, const Outcome& values) {
  return plan.format == nullptr ? modbus::BitsAsText(values.bits)
                                : modbus::NumbersAsText(values.registers, *plan.format, plan.order);
}

}  // namespace

std::string SimulatedModbus::Read(const modbus::Inputs& inputs) const {
  const Plan plan = CheckedPlan(inputs);
  return ValuesAsText(plan, Answer(plan));
}

void SimulatedModbus::Write(const modbus::Inputs& inputs) {
  // The test may set what no client can write, so the table is put in afterwards.
  const modbus::Table* const table = modbus::FindTable(inputs.table);
  modbus::Inputs writable = inputs;
  if (table != nullptr) writable.table = table->has_bits ? "coils" : "holding registers";
  Plan plan = CheckedPlan(writable);
  plan.request.table = table;
  Store(plan);
}

void SimulatedModbus::Refuse(const std::string& table, int address, int exception) {
  const modbus::Table* const found = modbus::FindTable(table);
  if (found == nullptr) {
    throw LuaError("modbus:refuse: there is no table '" + table +
                   "'; write coils, discrete inputs, input registers or holding registers");
  }
  exceptions_[{found, address}] = exception;
}

std::optional<Outcome> SimulatedModbus::Poll(const Plan& plan, double begin, double now) {
  if (now <= begin) return std::nullopt;  // not in the cycle in which it was asked
  if (away) {
    return Outcome::Failed(ErrorId::kNoConnection,
                           "Modbus server " + plan.endpoint.Text() +
                               " cannot be reached; check Server, Port, power and cable");
  }
  const double waited = now - begin;
  const double timeout = std::chrono::duration<double>(plan.timeout).count();
  if (waited >= timeout && (silent || delay > timeout)) {
    return Outcome::Failed(ErrorId::kNoAnswer,
                           modbus::TimedOutText(plan.endpoint, plan.request, plan.timeout));
  }
  if (silent || waited < delay) return std::nullopt;
  if (const int exception = ExceptionOf(plan.request); exception != 0) {
    Outcome outcome = Outcome::Failed(
        ErrorId::kModbusException, modbus::ExceptionText(plan.endpoint, plan.request, exception));
    outcome.exception = exception;
    return outcome;
  }
  if (!plan.request.write) return Answer(plan);
  Store(plan);
  Outcome done;
  done.bits = plan.request.bits;
  done.registers = plan.request.registers;
  written_.push_back({{"server", plan.endpoint.server},
                      {"port", plan.endpoint.port},
                      {"unit", plan.request.unit},
                      {"table", plan.request.table->name},
                      {"address", plan.request.address},
                      {"values", ValuesAsText(plan, done)},
                      {"clock", now}});
  return Outcome{};
}

Outcome SimulatedModbus::Answer(const Plan& plan) const {
  Outcome outcome;
  const modbus::Request& request = plan.request;
  for (std::size_t i = 0; i < request.count; ++i) {
    const auto place = values_.find(
        {plan.endpoint.Text(), request.unit, request.table, request.address + static_cast<int>(i)});
    const std::uint16_t value = place == values_.end() ? 0 : place->second;
    if (request.table->has_bits) {
      outcome.bits.push_back(value == 0 ? 0 : 1);
    } else {
      outcome.registers.push_back(value);
    }
  }
  return outcome;
}

void SimulatedModbus::Store(const Plan& plan) {
  const modbus::Request& request = plan.request;
  for (std::size_t i = 0; i < request.count; ++i) {
    values_[{plan.endpoint.Text(), request.unit, request.table,
             request.address + static_cast<int>(i)}] =
        request.table->has_bits ? request.bits[i] : request.registers[i];
  }
}

int SimulatedModbus::ExceptionOf(const modbus::Request& request) const {
  for (const auto& [place, exception] : exceptions_) {
    const int offset = place.second - request.address;
    const bool is_asked = place.first == request.table && offset >= 0 &&
                          static_cast<std::size_t>(offset) < request.count;
    if (is_asked && exception != 0) return exception;
  }
  return 0;
}

}  // namespace corvane::program_test
