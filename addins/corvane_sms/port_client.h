// SPDX-License-Identifier: MIT
// The one client that this add-in has at a modem port. It arbitrates the tasks of the port, and
// begins each sequence with what the modem may have lost, or another client changed: PDU mode, and
// once after each opening how messages are announced (3GPP TS 27.005 clause 3.4.1).
// Threads: everything runs under the runtime's scan lock.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "addins/corvane_sms/modem_task.h"
#include "corvane/modem_port_driver.h"

namespace corvane_sms {

class PortClient {
 public:
  /// @param tick called first whenever the driver calls, so that the add-in works on between two
  ///   calls of its blocks; may be empty
  PortClient(int port, std::function<void(const Now&)> tick);
  PortClient(const PortClient&) = delete;
  PortClient& operator=(const PortClient&) = delete;
  /// Withdraws the client from the driver.
  ~PortClient();

  /// A task of this port; it must outlive the client.
  void Add(ModemTask& task) { tasks_.push_back(&task); }
  /// Registers with the driver if that has not succeeded yet; at most every 200 ms. Then looks
  /// every second whether the device is still there.
  void TryToRegister(const Now& now);
  /// Whether the device has been there: the driver keeps a registration while it is away.
  [[nodiscard]] bool registered() const { return registered_; }
  /// Whether it is there now, or was when a driver other than ours was last asked.
  [[nodiscard]] bool device_is_there() const { return device_is_there_; }
  [[nodiscard]] int port() const { return port_; }

 private:
  /// What the running task's sequence does next.
  enum class Step : std::uint8_t {
    kSetMode,   ///< AT+CMGF=0
    kAnnounce,  ///< AT+CNMI, its first form that the modem has not refused
    kSetUp,     ///< the modem is set up for the task, which has not asked for anything yet
    kTask,      ///< what the task asks for
  };

  /// What the driver knows of the client. A driver that cannot forget it asks it for ever, so it
  /// may outlive the client.
  struct Registration {
    PortClient* client;                 // null: it is gone
    Registration* next_kept = nullptr;  // of those that a driver still knows after the end
  };

  static PortClient* ClientOf(void* context) { return static_cast<Registration*>(context)->client; }
  static int OnPriority(void* context);
  static int OnRequest(void* context, char* buffer, PortDriverRequestData* request,
                       PortDriverReplyFunction* on_reply);
  static int OnReply(void* context, char* reply, int length, int status);
  static void OnLine(void* context, const char* line, int length, const char* pdu, int pdu_length);

  int Priority(const Now& now);
  /// Chooses the task whose sequence begins, unless one is running. @return its priority
  int Choose(const Now& now);
  std::optional<AtRequest> Request(const Now& now);
  /// @return whether the sequence goes on
  bool TakeAnswer(std::string_view answer, int status, const Now& now);
  bool TakeOwnAnswer(std::string_view answer, int status, const Now& now);
  void TakeLine(std::string_view line, std::string_view pdu, const Now& now);

  const int port_;
  const std::function<void(const Now&)> tick_;
  std::vector<ModemTask*> tasks_;
  ModemTask* running_ = nullptr;
  Step step_ = Step::kSetMode;
  std::size_t announcement_ = 0;  // which form of AT+CNMI is next; past the last one: done
  std::unique_ptr<Registration> registration_;
  bool registered_ = false;
  bool device_is_there_ = false;
  messages::SteadyTime next_attempt_{};
};

/// Whether an answer ends with OK.
[[nodiscard]] bool IsOk(std::string_view answer);

}  // namespace corvane_sms
