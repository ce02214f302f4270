// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/port_client.h"

#include <algorithm>
#include <array>
#include <utility>

namespace corvane_sms {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kRegistrationPause(200);
constexpr milliseconds kLookPause(1000);
constexpr milliseconds kCommandTimeout(10'000);

/// New messages are stored and announced; reports come at once, or, where a modem refuses that, are
/// stored and announced, too. A modem that refuses both stays as it is.
constexpr std::array<std::string_view, 2> kAnnouncements = {"AT+CNMI=2,1,0,1,0\r",
                                                            "AT+CNMI=2,1,0,2,0\r"};

std::string_view TextOf(const char* octets, int length) {
  return octets == nullptr || length <= 0
             ? std::string_view()
             : std::string_view(octets, static_cast<std::size_t>(length));
}

}  // namespace

bool IsOk(std::string_view answer) {
  while (!answer.empty() && (answer.back() == '\r' || answer.back() == '\n')) {
    answer.remove_suffix(1);
  }
  if (!answer.ends_with("OK")) return false;
  answer.remove_suffix(2);
  return answer.empty() || answer.back() == '\n' || answer.back() == '\r';
}

PortClient::PortClient(int port, std::function<void(const Now&)> tick)
    : port_(port),
      tick_(std::move(tick)),
      registration_(std::make_unique<Registration>(Registration{this})) {}

PortClient::~PortClient() {
  if (!registered_) return;
  if (ModemPortDriverUnregister != nullptr) {
    ModemPortDriverUnregister(registration_.get());
    return;
  }
  // Never destroyed: the driver's threads may outlive this library's end.
  static Registration* kept = nullptr;
  Registration* const own = registration_.release();
  own->client = nullptr;
  own->next_kept = std::exchange(kept, own);
}

void PortClient::TryToRegister(const Now& now) {
  if (now.steady < next_attempt_) return;
  // Our driver does not mind a client that registers again, and refuses while the device is away.
  if (registered_ && ModemPortDriverHasPort == nullptr) return;
  next_attempt_ = now.steady + (registered_ ? kLookPause : kRegistrationPause);
  int unused = 0;
  const bool was_registered = registered_;
  device_is_there_ =
      ModemPortDriverRegister(port_, registration_.get(), OnPriority, OnRequest, &unused) == 0;
  registered_ = registered_ || device_is_there_;
  if (registered_ && !was_registered && ModemPortDriverListen != nullptr) {
    ModemPortDriverListen(registration_.get(), OnLine);
  }
}

int PortClient::OnPriority(void* context) {
  PortClient* const client = ClientOf(context);
  return client == nullptr ? 0 : client->Priority(Now::Get());
}

int PortClient::OnRequest(void* context, char* buffer, PortDriverRequestData* request,
                          PortDriverReplyFunction* on_reply) {
  *on_reply = nullptr;
  PortClient* const client = ClientOf(context);
  if (client == nullptr) return 0;
  const auto wanted = client->Request(Now::Get());
  if (!wanted || wanted->octets.size() > kPortDriverRequestSize) return 0;
  request->timeout = static_cast<std::int32_t>(wanted->timeout.count());
  request->endChar = 0;  // answers have several lines
  *on_reply = OnReply;
  std::copy(wanted->octets.begin(), wanted->octets.end(), buffer);
  return static_cast<int>(wanted->octets.size());
}

int PortClient::OnReply(void* context, char* reply, int length, int status) {
  PortClient* const client = ClientOf(context);
  if (client == nullptr) return 0;
  const std::string_view answer = status < 0 ? std::string_view() : TextOf(reply, length);
  return client->TakeAnswer(answer, status, Now::Get()) ? 1 : 0;
}

void PortClient::OnLine(void* context, const char* line, int length, const char* pdu,
                        int pdu_length) {
  PortClient* const client = ClientOf(context);
  if (client != nullptr) {
    client->TakeLine(TextOf(line, length), TextOf(pdu, pdu_length), Now::Get());
  }
}

int PortClient::Priority(const Now& now) {
  if (tick_) tick_(now);
  return Choose(now);
}

int PortClient::Choose(const Now& now) {
  if (running_ != nullptr) {
    if (const int priority = running_->Priority(now); priority > 0) return priority;
  }
  ModemTask* best = nullptr;
  int highest = 0;
  for (ModemTask* const task : tasks_) {
    if (task == running_) continue;
    const int priority = task->Priority(now);
    if (priority > highest) {
      highest = priority;
      best = task;
    }
  }
  if (best != nullptr) {
    running_ = best;
    step_ = Step::kSetMode;
  }
  return highest;
}

std::optional<AtRequest> PortClient::Request(const Now& now) {
  if (Choose(now) == 0) return std::nullopt;
  if (step_ == Step::kSetMode) {
    running_->OnBegin(now);
    return AtRequest{"AT+CMGF=0\r", kCommandTimeout};
  }
  if (step_ == Step::kAnnounce) {
    return AtRequest{std::string(kAnnouncements[announcement_]), kCommandTimeout};
  }
  step_ = Step::kTask;
  auto request = running_->Next(now);
  if (!request) running_ = nullptr;
  return request;
}

bool PortClient::TakeAnswer(std::string_view answer, int status, const Now& now) {
  if (running_ == nullptr) return false;
  const bool goes_on = step_ == Step::kTask ? running_->OnAnswer(answer, status, now)
                                            : TakeOwnAnswer(answer, status, now);
  if (!goes_on) running_ = nullptr;
  return goes_on;
}

bool PortClient::TakeOwnAnswer(std::string_view answer, int status, const Now& now) {
  const bool ok = status >= 0 && IsOk(answer);
  if (step_ == Step::kSetMode) {
    if (!ok) {
      running_->OnNotReady(answer, status, now);
      return false;
    }
    step_ = announcement_ < kAnnouncements.size() ? Step::kAnnounce : Step::kSetUp;
    return true;
  }
  if (ok) {
    announcement_ = kAnnouncements.size();
  } else if (status >= 0) {
    ++announcement_;
  }
  // Without an answer it is tried again with the next sequence.
  if (status < 0 || announcement_ >= kAnnouncements.size()) step_ = Step::kSetUp;
  return true;
}

void PortClient::TakeLine(std::string_view line, std::string_view pdu, const Now& now) {
  if (line == kPortDriverRestart) {
    announcement_ = 0;
    device_is_there_ = true;
    // Not with a task's first request: a report of what is sent before AT+CNMI would be dropped.
    if (step_ == Step::kSetUp) step_ = Step::kSetMode;
  }
  for (ModemTask* const task : tasks_) task->OnLine(line, pdu, now);
}

}  // namespace corvane_sms
