// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/at_answer.h"

#include <algorithm>
#include <utility>

#include "runtime/modem_driver/ascii.h"
#include "runtime/modem_driver/listed_pdu.h"

namespace corvane {
namespace {

constexpr std::string_view kLineEnd = "\r\n";

/// Whether every character of `part` is in `whole`, in the same order.
bool IsSubsequence(std::string_view part, std::string_view whole) {
  std::size_t next = 0;
  for (const char c : whole) {
    if (next < part.size() && Upper(part[next]) == Upper(c)) ++next;
  }
  return next == part.size();
}

}  // namespace

AtAnswer::AtAnswer(const ModemRequest& request, ForeignLine foreign_line)
    : sent_(request.octets),
      own_name_(request.name),
      kind_(request.kind),
      foreign_line_(std::move(foreign_line)) {
  while (!sent_.empty() && (sent_.back() == '\r' || sent_.back() == kCtrlZ)) {
    sent_.remove_suffix(1);
  }
}

AtAnswer::State AtAnswer::Feed(char octet) {
  if (state_ != State::kOpen) return state_;
  switch (octet) {
    case '\0': break;  // noise from a line that is being switched on
    case '\r':
    case '\n':
    case kCtrlZ: TakeLine(); break;  // the echo of a text ends with its Ctrl-Z
    case '>':
      if (line_.empty() && IsPromptAllowed()) {  // no line end follows
        text_.assign(1, octet);
        state_ = State::kPrompt;
        break;
      }
      [[fallthrough]];
    default:
      line_ += octet;
      if (line_.size() > kMaxLine) state_ = State::kTooLong;
  }
  return state_;
}

AtAnswer::State AtAnswer::End() {
  if (state_ != State::kOpen) return state_;
  ended_ = true;
  if (!header_.empty() && LooksLikePdu(line_)) pdu_ += std::exchange(line_, {});
  TakeLine();
  if (state_ != State::kOpen) return state_;
  CloseCutEntry();
  const bool may_be_unknown = kind_ == RequestKind::kCommand || kind_ == RequestKind::kAnnouncement;
  if (own_lines_ == 0 && may_be_unknown) text_ = std::exchange(unknown_, {});
  return state_;
}

std::size_t AtAnswer::octets() const {
  return text_.size() + (header_.empty() ? 0 : header_.size() + pdu_.size() + line_.size());
}

void AtAnswer::TakeLine() {
  std::string line = std::exchange(line_, {});
  while (!line.empty() && line.back() == ' ') line.pop_back();
  if (kind_ == RequestKind::kText) {  // the rest of the prompt comes before the echo
    line.erase(0, std::min(line.find_first_not_of("> "), line.size()));
  }
  if (!line.empty()) TakeWholeLine(line);
}

void AtAnswer::TakeWholeLine(std::string_view line) {
  const LineKind kind = KindOfLine(line);
  if (IsFinal(kind)) {
    TakeFinal(line, kind);
  } else if (kind == LineKind::kRestart) {  // no answer will come
    ReportForeign(line, kind);
    CloseCutEntry();
    if (state_ == State::kOpen) state_ = State::kRestarted;
  } else if (IsOwn(line)) {
    pair_.Clear();
    TakeOwnLine(line);
  } else if (kind == LineKind::kUnsolicitedPair) {
    pair_.Begin(line);
    ReportForeign(line, kind);
  } else if (kind != LineKind::kUnknown) {
    pair_.Interrupt();
    ReportForeign(line, kind);
  } else if (pair_.Take(line)) {
    ReportForeign(line, kind);
  } else if (!TakePduPart(line)) {
    TakeOtherLine(line, kind);
  }
}

void AtAnswer::TakeFinal(std::string_view line, LineKind kind) {
  if (std::exchange(late_result_, false) && kind == LineKind::kOk) return;
  CloseEntry(kind == LineKind::kOk);
  Append(StandardResult(line));
  final_ = line;
  final_kind_ = kind;
  if (state_ == State::kOpen) state_ = State::kFinal;
}

void AtAnswer::TakeOwnLine(std::string_view line) {
  if (kind_ == RequestKind::kAnnouncement) {  // only a prompt answers it: this result is late
    late_result_ = true;
    ReportForeign(line, LineKind::kUnknown);
    return;
  }
  CloseEntry(true);
  ++own_lines_;
  // Some modems leave the blank out.
  line.remove_prefix(own_name_.size() + 1);
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  std::string standard(own_name_);
  standard.append(": ").append(line);
  if (kind_ == RequestKind::kList) {
    header_ = standard;
  } else {
    Append(standard);
  }
}

bool AtAnswer::TakePduPart(std::string_view line) {
  if (header_.empty() || !LooksLikePdu(line)) return false;
  pdu_ += line;
  if (pdu_.size() > kMaxLine) {
    state_ = State::kTooLong;
  } else if (IsWholePdu(header_, pdu_, true)) {
    CloseEntry(true);
  }
  return true;
}

void AtAnswer::TakeOtherLine(std::string_view line, LineKind kind) {
  if (!header_.empty() && body_.size() + line.size() <= kMaxLine) {
    if (!body_.empty()) body_ += kLineEnd;
    body_ += line;
    return;
  }
  if (IsEcho(line)) {
    echoed_ = true;
    return;
  }
  ReportForeign(line, kind);
  if (unknown_.size() + line.size() + kLineEnd.size() > kMaxUnknown) return;
  unknown_ += line;
  unknown_ += kLineEnd;
}

void AtAnswer::CloseEntry(bool complete) {
  const std::string header = std::exchange(header_, {});
  const std::string pdu = std::exchange(pdu_, {});
  const std::string body = std::exchange(body_, {});
  if (header.empty()) return;
  if (!complete && pdu.empty()) {  // handed over, it would be taken for an empty message
    --own_lines_;
    return;
  }
  Append(header);
  Append(pdu.empty() ? body : pdu.substr(0, PduEnd(header, pdu)));
}

void AtAnswer::CloseCutEntry() {
  if (!IsWholePdu(header_, pdu_, false)) pdu_.clear();
  CloseEntry(false);
}

void AtAnswer::Append(std::string_view line) {
  if (text_.size() + line.size() + kLineEnd.size() > kMaxText) {
    state_ = State::kTooLong;
    return;
  }
  text_ += line;
  text_ += kLineEnd;
}

void AtAnswer::ReportForeign(std::string_view line, LineKind kind) {
  if (ended_ && kind != LineKind::kRestart) return;  // its rest may still come
  foreign_line_(line, kind);
}

bool AtAnswer::IsOwn(std::string_view line) const {
  return !own_name_.empty() && line.starts_with(own_name_) && line.size() > own_name_.size() &&
         line[own_name_.size()] == ':';
}

bool AtAnswer::IsEcho(std::string_view line) const {
  return BeginsWithAt(line) || IsSubsequence(line, sent_) ||
         (!sent_.empty() && line.find(sent_) != std::string_view::npos);
}

bool AtAnswer::IsPromptAllowed() const {
  return kind_ != RequestKind::kText && own_lines_ == 0;
}

}  // namespace corvane
