// SPDX-License-Identifier: MIT
// A GSM modem with its SIM card and the network behind it. It does no I/O itself: a ModemHost
// carries its bytes, keeps time and shows its reports. One thread.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/modem_simulator/at_interpreter.h"
#include "runtime/modem_simulator/message_routing.h"
#include "runtime/modem_simulator/modem_state.h"
#include "runtime/modem_simulator/registration.h"

namespace modem_simulator {

class Modem {
 public:
  /// Indications that are kept while AT+CNMI=0 forbids them; then the oldest is dropped, as 3GPP TS
  /// 27.005 clause 3.4.1 says.
  static constexpr std::size_t kMostKeptIndications = 256;

  /// `host` must outlive the modem.
  Modem(const ModemOptions& options, ModemHost& host);

  // The controller's side.
  void Feed(std::string_view bytes) {
    interpreter_.Feed(bytes);
    Settle();
  }
  /// The delay that was requested from the host is over.
  void Wake() {
    interpreter_.Wake();
    Settle();
  }

  // The network's side. Messages that the modem cannot accept now wait in the network: the store is
  // full, the SIM card locked, the network out of reach, or the modem unplugged.
  /// A text, in parts if it is long. False: not an address, not UTF-8, or too long.
  [[nodiscard]] bool Receive(const gsm::Address& sender, std::string_view text);
  /// 8-bit data.
  [[nodiscard]] bool ReceiveOctets(const gsm::Address& sender, gsm::OctetSpan octets);
  /// A text whose parts arrive in this order: numbers from 1, each any number of times. False: as
  /// above, or a number is greater than that of the parts.
  [[nodiscard]] bool ReceiveInOrder(const gsm::Address& sender, std::string_view text,
                                    const std::vector<std::size_t>& order);
  /// A PDU, unchanged, valid or not.
  void ReceivePdu(gsm::Octets pdu);

  /// Puts a text into the store as it is there after an earlier life: received from `number`, or
  /// written to it. False: not an address or text, or the store is full.
  [[nodiscard]] bool Store(MessageStatus status, const gsm::Address& number, std::string_view text);
  /// Fills the free places of the store with messages that have been read.
  void FillStore();
  /// Which status reports the network sends from now on.
  void SetReports(const ReportPlan& plan) { state_.report_plan = plan; }

  void SetSignal(int signal) { state_.signal = signal; }
  void SetRegistered(bool registered);
  /// A time without any network begins or ends; several may overlap.
  void BeginCoverageGap();
  void EndCoverageGap();
  /// Takes the SIM card out, or puts it in again: then it asks for its PIN.
  void SetSimInserted(bool inserted);
  [[nodiscard]] Delays& delays() { return state_.options.delays; }

  // Faults.
  [[nodiscard]] Faults& faults() { return state_.faults; }
  /// A line that the modem sends on its own, at once, whatever else is going on.
  void SendUnsolicited(std::string_view line);
  /// Without power: nothing is received.
  void PowerOff();
  /// Restarts: echo is on, the PIN is asked for again, what was under way is forgotten. Stored
  /// messages stay.
  void PowerOn();

  /// The messages in the store and in the network, and unfinished ones, one line each.
  [[nodiscard]] std::vector<std::string> Describe();

 private:
  [[nodiscard]] std::optional<std::vector<gsm::UserData>> PartsOf(std::string_view text);
  bool ReceiveParts(const gsm::Address& sender,
                    const std::optional<std::vector<gsm::UserData>>& parts);
  void ReportWaiting();
  void SendReports();
  /// Does what the last event has made possible: takes messages out of the network, and announces
  /// what has changed.
  void Settle();
  void TellRegistration(Domain domain, bool& was_registered);
  [[nodiscard]] bool CanTake(Route route) const;
  void Take(const gsm::Octets& pdu, Route route);
  /// A line about messages, which AT+CNMI's mode lets through or keeps.
  void Indicate(std::string line);
  void ReleaseIndications(bool tell);

  ModemState state_;
  AtInterpreter interpreter_;
  std::deque<std::string> kept_indications_;
  bool circuit_registered_;  // as last announced
  bool packet_registered_;
  std::uint16_t reference_ = 0;
  bool powered_ = true;
};

}  // namespace modem_simulator
