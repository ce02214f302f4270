// SPDX-License-Identifier: MIT
// The simulated modem with any bytes from its controller, and the network's answers at any time.
// The first octet chooses an oddity. Whatever has happened, no message is lost or duplicated
// between network, store and controller, and the modem answers again once prompts are closed and
// settings reset: then its list shows what its store holds.
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/require.h"
#include "runtime/modem_simulator/modem.h"

namespace {

using modem_simulator::Modem;

/// Stands for the moment at which the network answers, or a message arrives.
constexpr char kNetworkAnswers = '\xFE';
constexpr char kMessageArrives = '\xFD';

constexpr int kPlaces = 3;

class Host : public modem_simulator::ModemHost {
 public:
  void Transmit(std::string_view bytes) override { transmitted += bytes; }
  void WakeAfter(std::chrono::nanoseconds) override {}
  void Later(std::chrono::nanoseconds, std::function<void()>) override {}
  void Report(std::string_view line) override {
    Require(line.find_first_of("\r\n") == std::string_view::npos);
    const bool report = line.find("status report ") != std::string_view::npos;
    stored += !report && line.starts_with("received, place ");
    passed_on += !report && line.starts_with("received, passed on");
    written += line.starts_with("written, place ");
    reports_stored += report && line.starts_with("received, place ");
    deleted += line.starts_with("deleted place ");
    lost += line.starts_with("lost: ");
    int many = 0;
    constexpr std::string_view kMany = "deleted ";
    if (!line.starts_with(kMany) || !line.ends_with(" messages")) return;
    std::from_chars(line.data() + kMany.size(), line.data() + line.size(), many);
    deleted += many;
  }
  gsm::TimeStamp Now() override { return {}; }

  std::string transmitted;
  int stored = 0;
  int written = 0;
  int reports_stored = 0;
  int passed_on = 0;
  int deleted = 0;
  int lost = 0;
};

/// @return how many messages have arrived
int Play(Modem& modem, std::string_view input) {
  int arrived = 0;
  for (const char& byte : input) {
    if (byte == kNetworkAnswers) {
      modem.Wake();
    } else if (byte == kMessageArrives) {
      Require(modem.Receive("+15550101234", "x"));
      ++arrived;
    } else {
      modem.Feed({&byte, 1});
    }
  }
  return arrived;
}

int Count(const std::vector<std::string>& lines, std::string_view beginning) {
  return static_cast<int>(std::count_if(lines.begin(), lines.end(), [beginning](const auto& line) {
    return line.starts_with(beginning);
  }));
}

/// Compares the messages in the network, in the store and at the controller.
void CheckMessages(Modem& modem, const Host& host, int arrived) {
  const auto lines = modem.Describe();
  const int in_store = Count(lines, "place ");
  const int reports_waiting = Count(lines, "waiting in the network: status report ");
  const int waiting = Count(lines, "waiting in the network") - reports_waiting;
  Require(in_store <= kPlaces);
  Require(lines.at(0) == fmt::format("store: {} of {} places taken", in_store, kPlaces));
  Require(host.stored + host.reports_stored + host.written == in_store + host.deleted);
  Require(arrived == host.stored + host.passed_on + waiting + host.lost);
}

/// The network holds messages back only from a modem that has no place for them. (This requires the
/// settings of a start: others may lack an operator or an acknowledgement.)
void CheckNothingIsHeldBack(Modem& modem) {
  const auto lines = modem.Describe();
  Require(Count(lines, "waiting in the network") == 0 || Count(lines, "place ") == kPlaces);
}

void CheckList(Modem& modem, Host& host) {
  const int in_store = Count(modem.Describe(), "place ");
  host.transmitted.clear();
  modem.Feed("AT+CMGL=4\r");
  int listed = 0;
  for (std::size_t at = 0; (at = host.transmitted.find("+CMGL:", at)) != std::string::npos; ++at) {
    ++listed;
  }
  Require(listed == in_store && host.transmitted.ends_with("\r\nOK\r\n"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::string input(data + 1, data + size);
  Host host;
  modem_simulator::ModemOptions options;
  options.store_size = kPlaces;
  const auto quirks = modem_simulator::QuirkTable();
  const std::size_t quirk = data[0] % (quirks.size() + 1);
  if (quirk > 0) options.quirks.Add(quirks[quirk - 1].quirk);
  Modem modem(options, host);
  const int arrived = Play(modem, input);
  // Commands that wait for a message to be confirmed may send the next one, and so on.
  for (std::size_t i = 0; i <= size; ++i) modem.Wake();
  CheckMessages(modem, host, arrived);
  // Twice, since S5 may have made a letter of one of them the backspace.
  modem.Feed("\r\x1B\rATZ\ratz\r");
  host.transmitted.clear();
  modem.Feed("ATE0\r");
  Require(host.transmitted.ends_with("\r\nOK\r\n"));
  Require(quirk > 0 || host.transmitted == "ATE0\r\r\nOK\r\n");
  modem.Feed("AT+CMGF=0\r");
  modem.Feed("AT+COPS=0\r");
  CheckNothingIsHeldBack(modem);
  CheckList(modem, host);
  return 0;
}
