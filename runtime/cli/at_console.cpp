// SPDX-License-Identifier: MIT
#include "runtime/cli/at_console.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "libs/base/printable.h"
#include "runtime/cli/at_input.h"
#include "runtime/cli/terminal_guard.h"
#include "runtime/modem_driver/ascii.h"
#include "runtime/modem_driver/line_kind.h"
#include "runtime/modem_driver/modem_request.h"

namespace corvane::cli {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr milliseconds kTick(30);  // between two looks at the input
constexpr milliseconds kWriteTime(2000);
constexpr seconds kCommandTime(30);
constexpr seconds kNetworkTime(180);
constexpr std::size_t kMostLine = 2048;
constexpr char kEndOfInput = '\x04';
constexpr std::string_view kPrompt = "at> ";
constexpr std::string_view kTextPrompt = "text> ";

/// Without the blanks and control characters (ESC, Ctrl-Z) at both ends.
std::string_view Visible(std::string_view line) {
  const auto is_visible = [](char c) { return static_cast<unsigned char>(c) > ' '; };
  while (!line.empty() && !is_visible(line.front())) line.remove_prefix(1);
  while (!line.empty() && !is_visible(line.back())) line.remove_suffix(1);
  return line;
}

/// The lines that are shown, above the one that is typed if there is a terminal.
class Screen {
 public:
  explicit Screen(std::optional<TerminalDescription> terminal) : terminal_(std::move(terminal)) {}

  void Print(std::string_view line) {
    if (terminal_) fmt::print("\r{}", terminal_->clear_to_line_end);
    fmt::print("{}\n", line);
    Draw();
  }
  void SetInput(std::string_view prompt, std::string_view typed) {
    prompt_ = prompt;
    typed_ = Printable(typed);
    Draw();
  }

 private:
  void Draw() const {
    if (terminal_) {
      fmt::print("\r{}{}{}", prompt_, End(), terminal_->clear_to_line_end);
    }
    std::fflush(stdout);
  }
  /// As much of what is typed as one row holds: a longer one would scroll at each key.
  [[nodiscard]] std::string_view End() const {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    const std::size_t width = known ? size.ws_col : 80;
    const std::size_t room = width > prompt_.size() + 1 ? width - prompt_.size() - 1 : 1;
    std::string_view end = typed_;
    if (end.size() > room) end.remove_prefix(end.size() - room);
    while (!end.empty() && (static_cast<unsigned char>(end.front()) & 0xC0U) == 0x80U) {
      end.remove_prefix(1);
    }
    return end;
  }

  std::optional<TerminalDescription> terminal_;
  std::string prompt_;
  std::string typed_;
};

class AtConsole {
 public:
  AtConsole(std::unique_ptr<SerialLine> line, std::optional<TerminalDescription> terminal)
      : line_(std::move(line)),
        interactive_(terminal.has_value()),
        keys_(terminal ? terminal->keys : std::vector<KeySequence>()),
        screen_(std::move(terminal)) {}

  std::string Run() {
    ShowInput();
    while (!ended_ || Waits()) {
      TakeFromModem(line_->Read(steady_clock::now() + kTick));
      if (!line_->loss().empty()) return line_->loss();
      CheckTime();
      if (!ended_ && (interactive_ || !Waits())) TakeInput();
    }
    return {};
  }

 private:
  /// An answer is still to come, for which input that is not typed waits.
  [[nodiscard]] bool Waits() const { return waits_ && !(interactive_ && ended_); }

  void TakeInput() {
    if (interactive_ || rest_.find('\n') == rest_.npos) ReadInput();
    if (interactive_) {
      TakeKeys();
    } else {
      TakeLine();
    }
  }

  void ReadInput() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (input_ended_ || poll(&input, 1, 0) <= 0) return;
    std::array<char, 4096> room{};
    const ssize_t count = read(STDIN_FILENO, room.data(), room.size());
    if (count > 0) rest_.append(room.data(), static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) input_ended_ = true;
  }

  void TakeKeys() {
    std::string octets = std::exchange(rest_, {});
    if (octets.empty() && keys_.Waiting()) TakeKeys(keys_.TimeOut());
    while (!octets.empty() && !ended_) {
      const std::size_t end = std::min(octets.find(kEndOfInput), octets.size());
      TakeKeys(keys_.Take(std::string_view(octets).substr(0, end)));
      ended_ = ended_ || (end < octets.size() && input_.empty());
      octets.erase(0, end + 1);
    }
    ended_ = ended_ || input_ended_;
  }

  void TakeKeys(const std::vector<KeyPress>& keys) {
    for (const KeyPress& key : keys) {
      const std::string shown = input_.Shown();
      if (const auto line = input_.Take(key)) {
        screen_.Print(Prompt() + Printable(shown));
        Enter(*line);
      }
    }
    if (!keys.empty()) ShowInput();
  }

  void TakeLine() {
    const std::size_t end = rest_.find('\n');
    if (end == rest_.npos && !input_ended_) return;
    if (rest_.empty()) {
      ended_ = true;
      return;
    }
    std::string line = rest_.substr(0, end);
    rest_.erase(0, end == rest_.npos ? end : end + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    screen_.Print(Prompt() + Printable(text_ ? line : Masked(line)));
    Enter(line);
  }

  [[nodiscard]] std::string Prompt() const { return std::string(text_ ? kTextPrompt : kPrompt); }
  void ShowInput() { screen_.SetInput(Prompt(), input_.Shown()); }

  void Enter(const std::string& line) {
    if (text_) {
      SendText(line);
    } else if (line == "quit" || line == "exit") {
      ended_ = true;
    } else if (!line.empty()) {
      request_ = ModemRequest(line + "\r");
      Send(request_.octets, kCommandTime);
    }
  }

  void SendText(const std::string& text) {
    SetText(false);
    request_ = ModemRequest(text + kCtrlZ);
    if (text.empty()) {
      Send(kLeavePrompt, kCommandTime);
    } else {
      Send(request_.octets, kNetworkTime);
    }
  }

  void Send(std::string_view octets, seconds time) {
    waits_ = true;
    until_ = steady_clock::now() + time;
    if (!line_->Write(octets, steady_clock::now() + kWriteTime)) {
      waits_ = false;
      screen_.Print("(the modem does not accept it)");
    }
  }

  void CheckTime() {
    if (!waits_ || steady_clock::now() < until_) return;
    waits_ = false;
    screen_.Print("(no answer)");
  }

  void TakeFromModem(std::string_view octets) {
    for (const char c : octets) {
      if (c == '\r' || c == '\n') {
        ShowLine(std::exchange(received_, {}));
      } else if (c == '>' && received_.empty() && request_.kind == RequestKind::kAnnouncement) {
        waits_ = false;
        SetText(true);
        ShowInput();
      } else if (c != '\0' && received_.size() < kMostLine) {
        received_ += c;
      }
    }
  }

  void SetText(bool text) {
    text_ = text;
    input_.ExpectText(text);
  }

  void ShowLine(const std::string& line) {
    const std::string_view visible = Visible(line);
    // An echo that cannot be switched off would show a PIN.
    if (visible.empty() || visible == Visible(request_.octets)) return;
    if (IsFinal(KindOfLine(line))) {
      waits_ = false;
      if (text_) {  // the modem has left the prompt
        SetText(false);
        ShowInput();
      }
    }
    screen_.Print(Printable(request_.WithoutPin(line)));
  }

  std::unique_ptr<SerialLine> line_;
  bool interactive_;
  KeyDecoder keys_;
  Screen screen_;
  AtInput input_;
  ModemRequest request_{"\r"};  // the last one
  std::string rest_;            // of the input
  std::string received_;        // of a line from the modem
  bool text_ = false;           // the modem waits for the text of a message
  bool waits_ = false;
  bool input_ended_ = false;
  bool ended_ = false;
  SteadyTime until_;
};

}  // namespace

std::string RunAtConsole(std::unique_ptr<SerialLine> line) {
  const bool both = isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
  auto terminal = both ? TerminalDescription::Of(STDOUT_FILENO) : std::nullopt;
  if (!terminal) return AtConsole(std::move(line), std::nullopt).Run();
  terminal->leave = "\r\n";  // lines stay on the screen
  const TerminalGuard guard(STDIN_FILENO, *terminal);
  return AtConsole(std::move(line), std::move(terminal)).Run();
}

}  // namespace corvane::cli
