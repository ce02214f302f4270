// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/modem.h"

#include <fmt/format.h>

#include <utility>

#include "runtime/modem_simulator/message_description.h"
#include "runtime/modem_simulator/message_routing.h"

namespace modem_simulator {

Modem::Modem(const ModemOptions& options, ModemHost& host)
    : state_(options, host),
      interpreter_(state_),
      circuit_registered_(IsRegistered(state_, Domain::kCircuit)),
      packet_registered_(IsRegistered(state_, Domain::kPacket)) {}

bool Modem::Receive(const gsm::Address& sender, std::string_view text) {
  return ReceiveParts(sender, PartsOf(text));
}

bool Modem::ReceiveInOrder(const gsm::Address& sender, std::string_view text,
                           const std::vector<std::size_t>& order) {
  const auto parts = PartsOf(text);
  if (!parts) return false;
  std::vector<gsm::UserData> ordered;
  for (const std::size_t number : order) {
    if (number < 1 || number > parts->size()) return false;
    ordered.push_back(parts->at(number - 1));
  }
  if (parts->size() > 1 && ordered.size() < 2) ++reference_;  // ReceiveParts sees a single part
  return ReceiveParts(sender, ordered);
}

std::optional<std::vector<gsm::UserData>> Modem::PartsOf(std::string_view text) {
  const bool wide = state_.options.quirks.Has(Quirk::kWideReference);
  return gsm::SplitText(text, {reference_, wide});
}

bool Modem::Store(MessageStatus status, const gsm::Address& number, std::string_view text) {
  const auto parts = PartsOf(text);
  if (!parts || !gsm::IsAddress(number)) return false;
  if (parts->size() > 1) ++reference_;
  const bool ours = status == MessageStatus::kUnsent || status == MessageStatus::kSent;
  for (const gsm::UserData& part : *parts) {
    gsm::Octets pdu;
    if (ours) {
      gsm::SubmitPdu submit;
      submit.destination = number;
      submit.data = part;
      submit.data_coding_scheme = gsm::DataCodingScheme(part.alphabet);
      pdu = gsm::EncodeSubmit(submit);
    } else {
      pdu = gsm::EncodeDeliver({state_.service_centre, number, 0, 0, state_.host.Now(), part});
    }
    const std::string description = DescribeMessage(pdu);
    const auto place = state_.store.Add(status, std::move(pdu));
    if (!place) return false;
    state_.host.Report(fmt::format("place {}, {}: {}", *place, TextOf(status), description));
  }
  return true;
}

void Modem::FillStore() {
  const auto old = PartsOf("an old message").value();
  const gsm::Octets pdu = gsm::EncodeDeliver(
      {state_.service_centre, state_.service_centre, 0, 0, state_.host.Now(), old.front()});
  int added = 0;
  while (state_.store.Add(MessageStatus::kRead, pdu)) ++added;
  state_.host.Report(fmt::format("{} old messages fill the store", added));
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
  if (state_.in_network.size() >= kMostInNetwork) {
    state_.host.Report("lost: the network cannot keep more messages");
    return;
  }
  state_.in_network.push_back(std::move(pdu));
  Settle();
  if (!state_.in_network.empty()) ReportWaiting();
}

void Modem::ReportWaiting() {
  std::string_view why = "the store is full";
  if (state_.acknowledgement_due) why = "the last one has not been acknowledged";
  if (!state_.online()) why = "the modem is not registered";
  if (!state_.sim.ready()) why = "the PIN is missing";
  if (!state_.sim.inserted()) why = "there is no SIM card";
  if (!powered_) why = "the modem is unplugged";
  state_.host.Report(fmt::format("waiting in the network: {}; {}",
                                 DescribeMessage(state_.in_network.back()), why));
}

bool Modem::CanTake(Route route) const {
  if (!powered_ || !state_.online()) return false;
  switch (route) {
    case Route::kDiscard: return true;
    case Route::kStore:
    case Route::kStoreAndTell: return !state_.store.full();
    case Route::kHandOn: return !state_.acknowledgement_due;
  }
  return false;
}

/// Those whose time has not come are sent by Later, when it has.
void Modem::SendReports() {
  while (!state_.pending_reports.empty()) {
    PendingReport report = std::move(state_.pending_reports.front());
    state_.pending_reports.pop_front();
    if (report.delay == std::chrono::nanoseconds(0)) {
      if (state_.in_network.size() >= kMostInNetwork) continue;
      state_.in_network.push_back(gsm::EncodeStatusReport(report.pdu));
      continue;
    }
    state_.host.Later(report.delay, [this, pdu = std::move(report.pdu)]() mutable {
      pdu.discharge_time = state_.host.Now();
      ReceivePdu(gsm::EncodeStatusReport(pdu));
    });
  }
}

void Modem::Settle() {
  SendReports();
  const auto& values = state_.settings.indications.values;
  if (values[Indications::kMode] != 0) ReleaseIndications(values[Indications::kBuffer] == 0);
  if (state_.settings.message_service == 0) state_.acknowledgement_due = false;
  TellRegistration(Domain::kCircuit, circuit_registered_);
  TellRegistration(Domain::kPacket, packet_registered_);
  while (!state_.in_network.empty()) {
    const Route route = RouteOf(state_.in_network.front(), state_.settings.indications);
    if (!CanTake(route)) return;
    const gsm::Octets pdu = std::move(state_.in_network.front());
    state_.in_network.pop_front();
    Take(pdu, route);
  }
}

void Modem::TellRegistration(Domain domain, bool& was_registered) {
  const bool registered = IsRegistered(state_, domain);
  const bool changed = std::exchange(was_registered, registered) != registered;
  if (changed && ReportLevel(state_, domain) != 0) {
    interpreter_.Indicate(RegistrationNews(state_, domain));
  }
}

void Modem::Take(const gsm::Octets& pdu, Route route) {
  const std::string description = DescribeMessage(pdu);
  if (route == Route::kDiscard) {
    return state_.host.Report(fmt::format("received, not passed on: {}", description));
  }
  if (route == Route::kHandOn) {
    state_.host.Report(fmt::format("received, passed on: {}", description));
    state_.acknowledgement_due = state_.settings.message_service == 1;
    return Indicate(MessageNews(state_, pdu));
  }
  const int place = state_.store.Add(MessageStatus::kUnread, pdu).value();
  state_.host.Report(fmt::format("received, place {}: {}", place, description));
  if (route == Route::kStoreAndTell) Indicate(PlaceNews(state_, pdu, place));
}

void Modem::Indicate(std::string line) {
  if (state_.settings.indications.values[Indications::kMode] != 0) {
    return interpreter_.Indicate(std::move(line));
  }
  if (kept_indications_.size() == kMostKeptIndications) kept_indications_.pop_front();
  kept_indications_.push_back(std::move(line));
}

void Modem::ReleaseIndications(bool tell) {
  for (std::string& line : std::exchange(kept_indications_, {})) {
    if (tell) interpreter_.Indicate(std::move(line));
  }
}

void Modem::SetRegistered(bool registered) {
  state_.registered = registered;
  Settle();
}

void Modem::BeginCoverageGap() {
  ++state_.coverage_gaps;
  Settle();
}

void Modem::EndCoverageGap() {
  --state_.coverage_gaps;
  Settle();
}

void Modem::SetSimInserted(bool inserted) {
  if (inserted == state_.sim.inserted()) return;
  inserted ? state_.sim.PutIn() : state_.sim.TakeOut();
  Settle();
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
  kept_indications_.clear();
  state_.settings = Settings{};
  state_.operator_selection = 0;
  state_.packet_attached = true;
  state_.acknowledgement_due = false;
  state_.outgoing.reset();
  state_.sim.PowerOn();
  Settle();
}

std::vector<std::string> Modem::Describe() {
  std::vector<std::string> lines{
      fmt::format("store: {} of {} places taken", state_.store.used(), state_.store.size())};
  for (const auto& [index, message] : state_.store.messages()) {
    lines.push_back(fmt::format("place {}, {}: {}", index, TextOf(message.status),
                                DescribeMessage(message.pdu)));
  }
  for (const gsm::Octets& pdu : state_.in_network) {
    lines.push_back(fmt::format("waiting in the network: {}", DescribeMessage(pdu)));
  }
  for (const SentMessage& message : state_.joiner.Unfinished()) {
    lines.push_back(DescribeSent(message));
  }
  return lines;
}

}  // namespace modem_simulator
