// SPDX-License-Identifier: MIT
#include "tests/support/gammu_codec.h"

#include <gammu.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace test_support {
namespace {

std::string ToUtf8(const unsigned char* utf16) {
  std::vector<char> utf8(3 * (GSM_MAX_SMS_LENGTH + 1));
  EncodeUTF8(utf8.data(), utf16);
  return utf8.data();
}

GammuUserData UserData(GSM_SMSMessage& message) {
  unsigned char frame[1000] = {};
  int length = 0;
  if (GSM_EncodeSMSFrame(nullptr, &message, frame, PHONE_SMSSubmit, &length, TRUE) != ERR_NONE) {
    throw std::runtime_error("libgammu does not encode the message");
  }
  return {frame[PHONE_SMSSubmit.TPUDL], {frame + PHONE_SMSSubmit.Text, frame + length}};
}

}  // namespace

GammuMessage GammuDecode(const std::vector<unsigned char>& pdu) {
  constexpr std::size_t kPadding = 64;  // it reads a little past the end of a short PDU
  std::vector<unsigned char> padded = pdu;
  padded.resize(pdu.size() + kPadding);
  const auto sms = std::make_unique<GSM_SMSMessage>();
  GSM_SetDefaultReceivedSMSData(sms.get());
  std::size_t end = 0;
  GammuMessage message;
  if (GSM_DecodePDUFrame(nullptr, sms.get(), padded.data(), pdu.size(), &end, TRUE) != ERR_NONE) {
    return message;
  }
  message.decoded = true;
  message.number = ToUtf8(sms->Number);
  message.text = ToUtf8(sms->Text);
  const GSM_DateTime& time = sms->DateTime;
  message.year = time.Year;
  message.month = time.Month;
  message.day = time.Day;
  message.hour = time.Hour;
  message.minute = time.Minute;
  message.second = time.Second;
  if (sms->UDH.Type != UDH_NoUDH) {
    message.ref = sms->UDH.ID8bit;
    message.total = sms->UDH.AllParts;
    message.seq = sms->UDH.PartNumber;
  }
  return message;
}

std::vector<GammuUserData> GammuEncode(const std::string& text, const std::string& number,
                                       bool ucs2) {
  std::vector<unsigned char> utf16(2 * (text.size() + 1));
  DecodeUTF8(utf16.data(), text.c_str(), text.size());
  const auto info = std::make_unique<GSM_MultiPartSMSInfo>();
  GSM_ClearMultiPartSMSInfo(info.get());
  info->Class = -1;
  info->EntriesNum = 1;
  info->UnicodeCoding = ucs2 ? TRUE : FALSE;
  info->Entries[0].ID = SMS_ConcatenatedTextLong;
  info->Entries[0].Buffer = utf16.data();
  const auto parts = std::make_unique<GSM_MultiSMSMessage>();
  if (GSM_EncodeMultiPartSMS(nullptr, info.get(), parts.get()) != ERR_NONE) {
    throw std::runtime_error("libgammu does not split the text");
  }
  std::vector<GammuUserData> all;
  for (int part = 0; part < parts->Number; ++part) {
    GSM_SMSMessage& message = parts->SMS[part];
    EncodeUnicode(message.Number, number.c_str(), number.size());
    message.PDU = SMS_Submit;
    all.push_back(UserData(message));
  }
  return all;
}

}  // namespace test_support
