// SPDX-License-Identifier: MIT
// A modem with its lines, its clock and its operator. Belongs to the thread that runs the
// io_context, which must outlive it.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <filesystem>
#include <list>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "runtime/modem_simulator/controls.h"
#include "runtime/modem_simulator/line.h"
#include "runtime/modem_simulator/line_writer.h"
#include "runtime/modem_simulator/modem.h"

namespace modem_simulator {

struct SimulatorOptions {
  ModemOptions modem;
  std::filesystem::path link;  ///< empty: the pseudo-terminal has no second name
  std::string tcp;             ///< HOST:PORT; empty: no TCP
  bool pseudo_terminal = true;
  int baud_rate = 0;                   ///< 0: as fast as it goes
  unsigned seed = 1;                   ///< of the random bytes
  std::optional<gsm::TimeStamp> time;  ///< nullopt: the true time
};

class Simulator : public Controls, private ModemHost {
 public:
  /// Lines of output go to `out`. Throws std::runtime_error for a bad address.
  Simulator(boost::asio::io_context& io, const SimulatorOptions& options, LineWriter& out);

  /// Makes the lines reachable and prints the ready line. Throws std::runtime_error.
  void Start();

  // Controls
  [[nodiscard]] Modem& modem() override { return modem_; }
  void Print(std::string_view line) override;
  void Mute(Duration duration) override;
  void Hold(Duration duration) override;
  void Unplug(Duration duration) override;
  void Restart() override;
  void SendGarbage(int count) override;
  void SetTime(std::optional<gsm::TimeStamp> time) override { time_ = time; }
  void After(Duration delay, Action action) override;
  void Quit() override;

  /// Carries out the operator's action.
  void Do(const Action& action);

 private:
  using Clock = std::chrono::steady_clock;

  // ModemHost
  void Transmit(std::string_view bytes) override;
  void WakeAfter(Duration delay) override;
  void Later(Duration delay, std::function<void()> action) override;
  void Report(std::string_view line) override { Print(line); }
  [[nodiscard]] gsm::TimeStamp Now() override;

  void TakeInput(std::string_view bytes);
  void Flush();
  void Replug();
  [[nodiscard]] bool Muted() const { return Clock::now() < muted_until_; }
  [[nodiscard]] std::string Addresses() const;

  boost::asio::io_context& io_;
  SimulatorOptions options_;
  LineWriter& out_;
  std::optional<gsm::TimeStamp> time_;
  Modem modem_;
  std::vector<std::unique_ptr<Line>> lines_;
  boost::asio::steady_timer wake_timer_;
  boost::asio::steady_timer hold_timer_;
  boost::asio::steady_timer plug_timer_;
  std::list<boost::asio::steady_timer> later_;  // one for each action that waits
  std::mt19937 random_;
  std::string output_;  // of the current event, or of the time in which output is held back
  bool held_ = false;
  bool plugged_ = false;
  Clock::time_point muted_until_{};
};

}  // namespace modem_simulator
