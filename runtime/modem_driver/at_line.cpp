// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/at_line.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "libs/base/printable.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kMaxNoise(1000);  // do not wait longer for a modem that is never quiet
/// Octets that do not belong to the answer lengthen an exchange to this many time-outs at most.
constexpr int kMaxTimeouts = 5;
constexpr std::size_t kMaxStray = AtAnswer::kMaxLine / 2;

/// Octets take ten bits each, with start and stop.
milliseconds TimeOnLine(std::size_t octets, unsigned baud) {
  return milliseconds(octets * 10 * 1000 / baud);
}

/// Whether a line that begins so may be an unsolicited one, or the PDU that follows one.
bool MayBelongToUnsolicited(std::string_view beginning) {
  return MayBecomeUnsolicited(beginning) ||
         std::all_of(beginning.begin(), beginning.end(),
                     [](unsigned char c) { return std::isxdigit(c) != 0; });
}

}  // namespace

AtLine::AtLine(const ModemTarget& target, ForeignLine foreign_line)
    : target_(target), foreign_line_(std::move(foreign_line)) {}

void AtLine::Open(std::unique_ptr<SerialLine> line) {
  line_ = std::move(line);
  stray_.clear();
}

bool AtLine::Write(std::string_view octets, milliseconds timeout) {
  Trace('>', octets);
  return line_->Write(octets, steady_clock::now() + timeout);
}

void AtLine::Collect(AtAnswer& answer, std::size_t sent, milliseconds timeout) {
  // The system has accepted the request; a slow line still needs time to carry it.
  SteadyTime last_octet = steady_clock::now() + TimeOnLine(sent, target_.baud);
  SteadyTime last_own = last_octet;
  std::size_t own = 0;
  FeedBeginning(answer);
  while (answer.state() == AtAnswer::State::kOpen) {
    const auto deadline = std::min(last_octet + timeout, last_own + kMaxTimeouts * timeout);
    const std::string_view octets = line_->Read(deadline);
    if (octets.empty()) return;
    Feed(answer, octets);
    last_octet = steady_clock::now();
    if (answer.octets() > own) {
      own = answer.octets();
      last_own = last_octet;
    }
  }
}

bool AtLine::DropNext(SteadyTime until) {
  if (line_ == nullptr) return false;
  const std::string_view octets = line_->Read(until);
  Drop(octets);
  return !octets.empty();
}

void AtLine::DropUntilQuiet(milliseconds quiet) {
  const SteadyTime end = steady_clock::now() + quiet + kMaxNoise;
  while (steady_clock::now() < end && DropNext(steady_clock::now() + quiet)) {
  }
}

std::string_view AtLine::Receive(SteadyTime until) {
  const std::string_view octets = line_->Read(until);
  if (!octets.empty()) Trace('<', octets);
  return octets;
}

void AtLine::Trace(char direction, std::string_view octets) const {
  if (!spdlog::should_log(spdlog::level::trace)) return;
  spdlog::trace("modem port {}: {} {}", target_.port, direction, Printable(octets));
}

void AtLine::Feed(AtAnswer& answer, std::string_view octets) {
  Trace('<', octets);
  std::size_t used = 0;
  while (used < octets.size() && answer.state() == AtAnswer::State::kOpen) {
    answer.Feed(octets[used++]);
  }
  stray_.clear();
  if (used < octets.size()) Drop(octets.substr(used));
}

void AtLine::FeedBeginning(AtAnswer& answer) {
  const std::string beginning = std::exchange(stray_, {});
  if (!MayBelongToUnsolicited(beginning)) return;
  for (const char c : beginning) answer.Feed(c);
}

void AtLine::KeepBeginning(std::string_view octets) {
  if (octets.size() <= kMaxStray && MayBelongToUnsolicited(octets)) stray_ = octets;
}

void AtLine::Drop(std::string_view octets) {
  if (octets.empty()) return;
  Trace('x', octets);
  for (const char c : octets) {
    if (c == '\r' || c == '\n') {
      std::string line = std::exchange(stray_, {});
      while (!line.empty() && line.back() == ' ') line.pop_back();
      if (!line.empty()) foreign_line_(line, KindOfLine(line));
    } else if (c != '\0' && stray_.size() < kMaxStray) {
      stray_ += c;
    }
  }
}

}  // namespace corvane
