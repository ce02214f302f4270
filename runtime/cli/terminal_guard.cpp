// SPDX-License-Identifier: MIT
#include "runtime/cli/terminal_guard.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>
#include <utility>

namespace corvane::cli {
namespace {

constexpr std::array kSignals{SIGINT,  SIGTERM, SIGHUP, SIGQUIT, SIGABRT,
                              SIGSEGV, SIGBUS,  SIGFPE, SIGILL};

/// How long a terminal may take for the last octets: ten lines of text at 9600 baud.
constexpr std::chrono::milliseconds kPatienceAtTheEnd(500);

// What the handler uses, ready before the first signal can arrive.
int guarded_terminal = -1;
int old_flags = -1;  // of a descriptor that others share; -1: it is our own
termios old_settings{};
std::array<char, 256> farewell{};
std::size_t farewell_length = 0;

void GiveSettingsBack() {
  tcsetattr(guarded_terminal, TCSANOW, &old_settings);
  if (old_flags >= 0) fcntl(guarded_terminal, F_SETFL, old_flags);
}

/// Drops what the terminal has not accepted yet, which makes room, and ends a stop by Ctrl-S: Linux
/// starts the output again when IXON is cleared.
void SayFarewellInPlaceOfTheRest() {
  tcflush(guarded_terminal, TCOFLUSH);
  termios settings = old_settings;
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON);
  tcsetattr(guarded_terminal, TCSANOW, &settings);
  [[maybe_unused]] const auto written = write(guarded_terminal, farewell.data(), farewell_length);
}

void LeaveAtOnce() {
  const ssize_t written = write(guarded_terminal, farewell.data(), farewell_length);
  if (written != static_cast<ssize_t>(farewell_length)) SayFarewellInPlaceOfTheRest();
  GiveSettingsBack();
}

extern "C" void RestoreTerminal(int signal) {
  LeaveAtOnce();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

/// Opens the terminal again, so that nobody else's descriptor of it becomes non-blocking. If that
/// is not allowed (another user's terminal, after su), uses the one we have, until the end.
int OpenWithoutBlocking(int terminal) {
  const std::string path = "/proc/self/fd/" + std::to_string(terminal);
  old_flags = -1;
  const int own = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (own >= 0) return own;
  const int shared = fcntl(terminal, F_DUPFD_CLOEXEC, 3);
  if (shared < 0) throw std::system_error(errno, std::generic_category(), "the terminal");
  old_flags = fcntl(shared, F_GETFL);
  fcntl(shared, F_SETFL, old_flags | O_NONBLOCK);
  return shared;
}

/// Keys arrive one by one, without echo. Ctrl-C stays a signal, but Ctrl-Z does not: it would stop
/// the process, and with it the machine that the program controls.
void SetForKeys(int terminal) {
  termios settings = old_settings;
  settings.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  settings.c_cc[VSUSP] = _POSIX_VDISABLE;
  tcsetattr(terminal, TCSANOW, &settings);
}

}  // namespace

TerminalGuard::TerminalGuard(int terminal, const TerminalDescription& description)
    : descriptor_(OpenWithoutBlocking(terminal)) {
  guarded_terminal = descriptor_.get();
  farewell_length = description.leave.copy(farewell.data(), farewell.size());
  tcgetattr(guarded_terminal, &old_settings);
  for (const int signal : kSignals) {
    struct sigaction old {};
    sigaction(signal, nullptr, &old);
    if (old.sa_handler == SIG_DFL) std::signal(signal, RestoreTerminal);
  }
  SetForKeys(guarded_terminal);
}

TerminalGuard::~TerminalGuard() {
  Leave();
  // Code that saved our handler may still restore it: then it only passes the signal on.
  guarded_terminal = -1;
}

bool TerminalGuard::Write(std::string_view octets, std::chrono::milliseconds limit) const {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!octets.empty()) {
    const ssize_t count = write(descriptor_.get(), octets.data(), octets.size());
    if (count > 0) {
      octets.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0 || errno == EAGAIN) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          end - std::chrono::steady_clock::now());
      if (left.count() <= 0) return false;
      pollfd ready{descriptor_.get(), POLLOUT, 0};
      poll(&ready, 1, static_cast<int>(left.count()));
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool TerminalGuard::Leave() {
  if (!std::exchange(taken_, false)) return true;
  const bool takes = Write({farewell.data(), farewell_length}, kPatienceAtTheEnd);
  if (!takes) SayFarewellInPlaceOfTheRest();
  for (const int signal : kSignals) {
    struct sigaction now {};
    sigaction(signal, nullptr, &now);
    if (now.sa_handler == RestoreTerminal) std::signal(signal, SIG_DFL);
  }
  GiveSettingsBack();
  return takes;
}

void LeaveTerminalNow(std::string_view message) {
  if (guarded_terminal < 0) return;
  LeaveAtOnce();
  [[maybe_unused]] const auto written = write(guarded_terminal, message.data(), message.size());
}

}  // namespace corvane::cli
