// SPDX-License-Identifier: MIT
// Sending what a store has, whatever that is, through a modem that answers anything: each request
// is well-formed, its PDU is for the receiver and has a part of the text, no part goes out again
// after its confirmation, and no message after its end.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "addins/corvane_sms/send_task.h"
#include "corvane/modem_port_driver.h"
#include "fuzz/input_reader.h"
#include "fuzz/require.h"
#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/pdu.h"

using namespace corvane_sms;
using messages::Outgoing;
using messages::OutgoingState;

namespace {

constexpr messages::WallTime kToday = std::chrono::sys_days(std::chrono::year(2026) / 6 / 1);

/// A store without a folder, which holds nothing up.
messages::Store& NoStore() {
  static messages::Store store({}, "sms");
  static const bool has_failed = [] {
    while (store.problem().empty()) std::this_thread::yield();
    return true;
  }();
  Require(has_failed);
  return store;
}

std::string ContentOf(InputReader& in) {
  if (in.Below(4) == 0) return in.Text();
  std::string text = in.Text();
  const std::size_t times = in.Below(8) == 0 ? in.Octet() : 1;
  std::string all;
  for (std::size_t i = 0; i < times; ++i) all += text;
  const nlohmann::json content = {
      {"text", all}, {"reference", in.Number()}, {"flash", in.Flag()}, {"report", in.Flag()}};
  return content.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

Outgoing MessageOf(InputReader& in, std::int64_t id) {
  Outgoing row;
  row.id = row.job = id;
  row.channel = "sms";
  row.route = "1";
  row.receiver = in.Below(4) == 0 ? in.Text() : "+15550101234";
  row.content = ContentOf(in);
  if (in.Below(4) == 0) row.progress = in.Text();
  row.urgent = in.Flag();
  row.created = kToday;
  row.expires = kToday + std::chrono::minutes(in.Number() % 100'000);
  row.unknown_ends = static_cast<int>(in.Below(3));
  row.in_transfer = in.Below(8) == 0;
  row.attempts = static_cast<int>(in.Below(5));
  return row;
}

class Program {
 public:
  explicit Program(InputReader& in) : in_(in) {
    std::deque<Outgoing> rows;
    const std::size_t count = 1 + in.Below(3);
    for (std::size_t id = 1; id <= count; ++id) {
      rows.push_back(MessageOf(in, static_cast<std::int64_t>(id)));
    }
    outbox_.Load(std::move(rows), {}, {}, {}, now_);
    outbox_.Tick(now_);
    outbox_.Tick(now_);
    Require(outbox_.loaded());
  }

  /// One exchange with the modem, if there is something to send.
  void Exchange() {
    if (task_.Priority(now_) == 0) return Pass();
    task_.OnBegin(now_);
    while (task_.Priority(now_) > 0) {
      const auto request = task_.Next(now_);
      if (!request) break;
      const bool is_text = request->octets.ends_with('\x1A');
      is_text ? CheckText(request->octets) : CheckAnnouncement(request->octets);
      const int status = in_.Below(8) == 0 ? kPortDriverNoAnswer : 0;
      const std::string answer = Answer(is_text, status);
      const bool goes_on = task_.OnAnswer(answer, status, now_);
      if (is_text && outcome_ == SendOutcome::kTaken) NoteTaken();
      if (!goes_on) break;
    }
    Pass();
  }

 private:
  /// Most often the right one. Sets outcome_ to what it means.
  std::string Answer(bool is_text, int status) {
    std::string answer =
        is_text ? "\r\n+CMGS: " + std::to_string(in_.Octet()) + "\r\n\r\nOK\r\n" : "\r\n> ";
    switch (in_.Below(6)) {
      case 0: answer = in_.Text(); break;
      case 1: answer = "\r\n+CMS ERROR: " + std::to_string(in_.Number() % 600) + "\r\n"; break;
      default: break;
    }
    outcome_ = is_text ? ReadTextAnswer(answer, status).outcome : SendOutcome::kPrompt;
    return answer;
  }
  void Pass() {
    const auto time = std::chrono::seconds(in_.Octet() * 16);
    now_.steady += time;
    now_.wall += time;
    outbox_.Tick(now_);
    if (in_.Below(8) == 0) {
      const std::string line = in_.Flag() ? kPortDriverRestart : "+CDS: 25";
      task_.OnLine(line, in_.Text(), now_);
    }
  }
  void CheckAnnouncement(const std::string& request) {
    constexpr std::string_view kCommand = "AT+CMGS=";
    Require(request.starts_with(kCommand) && request.ends_with('\r'));
    const std::string length =
        request.substr(kCommand.size(), request.size() - kCommand.size() - 1);
    Require(!length.empty() && length.find_first_not_of("0123456789") == std::string::npos);
    announced_ = std::stoul(length);
  }
  void CheckText(const std::string& request) {
    const auto octets = gsm::FromHexadecimal(request.substr(0, request.size() - 1));
    Require(octets && gsm::TpduLength(*octets) == announced_ && announced_ <= 164);
    gsm::SubmitPdu pdu;
    const gsm::PduResult result = gsm::DecodeSubmit(*octets, pdu);
    Require(result && result.whole && gsm::EncodeSubmit(pdu) == *octets);
    // There is one attempt at a time, and its message is marked.
    message_ = 0;
    for (std::int64_t id = 1; id <= 3; ++id) {
      const Outgoing* const row = outbox_.Find(id);
      if (row == nullptr || !row->in_transfer) continue;
      Require(message_ == 0);
      message_ = id;
      Require(gsm::IsNumber(row->receiver) && pdu.destination == row->receiver);
    }
    Require(message_ != 0 && !ended_.contains(message_));
    part_ = pdu.data.header.concatenation ? pdu.data.header.concatenation->sequence : 1;
    Require(!taken_.contains({message_, part_}));
  }
  void NoteTaken() {
    taken_.insert({message_, part_});
    const Outgoing* const row = outbox_.Find(message_);
    if (row == nullptr || row->state != OutgoingState::kWaiting) ended_.insert(message_);
  }

  InputReader& in_;
  messages::Now now_{std::chrono::steady_clock::time_point(std::chrono::hours(1000)), kToday};
  std::uint64_t sequence_ = 0;
  messages::Outbox outbox_{"sms",
                           {[] { return messages::kFirstNewId; },
                            [this](const auto& /*changes*/) { return ++sequence_; }}};
  ReportBook reports_{outbox_};
  SendTask task_{1, outbox_, NoStore(), reports_};
  std::size_t announced_ = 0;
  SendOutcome outcome_ = SendOutcome::kPrompt;
  std::int64_t message_ = 0;
  int part_ = 0;
  std::set<std::pair<std::int64_t, int>> taken_;
  std::set<std::int64_t> ended_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  InputReader in(data, size);
  Program program(in);
  for (int i = 0; i < 24 && !in.AtEnd(); ++i) program.Exchange();
  return 0;
}
