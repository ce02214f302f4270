// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/sms_inbox_fb.h"

#include <utility>

DEFINE_FUNCTION_BLOCK(SmsInboxFB, "SMS_INBOX")

namespace {

using corvane_sms::ModemState;
using corvane_sms::SmsService;

ModemState NoSuchPort(int port) {
  const std::string number = std::to_string(port);
  return {false, static_cast<int>(ErrorId::kNoSuchPort),
          "there is no modem port " + number +
              "; correct Port, or start the program with --modem " + number + "=DEVICE"};
}

}  // namespace

const FBMetaEntry* SmsInboxFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      {"Enable", "BOOL", kInput, "TRUE: takes messages from the modem, and offers them"},
      {"Port", "DINT", kInput, "the modem, as given with --modem"},
      {"Accept", "BOOL", kInput,
       "a rising edge while Ready: the program has done its work with this message"},
      {"Valid", "BOOL", kOutput, "the modem answers"},
      plcopen::kError,
      plcopen::kErrorId,
      plcopen::kErrorText,
      {"Ready", "BOOL", kOutput, "a message is offered in the outputs below"},
      {"From", "STRING", kOutput,
       "+ and digits of an international number, other digits, or a name"},
      {"Text", "STRING", kOutput, "UTF-8, all parts"},
      {"Time", "DATE_AND_TIME", kOutput, "when the service centre took it, in UTC"},
      {"Kind", "DINT", kOutput,
       "0 text, 1 text with missing parts, 2 binary data (hexadecimal), 3 cannot be decoded (PDU)"},
      {"Id", "DINT", kOutput, "number of the message in the store, rising"},
      {"Waiting", "DINT", kOutput, "messages in the store for this port, the offered one included"},
      {nullptr, nullptr}};
  return entries;
}

SmsInboxFB::~SmsInboxFB() {
  SmsService* const service = SmsService::Existing();
  if (service != nullptr && port_) service->RemoveInboxUser(*port_, messages::Now::Get());
}

void SmsInboxFB::Execute() {
  const messages::Now now = messages::Now::Get();
  const bool enabled = GetBool("Enable");
  const bool accepts = accept_.Rises(GetBool("Accept"));
  const int port = GetInt("Port");
  if (!Use(enabled ? std::optional(port) : std::nullopt, now)) {
    SetValue("Waiting", 0);
    ShowState(enabled ? NoSuchPort(port) : ModemState{});
    return;
  }
  SmsService& service = SmsService::The();
  service.Tick(now);
  UpdateReady(service, accepts, now);
  SetValue("Waiting", static_cast<int>(service.inbox().Waiting(std::to_string(port))));
  ShowState(service.InboxState(port, now));
}

bool SmsInboxFB::Use(std::optional<int> port, const messages::Now& now) {
  if (port == port_) return port_.has_value();
  SmsService& service = SmsService::The();
  if (port_) service.RemoveInboxUser(*port_, now);
  Withdraw();
  port_ = port && service.AddInboxUser(*port, now) ? port : std::nullopt;
  return port_.has_value();
}

/// After a message was accepted, by whichever block, one call shows that nothing is offered, so
/// that no program takes the next message for the same one.
void SmsInboxFB::UpdateReady(SmsService& service, bool accepts, const messages::Now& now) {
  const std::string route = std::to_string(*port_);
  messages::Inbox& inbox = service.inbox();
  const messages::Incoming* const message = inbox.Offered(route);
  if (offered_ != 0) {
    const bool same = message != nullptr && message->id == offered_;
    if (same && !accepts) return;
    if (same) inbox.Accept(route, offered_, now);
    Withdraw();
  } else if (!std::exchange(pauses_, false) && message != nullptr) {
    Offer(*message, service.store().Number(message->id));
  }
}

void SmsInboxFB::Offer(const messages::Incoming& message, std::int64_t number) {
  offered_ = message.id;
  SetBool("Ready", true);
  SetValue("From", message.sender);
  SetValue("Text", message.text);
  SetTime("Time", message.has_time ? std::optional<BlockTime>(message.time) : std::nullopt);
  SetValue("Kind", message.kind);
  SetValue("Id", static_cast<int>(number));
}

void SmsInboxFB::Withdraw() {
  pauses_ = std::exchange(offered_, 0) != 0;
  SetBool("Ready", false);
}

void SmsInboxFB::ShowState(const ModemState& state) {
  SetBool("Valid", state.valid);
  SetBool("Error", state.error_id != 0);
  if (state.error_id == GetInt("ErrorId") && state.error_text == GetString("ErrorText")) return;
  SetValue("ErrorId", state.error_id);
  SetValue("ErrorText", state.error_text);
}
