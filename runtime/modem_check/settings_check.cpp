// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <string>
#include <string_view>

#include "runtime/modem_check/answer_fields.h"
#include "runtime/modem_check/checks.h"

namespace corvane::modem_check {
namespace {

/// The answer to one of two commands, without the quotes that some modems write.
std::string FirstAnswer(ModemTalk& talk, std::string_view command, std::string_view other) {
  for (const std::string_view name : {command, other}) {
    const Reply reply = talk.Ask("AT" + std::string(name));
    if (reply.ok() && !reply.line().empty()) return SplitFields(reply.line()).front();
  }
  return {};
}

/// Siemens and Cinterion, with factory settings, answer OK when a message could not be sent.
void CheckBareOk(ModemTalk& talk, const Report& report) {
  const Reply reply = talk.Ask("AT^SM20?");
  if (!reply.ok() || NumberAt(SplitFields(reply.line()), 0).value_or(0) == 0) return;
  report({Grade::kWarning, "failures",
          "the modem answers OK when a message could not be sent (AT^SM20)",
          "write init=\"AT^SM20=0,0\", or SEND_SMS believes that it was sent"});
}

const char* FlowName(int modem_side) {
  switch (modem_side) {
    case 0: return "none";
    case 1: return "XON/XOFF";
    case 2: return "RTS/CTS";
    default: return "unknown";
  }
}

void CheckFlow(ModemTalk& talk, const Report& report) {
  const auto fields = SplitFields(talk.Ask("AT+IFC?").line());
  const bool uses_wires = talk.target().flow == FlowControl::kRtsCts;
  const auto modem = NumberAt(fields, 0);
  Finding finding{Grade::kOk, "flow control", uses_wires ? "RTS and CTS" : "none on our side"};
  finding.text += modem ? fmt::format("; the modem's setting is {}", FlowName(*modem))
                        : "; the modem does not report its own";
  if (modem) finding.values["modem"] = *modem;
  if (modem == 1) {
    finding.grade = Grade::kWarning;
    finding.advice = "write init=\"AT+IFC=0,0\": XON and XOFF are characters, and may get lost";
  } else if (uses_wires && modem == 0) {
    finding.grade = Grade::kWarning;
    finding.advice = "write init=\"AT+IFC=2,2\", so that the modem uses RTS and CTS as well";
  }
  report(finding);
}

void CheckEcho(ModemTalk& talk, const Report& report) {
  (void)talk.Ask("ATE0");
  const bool stays = talk.Ask("AT").echoed;
  Finding finding{Grade::kOk, "echo",
                  stays                    ? "the modem keeps it on, which does no harm"
                  : talk.echoed_at_first() ? "can be switched off"
                                           : "off"};
  finding.values["on"] = stays;
  report(finding);
}

}  // namespace

void CheckMaker(ModemTalk& talk, const Report& report) {
  Finding finding{Grade::kOk, "modem", {}};
  finding.values["maker"] = FirstAnswer(talk, "+CGMI", "+GMI");
  finding.values["model"] = FirstAnswer(talk, "+CGMM", "+GMM");
  finding.values["revision"] = FirstAnswer(talk, "+CGMR", "+GMR");
  for (const auto& value : finding.values) {
    const auto& text = value.get_ref<const std::string&>();
    if (!text.empty()) finding.text += (finding.text.empty() ? "" : ", ") + text;
  }
  if (finding.text.empty()) {
    finding.grade = Grade::kWarning;
    finding.text = "the modem names neither its maker nor its model";
    finding.advice = "make sure that it is a GSM modem";
  }
  report(finding);
}

void CheckLineSettings(ModemTalk& talk, const Report& report) {
  CheckEcho(talk, report);
  CheckFlow(talk, report);
  CheckBareOk(talk, report);
}

}  // namespace corvane::modem_check
