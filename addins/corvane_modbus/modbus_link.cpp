// SPDX-License-Identifier: MIT
#include "addins/corvane_modbus/modbus_link.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "libs/modbus/outcome_text.h"

namespace corvane_modbus {
namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::seconds;

/// Gives libmodbus the time that is left, for the whole answer.
void SetTime(modbus_t* context, SteadyTime deadline) {
  const auto left = std::max(
      duration_cast<microseconds>(deadline - std::chrono::steady_clock::now()), microseconds(1000));
  const auto whole = duration_cast<seconds>(left);
  modbus_set_response_timeout(context, static_cast<std::uint32_t>(whole.count()),
                              static_cast<std::uint32_t>((left - whole).count()));
  modbus_set_byte_timeout(context, 0, 0);  // no time for each octet: a slow server may not add up
}

int Read(modbus_t* context, const Request& request, Outcome& outcome) {
  const int count = static_cast<int>(request.count);
  if (request.table->has_bits) {
    outcome.bits.resize(request.count);
    return request.table->can_write
               ? modbus_read_bits(context, request.address, count, outcome.bits.data())
               : modbus_read_input_bits(context, request.address, count, outcome.bits.data());
  }
  outcome.registers.resize(request.count);
  std::uint16_t* const registers = outcome.registers.data();
  return request.table->can_write
             ? modbus_read_registers(context, request.address, count, registers)
             : modbus_read_input_registers(context, request.address, count, registers);
}

/// With the functions for one value (05, 06), or for several (15, 16).
int Write(modbus_t* context, const Request& request, bool as_one) {
  const int count = static_cast<int>(request.count);
  if (request.table->has_bits) {
    return as_one ? modbus_write_bit(context, request.address, request.bits[0])
                  : modbus_write_bits(context, request.address, count, request.bits.data());
  }
  return as_one ? modbus_write_register(context, request.address, request.registers[0])
                : modbus_write_registers(context, request.address, count, request.registers.data());
}

/// @return what libmodbus returned: negative with errno, otherwise the number of values
int Transact(modbus_t* context, const Request& request, Outcome& outcome) {
  errno = 0;
  if (!request.write) return Read(context, request, outcome);
  if (request.count > 1) return Write(context, request, false);
  const int result = Write(context, request, true);
  // Some servers know only the functions for several; this one has not written anything.
  return result < 0 && errno == EMBXILFUN ? Write(context, request, false) : result;
}

/// EMBBADEXC: one that libmodbus does not know.
bool IsException(int error) {
  return (error >= MODBUS_ENOBASE && error < EMBBADCRC) || error == EMBBADEXC;
}

/// What came is not the answer, according to libmodbus.
bool IsGarbage(int error) {
  return error >= EMBBADCRC && error <= EMBBADSLAVE;
}

/// What became of a request without its values; `error` is what libmodbus says.
Outcome FailedOutcome(const Endpoint& endpoint, const Exchange& exchange, int error) {
  const Request& request = exchange.request();
  if (IsException(error)) {
    const int code = error == EMBBADEXC ? 0 : error - MODBUS_ENOBASE;
    return {ErrorId::kModbusException, ExceptionText(endpoint, request, code), code, {}, {}};
  }
  std::string text = error == ETIMEDOUT ? TimedOutText(endpoint, request, exchange.timeout())
                     : IsGarbage(error) ? GarbageText(endpoint, request)
                                        : ClosedText(endpoint, request);
  return Outcome::Failed(ErrorId::kNoAnswer, std::move(text));
}

}  // namespace

ModbusLink::ModbusLink(corvane::Descriptor socket, StopSignal& stop)
    : stop_(stop), socket_(std::move(socket)), context_(modbus_new_tcp(nullptr, 0)) {
  if (context_ == nullptr) throw std::bad_alloc();
  modbus_set_socket(context_.get(), socket_.get());
  stop_.Watch(socket_.get());
}

ModbusLink::~ModbusLink() {
  stop_.Watch(-1);
}

bool ModbusLink::IsUsable() const {
  char octet = 0;
  const auto received = recv(socket_.get(), &octet, 1, MSG_PEEK | MSG_DONTWAIT);
  return !failed_ && received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
}

ModbusLink::Answer ModbusLink::Ask(const Endpoint& endpoint, const Exchange& exchange) {
  const Request& request = exchange.request();
  modbus_set_slave(context_.get(), request.unit);
  SetTime(context_.get(), exchange.deadline());
  Answer answer;
  const int result = Transact(context_.get(), request, answer.outcome);
  const int error = errno;
  if (result == static_cast<int>(request.count)) return answer;
  const int reason = result < 0 ? error : EMBBADDATA;
  answer.outcome = FailedOutcome(endpoint, exchange, reason);
  failed_ = !IsException(reason) || reason == EMBBADEXC;
  answer.connection_lost = failed_ && reason != ETIMEDOUT && !IsGarbage(reason);
  return answer;
}

}  // namespace corvane_modbus
