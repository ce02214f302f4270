// SPDX-License-Identifier: MIT
// A GSM modem with its SIM card and the network behind it. No I/O of its own: a ModemHost carries
// its bytes, keeps time and shows its reports. One thread.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/modem_simulator/at_interpreter.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

class Modem {
 public:
  /// PDUs that the network keeps for a modem that cannot take them; more are refused.
  static constexpr std::size_t kMostWaiting = 10000;

  /// `host` outlives the modem.
  Modem(const ModemOptions& options, ModemHost& host);

  // The controller's side.
  void Feed(std::string_view bytes) {
    interpreter_.Feed(bytes);
    DeliverWaiting();
  }
  /// The delay that the host was asked for is over.
  void Wake() {
    interpreter_.Wake();
    DeliverWaiting();
  }

  // The network's side. Messages that the modem cannot take now wait in the network: the store is
  // full, the SIM card locked, the network out of reach, the modem unplugged.
  /// A text, in parts where it is long. False: no address, no UTF-8, or too long.
  [[nodiscard]] bool Receive(const gsm::Address& sender, std::string_view text);
  /// 8-bit data.
  [[nodiscard]] bool ReceiveOctets(const gsm::Address& sender, gsm::OctetSpan octets);
  /// A PDU as it is, right or wrong.
  void ReceivePdu(gsm::Octets pdu);

  void SetSignal(int signal) { state_.signal = signal; }
  void SetRegistered(bool registered);
  [[nodiscard]] Delays& delays() { return state_.options.delays; }

  // Faults.
  [[nodiscard]] Faults& faults() { return state_.faults; }
  /// A line that the modem sends on its own, at once, whatever goes on.
  void SendUnsolicited(std::string_view line);
  /// Without supply: nothing is received.
  void PowerOff();
  /// Starts anew: echo on, PIN asked for again, what was under way forgotten. Stored messages stay.
  void PowerOn();

  /// The messages of the store and of the network, and unfinished ones, a line each.
  [[nodiscard]] std::vector<std::string> Describe();

 private:
  bool ReceiveParts(const gsm::Address& sender,
                    const std::optional<std::vector<gsm::UserData>>& parts);
  void ReceiveOrKeep(gsm::Octets pdu);
  void DeliverWaiting();
  [[nodiscard]] bool CanTake() const;
  void Take(gsm::Octets pdu);
  void ReportWaiting();

  ModemState state_;
  AtInterpreter interpreter_;
  std::deque<gsm::Octets> waiting_;  // in the network, the oldest first
  std::uint16_t reference_ = 0;
  bool powered_ = true;
};

}  // namespace modem_simulator
