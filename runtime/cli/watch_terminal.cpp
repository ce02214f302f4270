// SPDX-License-Identifier: MIT
#include "runtime/cli/watch_terminal.h"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <utility>

namespace corvane::cli {
namespace {

constexpr std::chrono::milliseconds kEscapeTime(50);  // for the rest of a sequence to arrive
constexpr std::chrono::milliseconds kPatienceWithLines(300);  // those that stay on the terminal

}  // namespace

std::string TerminalProblem(const std::string& option) {
  if (isatty(STDOUT_FILENO) == 0) return option + " needs a terminal as standard output";
  if (!TerminalDescription::Of(STDOUT_FILENO)) {
    const char* name = std::getenv("TERM");
    return option + " cannot use a terminal of the type '" + (name ? name : "") + "' (TERM)";
  }
  return {};
}

WatchTerminal::WatchTerminal(WatchTexts texts)
    : description_(TerminalDescription::Of(STDOUT_FILENO).value()),
      guard_(STDOUT_FILENO, description_),
      screen_(guard_, description_),
      keys_(description_.keys),
      page_(std::move(texts)) {}

void WatchTerminal::Show(const std::shared_ptr<const WatchPicture>& picture) {
  if (screen_.Busy()) return;
  const auto size = screen_.size();
  screen_.Show(page_.Lines(picture, size), size);
}

WatchTerminal::Events WatchTerminal::Wait(int other) {
  const auto wanted = static_cast<short>(POLLIN | (screen_.Busy() ? POLLOUT : 0));
  // A terminal that has gone would always be ready.
  std::array<pollfd, 2> events{{{other, POLLIN, 0}, {gone_ ? -1 : guard_.descriptor(), wanted, 0}}};
  const auto limit = keys_.Waiting() ? kEscapeTime : kRefresh;
  const int ready = poll(events.data(), events.size(), static_cast<int>(limit.count()));
  if ((events[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) gone_ = true;
  bool end = false;
  if (ready == 0) end = Press(keys_.TimeOut());
  if ((events[1].revents & POLLIN) != 0) end = Press(keys_.Take(screen_.Read())) || end;
  screen_.Write();
  return {events[0].revents != 0, end, gone_};
}

/// @return whether they ask for the end
bool WatchTerminal::Press(const std::vector<KeyPress>& keys) {
  bool end = false;
  for (const KeyPress& key : keys) {
    switch (page_.Press(key)) {
      case WatchPage::Wish::kNothing: break;
      case WatchPage::Wish::kEnd: end = true; break;
      case WatchPage::Wish::kRedraw: screen_.Forget(); break;
    }
  }
  return end;
}

bool WatchTerminal::Leave(std::string_view text) {
  return guard_.Leave() && guard_.Write(text, kPatienceWithLines);
}

}  // namespace corvane::cli
