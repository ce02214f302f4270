// SPDX-License-Identifier: MIT
// What a modem knows and remembers. Plain data: the commands work on it; the interpreter and the
// network side decide the order of events. One thread.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "libs/gsm/pdu.h"
#include "runtime/modem_simulator/character_set.h"
#include "runtime/modem_simulator/delays.h"
#include "runtime/modem_simulator/faults.h"
#include "runtime/modem_simulator/message_joiner.h"
#include "runtime/modem_simulator/message_store.h"
#include "runtime/modem_simulator/modem_clock.h"
#include "runtime/modem_simulator/quirks.h"
#include "runtime/modem_simulator/result.h"
#include "runtime/modem_simulator/sim_card.h"

namespace modem_simulator {

/// What the modem needs from its surroundings.
class ModemHost {
 public:
  virtual ~ModemHost() = default;
  /// Sends bytes to the controller.
  virtual void Transmit(std::string_view bytes) = 0;
  /// Has Modem::Wake called after `delay`, but not from within this call. Only one call waits at a
  /// time.
  virtual void WakeAfter(std::chrono::nanoseconds delay) = 0;
  /// Calls `action` after `delay`, but not from within this call. Any number may wait.
  virtual void Later(std::chrono::nanoseconds delay, std::function<void()> action) = 0;
  /// Prints one line for the operator: what was sent, received, deleted.
  virtual void Report(std::string_view line) = 0;
  /// The service centre's clock.
  [[nodiscard]] virtual gsm::TimeStamp Now() = 0;
};

struct ModemOptions {
  std::string pin;      ///< empty: the SIM card asks for none
  int store_size = 20;  ///< places, 1..10000
  Delays delays;
  Quirks quirks;
};

/// How messages that arrive are announced (AT+CNMI, 3GPP TS 27.005 clause 3.4.1).
struct Indications {
  enum Field { kMode, kDeliver, kBroadcast, kReport, kBuffer, kFields };
  std::array<int, kFields> values{2, 1, 0, 0, 0};
};

/// The S registers (ITU-T V.250 clause 6.2).
struct Registers {
  int rings_before_answer = 0;
  int line_end = '\r';
  int line_feed = '\n';
  int backspace = '\b';
};

/// What text mode cannot say about a message that is sent or stored (AT+CSMP, 3GPP TS 27.005 clause
/// 3.3.1).
struct TextParameters {
  /// 3GPP TS 23.040 clause 9.2.3.3.
  enum ValidityFormat { kNoValidity, kEnhanced, kRelative, kAbsolute };

  [[nodiscard]] ValidityFormat validity_format() const {
    return static_cast<ValidityFormat>(first_octet >> 3 & 0x03);
  }
  [[nodiscard]] bool HasHeader() const { return (first_octet & 0x40) != 0; }

  int first_octet = 0x11;                     ///< SMS-SUBMIT with a relative validity period
  int validity_period = 167;                  ///< relative: a day
  std::optional<gsm::TimeStamp> valid_until;  ///< absolute
  int protocol_identifier = 0;
  int data_coding_scheme = 0;
};

/// What ATZ and a restart reset.
struct Settings {
  bool echo = true;
  bool quiet = false;  ///< ATQ1: no results
  ResultFormat format;
  bool text_mode = false;  ///< AT+CMGF=1
  CharacterSet character_set = CharacterSet::kGsm;
  Registers registers;
  Indications indications;
  TextParameters text_parameters;
  int show_text_parameters = 0;  ///< AT+CSDH
  int message_service = 0;       ///< AT+CSMS: 1: messages that are passed on must be acknowledged
  int circuit_reports = 0;       ///< AT+CREG
  int packet_reports = 0;        ///< AT+CGREG
  int operator_format = 0;       ///< AT+COPS: 0 long, 1 short, 2 numeric
};

/// What a command that prompts for a message has announced.
struct Announcement {
  enum class Purpose : std::uint8_t { kSend, kStore, kAcknowledge };

  /// The command for this purpose, for the operator.
  [[nodiscard]] std::string_view CommandName() const {
    switch (purpose) {
      case Purpose::kSend: return "AT+CMGS";
      case Purpose::kStore: return "AT+CMGW";
      case Purpose::kAcknowledge: return "AT+CNMA";
    }
    return {};
  }

  Purpose purpose = Purpose::kSend;
  int tpdu_length = 0;                            ///< PDU mode
  gsm::Address destination;                       ///< text mode; may be empty for kStore
  MessageStatus status = MessageStatus::kUnsent;  ///< kStore
};

/// Which status reports the network sends to those who ask for one.
struct ReportPlan {
  std::optional<std::uint8_t> status = 0;  ///< 3GPP TS 23.040 clause 9.2.3.15; nullopt: no report
  std::chrono::nanoseconds delay{0};       ///< after the message
};

/// A report that will come.
struct PendingReport {
  gsm::StatusReportPdu pdu;  ///< its discharge time is that of its sending
  std::chrono::nanoseconds delay;
};

/// PDUs that the network keeps for a modem that cannot accept them; more are lost.
constexpr std::size_t kMostInNetwork = 10000;

/// A message that waits for the network.
struct Outgoing {
  gsm::SubmitPdu pdu;
  std::string_view command;  ///< "+CMGS", or "+CMSS" for a stored one
  int place = 0;             ///< of the stored message
};

struct ModemState {
  ModemState(ModemOptions modem_options, ModemHost& modem_host)
      : options(std::move(modem_options)),
        host(modem_host),
        sim(options.pin),
        store(options.store_size, options.quirks.Has(Quirk::kIndexFromZero) ? 0 : 1) {}

  /// Whether there is a network at all.
  [[nodiscard]] bool reachable() const { return registered && coverage_gaps == 0; }
  /// Whether there is a network that accepts messages.
  [[nodiscard]] bool online() const {
    constexpr int kDeregistered = 2;
    return sim.ready() && reachable() && operator_selection != kDeregistered;
  }

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
  int signal = 20;                             ///< AT+CSQ: 0..31, 99 unknown
  bool registered = true;                      ///< a network is within reach
  int coverage_gaps = 0;                       ///< that last; several may overlap
  int operator_selection = 0;                  ///< AT+COPS: 0 automatic, 1 by hand, 2 none
  bool packet_attached = true;                 ///< AT+CGATT
  int line_speed = 0;                          ///< AT+IPR; 0: found automatically
  std::array<int, 2> flow_control{2, 2};       ///< AT+IFC
  std::array<int, 2> character_framing{3, 3};  ///< AT+ICF
  ModemClock clock;
  Announcement announcement;
  std::optional<Outgoing> outgoing;
  ReportPlan report_plan;
  /// Reports that the network has not sent yet; Modem::Settle takes them.
  std::deque<PendingReport> pending_reports;
  /// PDUs that the modem has not yet accepted, oldest first.
  std::deque<gsm::Octets> in_network;
  bool acknowledgement_due = false;    ///< AT+CNMA must acknowledge what was passed on
  std::uint8_t message_reference = 0;  ///< of the last message sent
};

}  // namespace modem_simulator
