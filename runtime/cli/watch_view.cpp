// SPDX-License-Identifier: MIT
#include "runtime/cli/watch_view.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <csignal>
#include <utility>

namespace corvane::cli {
namespace {

/// The PLC task handles the signals that ask the runtime for something.
void LeaveSignalsToOthers() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace

WatchView::WatchView(std::string program)
    : terminal_({.program = std::move(program)}), wake_(eventfd(0, EFD_CLOEXEC)) {
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
  if (!terminal_.Leave(output_.LastText())) output_.Keep();
}

void WatchView::Update(const CycleStatistics& statistics) {
  const auto now = std::chrono::steady_clock::now();
  if (now - taken_ < WatchTerminal::kRefresh) return;
  taken_ = now;
  auto picture = std::make_shared<WatchPicture>();
  picture->statistics = statistics.Summary();
  if (modems_ != nullptr) picture->modems = modems_->Status();
  if (observer_) picture->blocks = observer_->Read();
  const std::lock_guard guard(mutex_);
  picture_ = std::move(picture);
}

void WatchView::Draw() {
  WatchTerminal::Events events;
  do {
    Show();
    events = terminal_.Wait(wake_.get());
    if (events.end) kill(getpid(), SIGINT);  // as Ctrl-C: after the cycle
  } while (!events.other);
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
  terminal_.Show(picture);
}

}  // namespace corvane::cli
