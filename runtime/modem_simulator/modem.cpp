// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/modem.h"

#include <fmt/format.h>

#include <utility>

#include "libs/gsm/hexadecimal.h"
#include "runtime/modem_simulator/readable.h"
#include "runtime/modem_simulator/sent_report.h"

namespace modem_simulator {
namespace {

/// "from +4915112345678 at 2026-01-31T12:00:00+01:00, part 1 of 2: text"
std::string DescribeReceived(gsm::OctetSpan octets) {
  gsm::DeliverPdu pdu;
  if (octets.empty()) return "an empty PDU";
  if (!gsm::DecodeDeliver(octets, pdu)) return fmt::format("PDU {}", gsm::ToHexadecimal(octets));
  std::string line =
      fmt::format("from {} at {}", Escape(pdu.originator), gsm::FormatTimeStamp(pdu.time));
  if (const auto& place = pdu.data.header.concatenation) {
    line += fmt::format(", part {} of {}", place->sequence, place->total);
  }
  if (pdu.data.alphabet == gsm::Alphabet::kOctets) line += ", 8-bit data";
  return fmt::format("{}: {}", line, Escape(gsm::TextOf(pdu.data)));
}

}  // namespace

Modem::Modem(const ModemOptions& options, ModemHost& host)
    : state_(options, host), interpreter_(state_) {}

bool Modem::Receive(const gsm::Address& sender, std::string_view text) {
  const bool wide = state_.options.quirks.Has(Quirk::kWideReference);
  return ReceiveParts(sender, gsm::SplitText(text, {reference_, wide}));
}

bool Modem::ReceiveOctets(const gsm::Address& sender, gsm::OctetSpan octets) {
  const bool wide = state_.options.quirks.Has(Quirk::kWideReference);
  return ReceiveParts(sender, gsm::SplitOctets(octets, {reference_, wide}));
}

bool Modem::ReceiveParts(const gsm::Address& sender,
                         const std::optional<std::vector<gsm::UserData>>& parts) {
  if (!parts || !gsm::IsAddress(sender)) return false;
  if (parts->size() > 1) ++reference_;
  const gsm::TimeStamp now = state_.host.Now();
  for (const gsm::UserData& part : *parts) {
    ReceivePdu(gsm::EncodeDeliver({state_.service_centre, sender, 0, 0, now, part}));
  }
  return true;
}

void Modem::ReceivePdu(gsm::Octets pdu) {
  if (waiting_.size() == kMostWaiting) {
    state_.host.Report("lost: the network keeps no more messages");
    return;
  }
  waiting_.push_back(std::move(pdu));
  DeliverWaiting();
  if (!waiting_.empty()) ReportWaiting();
}

void Modem::ReportWaiting() {
  std::string_view why = "the store is full";
  if (!state_.registered) why = "the modem is not registered";
  if (!state_.sim.ready()) why = "the PIN is missing";
  if (!powered_) why = "the modem is unplugged";
  state_.host.Report(
      fmt::format("waiting in the network: {}; {}", DescribeReceived(waiting_.back()), why));
}

bool Modem::CanTake() const {
  const bool stored = state_.settings.indications.values[Indications::kDeliver] != 2;
  return powered_ && state_.online() && !(stored && state_.store.full());
}

void Modem::DeliverWaiting() {
  while (!waiting_.empty() && CanTake()) {
    gsm::Octets pdu = std::move(waiting_.front());
    waiting_.pop_front();
    Take(std::move(pdu));
  }
}

void Modem::Take(gsm::Octets pdu) {
  const auto& values = state_.settings.indications.values;
  const bool announced = values[Indications::kMode] != 0;
  const std::string description = DescribeReceived(pdu);
  if (values[Indications::kDeliver] == 2) {  // straight through, never stored
    state_.host.Report(fmt::format("received, handed on: {}", description));
    interpreter_.Indicate(fmt::format("{},{}\r\n{}", state_.Header("+CMT"), gsm::TpduLength(pdu),
                                      gsm::ToHexadecimal(pdu)));
    return;
  }
  const int place = state_.store.Add(MessageStatus::kUnread, std::move(pdu)).value();
  state_.host.Report(fmt::format("received, place {}: {}", place, description));
  if (announced && values[Indications::kDeliver] == 1) {
    interpreter_.Indicate(fmt::format("{}\"SM\",{}", state_.Header("+CMTI"), place));
  }
}

void Modem::SetRegistered(bool registered) {
  const bool changed = std::exchange(state_.registered, registered) != registered;
  if (changed && state_.settings.registration_reports != 0) {
    interpreter_.Indicate(fmt::format("+CREG: {:d}", registered));
  }
  DeliverWaiting();
}

void Modem::SendUnsolicited(std::string_view line) {
  state_.host.Transmit(fmt::format("\r\n{}\r\n", line));
}

void Modem::PowerOff() {
  powered_ = false;
}

void Modem::PowerOn() {
  powered_ = true;
  interpreter_.Reset();
  state_.settings = Settings{};
  state_.outgoing.reset();
  state_.sim.PowerOn();
  DeliverWaiting();
}

std::vector<std::string> Modem::Describe() {
  std::vector<std::string> lines{
      fmt::format("store: {} of {} places taken", state_.store.used(), state_.store.size())};
  for (const auto& [index, message] : state_.store.messages()) {
    lines.push_back(fmt::format("place {}, {}: {}", index, TextOf(message.status),
                                DescribeReceived(message.pdu)));
  }
  for (const gsm::Octets& pdu : waiting_) {
    lines.push_back(fmt::format("waiting in the network: {}", DescribeReceived(pdu)));
  }
  for (const SentMessage& message : state_.joiner.Unfinished()) {
    lines.push_back(DescribeSent(message));
  }
  return lines;
}

}  // namespace modem_simulator
