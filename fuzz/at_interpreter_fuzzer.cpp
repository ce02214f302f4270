// SPDX-License-Identifier: MIT
// The simulated modem with any bytes from its controller, and the network's answers at any time:
// whatever came before, it answers again once the controller has left prompts and settings behind.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/require.h"
#include "runtime/modem_simulator/modem.h"

namespace {

using modem_simulator::Modem;

/// Stands for the moment at which the network answers, or a message arrives.
constexpr char kNetworkAnswers = '\xFE';
constexpr char kMessageArrives = '\xFD';

class Host : public modem_simulator::ModemHost {
 public:
  void Transmit(std::string_view bytes) override { transmitted += bytes; }
  void AwaitNetwork(std::chrono::nanoseconds) override {}
  void Report(std::string_view line) override {
    Require(line.find_first_of("\r\n") == std::string_view::npos);
  }
  modem_simulator::TimeStamp Now() override { return {}; }

  std::string transmitted;
};

void Play(Modem& modem, std::string_view input) {
  for (const char& byte : input) {
    if (byte == kNetworkAnswers) {
      modem.NetworkAnswered();
    } else if (byte == kMessageArrives) {
      Require(modem.Receive("+15550101234", "x"));
    } else {
      modem.Feed({&byte, 1});
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(data, data + size);
  Host host;
  modem_simulator::ModemOptions options;
  options.store_size = 3;
  Modem modem(options, host);
  Play(modem, input);
  // What waits behind an unconfirmed message may send the next one, and so on.
  for (std::size_t i = 0; i <= size; ++i) modem.NetworkAnswered();
  modem.Feed("\r\x1B\rATZ\r");
  host.transmitted.clear();
  modem.Feed("ATE0\r");
  Require(host.transmitted == "ATE0\r\r\nOK\r\n");
  return 0;
}
