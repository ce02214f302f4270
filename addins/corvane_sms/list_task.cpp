// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/list_task.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "addins/corvane_sms/incoming_pdu.h"
#include "addins/corvane_sms/port_client.h"
#include "block/error_ids.h"
#include "corvane/modem_port_driver.h"
#include "libs/gsm/network_errors.h"

namespace corvane_sms {
namespace {

using messages::Place;

// A modem may take 20 s to begin its list, and 25 s to delete, according to makers.
constexpr std::chrono::seconds kListTimeout(60);
constexpr std::chrono::seconds kDeleteTimeout(30);

/// The work for one call of a block.
constexpr int kEntriesAtOnce = 16;
constexpr std::size_t kMostDirect = 100;
/// A place may have been used again by something else after this time: list again before deleting.
constexpr std::chrono::seconds kListIsFresh(60);
constexpr int kMostFailuresInARow = 3;

// Messages that go out come first, unless that has gone on for long.
constexpr int kDeletePriority = kListPriority - 1;
constexpr int kOverduePriority = (kSendPriority + kUrgentPriority) / 2;
constexpr std::chrono::seconds kOverdue(10);

constexpr int kModemError = static_cast<int>(ErrorId::kModem);
constexpr int kSimError = static_cast<int>(ErrorId::kSim);

constexpr std::string_view kNotDeletedAdvice =
    "It is in the store, and is not taken again. When the modem is full, nothing new arrives: "
    "clear "
    "it, or its SIM card, by other means";

std::string_view FinalLine(std::string_view answer) {
  while (answer.ends_with('\n') || answer.ends_with('\r')) answer.remove_suffix(1);
  const std::size_t before = answer.find_last_of("\r\n");
  return before == std::string_view::npos ? answer : answer.substr(before + 1);
}

/// The modem's refusal, if the answer ends with one; empty: it broke off, or there was none.
std::string_view RefusalIn(std::string_view answer) {
  const std::string_view last = FinalLine(answer);
  const bool refused =
      last.starts_with("ERROR") || last.starts_with("+CMS ERROR") || last.starts_with("+CME ERROR");
  return refused ? last : std::string_view();
}

/// The number at the end of a refusal; nullopt: it is in words.
std::optional<int> NumberIn(std::string_view refusal) {
  refusal.remove_prefix(std::min(refusal.rfind(' ') + 1, refusal.size()));
  int number = 0;
  const char* const end = refusal.data() + refusal.size();
  const auto [stop, error] = std::from_chars(refusal.data(), end, number);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

const gsm::NetworkError* FindError(std::string_view refusal) {
  const auto number = NumberIn(refusal);
  if (!number) return nullptr;
  return refusal.starts_with("+CME") ? gsm::FindCmeError(*number) : gsm::FindCmsError(*number);
}

/// Whether a refusal is about the SIM card, also where it is in words, or the card is only busy.
bool IsAboutSim(std::string_view refusal) {
  const gsm::NetworkError* const error = FindError(refusal);
  if (error == nullptr) return refusal.find("SIM") != std::string_view::npos;
  return error->error_class == gsm::ErrorClass::kSim || error->meaning == "SIM busy";
}

/// As people read it: "+CMS ERROR: 310, SIM not inserted".
std::string Describe(std::string_view refusal) {
  const gsm::NetworkError* const error = FindError(refusal);
  std::string text(refusal);
  if (error != nullptr) text.append(", ").append(error->meaning);
  return text;
}

/// Whether a deletion was refused since there is nothing in that place.
bool IsEmptyPlace(std::string_view final_line) {
  return final_line == "+CMS ERROR: 321";
}

std::chrono::seconds RetryDeletionAfter(int attempts) {
  constexpr std::chrono::seconds kLongest(15 * 60);
  return attempts > 5 ? kLongest : std::min(kLongest, std::chrono::seconds(15 << attempts));
}

std::optional<messages::WallTime> WallTimeOf(const IncomingPdu& pdu) {
  if (!pdu.time) return std::nullopt;
  return messages::WallTime(*pdu.time);
}

messages::Part PartOf(const IncomingPdu& incoming, std::string_view route, std::string_view pdu) {
  messages::Part part;
  part.route = route;
  part.sender = incoming.sender;
  part.reference = incoming.place.reference;
  part.wide = incoming.place.wide;
  part.total = incoming.place.total;
  part.sequence = incoming.place.sequence;
  part.pdu = pdu;
  part.has_time = incoming.time.has_value();
  part.time = WallTimeOf(incoming).value_or(messages::WallTime{});
  return part;
}

messages::Incoming MessageOf(const IncomingPdu& incoming, std::string_view route) {
  messages::Incoming message;
  message.route = route;
  message.sender = incoming.sender;
  message.text = incoming.text;
  message.kind = static_cast<int>(incoming.kind);
  message.has_time = incoming.time.has_value();
  message.time = WallTimeOf(incoming).value_or(messages::WallTime{});
  return message;
}

}  // namespace

ListTask::ListTask(std::string route, messages::Inbox& inbox, ListHooks hooks)
    : route_(std::move(route)), inbox_(inbox), hooks_(std::move(hooks)) {}

void ListTask::SetEnabled(bool enabled, const Now& now) {
  if (enabled && !enabled_) next_list_ = now.steady;
  if (!enabled) state_ = {};
  enabled_ = enabled;
  was_enabled_ = was_enabled_ || enabled;
}

ModemState ListTask::state() const {
  const auto stuck =
      std::ranges::count_if(stuck_, [](const auto& place) { return place.second.attempts > 1; });
  if (state_.error_id != 0 || stuck == 0) return state_;
  return {state_.valid, kModemError,
          "modem port " + route_ + ": the modem does not delete " + std::to_string(stuck) +
              (stuck == 1 ? " message. " : " messages. ") + std::string(kNotDeletedAdvice) + "."};
}

bool ListTask::WantsLists() const {
  return enabled_ || hooks_.awaits_reports();
}

bool ListTask::IsListDue(const Now& now) const {
  return list_.entries.empty() && (announced_ || now.steady >= next_list_) &&
         now.steady >= not_before_;
}

bool ListTask::IsDeletionDue(const Now& now) const {
  return !to_delete_.empty() && now.steady - listed_at_ < kListIsFresh &&
         inbox_.MayDelete(route_, to_delete_.front());
}

int ListTask::Priority(const Now& now) {
  if (!WantsLists()) return kNothingToDo;
  Work(now);
  const bool deletes = IsDeletionDue(now);
  if (deletes) return now.steady - listed_at_ > kOverdue ? kOverduePriority : kDeletePriority;
  if (!IsListDue(now)) return kNothingToDo;
  return now.steady - next_list_ > kOverdue ? kOverduePriority : kListPriority;
}

std::optional<AtRequest> ListTask::Next(const Now& now) {
  if (IsDeletionDue(now)) {
    step_ = Step::kDeleting;
    deleting_ = to_delete_.front();
    to_delete_.pop_front();
    reused_ = false;
    return AtRequest{"AT+CMGD=" + std::to_string(deleting_) + "\r", kDeleteTimeout};
  }
  if (!WantsLists() || !IsListDue(now)) return std::nullopt;
  step_ = Step::kListing;
  announced_ = false;
  to_delete_.clear();
  deletes_no_more_ = false;
  list_begun_ = now.steady;
  return AtRequest{"AT+CMGL=4\r", kListTimeout};
}

bool ListTask::OnAnswer(std::string_view answer, int status, const Now& now) {
  const Step step = std::exchange(step_, Step::kIdle);
  if (step == Step::kListing) OnList(answer, status, now);
  if (step == Step::kDeleting) OnDeleted(answer, status, now);
  return step == Step::kDeleting && IsDeletionDue(now);
}

void ListTask::OnBegin(const Now& /*now*/) {
  step_ = Step::kIdle;
}

void ListTask::OnNotReady(std::string_view answer, int status, const Now& now) {
  Fail(status < 0 ? std::string_view() : answer, now);
}

void ListTask::OnList(std::string_view answer, int status, const Now& now) {
  not_before_ = now.steady + (now.steady - list_begun_);
  answer_ = status < 0 ? std::string_view() : answer;
  list_ = ReadMessageList(answer_);
  taken_ = 0;
  listed_.clear();
  if (list_.complete) {
    state_ = {true, 0, {}};
    next_list_ = now.steady + kInterval;
  } else {
    Fail(answer_, now);
  }
  listed_at_ = now.steady;
  Work(now);
}

void ListTask::Fail(std::string_view answer, const Now& now) {
  to_delete_.clear();
  next_list_ = now.steady + kIntervalAfterFailure;
  const std::string where = "modem port " + route_ + ": ";
  const std::string refusal(RefusalIn(answer));
  if (refusal.empty()) {
    state_ = {false, kModemError,
              where +
                  "the modem does not answer. Check its power, cable, and baud rate; "
                  "the log says more."};
  } else if (IsAboutSim(refusal)) {
    state_ = {false, kSimError,
              where + "the SIM card is missing, locked or not ready (" + Describe(refusal) +
                  "). Check the card, and its PIN in the setting init of --modem."};
  } else {
    state_ = {false, kModemError,
              where + "the modem does not list its messages (" + Describe(refusal) +
                  "). Check that it is a GSM modem with a message store."};
  }
}

void ListTask::Work(const Now& now) {
  const bool can_store = hooks_.can_store();
  if (can_store && !could_store_) next_list_ = now.steady;
  could_store_ = can_store;
  if (can_store) {
    for (; !direct_.empty(); direct_.pop_front()) TakeMessage(direct_.front(), std::nullopt, now);
  }
  if (list_.entries.empty()) {
    if (!answer_.empty()) EndList(now);
    return;
  }
  for (int i = 0; i < kEntriesAtOnce && taken_ < list_.entries.size(); ++i) {
    TakeEntry(list_.entries[taken_++], now);
  }
  if (taken_ == list_.entries.size()) EndList(now);
}

/// Some modems show an empty list while they still read the SIM card, so a message is forgotten
/// only if two lists lack it.
void ListTask::EndList(const Now& now) {
  if (list_.complete && list_.unreadable == 0) {
    for (const int index : deleted_) {
      if (!listed_.contains(index)) stuck_.erase(index);
    }
    std::set<int> kept = listed_;
    kept.insert(listed_before_.begin(), listed_before_.end());
    if (has_listed_before_ && hooks_.can_store()) inbox_.KeepHeld(route_, kept);
    std::erase_if(stuck_, [&kept](const auto& place) { return !kept.contains(place.first); });
    listed_before_ = std::exchange(listed_, {});
    has_listed_before_ = true;
  }
  if (list_.unreadable > 0 && now.steady >= next_warning_) {
    next_warning_ = now.steady + std::chrono::hours(1);
    hooks_.warn("modem port " + route_ + ": " + std::to_string(list_.unreadable) +
                " lines of the modem's list cannot be read, and their messages stay in the modem");
  }
  deleted_.clear();
  list_ = {};
  answer_.clear();
}

void ListTask::TakeEntry(const ListedPdu& entry, const Now& now) {
  if (!listed_.insert(entry.index).second) return;  // listed twice: the first one counts
  const bool outgoing = entry.stored_as == StoredAs::kUnsent || entry.stored_as == StoredAs::kSent;
  if (outgoing || (entry.stored_as == StoredAs::kUnknown && IsOutgoing(entry.pdu))) return;
  if (!hooks_.can_store()) return;
  const Place place{entry.index, std::string(entry.pdu)};
  const IncomingPdu incoming = ReadIncoming(entry.pdu);
  const bool is_report = incoming.type == IncomingPdu::Type::kReport;
  if (!enabled_ && !is_report) return;
  if (!inbox_.IsHeld(route_, place)) {
    stuck_.erase(entry.index);
    deleted_.erase(entry.index);
    cleared_.erase(entry.index);  // its announcement may be late, and is not of another one
    if (is_report) {
      hooks_.on_report(incoming.report, now);
      inbox_.Hold(route_, place);
    } else if (inbox_.IsFull(route_)) {
      return;
    } else {
      TakeMessage(entry.pdu, place, now);
    }
  } else if (deleted_.contains(entry.index)) {
    NoteStuck(entry.index, "it says OK, and lists it again", now);
  }
  QueueDeletion(entry.index, now);
}

void ListTask::TakeMessage(std::string_view pdu, const std::optional<Place>& place,
                           const Now& now) {
  const IncomingPdu incoming = ReadIncoming(pdu);
  if (incoming.type == IncomingPdu::Type::kPart) {
    inbox_.TakePart(PartOf(incoming, route_, pdu), place, now);
  } else if (incoming.type == IncomingPdu::Type::kMessage) {
    inbox_.Take(MessageOf(incoming, route_), place, now);
  } else {
    hooks_.on_report(incoming.report, now);
  }
}

void ListTask::QueueDeletion(int index, const Now& now) {
  if (deletes_no_more_) return;
  const auto stuck = stuck_.find(index);
  if (stuck == stuck_.end() || now.steady >= stuck->second.next_try) to_delete_.push_back(index);
}

void ListTask::OnDeleted(std::string_view answer, int status, const Now& now) {
  if (status < 0) {
    Fail({}, now);
  } else if (IsOk(answer) || IsEmptyPlace(FinalLine(answer))) {
    deleted_.insert(deleting_);
    failures_in_a_row_ = 0;
    if (reused_) {
      inbox_.Forget(route_, deleting_);
    } else {
      cleared_.insert(deleting_);
    }
  } else {
    NoteStuck(deleting_, Describe(FinalLine(answer)), now);
    if (++failures_in_a_row_ < kMostFailuresInARow) return;
    failures_in_a_row_ = 0;
    to_delete_.clear();
    deletes_no_more_ = true;
  }
}

void ListTask::NoteStuck(int index, std::string_view why, const Now& now) {
  Stuck& stuck = stuck_[index];
  ++stuck.attempts;
  stuck.next_try = now.steady + RetryDeletionAfter(stuck.attempts);
  deleted_.erase(index);
  cleared_.erase(index);
  if (now.steady < next_warning_) return;
  next_warning_ = now.steady + std::chrono::hours(1);
  hooks_.warn("modem port " + route_ + ": the modem does not delete message " +
              std::to_string(index) + " (" + std::string(why) + "). " +
              std::string(kNotDeletedAdvice));
}

void ListTask::ForgetModem() {
  to_delete_.clear();
  has_listed_before_ = false;
  listed_before_.clear();
  deleted_.clear();
  cleared_.clear();
}

/// `+CMTI: "SM",3` and the like.
void ListTask::OnAnnouncement(std::string_view line) {
  announced_ = true;
  const std::size_t comma = line.find(',');
  if (comma == std::string_view::npos) return;
  line.remove_prefix(comma + 1);
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  int index = 0;
  if (std::from_chars(line.data(), line.data() + line.size(), index).ec != std::errc()) return;
  if (step_ == Step::kDeleting && deleting_ == index) {
    reused_ = true;
  } else if (cleared_.erase(index) > 0) {
    inbox_.Forget(route_, index);
  }
}

void ListTask::OnLine(std::string_view line, std::string_view pdu, const Now& now) {
  if (line.starts_with("+CMTI") || line.starts_with("+CDSI")) {
    OnAnnouncement(line);
  } else if (line.starts_with("+CDS") || (line.starts_with("+CMT") && was_enabled_)) {
    if (direct_.size() < kMostDirect) direct_.emplace_back(pdu);
    Work(now);
  } else if (line == kPortDriverRestart) {
    ForgetModem();
    next_list_ = now.steady;
  }
}

}  // namespace corvane_sms
