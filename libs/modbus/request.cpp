// SPDX-License-Identifier: MIT
#include "libs/modbus/request.h"

#include <algorithm>
#include <utility>

#include "block/duration_input.h"
#include "libs/base/printable.h"

namespace modbus {
namespace {

constexpr int kModbusPort = 502;
constexpr std::size_t kAddresses = 65536;
constexpr std::size_t kLongestServer = 253;  // of a domain name (RFC 1035 clause 2.3.4)
constexpr std::size_t kShownOctetsOfText = 60;

constexpr Table kTables[] = {
    {"holding registers", "holding", "holding register", false, true, 125, 123},
    {"input registers", "input registers", "input register", false, false, 125, 0},
    {"coils", "coils", "coil", true, true, 2000, 1968},
    {"discrete inputs", "inputs", "discrete input", true, false, 2000, 0},
};

std::string QuotedText(std::string_view text) {
  return "'" + corvane::PrintableBeginning(text, kShownOctetsOfText) + "'";
}

std::string Is(const char* input, int value) {
  return std::string(input) + " is " + std::to_string(value);
}

// Each of these takes over some inputs and returns what is wrong with them, or nothing.

std::string TakeServer(const Inputs& inputs, Plan& plan) {
  std::string_view server = inputs.server;
  if (server.starts_with('[') && server.ends_with(']')) {
    server = server.substr(1, server.size() - 2);
  }
  if (server.empty()) return "Server is empty; give the name or the address of the Modbus server";
  if (std::count(server.begin(), server.end(), ':') == 1) {
    return "Server is " + QuotedText(server) + "; give the name or the address alone, and the " +
           "number behind the colon as Port";
  }
  const auto is_foreign = [](char c) {
    const auto octet = static_cast<unsigned char>(c);
    return octet <= ' ' || octet == 0x7F || c == '/';
  };
  if (server.size() > kLongestServer || std::any_of(server.begin(), server.end(), is_foreign)) {
    return "Server is " + QuotedText(server) + ", which is neither a name nor an address";
  }
  plan.endpoint.server = server;
  plan.endpoint.port = inputs.port == 0 ? kModbusPort : inputs.port;
  if (inputs.port >= 0 && inputs.port < 65536) return {};
  return Is("Port", inputs.port) + "; give a number up to 65535, or 0 for 502";
}

std::string TakeUnit(const Inputs& inputs, Plan& plan) {
  plan.request.unit = inputs.unit;
  if ((inputs.unit >= 0 && inputs.unit <= 247) || inputs.unit == 255) return {};
  return Is("Unit", inputs.unit) + "; give a number up to 247, or 255";
}

std::string TakeTable(const Inputs& inputs, Plan& plan) {
  plan.request.table = FindTable(inputs.table);
  plan.request.write = inputs.write;
  if (plan.request.table == nullptr) {
    return "Table is " + QuotedText(inputs.table) +
           "; give coils, discrete inputs, input registers or holding registers";
  }
  if (!inputs.write || plan.request.table->can_write) return {};
  return "Write is TRUE, but nobody can write " + std::string(plan.request.table->name) +
         "; only coils and holding registers can be written";
}

std::string TakeFormat(const Inputs& inputs, Plan& plan) {
  const auto order = FindNumberOrder(inputs.order);
  if (!order) return "Order is " + QuotedText(inputs.order) + "; give ABCD, CDAB, BADC or DCBA";
  plan.order = *order;
  if (plan.request.table->has_bits) {
    if (inputs.format.empty() || IsSameName(inputs.format, "BOOL")) return {};
    return "Format is " + QuotedText(inputs.format) + ", but " + plan.request.table->name +
           " are BOOL; leave Format empty, or correct Table";
  }
  plan.format = FindNumberFormat(inputs.format);
  if (plan.format != nullptr) return {};
  return "Format is " + QuotedText(inputs.format) +
         "; give UINT, INT, UDINT, DINT, REAL, ULINT, LINT or LREAL";
}

std::size_t UnitsOfNumber(const Plan& plan) {
  return plan.format == nullptr ? 1 : plan.format->registers;
}

std::string TakeValues(const Inputs& inputs, Plan& plan) {
  Request& request = plan.request;
  std::string problem;
  if (plan.format == nullptr) {
    auto bits = BitsFromText(inputs.values, request.table->most_written);
    request.bits = std::move(bits.values);
    problem = std::move(bits.problem);
  } else {
    auto registers =
        NumbersFromText(inputs.values, *plan.format, plan.order, request.table->most_written);
    request.registers = std::move(registers.values);
    problem = std::move(registers.problem);
  }
  if (!problem.empty()) return "Values cannot be written: " + problem;
  request.count = std::max(request.bits.size(), request.registers.size());
  const std::size_t numbers = request.count / UnitsOfNumber(plan);
  if (inputs.count == 0 || static_cast<std::size_t>(inputs.count) == numbers) return {};
  return Is("Count", inputs.count) + ", but Values has " + std::to_string(numbers) +
         (numbers == 1 ? " number" : " numbers") + "; correct one of them, or leave Count at 0";
}

std::string TakeCount(const Inputs& inputs, Plan& plan) {
  if (inputs.count < 0) return Is("Count", inputs.count) + "; give a number above 0";
  if (inputs.write) return TakeValues(inputs, plan);
  const std::size_t most = plan.request.table->most_read / UnitsOfNumber(plan);
  const auto numbers = static_cast<std::size_t>(std::max(inputs.count, 1));
  plan.request.count = numbers * UnitsOfNumber(plan);
  if (numbers <= most) return {};
  return Is("Count", inputs.count) + "; one request can read " + std::to_string(most) + " of these";
}

std::string TakeAddress(const Inputs& inputs, Plan& plan) {
  plan.request.address = inputs.address;
  if (inputs.address < 0 || static_cast<std::size_t>(inputs.address) >= kAddresses) {
    return Is("Address", inputs.address) + "; addresses go from 0 to 65535";
  }
  if (static_cast<std::size_t>(inputs.address) + plan.request.count <= kAddresses) return {};
  return Is("Address", inputs.address) + ", and " + std::to_string(plan.request.count) + " " +
         plan.request.table->name + " from there go beyond 65535, the last address";
}

std::string TakeTimeout(const Inputs& inputs, Plan& plan) {
  const auto timeout = DurationInput(inputs.timeout, kDefaultTimeout);
  if (!timeout) return "Timeout is not a duration; give seconds, or 0 for 3 s";
  plan.timeout = std::min<std::chrono::milliseconds>(*timeout, kLongestTimeout);
  return {};
}

}  // namespace

std::string Endpoint::Text() const {
  const bool brackets = server.find(':') != std::string::npos;
  return (brackets ? "[" + server + "]" : corvane::Printable(server)) + ":" + std::to_string(port);
}

const Table* FindTable(std::string_view name) {
  if (name.empty()) return &kTables[0];
  for (const Table& table : kTables) {
    if (IsSameName(name, table.name) || IsSameName(name, table.short_name)) {
      return &table;
    }
  }
  return nullptr;
}

std::string Request::Text() const {
  const bool one = count == 1;
  return std::string(write ? "writing " : "reading ") + std::to_string(count) + " " +
         (one ? table->one : table->name) + (one ? " at" : " from") + " address " +
         std::to_string(address);
}

Plan PlanFrom(const Inputs& inputs) {
  Plan plan;
  for (const auto take :
       {TakeServer, TakeUnit, TakeTable, TakeFormat, TakeCount, TakeAddress, TakeTimeout}) {
    plan.problem = take(inputs, plan);
    if (!plan.problem.empty()) return plan;
  }
  return plan;
}

}  // namespace modbus
