// SPDX-License-Identifier: MIT
#include "runtime/cli/watch_view.h"

#define NCURSES_NOMACROS
#include <curses.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <stdexcept>

#include "runtime/cli/screen_text.h"

namespace corvane::cli {
namespace {

constexpr std::chrono::milliseconds kRefresh(200);
constexpr int kHeadLines = 4;    // title and statistics; a line for each modem port follows
constexpr int kOutputLines = 5;  // of what the program prints, with their heading

/// The screen is UTF-8, as the program's texts are. Only the classification of characters follows
/// the environment: numbers keep their point.
void SetCharacters() {
  if (std::setlocale(LC_CTYPE, "") == nullptr || MB_CUR_MAX == 1) {
    std::setlocale(LC_CTYPE, "C.UTF-8");
  }
}

void Write(int row, const std::string& text, attr_t attributes = A_NORMAL) {
  if (row < 0 || row >= getmaxy(stdscr)) return;
  attrset(static_cast<int>(attributes));
  const std::string line = Fit(text, static_cast<std::size_t>(getmaxx(stdscr)));
  mvaddstr(row, 0, line.c_str());
  attrset(static_cast<int>(A_NORMAL));
}

/// "a; b; c" as the lines a, b and c.
void WriteParts(int row, const std::string& text) {
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find("; ", begin), text.size());
    Write(row++, " " + text.substr(begin, end - begin));
    begin = end + 2;
  }
}

/// The signals that ask the runtime for something are the PLC task's.
void LeaveSignalsToOthers() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/// Ctrl-Z would stop the process, and with it the machine that the program controls.
void DisableSuspending(int terminal) {
  termios settings{};
  if (tcgetattr(terminal, &settings) != 0) return;
  settings.c_cc[VSUSP] = _POSIX_VDISABLE;
  tcsetattr(terminal, TCSANOW, &settings);
}

FILE* Open(int terminal, const char* mode) {
  const int copy = fcntl(terminal, F_DUPFD_CLOEXEC, 3);
  FILE* file = copy < 0 ? nullptr : fdopen(copy, mode);
  if (file == nullptr) throw std::runtime_error("cannot open the terminal");
  return file;
}

}  // namespace

std::string WatchProblem() {
  if (isatty(STDOUT_FILENO) == 0) return "--watch needs a terminal as standard output";
  if (!TerminalGuard::Knows(STDOUT_FILENO)) {
    const char* name = std::getenv("TERM");
    return std::string("--watch cannot use a terminal of the type '") + (name ? name : "") +
           "' (TERM)";
  }
  return {};
}

WatchView::WatchView(std::string program)
    : program_(std::move(program)),
      guard_(STDOUT_FILENO),
      in_(Open(output_.terminal(), "r"), std::fclose),
      out_(Open(output_.terminal(), "w"), std::fclose),
      wake_(eventfd(0, EFD_CLOEXEC)) {
  SetCharacters();
  DisableSuspending(output_.terminal());
  screen_ = newterm(nullptr, out_.get(), in_.get());
  if (screen_ == nullptr) throw std::runtime_error("cannot use the terminal");
  cbreak();
  noecho();
  curs_set(0);
  keypad(stdscr, true);
  nodelay(stdscr, true);
  thread_ = std::thread([this] {
    LeaveSignalsToOthers();
    Draw();
  });
}

WatchView::~WatchView() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(wake_, &one, sizeof one);
  thread_.join();
  endwin();
  delscreen(screen_);
  close(wake_);
}

void WatchView::Update(const CycleStatistics& statistics) {
  const auto now = std::chrono::steady_clock::now();
  if (now - taken_ < kRefresh) return;
  taken_ = now;
  Picture picture;
  picture.statistics = statistics.Summary();
  if (modems_ != nullptr) picture.modems = modems_->Status();
  if (observer_) picture.blocks = observer_->Read();
  const std::lock_guard guard(mutex_);
  picture_ = std::move(picture);
}

WatchView::Picture WatchView::picture() const {
  const std::lock_guard guard(mutex_);
  return picture_;
}

void WatchView::Draw() {
  std::array<pollfd, 2> events{{{wake_, POLLIN, 0}, {output_.terminal(), POLLIN, 0}}};
  do {
    DrawLines();
    refresh();
    poll(events.data(), events.size(), static_cast<int>(kRefresh.count()));
    // A terminal that has gone would be ready for ever.
    if ((events[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) events[1].fd = -1;
    TakeKeys();
  } while (events[0].revents == 0);
}

void WatchView::DrawLines() {
  const Picture picture = this->picture();
  const int rows = getmaxy(stdscr);
  const auto lines = BlockLines(picture.blocks, static_cast<std::size_t>(getmaxx(stdscr)));
  const auto output = output_.LastLines(kOutputLines - 1);
  const int output_top = rows - 1 - (output.empty() ? 0 : static_cast<int>(output.size()) + 1);
  const int blocks_top = kHeadLines + static_cast<int>(picture.modems.size());
  const int space = std::max(1, output_top - blocks_top);
  const int count = static_cast<int>(lines.size());
  first_line_ = std::clamp(first_line_, 0, std::max(0, count - space));
  const int last = std::min(count, first_line_ + space);

  erase();
  Write(0, " corvane  " + ScreenText(program_), A_REVERSE);
  WriteParts(1, picture.statistics);
  for (std::size_t i = 0; i < picture.modems.size(); ++i) {
    Write(kHeadLines + static_cast<int>(i), " " + ScreenText(picture.modems[i]));
  }
  for (int i = first_line_; i < last; ++i) {
    const std::string& line = lines[static_cast<std::size_t>(i)];
    Write(blocks_top + i - first_line_, line, line.front() == ' ' ? A_NORMAL : A_BOLD);
  }
  if (!output.empty()) Write(output_top, " Output", A_UNDERLINE);
  for (std::size_t i = 0; i < output.size(); ++i) {
    Write(output_top + 1 + static_cast<int>(i), " " + output[i]);
  }
  std::string help = " q: end";
  if (count > space) {
    help += "   arrows, PgUp, PgDn: lines " + std::to_string(first_line_ + 1) + " to " +
            std::to_string(last) + " of " + std::to_string(count);
  }
  Write(rows - 1, help, A_REVERSE);
}

void WatchView::TakeKeys() {
  const int page = std::max(1, getmaxy(stdscr) - kHeadLines - kOutputLines - 1);
  for (int key = getch(); key != ERR; key = getch()) {
    switch (key) {
      case 'q': kill(getpid(), SIGINT); break;  // as Ctrl-C: after the running cycle
      case KEY_DOWN: ++first_line_; break;
      case KEY_UP: --first_line_; break;
      case KEY_NPAGE: first_line_ += page; break;
      case KEY_PPAGE: first_line_ -= page; break;
      default: break;
    }
  }
}

}  // namespace corvane::cli
