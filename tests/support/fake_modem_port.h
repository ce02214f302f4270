// SPDX-License-Identifier: MIT
// A modem port without a modem: in a program that links this, its functions of the contract
// (corvane/modem_port_driver.h) replace the runtime's. The test plays the driver and the modem.
// Threads: one, which also runs Lua.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/modem_port_driver.h"

namespace test_support {

/// The end character that the fake passes to a client in advance; no client asks for this one.
inline constexpr char kUnwrittenEndChar = '#';

/// What a client has asked for.
struct ModemRequest {
  std::string text;  ///< empty: nothing to send
  int timeout = -1;  ///< -1: not written
  char end_char = kUnwrittenEndChar;
  PortDriverReplyFunction on_reply = nullptr;
};

/// One modem port, which is configured while it exists; only one may exist at a time.
class FakeModemPort {
 public:
  explicit FakeModemPort(int number);
  FakeModemPort(const FakeModemPort&) = delete;
  FakeModemPort& operator=(const FakeModemPort&) = delete;
  ~FakeModemPort();

  /// The one that exists; null: none.
  static FakeModemPort* Current();

  /// Makes registrations fail from now on, or succeed again.
  void Refuse(bool refuse) { refuse_ = refuse; }
  /// How often a client has tried to register.
  [[nodiscard]] int attempts() const { return attempts_; }
  [[nodiscard]] std::size_t clients() const { return clients_.size(); }

  /// The priority of a client, counted from 0 in the order of registration.
  [[nodiscard]] int Priority(std::size_t client = 0) const;
  /// What a client wants to send, regardless of its priority.
  [[nodiscard]] ModemRequest AskRequest(std::size_t client = 0) const;
  /// One poll as the runtime's driver does it: asks all clients for their priorities, and the one
  /// with the highest for its request, which stays open until it is answered. @return the text;
  /// empty: nothing
  std::string Poll();
  /// Passes an answer to the client of the open request, in a buffer without a spare byte.
  /// @return the result of the reply function
  int Answer(std::string_view answer, int status = 0);
  /// The open request gets no answer.
  int TimeOut() { return Answer("", kPortDriverNoAnswer); }
  /// The open request did not reach the modem.
  int NotWritten() { return Answer("", kPortDriverNotWritten); }
  /// Hands a line that the modem sent on its own to all clients that listen.
  void Say(const std::string& line, const std::string& pdu = "") const;
  /// Calls Poll and Answer; returns the request.
  std::string Exchange(std::string_view answer);
  /// Answers everything that the clients ask for, until they are idle. @return the requests
  std::vector<std::string> AnswerAll(std::string_view answer);

 private:
  struct Client {
    void* context;
    PortDriverPriorityFunction priority;
    PortDriverRequestFunction request;
    PortDriverLineFunction hear = nullptr;
  };
  friend int ::ModemPortDriverRegister(int, void*, PortDriverPriorityFunction,
                                       PortDriverRequestFunction, void*);
  friend void ::ModemPortDriverUnregister(void*);
  friend int ::ModemPortDriverHasPort(int);
  friend int ::ModemPortDriverListen(void*, PortDriverLineFunction);

  int number_;
  bool refuse_ = false;
  int attempts_ = 0;
  std::vector<Client> clients_;
  void* open_client_ = nullptr;
  ModemRequest open_;
};

}  // namespace test_support
