// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_news.h"

#include <cctype>
#include <utility>

#include "corvane/modem_port_driver.h"
#include "runtime/modem_driver/listed_pdu.h"

namespace corvane {
namespace {

/// A second line that comes later than this many patiences belongs to something else.
constexpr int kFollows = 5;

/// Or a part of one, down to a single digit.
bool MayBePdu(std::string_view line) {
  const bool is_digit = line.size() == 1 && std::isxdigit(static_cast<unsigned char>(line[0])) != 0;
  return is_digit || (LooksLikePdu(line) && line.size() <= ModemNews::kMaxPdu);
}

}  // namespace

void ModemNews::Take(std::string_view line, LineKind kind, SteadyTime now) {
  if (kind == LineKind::kUnsolicitedPair) {
    ClosePair();
    if (line.size() > kMaxLine) return;
    pair_.Begin(line);
    paired_ = now;
  } else if (kind == LineKind::kUnknown) {
    if (now > paired_ + kFollows * patience_) pair_.Clear();
    pair_.Interrupt();  // by an answer, perhaps, which is not seen here
    if (!MayBePdu(line) || !pair_.Take(line)) return;
    paired_ = now;
    if (!pair_.IsShort()) ClosePair();
  } else {
    pair_.Interrupt();
    if (kind == LineKind::kAnnouncement && line.size() <= kMaxLine) Add(line, {});
  }
}

void ModemNews::NoteStart() {
  pair_.Clear();
  if (!items_.empty() && items_.back().line == kPortDriverRestart) return;
  items_.push_back({kPortDriverRestart, {}});  // beyond kMost, too: all else depends on it
}

std::vector<ModemNewsItem> ModemNews::TakeAll(SteadyTime now) {
  if (IsRipe(now)) ClosePair();
  return std::exchange(items_, {});
}

std::size_t ModemNews::TakeDropped() {
  return std::exchange(dropped_, 0);
}

bool ModemNews::IsRipe(SteadyTime now) const {
  // Nothing completes it any more: its modem counts wrong, and the reader of the PDU judges it.
  return !pair_.pdu().empty() && now >= paired_ + patience_;
}

void ModemNews::ClosePair() {
  if (!pair_.pdu().empty()) Add(pair_.header(), pair_.pdu());
  pair_.Clear();
}

void ModemNews::Add(std::string_view line, std::string_view pdu) {
  if (items_.size() >= kMost) {
    ++dropped_;
    return;
  }
  items_.push_back({std::string(line), std::string(pdu)});
}

}  // namespace corvane
