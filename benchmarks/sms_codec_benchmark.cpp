// SPDX-License-Identifier: MIT
// Both SMS codecs compared with libgammu on the same messages, and what a list answer costs
// READ_SMS.
#include <benchmark/benchmark.h>
#include <gammu.h>

#include <memory>
#include <string>
#include <vector>

#include "addins/corvane_fb_lib/corvane_fb_lib.h"
#include "addins/corvane_fb_lib/read_sms.h"
#include "addins/corvane_fb_lib/sms_delivered.h"
#include "addins/corvane_fb_lib/sms_submit.h"
#include "libs/gsm/pdu.h"
#include "runtime/corvane/lua_environment.h"
#include "tests/support/deliver_pdu.h"

namespace {

using test_support::DeliverPdu;
using test_support::Octets;

const std::string kNumber = "15550101234";

std::string PlainText(std::size_t length) {
  std::string text = "Boiler 2: pressure low. ";
  while (text.size() < length) text += text;
  return text.substr(0, length);
}

std::string Cyrillic(std::size_t characters) {
  std::string text;
  for (std::size_t i = 0; i < characters; ++i) text += "\xD0\x96";
  return text;
}

/// Received messages: short and long in septets, one in UCS-2, the parts of a long one.
std::vector<Octets> ReceivedMessages() {
  return {test_support::TextMessage(PlainText(24)).ToOctets(),
          test_support::TextMessage(PlainText(160)).ToOctets(),
          test_support::Part(0, 1, 1, PlainText(60)).ToOctets(),
          test_support::Part(7, 2, 1, PlainText(67)).ToOctets(),
          test_support::Part(7, 2, 2, PlainText(30)).ToOctets()};
}

/// Texts that both codecs encode into the same PDUs.
struct SentText {
  std::string utf8;
  bool ucs2;
};
std::vector<SentText> SentTexts() {
  return {
      {PlainText(24), false}, {PlainText(67), false}, {Cyrillic(70), true}, {Cyrillic(200), true}};
}

void DecodeOurs(benchmark::State& state) {
  const std::vector<Octets> messages = ReceivedMessages();
  for (auto _ : state) {
    for (const Octets& pdu : messages) {
      sms::SMSDelivered message(1);
      message.decode(pdu);
      benchmark::DoNotOptimize(message);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(messages.size()));
}
BENCHMARK(DecodeOurs)->Name("Codec/decode_ours");

/// The codec of the field blocks: the same messages, with their texts in UTF-8.
void DecodeStandard(benchmark::State& state) {
  const std::vector<Octets> messages = ReceivedMessages();
  for (auto _ : state) {
    for (const Octets& pdu : messages) {
      gsm::DeliverPdu message;
      if (!gsm::DecodeDeliver(pdu, message)) state.SkipWithError("not decoded");
      benchmark::DoNotOptimize(gsm::TextOf(message.data));
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(messages.size()));
}
BENCHMARK(DecodeStandard)->Name("Codec/decode_standard");

/// Only the PDU; converting its text to UTF-8 would be extra.
void DecodePeer(benchmark::State& state) {
  const std::vector<Octets> messages = ReceivedMessages();
  const auto message = std::make_unique<GSM_SMSMessage>();
  for (auto _ : state) {
    for (const Octets& pdu : messages) {
      GSM_SetDefaultReceivedSMSData(message.get());
      std::size_t end = 0;
      const GSM_Error error =
          GSM_DecodePDUFrame(nullptr, message.get(), pdu.data(), pdu.size(), &end, TRUE);
      if (error != ERR_NONE) state.SkipWithError("libgammu does not decode the message");
      benchmark::DoNotOptimize(*message);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(messages.size()));
}
BENCHMARK(DecodePeer)->Name("Codec/decode_peer");

void EncodeOurs(benchmark::State& state) {
  const std::vector<SentText> texts = SentTexts();
  for (auto _ : state) {
    for (const SentText& text : texts) {
      sms::SMSSubmit message;
      if (message.encode(text.utf8, kNumber) != 0) state.SkipWithError("not encoded");
      benchmark::DoNotOptimize(message);
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}
BENCHMARK(EncodeOurs)->Name("Codec/encode_ours");

void EncodeStandard(benchmark::State& state) {
  const std::vector<SentText> texts = SentTexts();
  for (auto _ : state) {
    for (const SentText& text : texts) {
      const auto parts = gsm::SplitText(text.utf8, {7, false});
      if (!parts) return state.SkipWithError("not encoded");
      for (const gsm::UserData& part : *parts) {
        gsm::SubmitPdu message;
        message.destination = "+" + kNumber;
        message.data_coding_scheme = gsm::DataCodingScheme(part.alphabet);
        message.validity_period = {0xA7};
        message.data = part;
        benchmark::DoNotOptimize(gsm::EncodeSubmit(message));
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}
BENCHMARK(EncodeStandard)->Name("Codec/encode_standard");

void EncodePeer(benchmark::State& state) {
  const std::vector<SentText> texts = SentTexts();
  const auto info = std::make_unique<GSM_MultiPartSMSInfo>();
  const auto parts = std::make_unique<GSM_MultiSMSMessage>();
  std::vector<unsigned char> utf16(1000);
  unsigned char frame[1000];
  for (auto _ : state) {
    for (const SentText& text : texts) {
      DecodeUTF8(utf16.data(), text.utf8.c_str(), text.utf8.size());
      GSM_ClearMultiPartSMSInfo(info.get());
      info->Class = -1;
      info->EntriesNum = 1;
      info->UnicodeCoding = text.ucs2 ? TRUE : FALSE;
      info->Entries[0].ID = SMS_ConcatenatedTextLong;
      info->Entries[0].Buffer = utf16.data();
      GSM_Error error = GSM_EncodeMultiPartSMS(nullptr, info.get(), parts.get());
      for (int part = 0; part < parts->Number && error == ERR_NONE; ++part) {
        GSM_SMSMessage& message = parts->SMS[part];
        EncodeUnicode(message.Number, kNumber.c_str(), kNumber.size());
        message.PDU = SMS_Submit;
        int length = 0;
        error = GSM_EncodeSMSFrame(nullptr, &message, frame, PHONE_SMSSubmit, &length, TRUE);
        benchmark::DoNotOptimize(frame);
      }
      if (error != ERR_NONE) state.SkipWithError("libgammu does not encode the text");
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
}
BENCHMARK(EncodePeer)->Name("Codec/encode_peer");

/// READ_SMS parses a list of this many messages; an item is one message.
void ParseList(benchmark::State& state) {
  static const int registered = InitAddin();
  benchmark::DoNotOptimize(registered);
  const corvane::LuaEnvironment environment;
  lua_State* L = environment.state();
  const std::string hex = test_support::TextMessage(PlainText(100)).ToHex();
  std::string list;
  for (int i = 1; i <= state.range(0); ++i) {
    list += "+CMGL: " + std::to_string(i) + ",0,,117\r\n" + hex + "\r\n";
  }
  list += "\r\nOK\r\n";
  for (auto _ : state) {
    state.PauseTiming();
    luaL_dostring(L, "collectgarbage() return READ_SMS.new()");
    auto& block = *static_cast<ReadSMSFB*>(lua_touserdata(L, -1));
    std::string answer = list;  // it is overwritten
    state.ResumeTiming();
    block.ParsATRequest(answer.data(), static_cast<int>(answer.size()));
    state.PauseTiming();
    lua_settop(L, 0);
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ParseList)->Arg(255)->Arg(2550);

}  // namespace

BENCHMARK_MAIN();
