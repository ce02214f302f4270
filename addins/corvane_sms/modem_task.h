// SPDX-License-Identifier: MIT
// One kind of work with a modem, as a sequence of exchanges: sending, listing. A PortClient decides
// which task's sequence comes next. Threads: everything runs under the runtime's scan lock, so
// nothing here may wait.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "libs/messages/now.h"

namespace corvane_sms {

using messages::Now;

/// One request to the modem.
struct AtRequest {
  std::string octets;  ///< a command line with its CR, or the text of a message with its Ctrl-Z
  std::chrono::milliseconds timeout;
};

/// How urgent a task's next exchange is. A task may use numbers in between.
enum TaskPriority : int {
  kNothingToDo = 0,
  kListPriority = 10,
  kSendPriority = 20,
  kUrgentPriority = 30,
};

class ModemTask {
 public:
  ModemTask() = default;
  ModemTask(const ModemTask&) = delete;
  ModemTask& operator=(const ModemTask&) = delete;
  virtual ~ModemTask() = default;

  /// How much the task wants the modem; 0: not now. Asked often, also in the middle of a sequence:
  /// with 0 there, another task may take the modem, and the sequence begins again afterwards.
  virtual int Priority(const Now& now) = 0;
  /// A sequence of this task begins: PDU mode is being set.
  virtual void OnBegin(const Now& /*now*/) {}
  /// The next request of the sequence; nullopt ends the sequence.
  virtual std::optional<AtRequest> Next(const Now& now) = 0;
  /// The answer to the last request, or that none came (`status` negative: kPortDriverNoAnswer
  /// ...).
  /// @return true: the sequence goes on
  virtual bool OnAnswer(std::string_view answer, int status, const Now& now) = 0;
  /// The modem did not go into PDU mode, so the sequence ends before its first request.
  virtual void OnNotReady(std::string_view /*answer*/, int /*status*/, const Now& /*now*/) {}
  /// The modem has said something of its own accord (corvane/modem_port_driver.h); between two
  /// exchanges. Every task hears everything.
  virtual void OnLine(std::string_view /*line*/, std::string_view /*pdu*/, const Now& /*now*/) {}
};

}  // namespace corvane_sms
