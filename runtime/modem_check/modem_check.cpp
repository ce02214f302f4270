// SPDX-License-Identifier: MIT
#include "runtime/modem_check/modem_check.h"

#include <fmt/format.h>

#include <array>
#include <string_view>

#include "runtime/modem_check/checks.h"

namespace corvane::modem_check {
namespace {

/// The usual ones, the likeliest first.
constexpr std::array<unsigned, 8> kUsualRates{115200, 9600,   57600,  38400,
                                              19200,  230400, 460800, 921600};
constexpr std::chrono::milliseconds kFirstTime(1000);  // a modem may be busy
constexpr std::chrono::milliseconds kOtherTime(300);

bool IsSerial(const ModemTalk& talk) {
  return !talk.target().device.empty();
}

std::string AtRate(const ModemTalk& talk) {
  if (!IsSerial(talk)) return talk.target().Name() + " answers";
  return fmt::format("{} answers at {} bits per second", talk.target().Name(), talk.target().baud);
}

Finding LineFinding(const ModemTalk& talk, Grade grade, std::string text, std::string advice) {
  Finding finding{grade, "line", std::move(text), std::move(advice)};
  finding.values["device"] = talk.target().Name();
  if (IsSerial(talk)) finding.values["baud"] = talk.target().baud;
  return finding;
}

Finding Silence(const ModemTalk& talk, FirstContact contact) {
  const std::string name = talk.target().Name();
  const std::string rates = IsSerial(talk) ? ", at no usual baud rate" : "";
  switch (contact) {
    case FirstContact::kEchoes:
      return {Grade::kError, "line", name + " sends back what it gets, and nothing else",
              "it is not a modem's port for commands; try the others (ls /dev/serial/by-id)"};
    case FirstContact::kNoise:
      return {Grade::kError, "line",
              fmt::format("{} answers, but not as a modem does: '{}'", name, talk.noise()),
              IsSerial(talk) ? "try the modem's other ports, or another baud rate (baud=)"
                             : "set the serial device server to the modem's baud rate"};
    case FirstContact::kSilent:
    case FirstContact::kAnswers: break;
  }
  return {Grade::kError, "line", fmt::format("{} does not answer{}", name, rates),
          IsSerial(talk)
              ? "check its power and the cable, and try its other ports (ls /dev/serial/by-id)"
              : "check the modem's power, the cable, and the server's baud rate"};
}

/// The line's settings differ from those of the target.
void ReportOtherSettings(const ModemTalk& talk, const ModemTarget& wanted, const Report& report) {
  if (talk.target().baud != wanted.baud) {
    report(LineFinding(talk, Grade::kError, fmt::format("{}, not at {}", AtRate(talk), wanted.baud),
                       fmt::format("write baud={0} after the device, as in --modem 1={1},baud={0}",
                                   talk.target().baud, wanted.Name())));
  } else if (talk.target().flow != wanted.flow) {
    report(LineFinding(talk, Grade::kError, AtRate(talk) + ", but not with flow=rtscts",
                       "leave flow=rtscts out, or use a cable with RTS and CTS"));
  }
}

void ReportAnswer(const ModemTalk& talk, const ModemTarget& wanted, const Report& report) {
  if (talk.was_quiet()) {
    report(LineFinding(talk, Grade::kError,
                       AtRate(talk) + " only since its results were switched on",
                       "have it keep them on: send ATQ0&W (corvane check-modem --console)"));
  } else if (talk.target().baud != wanted.baud || talk.target().flow != wanted.flow) {
    ReportOtherSettings(talk, wanted, report);
  } else {
    report(LineFinding(talk, Grade::kOk, AtRate(talk), {}));
  }
}

/// Tries one setting after another until something answers.
FirstContact Search(ModemTalk& talk) {
  const ModemTarget wanted = talk.target();
  const FirstContact first = talk.Open(wanted.baud, wanted.flow, kFirstTime);
  const bool certain = first == FirstContact::kAnswers || first == FirstContact::kEchoes;
  if (certain || !IsSerial(talk)) return first;
  if (wanted.flow == FlowControl::kRtsCts &&
      talk.Open(wanted.baud, FlowControl::kNone, kOtherTime) == FirstContact::kAnswers) {
    return FirstContact::kAnswers;
  }
  for (const unsigned rate : kUsualRates) {
    if (rate == wanted.baud) continue;
    const FirstContact contact = talk.Open(rate, FlowControl::kNone, kOtherTime);
    if (contact == FirstContact::kAnswers) return contact;
  }
  return first;
}

void CheckFound(ModemTalk& talk, WaitLoop& loop, const CheckOptions& options, bool& ready,
                const Report& report) {
  CheckMaker(talk, report);
  CheckLineSettings(talk, report);
  ready = CheckCard(talk, loop, report);
  if (ready) CheckMessageMode(talk, report);  // without a card some modems refuse PDU mode
  CheckNetwork(talk, ready, options.registration, report);
  if (ready) CheckServiceCentreAndStore(talk, report);
}

}  // namespace

bool FindModem(ModemTalk& talk, const Report& report) {
  const ModemTarget wanted = talk.target();
  try {
    const FirstContact contact = Search(talk);
    if (contact != FirstContact::kAnswers) {
      report(Silence(talk, contact));
      return false;
    }
  } catch (const LineError& error) {
    report({Grade::kError, "line", error.what()});
    return false;
  } catch (const TalkEnded& ended) {
    report({Grade::kError, "line", ended.what()});
    return false;
  }
  ReportAnswer(talk, wanted, report);
  return true;
}

bool CheckModem(const ModemTarget& target, const CheckOptions& options, const Report& report) {
  bool can_send = true;
  const Report counted = [&](const Finding& finding) {
    can_send = can_send && finding.grade != Grade::kError;
    report(finding);
  };
  WaitLoop loop;
  ModemTalk talk(target, loop);
  if (!FindModem(talk, counted)) return false;
  try {
    bool ready = false;
    CheckFound(talk, loop, options, ready, counted);
    if (ready && can_send && !options.receiver.empty()) SendTestMessage(talk, options, counted);
  } catch (const TalkEnded& ended) {
    counted({Grade::kError, "line", ended.what()});
  }
  return can_send;
}

}  // namespace corvane::modem_check
