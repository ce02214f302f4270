// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/line_kind.h"

#include <algorithm>
#include <array>

namespace corvane {
namespace {

enum class Match : std::uint8_t { kLine, kBeginning };

struct Quirk {
  std::string_view text;
  Match match;
  LineKind kind;
};

using enum LineKind;
using enum Match;

/// How the line of a refusal begins, and the form that the standards use.
struct Refusal {
  std::string_view text;
  std::string_view standard;
};

constexpr std::array kRefusals{
    Refusal{"+CMS ERROR", "+CMS ERROR"},     Refusal{"+CME ERROR", "+CME ERROR"},
    Refusal{"+CMGS ERROR", "+CMS ERROR"},     // Fibocom
    Refusal{"COMMAND NOT SUPPORT", "ERROR"},  // Huawei
    Refusal{"TOO MANY PARAMETERS", "ERROR"},  // Huawei
};

// The first row that matches the line, in its standard form, decides.
constexpr std::array kQuirks{
    // Final results.
    Quirk{"OK", kLine, kOk},
    Quirk{"ERROR", kLine, kError},
    Quirk{"ERROR:", kBeginning, kError},  // with the reason in words
    Quirk{"+CMS ERROR: 314", kLine, kSimBusy},
    Quirk{"+CMS ERROR: SIM busy", kLine, kSimBusy},  // after AT+CMEE=2
    Quirk{"+CMS ERROR", kBeginning, kError},
    Quirk{"+CME ERROR: 14", kLine, kSimBusy},
    Quirk{"+CME ERROR: SIM busy", kLine, kSimBusy},
    Quirk{"+CME ERROR", kBeginning, kError},
    // Lines that are followed by a message or a report on the next line.
    Quirk{"+CMT:", kBeginning, kUnsolicitedPair},
    Quirk{"+CDS:", kBeginning, kUnsolicitedPair},
    Quirk{"+CBM:", kBeginning, kUnsolicitedPair},
    // The modem has started, intentionally or not (a weak supply drops while the modem sends).
    Quirk{"RDY", kLine, kRestart},             // SIMCom, Quectel
    Quirk{"APP RDY", kLine, kRestart},         // Quectel
    Quirk{"START", kLine, kRestart},           // SIMCom
    Quirk{"^SYSSTART", kBeginning, kRestart},  // Siemens, Cinterion
    // Messages, calls, network (27.005, 27.007, V.250).
    Quirk{"+CMTI:", kBeginning, kAnnouncement},
    Quirk{"+CDSI:", kBeginning, kAnnouncement},
    Quirk{"+CBMI:", kBeginning, kUnsolicited},
    Quirk{"+CREG:", kBeginning, kUnsolicited},
    Quirk{"+CGREG:", kBeginning, kUnsolicited},
    Quirk{"+CEREG:", kBeginning, kUnsolicited},
    Quirk{"+CRING:", kBeginning, kUnsolicited},
    Quirk{"+CLIP:", kBeginning, kUnsolicited},
    Quirk{"+COLP:", kBeginning, kUnsolicited},
    Quirk{"+CCWA:", kBeginning, kUnsolicited},
    Quirk{"+CUSD:", kBeginning, kUnsolicited},
    Quirk{"+CSSI:", kBeginning, kUnsolicited},
    Quirk{"+CSSU:", kBeginning, kUnsolicited},
    Quirk{"+CIEV:", kBeginning, kUnsolicited},
    Quirk{"+CGEV:", kBeginning, kUnsolicited},
    Quirk{"+CTZV:", kBeginning, kUnsolicited},
    Quirk{"+CTZE:", kBeginning, kUnsolicited},
    Quirk{"+CPIN:", kBeginning, kUnsolicited},
    Quirk{"+CFUN:", kBeginning, kUnsolicited},
    Quirk{"RING", kLine, kUnsolicited},
    Quirk{"BUSY", kLine, kUnsolicited},
    Quirk{"NO CARRIER", kBeginning, kUnsolicited},
    Quirk{"NO ANSWER", kLine, kUnsolicited},
    Quirk{"NO DIALTONE", kLine, kUnsolicited},
    // Huawei; AT^CURC=0 stops most.
    Quirk{"^RSSI", kBeginning, kUnsolicited},  // also ^RSSILVL
    Quirk{"^HCSQ:", kBeginning, kUnsolicited},
    Quirk{"^MODE:", kBeginning, kUnsolicited},
    Quirk{"^BOOT:", kBeginning, kUnsolicited},
    Quirk{"^SRVST:", kBeginning, kUnsolicited},
    Quirk{"^SIMST:", kBeginning, kUnsolicited},
    Quirk{"^STIN:", kBeginning, kUnsolicited},
    Quirk{"^CSNR:", kBeginning, kUnsolicited},
    Quirk{"^DSFLOWRPT:", kBeginning, kUnsolicited},
    Quirk{"^NWTIME:", kBeginning, kUnsolicited},
    Quirk{"^NDISSTAT:", kBeginning, kUnsolicited},
    Quirk{"^SMMEMFULL:", kBeginning, kUnsolicited},
    // SIMCom.
    Quirk{"Call Ready", kLine, kUnsolicited},
    Quirk{"SMS Ready", kLine, kUnsolicited},
    Quirk{"NORMAL POWER", kBeginning, kUnsolicited},
    Quirk{"UNDER-VOLTAGE", kBeginning, kUnsolicited},
    Quirk{"OVER-VOLTAGE", kBeginning, kUnsolicited},
    Quirk{"*PSUTTZ:", kBeginning, kUnsolicited},
    Quirk{"DST:", kBeginning, kUnsolicited},
    // Quectel.
    Quirk{"+QIND:", kBeginning, kUnsolicited},
    Quirk{"+QUSIM:", kBeginning, kUnsolicited},
    // Telit.
    Quirk{"#STN:", kBeginning, kUnsolicited},
    Quirk{"#QSS:", kBeginning, kUnsolicited},
    // Siemens, Cinterion.
    Quirk{"^SCN:", kBeginning, kUnsolicited},
    Quirk{"^SMGO:", kBeginning, kUnsolicited},
    Quirk{"^SBC:", kBeginning, kUnsolicited},
    // Wavecom, Option, ZTE.
    Quirk{"+WIND:", kBeginning, kUnsolicited},
    Quirk{"_OSIGQ:", kBeginning, kUnsolicited},
    Quirk{"+ZEND", kBeginning, kUnsolicited},
    Quirk{"+ZUSIMR:", kBeginning, kUnsolicited},
    Quirk{"+SPNWNAME:", kBeginning, kUnsolicited},
    Quirk{"+PSBEARER:", kBeginning, kUnsolicited},
};

}  // namespace

std::string StandardResult(std::string_view line) {
  const auto refusal = std::find_if(kRefusals.begin(), kRefusals.end(),
                                    [line](const Refusal& r) { return line.starts_with(r.text); });
  if (refusal == kRefusals.end()) return std::string(line);
  std::string result(refusal->standard);
  line.remove_prefix(refusal->text.size());
  line.remove_prefix(std::min(line.find_first_not_of(": "), line.size()));
  if (refusal->standard != "ERROR" && !line.empty()) result.append(": ").append(line);
  return result;
}

LineKind KindOfLine(std::string_view line) {
  const std::string standard = StandardResult(line);
  for (const Quirk& quirk : kQuirks) {
    if (quirk.match == kLine ? standard == quirk.text : standard.starts_with(quirk.text)) {
      return quirk.kind;
    }
  }
  return kUnknown;
}

bool MayBecomeUnsolicited(std::string_view beginning) {
  return std::any_of(kQuirks.begin(), kQuirks.end(), [beginning](const Quirk& quirk) {
    if (IsFinal(quirk.kind)) return false;
    return quirk.text.starts_with(beginning) ||
           (quirk.match == kBeginning && beginning.starts_with(quirk.text));
  });
}

}  // namespace corvane
