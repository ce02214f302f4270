// SPDX-License-Identifier: MIT
// A client of the modem port driver that sends what a test gives it.
// Threads: the driver calls it under the scan lock; the test waits for its replies.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "corvane/modem_port_driver.h"

namespace test_support {

struct DriverReply {
  std::string text;
  int status = 0;
};

class DriverClient {
 public:
  /// @param priority the priority while there is something to send
  explicit DriverClient(int priority = 1) : priority_(priority) {}
  DriverClient(const DriverClient&) = delete;
  DriverClient& operator=(const DriverClient&) = delete;
  ~DriverClient() { Unregister(); }

  /// Returns the driver's result; runs under the scan lock, as from Lua.
  int Register(int port);
  void Unregister();

  /// Queues a request and waits for its reply; fails the test if there is none.
  DriverReply Exchange(const std::string& request, int timeout_ms = 500, char end_char = 13);
  void Queue(const std::string& request, int timeout_ms = 500, char end_char = 13);
  /// Queues the announcement of a message and its text together: the driver asks for the text as
  /// soon as the prompt is there, and leaves the prompt if there is none.
  void QueueMessage(const std::string& announcement, const std::string& text,
                    int text_timeout_ms = 500, int announcement_timeout_ms = 500);
  DriverReply WaitForReply();
  [[nodiscard]] std::size_t replies();
  void SetPriority(int priority);

  /// Hears what the modem says on its own; returns the driver's result.
  int Listen();
  void StopListening();
  /// What was heard since the last call: "LINE" or "LINE|PDU".
  std::vector<std::string> TakeHeard();
  /// Waits until so much was heard; fails the test if it is not.
  std::vector<std::string> WaitForHeard(std::size_t number);

 private:
  struct Request {
    std::string octets;
    std::int32_t timeout;
    char end_char;
  };

  static int Priority(void* context);
  static int NextRequest(void* context, char* buffer, PortDriverRequestData* data,
                         PortDriverReplyFunction* on_reply);
  static void Hear(void* context, const char* line, int length, const char* pdu, int pdu_length);
  static int OnReply(void* context, char* reply, int length, int status);

  std::mutex mutex_;
  std::condition_variable replied_;
  int priority_;
  std::deque<Request> requests_;
  std::deque<DriverReply> replies_;
  std::size_t taken_ = 0;
  std::vector<std::string> heard_;
};

}  // namespace test_support
