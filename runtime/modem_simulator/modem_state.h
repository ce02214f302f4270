// SPDX-License-Identifier: MIT
// What a modem knows and remembers. Plain data: the commands work on it, the interpreter and the
// network side own its order of events. One thread.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "libs/gsm/pdu.h"
#include "runtime/modem_simulator/delays.h"
#include "runtime/modem_simulator/faults.h"
#include "runtime/modem_simulator/message_joiner.h"
#include "runtime/modem_simulator/message_store.h"
#include "runtime/modem_simulator/quirks.h"
#include "runtime/modem_simulator/result.h"
#include "runtime/modem_simulator/sim_card.h"

namespace modem_simulator {

/// What the modem needs of the world around it.
class ModemHost {
 public:
  virtual ~ModemHost() = default;
  /// Bytes for the controller.
  virtual void Transmit(std::string_view bytes) = 0;
  /// Modem::Wake is to be called after `delay`, not from within this call. One call at a time
  /// waits.
  virtual void WakeAfter(std::chrono::nanoseconds delay) = 0;
  /// One line for the operator: what was sent, received, deleted.
  virtual void Report(std::string_view line) = 0;
  /// The service centre's clock.
  [[nodiscard]] virtual gsm::TimeStamp Now() = 0;
};

struct ModemOptions {
  std::string pin;      ///< empty: none is asked for
  int store_size = 20;  ///< places, 1..10000
  Delays delays;
  Quirks quirks;
};

/// How messages that arrive are announced (AT+CNMI, 3GPP TS 27.005 clause 3.4.1).
struct Indications {
  enum Field { kMode, kDeliver, kBroadcast, kReport, kBuffer, kFields };
  std::array<int, kFields> values{2, 1, 0, 0, 0};
};

/// What ATZ and a restart set back.
struct Settings {
  bool echo = true;
  bool quiet = false;  ///< ATQ1: no results
  ResultFormat format;
  bool text_mode = false;  ///< AT+CMGF=1
  std::string character_set = "GSM";
  Indications indications;
  int registration_reports = 0;  ///< AT+CREG
};

/// What AT+CMGS has announced.
struct Announcement {
  int tpdu_length = 0;       ///< PDU mode
  gsm::Address destination;  ///< text mode
};

struct ModemState {
  ModemState(ModemOptions modem_options, ModemHost& modem_host)
      : options(std::move(modem_options)),
        host(modem_host),
        sim(options.pin),
        store(options.store_size, options.quirks.Has(Quirk::kIndexFromZero) ? 0 : 1) {}

  /// With a network that takes messages.
  [[nodiscard]] bool online() const { return sim.ready() && registered; }

  /// The beginning of an answer or an announcement: "+CMGL: ".
  [[nodiscard]] std::string Header(std::string_view name) const {
    return std::string(name) + (options.quirks.Has(Quirk::kNoBlank) ? ":" : ": ");
  }

  ModemOptions options;
  ModemHost& host;
  Settings settings;
  SimCard sim;
  MessageStore store;
  Faults faults;
  MessageJoiner joiner;  ///< of what the controller sends
  gsm::Address service_centre = "+15550000000";
  int signal = 20;  ///< AT+CSQ: 0..31, 99 unknown
  bool registered = true;
  Announcement announcement;
  std::optional<gsm::SubmitPdu> outgoing;  ///< waits for the network
  std::uint8_t message_reference = 0;      ///< of the message sent last
};

}  // namespace modem_simulator
