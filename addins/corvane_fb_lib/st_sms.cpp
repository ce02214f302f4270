// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/st_sms.h"

#include <boost/make_shared.hpp>
#include <cstdio>
#include <string_view>
#include <vector>

#include "addins/corvane_fb_lib/driver_reply.h"
#include "addins/corvane_fb_lib/receiver_advice.h"
#include "addins/corvane_fb_lib/sms.h"
#include "addins/corvane_fb_lib/tokenize.h"

DEFINE_FUNCTION_BLOCK(SendSMSFB, "SEND_SMS")

namespace {

constexpr int kTimeout = 2000;  // ms
constexpr int kMaxRetries = 3;
constexpr char kCtrlZ = 0x1A;  // ends the PDU

int GetRequestPriority(void* context) {
  SendSMSFB* const block = DriverClient<SendSMSFB>::Of(context);
  return block == nullptr ? 0 : block->getPriority();
}

int GetRequest(void* context, char* buffer, PortDriverRequestData* request,
               PortDriverReplyFunction* onReply) {
  *onReply = nullptr;
  SendSMSFB* const block = DriverClient<SendSMSFB>::Of(context);
  return block == nullptr ? 0 : block->GetRequestImpl(buffer, request, onReply);
}

int FbSendSmsOnReply(void* context, char* reply, int length, int replyStatus) {
  SendSMSFB* const block = DriverClient<SendSMSFB>::Of(context);
  return block == nullptr ? 0 : block->OnReplyImpl(reply, length, replyStatus);
}

bool Contains(std::string_view text, std::string_view piece) {
  return text.find(piece) != text.npos;
}

}  // namespace

const FBMetaEntry* SendSMSFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {
      {"Port", "DINT"},      {"Send", "BOOL"},  {"Receiver", "STRING"},
      {"Message", "STRING"}, {"Error", "DINT"}, {"State", "DINT"},
      {"Sent", "BOOL"},      {"Queue", "DINT"}, {nullptr, nullptr}};
  return _entries;
}

const STValueMeaning* SendSMSFB::GetMeaningTable() {
  static const STValueMeaning meanings[] = {
      {"State", kUnregistered, "waiting for the port"},
      {"State", kIdle, "idle"},
      {"State", kSetPduMode, "setting PDU mode"},
      {"State", kAnnounce, "announcing the next PDU"},
      {"State", kTransfer, "sending the PDU"},
      {"Error", kUnexpectedAnswer, "unexpected answer"},
      {"Error", kNoAnswer, "no answer in time"},
      {"Error", 11, "text invalid or too long"},  // of SMSSubmit::encode
      {"Error", kNoReceiver, "cannot be sent to this receiver"},
      {nullptr, 0, nullptr}};
  return meanings;
}

void SendSMSFB::Execute() {
  if (state_ == kUnregistered) Register();
  SetValue("Queue", static_cast<int>(queue_.size()));
  const bool send = GetBool("Send");
  if (send == last_send_) return;
  last_send_ = send;
  if (send) QueueMessages();
}

void SendSMSFB::Register() {
  int unused = 0;
  if (ModemPortDriverRegister(GetInt("Port"), this, GetRequestPriority, GetRequest, &unused) == 0) {
    state_ = kIdle;
  }
  SetValue("State", state_);
}

void SendSMSFB::QueueMessages() {
  const std::string text = GetString("Message");
  std::vector<std::string> numbers;
  const std::string receiver = GetString("Receiver");
  tokenize(numbers, receiver, " ,", false);
  Advise(receiver, numbers);
  for (const std::string& number : numbers) {
    if (number.empty()) continue;
    const auto message = boost::make_shared<sms::SMSSubmit>();
    int error = message->encode(text, number);
    if (error == 0 && !sms::FitsInTpdus(*message)) error = kNoReceiver;
    if (error == 0) {
      queue_.push_back(message);
    } else {
      SetValue("Error", error);
    }
  }
  SetValue("State", state_);
}

void SendSMSFB::Advise(const std::string& receiver, const std::vector<std::string>& numbers) {
  if (receiver == advised_receiver_) return;
  const std::string advice = AdviceOnReceiver(receiver, numbers);
  if (advice.empty()) return;
  advised_receiver_ = receiver;
  logMsgLn(advice.c_str());
}

int SendSMSFB::getPriority() {
  if (state_ == kIdle && !queue_.empty()) state_ = kSetPduMode;
  return state_ >= kSetPduMode ? state_ : 0;
}

int SendSMSFB::GetRequestImpl(char* buffer, PortDriverRequestData* request,
                              PortDriverReplyFunction* onReply) {
  *onReply = nullptr;
  if (state_ >= kSetPduMode && !HasPdu()) {
    if (!queue_.empty()) queue_.pop_front();
    state_ = kIdle;
    return 0;
  }
  request->timeout = kTimeout;
  *onReply = FbSendSmsOnReply;
  switch (state_) {
    case kSetPduMode:
      request->endChar = 13;
      return std::snprintf(buffer, kPortDriverRequestSize, "AT+CMGF=0\r");
    case kAnnounce:
      request->endChar = 0;  // the prompt has no line end
      return WriteAnnouncement(buffer);
    case kTransfer: request->endChar = 13; return WritePdu(buffer);
    default: return 0;
  }
}

int SendSMSFB::WriteAnnouncement(char* buffer) const {
  // The leading service-centre octet is not counted (3GPP TS 27.005 clause 3.5.1).
  const auto length = static_cast<int>(queue_.front()->pdus.front().size() - 1);
  return std::snprintf(buffer, kPortDriverRequestSize, "AT+CMGS=%d\r", length);
}

int SendSMSFB::WritePdu(char* buffer) const {
  const std::vector<unsigned char>& pdu = queue_.front()->pdus.front();
  sms::TextToAscii(pdu, buffer);
  buffer[2 * pdu.size()] = kCtrlZ;
  return static_cast<int>(2 * pdu.size() + 1);
}

int SendSMSFB::OnReplyImpl(char* reply, int length, int replyStatus) {
  SetBool("Sent", false);
  const std::string_view answer = replyStatus < 0 ? std::string_view() : AnswerText(reply, length);
  int error = 0;
  if (Contains(answer, state_ == kAnnounce ? ">" : "OK")) {
    Succeeded();
  } else {
    error = replyStatus < 0 ? kNoAnswer : CmsErrorNumber(answer).value_or(0);
    if (error == 0) error = kUnexpectedAnswer;
    Failed();
  }
  SetValue("State", state_);
  SetValue("Error", error);
  return state_ != kIdle ? 1 : 0;
}

void SendSMSFB::Succeeded() {
  switch (state_) {
    case kSetPduMode: state_ = kAnnounce; break;
    case kAnnounce: state_ = kTransfer; break;
    case kTransfer: PduSent(); break;
    default: state_ = kIdle; break;
  }
}

void SendSMSFB::PduSent() {
  retries_ = 0;
  if (HasPdu()) queue_.front()->pdus.pop_front();
  if (HasPdu()) {
    state_ = kAnnounce;  // the modem stays in PDU mode
    return;
  }
  state_ = kIdle;
  if (queue_.empty()) return;
  queue_.pop_front();
  SetBool("Sent", true);
}

void SendSMSFB::Failed() {
  if (retries_ < kMaxRetries) {
    ++retries_;
    state_ = kAnnounce;  // compatibility: whichever exchange failed, so AT+CMGF is not repeated
    return;
  }
  // Compatibility: a message that cannot be announced is kept and starts again by setting PDU mode,
  // so it holds up those that were queued after it.
  if (state_ == kTransfer && !queue_.empty()) queue_.pop_front();
  state_ = kIdle;
  retries_ = 0;
}
