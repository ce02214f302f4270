// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/read_sms.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "addins/corvane_fb_lib/driver_reply.h"
#include "addins/corvane_fb_lib/sms.h"

DEFINE_FUNCTION_BLOCK(ReadSMSFB, "READ_SMS")

namespace {

constexpr int kTimeout = 2000;  // ms

int GetRequestPriority(void* context) {
  const ReadSMSFB* const block = DriverClient<ReadSMSFB>::Of(context);
  return block == nullptr ? 0 : block->getPriority();
}

int GetRequest(void* context, char* buffer, PortDriverRequestData* request,
               PortDriverReplyFunction* onReply) {
  *onReply = nullptr;
  const ReadSMSFB* const block = DriverClient<ReadSMSFB>::Of(context);
  return block == nullptr ? 0 : block->GetRequestImpl(buffer, request, onReply);
}

int FbReadSmsOnReply(void* context, char* reply, int length, int replyStatus) {
  ReadSMSFB* const block = DriverClient<ReadSMSFB>::Of(context);
  return block == nullptr ? 0 : block->OnReplyImpl(reply, length, replyStatus);
}

}  // namespace

const FBMetaEntry* ReadSMSFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {
      {"Port", "DINT"},     {"Read", "BOOL"},      {"Complete", "BOOL"},
      {"Number", "STRING"}, {"Message", "STRING"}, {"DateTime", "DATE_AND_TIME"},
      {"State", "DINT"},    {"Error", "DINT"},     {nullptr, nullptr}};
  return _entries;
}

const STValueMeaning* ReadSMSFB::GetMeaningTable() {
  static const STValueMeaning meanings[] = {{"State", kUnregistered, "waiting for the port"},
                                            {"State", kIdle, "idle"},
                                            {"State", kSetPduMode, "setting PDU mode"},
                                            {"State", kList, "listing messages"},
                                            {"State", kDelete, "deleting a message"},
                                            {"Error", kNotRegistered, "no such port, or not open"},
                                            {"Error", kUnexpectedAnswer, "unexpected answer"},
                                            {"Error", kPlainError, "refused: ERROR"},
                                            {"Error", kNoAnswer, "no answer in time"},
                                            {nullptr, 0, nullptr}};
  return meanings;
}

void ReadSMSFB::Execute() {
  if (state == kUnregistered) Register();
  const bool read = GetBool("Read");
  if (read && state == kIdle) state = kSetPduMode;
  if (GetBool("Complete")) {
    SetBool("Complete", false);
  } else if (read && !readyQueue.empty()) {
    Deliver();
  }
  SetValue("State", state);
}

void ReadSMSFB::Register() {
  const bool registered =
      ModemPortDriverRegister(GetInt("Port"), this, GetRequestPriority, GetRequest, nullptr) == 0;
  if (registered) state = kIdle;
  SetValue("Error", registered ? 0 : kNotRegistered);
}

void ReadSMSFB::Deliver() {
  const Message message = readyQueue.front();
  readyQueue.pop_front();
  SetValue("Number", message->number);
  SetValue("Message", message->text);
  Find("DateTime").SetDateTime(message->time);
  SetBool("Complete", true);
  SetValue("Error", 0);
}

int ReadSMSFB::GetRequestImpl(char* buffer, PortDriverRequestData* request,
                              PortDriverReplyFunction* onReply) const {
  *onReply = nullptr;
  if (state == kIdle) return 0;
  request->timeout = kTimeout;
  *onReply = FbReadSmsOnReply;
  switch (state) {
    case kSetPduMode:
      request->endChar = 13;
      return std::snprintf(buffer, kPortDriverRequestSize, "AT+CMGF=0\r");
    case kList:
      request->endChar = 0;  // the answer has many lines
      return std::snprintf(buffer, kPortDriverRequestSize, "AT+CMGL=0\r");
    case kDelete:
      request->endChar = 13;
      return std::snprintf(buffer, kPortDriverRequestSize, "AT+CMGD=%d\r", deleteQueue.front());
    default: return 0;
  }
}

int ReadSMSFB::Classify(char* reply, int length, int replyStatus) {
  if (replyStatus < 0) return kNoAnswer;
  const std::string_view answer = AnswerText(reply, length);
  if (answer.substr(0, 2) == "OK") return 0;
  if (answer.substr(0, 5) == "ERROR") return kPlainError;
  if (const auto number = CmsErrorNumber(answer)) return *number != 0 ? *number : kPlainError;
  if (state == kList) return ParsATRequest(reply, length);
  return kUnexpectedAnswer;
}

int ReadSMSFB::OnReplyImpl(char* reply, int length, int replyStatus) {
  const int error = Classify(reply, length, replyStatus);
  if (state == kDelete) {  // whether or not it was deleted, the next one follows
    NextDelete();
  } else if (error != 0) {
    state = kIdle;
  } else if (state == kSetPduMode) {
    state = kList;
  } else if (state == kList) {
    state = deleteQueue.empty() ? kIdle : kDelete;
  }
  SetValue("Error", error);
  return state != kIdle ? 1 : 0;
}

void ReadSMSFB::NextDelete() {
  deleteQueue.pop_front();
  if (deleteQueue.empty()) state = kIdle;
}

int ReadSMSFB::ParsATRequest(char* reply, int length) {
  constexpr std::size_t kPrefixLength = 7;  // "+CMGL: "
  const std::string_view answer = AnswerText(reply, length);
  std::size_t position = 0;
  while (position < answer.size() && answer.substr(position, 2) != "OK") {
    const std::size_t index_begin = position + kPrefixLength;
    const std::size_t comma = answer.find(',', index_begin);
    if (comma == answer.npos) break;
    const std::size_t header_end = answer.find('\n', comma);
    if (header_end == answer.npos) break;
    reply[comma] = '\0';
    // Compatibility: only the low eight bits count, so a listed index of 300 is deleted as 44.
    const auto index =
        static_cast<unsigned char>(std::strtoll(reply + index_begin, nullptr, 10) & 0xFF);

    const std::size_t pdu_begin = header_end + 1;
    const std::size_t pdu_end = std::min(answer.find('\r', pdu_begin), answer.size());
    const auto message = boost::make_shared<sms::SMSDelivered>(index);
    std::vector<unsigned char> pdu;
    PDU_h2b(reply + pdu_begin, static_cast<unsigned int>(pdu_end - pdu_begin), pdu);
    deleteQueue.push_back(index);
    message->decode(pdu);
    File(message);
    position = std::min(answer.find_first_not_of("\r\n", pdu_end), answer.size());
  }
  return 0;
}

void ReadSMSFB::File(const Message& message) {
  // Compatibility: what cannot be decoded is deleted from the modem and never reaches the program.
  if (message->status != 0) return;
  if (message->total < 2) {
    readyQueue.push_back(message);
    return;
  }
  const auto [entry, first] = partsMap.try_emplace(message->ref, message);
  if (first) return;
  // Compatibility: parts are joined in the order of the list and counted from the first one's
  // number, so parts that are listed out of order give a text that is scrambled or cut.
  sms::SMSDelivered& joined = *entry->second;
  joined.text += message->text;
  ++joined.seq;
  if (joined.seq == joined.total) {
    readyQueue.push_back(entry->second);
    partsMap.erase(entry);
  }
}

void ReadSMSFB::PDU_h2b(const char* hex, unsigned int length, std::vector<unsigned char>& out) {
  const std::size_t before = out.size();
  out.resize(before + length / 2);
  sms::pdu_hex2bytes(reinterpret_cast<const unsigned char*>(hex), length, out.data() + before);
}
