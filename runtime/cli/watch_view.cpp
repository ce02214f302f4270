// SPDX-License-Identifier: MIT
#include "runtime/cli/watch_view.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>

namespace corvane::cli {
namespace {

constexpr std::chrono::milliseconds kRefresh(200);
constexpr std::chrono::milliseconds kEscapeTime(50);  // for the rest of a sequence to arrive
constexpr std::chrono::milliseconds kPatienceWithLines(300);  // those that stay on the terminal

/// The PLC task handles the signals that ask the runtime for something.
void LeaveSignalsToOthers() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

std::string WatchProblem() {
  if (isatty(STDOUT_FILENO) == 0) return "--watch needs a terminal as standard output";
  if (!TerminalDescription::Of(STDOUT_FILENO)) {
    const char* name = std::getenv("TERM");
    return std::string("--watch cannot use a terminal of the type '") + (name ? name : "") +
           "' (TERM)";
  }
  return {};
}

WatchView::WatchView(std::string program)
    : description_(TerminalDescription::Of(STDOUT_FILENO).value()),
      guard_(STDOUT_FILENO, description_),
      screen_(guard_, description_),
      keys_(description_.keys),
      page_(std::move(program)),
      wake_(eventfd(0, EFD_CLOEXEC)) {
  thread_ = std::thread([this] {
    LeaveSignalsToOthers();
    Draw();
  });
}

WatchView::~WatchView() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(wake_.get(), &one, sizeof one);
  thread_.join();
  // Whoever writes to a terminal that accepts nothing waits forever, so nobody may do so any more.
  if (!guard_.Leave() || !guard_.Write(output_.LastText(), kPatienceWithLines)) output_.Keep();
}

void WatchView::Update(const CycleStatistics& statistics) {
  const auto now = std::chrono::steady_clock::now();
  if (now - taken_ < kRefresh) return;
  taken_ = now;
  auto picture = std::make_shared<WatchPicture>();
  picture->statistics = statistics.Summary();
  if (modems_ != nullptr) picture->modems = modems_->Status();
  if (observer_) picture->blocks = observer_->Read();
  const std::lock_guard guard(mutex_);
  picture_ = std::move(picture);
}

void WatchView::Draw() {
  std::array<pollfd, 2> events{{{wake_.get(), POLLIN, 0}, {guard_.descriptor(), POLLIN, 0}}};
  do {
    Show();
    events[1].events = static_cast<short>(POLLIN | (screen_.Busy() ? POLLOUT : 0));
    const auto limit = keys_.Waiting() ? kEscapeTime : kRefresh;
    const int ready = poll(events.data(), events.size(), static_cast<int>(limit.count()));
    // A terminal that has gone would always be ready.
    if ((events[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) events[1].fd = -1;
    if (ready == 0) Press(keys_.TimeOut());
    if ((events[1].revents & POLLIN) != 0) Press(keys_.Take(screen_.Read()));
    screen_.Write();
  } while (events[0].revents == 0);
}

WatchView::Picture WatchView::Last() {
  const std::lock_guard guard(mutex_);
  return picture_;
}

/// Output continues and marks expire while the PLC task is busy, so both are added to its picture.
void WatchView::Show() {
  auto picture = std::make_shared<WatchPicture>(*Last());
  marks_.Mark(picture->blocks, std::chrono::steady_clock::now());
  picture->output = output_.LastLines(WatchPage::kOutputLines);
  if (screen_.Busy()) return;
  const auto size = screen_.size();
  screen_.Show(page_.Lines(picture, size), size);
}

void WatchView::Press(const std::vector<KeyPress>& keys) {
  for (const KeyPress& key : keys) {
    switch (page_.Press(key)) {
      case WatchPage::Wish::kNothing: break;
      case WatchPage::Wish::kEnd: kill(getpid(), SIGINT); break;  // as Ctrl-C: after the cycle
      case WatchPage::Wish::kRedraw: screen_.Forget(); break;
    }
  }
}

}  // namespace corvane::cli
