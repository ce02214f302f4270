// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/report_book.h"

#include <algorithm>

#include "addins/corvane_sms/sms_text.h"

namespace corvane_sms {
namespace {

/// Without what depends on the way of writing: the plus, and the zeros of prefixes.
std::string_view Significant(std::string_view number) {
  const std::size_t first = number.find_first_not_of("+0");
  return first == number.npos ? std::string_view() : number.substr(first);
}

}  // namespace

bool MayBeSameNumber(std::string_view one, std::string_view other) {
  constexpr std::size_t kShortest = 6;  // shorter ones are service numbers, whole or nothing
  one = Significant(one);
  other = Significant(other);
  if (one == other) return true;
  if (std::min(one.size(), other.size()) < kShortest) return false;
  return one.ends_with(other) || other.ends_with(one);
}

void ReportBook::Expect(const std::string& route, std::uint8_t reference, std::int64_t message,
                        std::size_t part) {
  auto& here = expected_[{route, reference}];
  std::erase_if(here, [this](const Expected& old) { return outbox_.Find(old.message) == nullptr; });
  here.push_back({message, part});
}

void ReportBook::ExpectLoaded(std::int64_t message) {
  const messages::Outgoing* const row = outbox_.Find(message);
  if (row == nullptr) return;
  const auto content = ReadContent(row->content);
  if (!content || !content->report) return;
  const SmsProgress progress = ReadProgress(row->progress);
  for (std::size_t part = 0; part < progress.parts.size(); ++part) {
    Expect(row->route, progress.parts[part].reference, message, part);
  }
}

bool ReportBook::Awaits(const std::string& route) const {
  const auto first = expected_.lower_bound({route, 0});
  return first != expected_.end() && first->first.first == route;
}

bool ReportBook::Take(const std::string& route, const gsm::StatusReportPdu& report,
                      const messages::Now& now) {
  const auto place = expected_.find({route, report.message_reference});
  if (place == expected_.end()) return false;
  auto& here = place->second;
  for (auto expected = here.rbegin(); expected != here.rend(); ++expected) {
    const messages::Outgoing* const row = outbox_.Find(expected->message);
    if (row == nullptr || !MayBeSameNumber(row->receiver, report.recipient)) continue;
    const Expected found = *expected;
    if (gsm::OutcomeOf(report.status) != gsm::Outcome::kStillTrying) {
      here.erase(std::next(expected).base());
      if (here.empty()) expected_.erase(place);
    }
    Note(found, report.status, now);
    return true;
  }
  return false;
}

void ReportBook::Note(const Expected& expected, std::uint8_t status, const messages::Now& now) {
  const messages::Outgoing& row = *outbox_.Find(expected.message);
  SmsProgress progress = ReadProgress(row.progress);
  if (expected.part >= progress.parts.size()) return;
  progress.parts[expected.part].status = status;
  if (row.state == messages::OutgoingState::kWaiting) {  // other parts are still to be sent
    outbox_.SetProgress(row.id, ToJson(progress), now);
  } else {
    outbox_.TakeReport(row.id, ToJson(progress), progress.reported(), progress.delivered(), now);
  }
}

}  // namespace corvane_sms
