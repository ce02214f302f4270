// SPDX-License-Identifier: MIT
#include "runtime/program_test/earlier_sms_doubles.h"

#include <utf8.h>

#include <algorithm>
#include <utility>

#include "runtime/program_test/test_time.h"

DEFINE_FUNCTION_BLOCK(SendSmsDouble, "SEND_SMS")
DEFINE_FUNCTION_BLOCK(ReadSmsDouble, "READ_SMS")

namespace {

using namespace corvane::program_test;

constexpr double kNoAnswerAfter = 2;  // s, the time-out of both blocks
constexpr int kNotRegistered = 1;
constexpr int kNoAnswer = 6;
constexpr int kTextInvalid = 11;
constexpr int kNoReceiver = 12;
constexpr int kMaxSmsRetries = 3;

/// 0, or the code of a message that SEND_SMS does not queue.
int ProblemOf(const std::string& number, const std::string& text) {
  constexpr std::size_t kMaxUnits = 2000;
  constexpr std::size_t kMaxNumber = 20;
  if (utf8::find_invalid(text.begin(), text.end()) != text.end()) return kTextInvalid;
  std::size_t units = 0;
  for (const char octet : text) {
    const auto value = static_cast<unsigned char>(octet);
    units += value >= 0xF0 ? 2 : (value & 0xC0) != 0x80 ? 1 : 0;
  }
  if (units >= kMaxUnits) return kTextInvalid;
  return number.size() > kMaxNumber ? kNoReceiver : 0;
}

}  // namespace

void SendSmsDouble::Execute() {
  if (state_ == kUnregistered && World::The().modem.ports.contains(GetInt("Port"))) state_ = kIdle;
  SetValue("State", state_);
  SetValue("Queue", static_cast<int>(queue_.size()));
  const bool send = GetBool("Send");
  if (send != std::exchange(last_send_, send) && send) QueueMessages();
}

void SendSmsDouble::QueueMessages() {
  const std::string text = GetString("Message");
  const std::string receivers = GetString("Receiver");
  for (std::size_t begin = 0; begin < receivers.size();) {
    const std::size_t end = std::min(receivers.find_first_of(" ,", begin), receivers.size());
    const std::string number = receivers.substr(begin, end - begin);
    begin = end + 1;
    if (number.empty()) continue;
    const int problem = ProblemOf(number, text);
    if (problem != 0) {
      SetValue("Error", problem);
    } else {
      queue_.push_back({number, text});
    }
  }
}

void SendSmsDouble::BeginCycle(double clock) {
  SimulatedModem& modem = World::The().modem;
  if (state_ == kIdle && !queue_.empty()) {
    state_ = kSetPduMode;
    exchange_begins_ = clock;
  }
  if (state_ < kSetPduMode) return;
  const bool timed_out = clock - exchange_begins_ >= kNoAnswerAfter;
  if (!modem.connected) {
    if (timed_out) Failed(kNoAnswer);
    if (timed_out) exchange_begins_ = clock;
    return;
  }
  // The network's confirmation may come after the time-out: the text is not sent again meanwhile.
  if (state_ == kTransfer && clock - exchange_begins_ < modem.delay) {
    if (timed_out) SetValue("Error", kNoAnswer);
    return;
  }
  const int answer = state_ == kTransfer ? modem.Answer(queue_.front().number) : 0;
  answer == 0 ? Succeeded(clock) : Failed(answer);
  exchange_begins_ = clock;
}

void SendSmsDouble::Succeeded(double clock) {
  SetBool("Sent", false);
  if (state_ != kTransfer) {
    state_ = state_ == kSetPduMode ? kAnnounce : kTransfer;
    return Show(0);
  }
  const Message message = std::move(queue_.front());
  queue_.pop_front();
  World::The().modem.NoteSent({{"block", "SEND_SMS"},
                               {"port", GetInt("Port")},
                               {"to", message.number},
                               {"text", message.text},
                               {"clock", clock}});
  retries_ = 0;
  state_ = kIdle;
  SetBool("Sent", true);
  Show(0);
}

void SendSmsDouble::Failed(int error) {
  SetBool("Sent", false);
  if (retries_++ < kMaxSmsRetries) {
    state_ = kAnnounce;
    return Show(error);
  }
  if (state_ == kTransfer) queue_.pop_front();  // one that cannot be announced is kept
  state_ = kIdle;
  retries_ = 0;
  Show(error);
}

void SendSmsDouble::Show(int error) {
  SetValue("State", state_);
  SetValue("Error", error);
}

void ReadSmsDouble::Execute() {
  if (state_ == kUnregistered) {
    const bool exists = World::The().modem.ports.contains(GetInt("Port"));
    if (exists) state_ = kIdle;
    SetValue("Error", exists ? 0 : kNotRegistered);
  }
  const bool read = GetBool("Read");
  if (read && state_ == kIdle) {
    state_ = kSetPduMode;
    last_try_ = World::The().time().clock;
  }
  if (GetBool("Complete")) {
    SetBool("Complete", false);
  } else if (read && !ready_.empty()) {
    Deliver();
  }
  SetValue("State", state_);
}

void ReadSmsDouble::Deliver() {
  const IncomingSms& message = ready_.front();
  SetValue("Number", message.from);
  SetValue("Message", message.text);
  SetTime("DateTime", ToBlockTime(message.time));
  SetBool("Complete", true);
  SetValue("Error", 0);
  ready_.pop_front();
}

void ReadSmsDouble::BeginCycle(double clock) {
  if (state_ < kSetPduMode) return;
  if (!World::The().modem.connected) {
    if (clock - last_try_ < kNoAnswerAfter) return;
    state_ = kIdle;
    SetValue("Error", kNoAnswer);
    return;
  }
  if (state_ == kSetPduMode) {
    state_ = kList;
  } else if (state_ == kList) {
    TakeAll();
  } else if (--to_delete_ == 0) {
    state_ = kIdle;
  }
  SetValue("Error", 0);
}

/// What it cannot decode is deleted unseen, and binary data has no text, as with the block itself.
void ReadSmsDouble::TakeAll() {
  auto& inbox = World::The().modem.inbox(GetInt("Port"));
  to_delete_ = inbox.size();
  state_ = inbox.empty() ? kIdle : kDelete;
  for (IncomingSms& message : inbox) {
    if (message.kind == 2) message.text = "Can't read Data value";
    if (message.kind == 0 || message.kind == 2) ready_.push_back(std::move(message));
  }
  inbox.clear();
}
