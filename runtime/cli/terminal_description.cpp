// SPDX-License-Identifier: MIT
#include "runtime/cli/terminal_description.h"

#define NCURSES_NOMACROS
#include <curses.h>
// After curses.h, on which it depends.
#include <term.h>

#include <array>
#include <utility>

namespace corvane::cli {
namespace {

/// Padding in terminfo is "$<5>" or "$<5*/>": a number of milliseconds.
std::string WithoutPadding(std::string text) {
  for (std::size_t at = 0; (at = text.find("$<", at)) != std::string::npos;) {
    const std::size_t end = text.find('>', at);
    if (end == std::string::npos) break;
    text.erase(at, end + 1 - at);
  }
  return text;
}

/// Empty where the type does not have it.
std::string Capability(const char* name) {
  const char* octets = tigetstr(name);
  // Null: unknown; -1: not a string capability.
  // NOLINTNEXTLINE(performance-no-int-to-ptr): that is how the library reports it
  const bool known = octets != nullptr && octets != reinterpret_cast<const char*>(-1);
  return known ? WithoutPadding(octets) : std::string();
}

std::string Joined(std::initializer_list<const char*> names) {
  std::string text;
  for (const char* name : names) text += Capability(name);
  return text;
}

int Number(const char* name, int otherwise) {
  const int number = tigetnum(name);
  return number > 0 ? number : otherwise;
}

std::vector<KeySequence> Keys() {
  constexpr std::array<std::pair<const char*, Key>, 6> kNames{{{"kcuu1", Key::kUp},
                                                               {"kcud1", Key::kDown},
                                                               {"kpp", Key::kPageUp},
                                                               {"knp", Key::kPageDown},
                                                               {"khome", Key::kHome},
                                                               {"kend", Key::kEnd}}};
  std::vector<KeySequence> keys;
  for (const auto& [name, key] : kNames) {
    // A single octet would be a control character, such as the line feed, which is also Enter.
    if (const std::string octets = Capability(name); octets.size() > 1) {
      keys.push_back({octets, key});
    }
  }
  return keys;
}

}  // namespace

std::optional<TerminalDescription> TerminalDescription::Of(int terminal) {
  int error = 0;
  if (setupterm(nullptr, terminal, &error) != OK) return std::nullopt;
  TerminalDescription description;
  description.clear = Capability("clear");
  description.clear_to_line_end = Capability("el");
  description.normal = Capability("sgr0");
  description.bold = Capability("bold");
  description.reverse = Capability("rev");
  description.underline = Capability("smul");
  description.address = Capability("cup");
  description.enter = Joined({"smcup", "smkx", "civis", "rmam"});
  // If there is no alternate screen to leave, erase what we have drawn.
  const std::string leave_screen = Capability("rmcup");
  description.leave = Joined({"sgr0", "rmkx", "smam", "cnorm"}) +
                      (leave_screen.empty() ? description.clear : leave_screen);
  description.height = Number("lines", description.height);
  description.width = Number("cols", description.width);
  description.keys = Keys();
  del_curterm(cur_term);
  const bool able = !description.clear.empty() && !description.clear_to_line_end.empty() &&
                    !description.address.empty();
  return able ? std::optional(std::move(description)) : std::nullopt;
}

std::string TerminalDescription::To(int row, int column) const {
  const char* octets = tiparm(address.c_str(), row, column);
  return octets == nullptr ? std::string() : octets;
}

}  // namespace corvane::cli
