// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <chrono>
#include <string>

#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/pdu.h"
#include "runtime/modem_check/answer_fields.h"
#include "runtime/modem_check/checks.h"
#include "runtime/modem_driver/ascii.h"

namespace corvane::modem_check {
namespace {

using std::chrono::duration;
using std::chrono::steady_clock;

constexpr std::string_view kText = "Test message from corvane check-modem";
constexpr std::string_view kCommand = "+CMGS";
constexpr std::chrono::seconds kPromptTime(8);
constexpr double kUsualPatience = 2;  // seconds that SEND_SMS waits by itself

gsm::Octets TestPdu(const std::string& receiver) {
  gsm::SubmitPdu pdu;
  pdu.destination = receiver;
  pdu.validity_period = {gsm::RelativeValidity(std::chrono::hours(1))};
  pdu.data = gsm::SplitText(kText, {}).value().front();
  return gsm::EncodeSubmit(pdu);
}

Finding Sent(const std::string& receiver, double seconds) {
  Finding finding{
      Grade::kOk, "test message",
      fmt::format("sent to {}; the network confirmed it after {:.1f} s", receiver, seconds)};
  finding.values["seconds"] = seconds;
  if (seconds > kUsualPatience) finding.advice = "with SEND_SMS, write patience=60s";
  return finding;
}

Finding NotSent(const Reply& reply) {
  Finding finding{Grade::kError, "test message", {}};
  if (!reply.answered) {
    finding.text = "the network has not confirmed it";
    finding.advice = "check the signal and the antenna; the message may arrive all the same";
  } else if (reply.ok()) {
    finding.text = "the modem answered OK without a number, so it was not sent";
    finding.advice = "write init=\"AT^SM20=0,0\" to get the reason (Siemens, Cinterion)";
  } else {
    finding.text = "refused: " + reply.refusal;
    finding.advice = "docs/modem.md, \"Error numbers\", says what to do";
  }
  return finding;
}

}  // namespace

void SendTestMessage(ModemTalk& talk, const CheckOptions& options, const Report& report) {
  const gsm::Octets pdu = TestPdu(options.receiver);
  const Reply prompt =
      talk.Ask(fmt::format("AT{}={}", kCommand, gsm::TpduLength(pdu)), kPromptTime);
  if (!prompt.prompt) {
    report({Grade::kError, "test message",
            "the modem shows no prompt: AT+CMGS was " + prompt.Refusal(),
            "docs/modem.md, \"Error numbers\", says what to do"});
    return;
  }
  talk.Wait(talk.target().prompt_pause);
  const auto start = steady_clock::now();
  const Reply reply =
      talk.SendText(gsm::ToHexadecimal(pdu) + kCtrlZ, kCommand, options.confirmation);
  const double seconds = duration<double>(steady_clock::now() - start).count();
  const bool sent = reply.ok() && NumberAt(SplitFields(reply.line()), 0).has_value();
  report(sent ? Sent(options.receiver, seconds) : NotSent(reply));
}

}  // namespace corvane::modem_check
