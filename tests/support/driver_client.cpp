// SPDX-License-Identifier: MIT
#include "tests/support/driver_client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "runtime/corvane/scan_lock.h"
#include "tests/support/wait_for.h"

namespace test_support {

int DriverClient::Register(int port) {
  const std::lock_guard guard(corvane::TheScanLock());
  return ModemPortDriverRegister(port, this, Priority, NextRequest, nullptr);
}

void DriverClient::Unregister() {
  const std::lock_guard guard(corvane::TheScanLock());
  ModemPortDriverUnregister(this);
}

DriverReply DriverClient::Exchange(const std::string& request, int timeout_ms, char end_char) {
  Queue(request, timeout_ms, end_char);
  return WaitForReply();
}

void DriverClient::Queue(const std::string& request, int timeout_ms, char end_char) {
  const std::lock_guard guard(mutex_);
  requests_.push_back({request, timeout_ms, end_char});
}

void DriverClient::QueueMessage(const std::string& announcement, const std::string& text,
                                int text_timeout_ms, int announcement_timeout_ms) {
  const std::lock_guard guard(mutex_);
  requests_.push_back({announcement, announcement_timeout_ms, 0});
  requests_.push_back({text, text_timeout_ms, 13});
}

DriverReply DriverClient::WaitForReply() {
  std::unique_lock guard(mutex_);
  if (!replied_.wait_for(guard, kPatience, [this] { return !replies_.empty(); })) {
    ADD_FAILURE() << "the driver gave no reply";
    return {"", -99};
  }
  DriverReply reply = replies_.front();
  replies_.pop_front();
  return reply;
}

std::size_t DriverClient::replies() {
  const std::lock_guard guard(mutex_);
  return taken_;
}

void DriverClient::SetPriority(int priority) {
  const std::lock_guard guard(mutex_);
  priority_ = priority;
}

int DriverClient::Listen() {
  const std::lock_guard guard(corvane::TheScanLock());
  return ModemPortDriverListen(this, Hear);
}

void DriverClient::StopListening() {
  const std::lock_guard guard(corvane::TheScanLock());
  EXPECT_EQ(ModemPortDriverListen(this, nullptr), 0);
}

std::vector<std::string> DriverClient::TakeHeard() {
  const std::lock_guard guard(mutex_);
  return std::exchange(heard_, {});
}

std::vector<std::string> DriverClient::WaitForHeard(std::size_t number) {
  std::unique_lock guard(mutex_);
  EXPECT_TRUE(replied_.wait_for(guard, kPatience, [&] { return heard_.size() >= number; }))
      << "the driver handed on " << heard_.size() << " of " << number << " lines";
  return std::exchange(heard_, {});
}

void DriverClient::Hear(void* context, const char* line, int length, const char* pdu,
                        int pdu_length) {
  auto& self = *static_cast<DriverClient*>(context);
  const std::lock_guard guard(self.mutex_);
  EXPECT_EQ(line[length], '\0') << "a NUL follows the line";
  EXPECT_EQ(pdu[pdu_length], '\0') << "a NUL follows the PDU";
  self.heard_.emplace_back(line, static_cast<std::size_t>(length));
  if (pdu_length > 0) {
    self.heard_.back().append("|").append(pdu, static_cast<std::size_t>(pdu_length));
  }
  self.replied_.notify_all();
}

int DriverClient::Priority(void* context) {
  auto& self = *static_cast<DriverClient*>(context);
  const std::lock_guard guard(self.mutex_);
  return self.requests_.empty() ? 0 : self.priority_;
}

int DriverClient::NextRequest(void* context, char* buffer, PortDriverRequestData* data,
                              PortDriverReplyFunction* on_reply) {
  auto& self = *static_cast<DriverClient*>(context);
  const std::lock_guard guard(self.mutex_);
  *on_reply = nullptr;
  if (self.requests_.empty()) return 0;
  const Request request = self.requests_.front();
  self.requests_.pop_front();
  *on_reply = OnReply;
  data->timeout = request.timeout;
  data->endChar = request.end_char;
  const std::size_t copied = std::min<std::size_t>(request.octets.size(), kPortDriverRequestSize);
  std::memcpy(buffer, request.octets.data(), copied);
  return static_cast<int>(request.octets.size());
}

int DriverClient::OnReply(void* context, char* reply, int length, int status) {
  auto& self = *static_cast<DriverClient*>(context);
  const std::lock_guard guard(self.mutex_);
  EXPECT_GE(length, 0);
  EXPECT_EQ(reply[length], '\0') << "a NUL follows the answer";
  self.replies_.push_back({std::string(reply, static_cast<std::size_t>(length)), status});
  ++self.taken_;
  std::memset(reply, 'x', static_cast<std::size_t>(length));  // a client may write there
  self.replied_.notify_all();
  return self.requests_.empty() ? 0 : 1;
}

}  // namespace test_support
