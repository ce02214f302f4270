// SPDX-License-Identifier: MIT
// The driver's reader of answers with any octets from a modem. The first octet chooses the request,
// the others are the modem's. A simpler reader must find the same end of the answer; what is handed
// over must come from the modem, in order and within bounds, and must not change when unsolicited
// lines are inserted between all others.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/require.h"
#include "runtime/modem_driver/at_answer.h"
#include "runtime/modem_driver/listed_pdu.h"

namespace {

using corvane::AtAnswer;
using corvane::KindOfLine;
using corvane::LineKind;
using corvane::ModemRequest;
using corvane::RequestKind;
using State = AtAnswer::State;

struct Request {
  std::string_view text;
  std::string_view own_name;
};

constexpr std::array<Request, 7> kRequests{{
    {"AT+CMGL=0\r", "+CMGL"},
    {"AT+CMGR=1\r", "+CMGR"},
    {"AT+CMGF=0\r", "+CMGF"},
    {"AT+CPIN?\r", "+CPIN"},
    {"AT+CMGS=18\r", "+CMGS"},
    {"0001000B915155101032F4000005E8329BFD06\x1A", "+CMGS"},
    {"ATE0V1\r", ""},
}};

bool EndsLine(char octet) {
  return octet == '\r' || octet == '\n' || octet == '\x1A';
}

/// What is handed over, and why.
struct Outcome {
  State state = State::kOpen;
  std::size_t octets = 0;  // used until the end was certain
  std::string text;
  std::string final_line;
  LineKind final_kind = LineKind::kUnknown;
  std::size_t lines = 0;
  bool echoed = false;
  std::vector<std::string> foreign;
};

Outcome Answer(const Request& request, std::string_view octets) {
  Outcome outcome;
  ModemRequest sent{std::string(request.text)};
  sent.name = request.own_name;
  AtAnswer answer(sent, [&](std::string_view line, LineKind kind) {
    Require(kind == KindOfLine(line));
    outcome.foreign.emplace_back(line);
  });
  for (const char octet : octets) {
    if (answer.state() == State::kOpen) ++outcome.octets;
    answer.Feed(octet);  // has no effect after the end
  }
  answer.End();
  outcome.state = answer.state();
  outcome.text = answer.text();
  outcome.final_line = answer.final_line();
  outcome.final_kind = answer.final_kind();
  outcome.lines = answer.lines();
  outcome.echoed = answer.echoed();
  return outcome;
}

/// Finds where an answer ends, without knowing what is in it.
class EndFinder {
 public:
  explicit EndFinder(const Request& request)
      : own_(std::string(request.own_name) + ':'),
        kind_(ModemRequest(std::string(request.text)).kind) {}

  State Feed(char octet) {
    if (EndsLine(octet)) return EndLine();
    if (octet == '\0') return State::kOpen;
    if (octet == '>' && line_.empty() && kind_ != RequestKind::kText && !own_seen_) {
      return State::kPrompt;
    }
    line_ += octet;
    return line_.size() > AtAnswer::kMaxLine ? State::kTooLong : State::kOpen;
  }
  State EndLine() {
    std::string line = line_.substr(0, line_.find_last_not_of(' ') + 1);
    line_.clear();
    if (kind_ == RequestKind::kText) line.erase(0, line.find_first_not_of("> "));
    const LineKind kind = KindOfLine(line);
    if (kind == LineKind::kRestart) return State::kRestarted;
    if (!IsFinal(kind)) {
      Note(line);
    } else if (!late_result_ || kind != LineKind::kOk) {
      return State::kFinal;
    } else {
      late_result_ = false;
    }
    return State::kOpen;
  }

 private:
  void Note(std::string_view line) {
    const bool own = own_.size() > 1 && line.starts_with(own_);
    // Only a prompt answers an announcement: the line confirms an earlier text, whose OK follows.
    bool& seen = kind_ == RequestKind::kAnnouncement ? late_result_ : own_seen_;
    seen = seen || own;
  }

  std::string own_;
  RequestKind kind_;
  std::string line_;
  bool own_seen_ = false;
  bool late_result_ = false;
};

void CheckEnd(const Request& request, std::string_view octets, const Outcome& outcome) {
  if (outcome.state == State::kTooLong) return Require(outcome.octets > AtAnswer::kMaxLine);
  EndFinder finder(request);
  State state = State::kOpen;
  std::size_t used = 0;
  while (used < octets.size() && state == State::kOpen) state = finder.Feed(octets[used++]);
  if (state == State::kOpen) state = finder.EndLine();
  Require(outcome.state == state && outcome.octets == used);
}

/// Whether every octet of `part` is in `whole`, in the same order.
bool IsSubsequence(std::string_view part, std::string_view whole) {
  std::size_t next = 0;
  for (const char octet : whole) {
    if (next < part.size() && part[next] == octet) ++next;
  }
  return next == part.size();
}

void CheckText(std::string_view octets, const Outcome& outcome) {
  if (outcome.state == State::kTooLong) return;
  std::string inner = outcome.text;
  Require(inner.size() <= std::min(AtAnswer::kMaxText, 3 * octets.size() + 8));
  if (outcome.state == State::kPrompt) return Require(inner == ">");
  Require(inner.empty() || inner.ends_with("\r\n"));
  const std::string result = corvane::StandardResult(outcome.final_line);
  if (inner.size() >= result.size() + 2) inner.resize(inner.size() - 2 - result.size());
  for (std::size_t end = 0; (end = inner.find("\r\n", end)) != std::string::npos;) {
    inner.erase(end, 2);
  }
  Require(std::none_of(inner.begin(), inner.end(), EndsLine));
  std::erase(inner, ' ');  // the standard form has one that the modem may leave out
  Require(IsSubsequence(inner, octets));
}

/// The first line as a header, the rest as its PDU: what is left of it stays the same.
void CheckPduEnd(std::string_view octets) {
  const std::size_t separator = std::min(octets.find('\r'), octets.size());
  const std::string_view header = octets.substr(0, separator);
  const std::string_view line = octets.substr(std::min(separator + 1, octets.size()));
  const std::size_t end = corvane::PduEnd(header, line);
  Require(end <= line.size());
  Require(corvane::PduEnd(header, line.substr(0, end)) == end);
}

void CheckFinal(const Outcome& outcome) {
  const bool is_final = outcome.state == State::kFinal;
  Require(is_final == !outcome.final_line.empty());
  Require(is_final == IsFinal(outcome.final_kind));
  if (!is_final) return;
  Require(outcome.final_kind == KindOfLine(outcome.final_line));
  Require(outcome.text.ends_with(corvane::StandardResult(outcome.final_line) + "\r\n"));
}

/// The octets with an unsolicited line before every line.
std::string WithUnsolicitedLines(std::string_view octets) {
  constexpr std::string_view kLine = "RING\r";
  std::string result(kLine);
  for (const char octet : octets) {
    result += octet;
    if (EndsLine(octet)) result += kLine;
  }
  return result;
}

bool HasPair(const Outcome& outcome) {
  return std::any_of(outcome.foreign.begin(), outcome.foreign.end(), [](const std::string& line) {
    return KindOfLine(line) == LineKind::kUnsolicitedPair;
  });
}

/// Two lines that follow a header such as "+CMT: ,24" are one PDU only if an unsolicited line has
/// cut it. So where there is such a header, lines are inserted before both answers that are
/// compared.
void CheckUnsolicitedLines(const Request& request, std::string_view octets,
                           const Outcome& outcome) {
  if (outcome.state == State::kTooLong) return;
  const std::string cut = WithUnsolicitedLines(octets);
  const bool pair = HasPair(outcome);
  Outcome without = pair ? Answer(request, cut) : outcome;
  Outcome with = Answer(request, pair ? WithUnsolicitedLines(cut) : cut);
  Require(with.state == without.state && with.text == without.text);
  Require(with.final_line == without.final_line && with.lines == without.lines);
  Require(with.echoed == without.echoed);
  std::erase(with.foreign, "RING");
  std::erase(without.foreign, "RING");
  Require(with.foreign == without.foreign);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const Request& request = kRequests[data[0] % kRequests.size()];
  const std::string octets(data + 1, data + size);
  const Outcome outcome = Answer(request, octets);
  CheckEnd(request, octets, outcome);
  CheckText(octets, outcome);
  CheckFinal(outcome);
  for (const std::string& line : outcome.foreign) {
    Require(!line.empty() && std::none_of(line.begin(), line.end(), EndsLine));
  }
  CheckUnsolicitedLines(request, octets, outcome);
  CheckPduEnd(octets);
  return 0;
}
