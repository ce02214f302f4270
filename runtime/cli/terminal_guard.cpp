// SPDX-License-Identifier: MIT
#include "runtime/cli/terminal_guard.h"

#define NCURSES_NOMACROS
#include <curses.h>
#include <fcntl.h>
// Behind curses.h, on which it depends.
#include <term.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <string>
#include <utility>

namespace corvane::cli {
namespace {

constexpr std::array kSignals{SIGINT,  SIGTERM, SIGHUP, SIGQUIT, SIGABRT,
                              SIGSEGV, SIGBUS,  SIGFPE, SIGILL};

// What the handler uses, ready before the first signal can come.
int guarded_terminal = -1;
termios old_settings{};
std::array<char, 256> farewell{};
std::size_t farewell_length = 0;

extern "C" void RestoreTerminal(int signal) {
  [[maybe_unused]] const auto written = write(guarded_terminal, farewell.data(), farewell_length);
  tcsetattr(guarded_terminal, TCSANOW, &old_settings);
  std::signal(signal, SIG_DFL);
  raise(signal);
}

/// The octets that leave the alternate screen and undo what a picture may have left on.
void PrepareFarewell(int terminal) {
  int error = 0;
  if (setupterm(nullptr, terminal, &error) != OK) return;
  std::string text;
  for (const char* capability : {"sgr0", "rmkx", "cnorm", "rmcup"}) {
    const char* octets = tigetstr(capability);
    // Null: unknown; -1: no string at all.
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the library's own way to say it
    if (octets != nullptr && octets != reinterpret_cast<const char*>(-1)) text += octets;
  }
  farewell_length = text.copy(farewell.data(), farewell.size());
  del_curterm(cur_term);
}

}  // namespace

bool TerminalGuard::Knows(int terminal) {
  int error = 0;
  if (setupterm(nullptr, terminal, &error) != OK) return false;
  del_curterm(cur_term);
  return true;
}

TerminalGuard::TerminalGuard(int terminal) {
  // A copy: what the number stands for may be replaced.
  guarded_terminal = fcntl(terminal, F_DUPFD_CLOEXEC, 3);
  tcgetattr(guarded_terminal, &old_settings);
  PrepareFarewell(guarded_terminal);
  for (const int signal : kSignals) {
    struct sigaction old {};
    sigaction(signal, nullptr, &old);
    if (old.sa_handler == SIG_DFL) std::signal(signal, RestoreTerminal);
  }
}

TerminalGuard::~TerminalGuard() {
  for (const int signal : kSignals) {
    struct sigaction now {};
    sigaction(signal, nullptr, &now);
    if (now.sa_handler == RestoreTerminal) std::signal(signal, SIG_DFL);
  }
  tcsetattr(guarded_terminal, TCSADRAIN, &old_settings);
  // Who has kept our handler as the former one may still put it back: it then only passes on.
  close(std::exchange(guarded_terminal, -1));
}

}  // namespace corvane::cli
