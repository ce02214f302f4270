// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/simulator.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <ctime>
#include <stdexcept>
#include <utility>

#include "runtime/corvane/duration.h"
#include "runtime/modem_simulator/pseudo_terminal.h"
#include "runtime/modem_simulator/readable.h"
#include "runtime/modem_simulator/tcp_port.h"

namespace modem_simulator {
namespace {

constexpr std::size_t kMostOutput = 8U << 20;  // bytes that are held back; more are lost
constexpr std::chrono::seconds kTryAgain{1};

void Trace(std::string_view who, std::string_view bytes) {
  if (spdlog::should_log(spdlog::level::trace)) spdlog::trace("{:<10} {}", who, Escape(bytes));
}

/// How far this machine's clock is ahead of UTC, in whole quarters of an hour.
int LocalOffsetMinutes(std::chrono::system_clock::time_point now) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&seconds, &local);
  return static_cast<int>(local.tm_gmtoff / 60) / 15 * 15;
}

}  // namespace

Simulator::Simulator(boost::asio::io_context& io, const SimulatorOptions& options, LineWriter& out)
    : io_(io),
      options_(options),
      out_(out),
      time_(options.time),
      modem_(options.modem, *this),
      wake_timer_(io),
      hold_timer_(io),
      plug_timer_(io),
      random_(options.seed) {
  const int rate = BytesPerSecond(options.baud_rate);
  const auto take = [this](std::string_view bytes) { TakeInput(bytes); };
  if (options.pseudo_terminal) {
    lines_.push_back(std::make_unique<PseudoTerminal>(io, options.link, rate, take));
  }
  if (!options.tcp.empty()) {
    lines_.push_back(std::make_unique<TcpPort>(io, options.tcp, rate, take));
  }
}

void Simulator::Start() {
  for (const auto& line : lines_) line->Plug();
  plugged_ = true;
  Print("ready " + Addresses());
}

std::string Simulator::Addresses() const {
  std::string addresses;
  for (const auto& line : lines_) {
    addresses += (addresses.empty() ? "" : " ") + line->Address();
  }
  return addresses;
}

void Simulator::Print(std::string_view line) {
  out_.Write(line);
}

void Simulator::Do(const Action& action) {
  action(*this);
  Flush();
}

void Simulator::TakeInput(std::string_view bytes) {
  if (!plugged_ || Muted()) return;
  Trace("controller", bytes);
  modem_.Feed(bytes);
  Flush();
}

void Simulator::Transmit(std::string_view bytes) {
  if (!plugged_ || Muted()) return;
  if (output_.size() + bytes.size() <= kMostOutput) output_ += bytes;
}

/// Everything that the modem says because of one event is sent at once.
void Simulator::Flush() {
  if (held_ || output_.empty()) return;
  Trace("modem", output_);
  for (const auto& line : lines_) line->Write(output_);
  output_.clear();
}

void Simulator::WakeAfter(Duration delay) {
  wake_timer_.expires_after(delay);
  wake_timer_.async_wait([this](const auto& error) {
    if (error) return;
    modem_.Wake();
    Flush();
  });
}

void Simulator::Later(Duration delay, std::function<void()> action) {
  After(delay, [action = std::move(action)](Controls&) { action(); });
}

gsm::TimeStamp Simulator::Now() {
  if (time_) return *time_;
  const auto now = std::chrono::system_clock::now();
  return gsm::ToTimeStamp(now, LocalOffsetMinutes(now));
}

void Simulator::Mute(Duration duration) {
  muted_until_ = Clock::now() + duration;
  Print("muted for " + corvane::FormatDuration(duration));
}

void Simulator::Hold(Duration duration) {
  held_ = true;
  Print("output held back for " + corvane::FormatDuration(duration));
  hold_timer_.expires_after(duration);
  hold_timer_.async_wait([this](const auto& error) {
    if (error) return;
    held_ = false;
    Flush();
  });
}

void Simulator::Unplug(Duration duration) {
  plugged_ = false;
  output_.clear();
  wake_timer_.cancel();
  modem_.PowerOff();
  for (const auto& line : lines_) line->Unplug();
  Print("unplugged for " + corvane::FormatDuration(duration));
  plug_timer_.expires_after(duration);
  plug_timer_.async_wait([this](const auto& error) {
    if (!error) Replug();
  });
}

/// If its name has been taken in the meantime, tries again every second.
void Simulator::Replug() {
  try {
    for (const auto& line : lines_) line->Plug();
  } catch (const std::runtime_error& error) {
    Print(fmt::format("cannot be plugged in again yet: {}", error.what()));
    plug_timer_.expires_after(kTryAgain);
    plug_timer_.async_wait([this](const auto& timer_error) {
      if (!timer_error) Replug();
    });
    return;
  }
  plugged_ = true;
  modem_.PowerOn();
  Print("plugged in again " + Addresses());
  Flush();
}

void Simulator::Restart() {
  wake_timer_.cancel();
  modem_.PowerOn();
  for (const std::string_view line : {"RDY", "Call Ready", "SMS Ready"}) {
    modem_.SendUnsolicited(line);
  }
  Print("restarted");
}

void Simulator::SendGarbage(int count) {
  std::string bytes;
  while (static_cast<int>(bytes.size()) < count) bytes += static_cast<char>(random_() & 0xFF);
  Transmit(bytes);
  Print(fmt::format("{} bytes of garbage", count));
}

void Simulator::After(Duration delay, Action action) {
  const auto timer = later_.emplace(later_.end(), io_, delay);
  timer->async_wait([this, timer, action = std::move(action)](const auto& error) {
    if (error) return;
    later_.erase(timer);
    Do(action);
  });
}

void Simulator::Quit() {
  io_.stop();
}

}  // namespace modem_simulator
