// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/send_task.h"

#include <algorithm>
#include <utility>

#include "addins/corvane_sms/port_client.h"
#include "libs/gsm/address.h"
#include "libs/gsm/hexadecimal.h"
#include "share/log.h"

namespace corvane_sms {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPromptTimeout(10'000);
/// Makers of modems allow the network up to three minutes.
constexpr milliseconds kTextTimeout(180'000);
constexpr char kCtrlZ = 0x1A;  // ends the text

}  // namespace

SendTask::SendTask(int port, messages::Outbox& outbox, messages::Store& store, ReportBook& reports)
    : route_(std::to_string(port)), outbox_(outbox), store_(store), reports_(reports) {}

int SendTask::Priority(const Now& now) {
  if (state_ == State::kIdle) {
    const auto id = outbox_.Next(route_, now);
    if (!id) return kNothingToDo;
    Begin(*id, now);
    if (state_ == State::kIdle) return kNothingToDo;
  }
  // The modem is brought into PDU mode while the disk is at work.
  if (state_ == State::kStoring && begun_ && !IsMarked()) return kNothingToDo;
  const messages::Outgoing* const row = outbox_.Find(id_);
  return row != nullptr && row->urgent ? kUrgentPriority : kSendPriority;
}

void SendTask::Begin(std::int64_t id, const Now& now) {
  id_ = id;
  marked_ = outbox_.Begin(id, now);
  store_.Hurry();
  const messages::Outgoing& row = *outbox_.Find(id);
  content_ = ReadContent(row.content).value_or(SmsContent{});
  progress_ = ReadProgress(row.progress);
  parts_ = CountParts(content_);
  if (!gsm::IsNumber(row.receiver)) {
    outbox_.FailForGood(id, messages::kRefusedError, "its receiver in the store cannot be read",
                        now);
    return;
  }
  if (content_.text.empty() || NextPart() >= parts_ || parts_ > gsm::kMaxParts) {
    outbox_.FailForGood(id, messages::kRefusedError, "its text in the store cannot be read", now);
    return;
  }
  // The driver recognises a text whose confirmation came late only if it is the very same.
  if (row.unknown_ends == 0 || !progress_.validity) {
    progress_.validity = ValidityOf(outbox_.ValidFor(id, now));
  }
  state_ = State::kStoring;
  begun_ = false;
}

bool SendTask::IsMarked() const {
  return store_.IsOnDisk(marked_) || !store_.problem().empty();
}

void SendTask::OnBegin(const Now& /*now*/) {
  begun_ = true;
}

std::optional<AtRequest> SendTask::Next(const Now& now) {
  switch (state_) {
    case State::kStoring: return Announce();
    case State::kPrompt: state_ = State::kText; return AtRequest{pdu_ + kCtrlZ, kTextTimeout};
    case State::kAnnounced:
    case State::kText: OnAnswer({}, kPortDriverNoAnswer, now); break;  // the driver kept the answer
    case State::kIdle: break;
  }
  return std::nullopt;
}

AtRequest SendTask::Announce() {
  state_ = State::kAnnounced;
  const gsm::Octets octets =
      MakeSubmit(content_, outbox_.Find(id_)->receiver, NextPart(), progress_.validity.value_or(0));
  pdu_ = gsm::ToHexadecimal(octets);
  return {"AT+CMGS=" + std::to_string(gsm::TpduLength(octets)) + "\r", kPromptTimeout};
}

bool SendTask::OnAnswer(std::string_view answer, int status, const Now& now) {
  return Handle(
      state_ == State::kText ? ReadTextAnswer(answer, status) : ReadPromptAnswer(answer, status),
      now);
}

void SendTask::OnNotReady(std::string_view answer, int status, const Now& now) {
  Handle(ReadRefusal(answer, status), now);
}

bool SendTask::Handle(const SendResult& result, const Now& now) {
  if (result.outcome == SendOutcome::kPrompt) {
    state_ = State::kPrompt;
    warned_ = false;
    return true;
  }
  if (result.outcome == SendOutcome::kTaken) return PartTaken(result.reference, now);
  const bool awaited_prompt = std::exchange(state_, State::kIdle) == State::kAnnounced;
  if (awaited_prompt && result.outcome == SendOutcome::kPort) Warn(result.reason);
  switch (result.outcome) {
    case SendOutcome::kPrompt:
    case SendOutcome::kTaken: break;
    case SendOutcome::kNever:
      outbox_.FailForGood(id_, messages::kRefusedError, result.reason, now);
      break;
    case SendOutcome::kNotNow: outbox_.FailForNow(id_, result.reason, now); break;
    case SendOutcome::kPort: outbox_.FailOnRoute(id_, result.reason, now); break;
    case SendOutcome::kUnknown:
      KeepReports();
      outbox_.SetProgress(id_, ToJson(progress_), now);
      outbox_.EndUnknown(id_, result.reason, now);
      break;
  }
  return false;
}

void SendTask::Warn(const std::string& reason) {
  if (std::exchange(warned_, true)) return;
  logMsgLn(("SMS: modem port " + route_ + ": " + reason).c_str());
}

bool SendTask::PartTaken(std::uint8_t reference, const Now& now) {
  KeepReports();
  progress_.parts.push_back({reference, std::nullopt});
  if (content_.report) reports_.Expect(route_, reference, id_, NextPart() - 1);
  if (NextPart() < parts_) {
    marked_ = outbox_.SetProgress(id_, ToJson(progress_), now);
    state_ = State::kStoring;
    return true;
  }
  state_ = State::kIdle;
  outbox_.Sent(id_, ToJson(progress_), content_.report, now);
  return false;
}

void SendTask::KeepReports() {
  const SmsProgress noted = ReadProgress(outbox_.Find(id_)->progress);
  for (std::size_t part = 0; part < std::min(noted.parts.size(), NextPart()); ++part) {
    progress_.parts[part].status = noted.parts[part].status;
  }
}

void SendTask::OnLine(std::string_view line, std::string_view pdu, const Now& now) {
  if (line == kPortDriverRestart) {
    outbox_.ReleaseRoute(route_, now);
    return;
  }
  if (!line.starts_with("+CDS:")) return;
  const auto octets = gsm::FromHexadecimal(pdu);
  gsm::StatusReportPdu report;
  if (octets && gsm::DecodeStatusReport(*octets, report).whole) reports_.Take(route_, report, now);
}

void SendTask::End(const Now& now) {
  const bool modem_has_it = state_ == State::kText;
  if (state_ != State::kIdle && !modem_has_it) outbox_.Withdraw(id_, now);
  state_ = State::kIdle;
}

}  // namespace corvane_sms
