// SPDX-License-Identifier: MIT
// The fields of each row, in the order in which the schema names its columns: to and from anything
// that takes or gives them one after the other, with << and >>. Pure functions.
#pragma once

#include <algorithm>
#include <cstdint>

#include "libs/messages/row.h"

namespace messages {

/// Writes a row, with these numbers instead of its own.
template <class To>
void WriteFields(To& to, const Outgoing& row, std::int64_t id, std::int64_t job) {
  to << id << job << row.channel << row.route << row.receiver << row.content << row.progress
     << row.key << row.urgent << row.created << row.expires << row.next_try << row.finished
     << static_cast<int>(row.state) << row.attempts << row.unknown_ends << row.in_transfer
     << row.report_awaited << row.error_id << row.reason;
}

template <class To>
void WriteFields(To& to, const Incoming& row, std::int64_t id) {
  to << id << row.route << row.sender << row.text << row.time << row.has_time << row.kind
     << row.received;
}

template <class To>
void WriteFields(To& to, const Part& row) {
  to << row.group << row.sequence << row.route << row.sender << row.reference << row.wide
     << row.total << row.pdu << row.time << row.has_time << row.first_seen;
}

template <class To>
void WriteFields(To& to, const Held& row) {
  to << row.route << row.index << row.digest;
}

/// More attempts than a message can have.
inline constexpr int kMostCounted = 1'000'000'000;

template <class From>
void ReadFields(From& from, Outgoing& row) {
  int state = 0;
  from >> row.id >> row.job >> row.channel >> row.route >> row.receiver >> row.content >>
      row.progress >> row.key >> row.urgent >> row.created >> row.expires >> row.next_try >>
      row.finished >> state >> row.attempts >> row.unknown_ends >> row.in_transfer >>
      row.report_awaited >> row.error_id >> row.reason;
  const bool is_known = state >= 0 && state <= static_cast<int>(OutgoingState::kCancelled);
  row.state = is_known ? static_cast<OutgoingState>(state) : OutgoingState::kFailed;
  // Whatever is in the file, they can be counted on.
  row.attempts = std::clamp(row.attempts, 0, kMostCounted);
  row.unknown_ends = std::clamp(row.unknown_ends, 0, kMostCounted);
}

template <class From>
void ReadFields(From& from, Incoming& row) {
  from >> row.id >> row.route >> row.sender >> row.text >> row.time >> row.has_time >> row.kind >>
      row.received;
}

template <class From>
void ReadFields(From& from, Part& row) {
  from >> row.group >> row.sequence >> row.route >> row.sender >> row.reference >> row.wide >>
      row.total >> row.pdu >> row.time >> row.has_time >> row.first_seen;
}

template <class From>
void ReadFields(From& from, Held& row) {
  from >> row.route >> row.index >> row.digest;
}

}  // namespace messages
