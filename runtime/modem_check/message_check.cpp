// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <string>
#include <vector>

#include "runtime/modem_check/answer_fields.h"
#include "runtime/modem_check/checks.h"

namespace corvane::modem_check {
namespace {

void CheckPduMode(ModemTalk& talk, const Report& report) {
  const Reply service = talk.Ask("AT+CSMS?");  // +CSMS: <service>,<mt>,<mo>,<bm>
  if (NumberAt(SplitFields(service.line()), 2) == 0) {
    report({Grade::kError, "messages", "the modem cannot send messages (AT+CSMS?)",
            "use a modem with text messages"});
    return;
  }
  const Reply mode = talk.AskOnceReady("AT+CMGF=0");
  if (mode.ok()) {
    report({Grade::kOk, "messages", "in PDU mode, as our blocks need"});
  } else {
    report({Grade::kError, "messages", "PDU mode is refused: AT+CMGF=0 was " + mode.Refusal(),
            "use a GSM modem with text messages"});
  }
}

void CheckAlphabet(ModemTalk& talk, const Report& report) {
  const auto fields = SplitFields(talk.Ask("AT+CSCS?").line());
  Finding finding{Grade::kOk, "alphabet", fields.front()};
  finding.values["alphabet"] = fields.front();
  if (fields.front().empty()) finding.text = "the modem does not report it";
  finding.text += "; in PDU mode it concerns only the names that the modem shows";
  report(finding);
}

void CheckServiceCentre(ModemTalk& talk, const Report& report) {
  const Reply reply = talk.AskOnceReady("AT+CSCA?");
  const bool ucs2 = SplitFields(talk.Ask("AT+CSCS?").line()).front() == "UCS2";
  std::string number = SplitFields(reply.line()).front();
  if (ucs2) number = FromUcs2Digits(number);
  Finding finding{Grade::kOk, "service centre", number};
  finding.values["number"] = number;
  if (!reply.ok()) {
    finding.grade = Grade::kWarning;
    finding.text = "the modem does not show it: AT+CSCA? was " + reply.Refusal();
    finding.advice = "find out with --send NUMBER whether it knows one";
  } else if (number.empty()) {
    finding.grade = Grade::kError;
    finding.text = "none";
    finding.advice = "write init=AT+CSCA=\"+49...\" with the operator's number";
  }
  report(finding);
}

/// The store for messages that arrive, the third of `"SM",3,20,"SM",3,20,"SM",3,20`.
Finding StoreFinding(const std::vector<std::string>& fields) {
  const std::size_t at = fields.size() >= 9 ? 6 : 0;
  const auto used = NumberAt(fields, at + 1);
  const auto places = NumberAt(fields, at + 2);
  if (!used || !places) {
    return {Grade::kWarning, "store", "the modem does not report how full it is",
            "write init=AT+CPMS=\"SM\",\"SM\",\"SM\" to use the store of the SIM card"};
  }
  Finding finding{Grade::kOk, "store",
                  fmt::format("{}: {} of {} places taken", fields[at], *used, *places)};
  finding.values = {{"store", fields[at]}, {"used", *used}, {"places", *places}};
  if (*used >= *places) {
    finding.grade = Grade::kWarning;
    finding.text += ", so no message arrives";
    finding.advice = "let a program with SMS_INBOX or READ_SMS run, or delete: AT+CMGD=1,4";
  } else if (fields[0] != fields[at]) {
    finding.grade = Grade::kWarning;
    finding.text += fmt::format(", but messages are listed from {}", fields[0]);
    finding.advice =
        fmt::format("write init=AT+CPMS=\"{0}\",\"{0}\",\"{0}\", to use the same", fields[at]);
  }
  return finding;
}

}  // namespace

void CheckMessageMode(ModemTalk& talk, const Report& report) {
  CheckPduMode(talk, report);
  CheckAlphabet(talk, report);
}

void CheckServiceCentreAndStore(ModemTalk& talk, const Report& report) {
  CheckServiceCentre(talk, report);
  report(StoreFinding(SplitFields(talk.AskOnceReady("AT+CPMS?").line())));
}

}  // namespace corvane::modem_check
