// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/at_command.h"

#include <charconv>

namespace modem_simulator {
namespace {

constexpr std::string_view kExtendedPrefixes = "+^$#*%!";

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsLetter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
char UpperCase(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/// Walks over the line; blanks outside quotes do not count (clause 5.2.1).
class Scanner {
 public:
  explicit Scanner(std::string_view line) : rest_(line) { SkipBlanks(); }

  [[nodiscard]] bool AtEnd() const { return rest_.empty(); }
  [[nodiscard]] char Peek() const { return rest_.empty() ? '\0' : rest_.front(); }

  char Next() {
    const char c = Peek();
    rest_.remove_prefix(1);
    SkipBlanks();
    return c;
  }

  bool Accept(char c) {
    if (Peek() != c) return false;
    Next();
    return true;
  }

  /// Up to the next quote, blanks included; nullopt when it is missing.
  std::optional<std::string> Quoted() {
    const std::size_t end = rest_.find('"');
    if (end == std::string_view::npos) return std::nullopt;
    std::string text(rest_.substr(0, end));
    rest_.remove_prefix(end + 1);
    SkipBlanks();
    return text;
  }

  /// Like Accept('"'), but keeps the blanks after it for Quoted().
  bool AcceptOpeningQuote() {
    if (Peek() != '"') return false;
    rest_.remove_prefix(1);
    return true;
  }

 private:
  void SkipBlanks() {
    while (!rest_.empty() && rest_.front() == ' ') rest_.remove_prefix(1);
  }

  std::string_view rest_;
};

/// One parameter, up to a comma, a semicolon or the end.
std::optional<std::string> ParseParameter(Scanner& in) {
  std::string value;
  while (!in.AtEnd() && in.Peek() != ',' && in.Peek() != ';') {
    if (in.AcceptOpeningQuote()) {
      auto text = in.Quoted();
      if (!text) return std::nullopt;
      value += *text;
    } else {
      value += in.Next();
    }
  }
  return value;
}

/// What follows the name of an extended command, up to and including its semicolon.
bool ParseExtendedForm(Scanner& in, AtCommand& command) {
  if (in.Accept('?')) {
    command.form = CommandForm::kRead;
  } else if (in.Accept('=')) {
    command.form = CommandForm::kSet;
    if (in.Accept('?')) {
      command.form = CommandForm::kTest;
    } else {
      do {
        auto value = ParseParameter(in);
        if (!value) return false;
        command.parameters.push_back(std::move(*value));
      } while (in.Accept(','));
    }
  }
  return in.AtEnd() || in.Accept(';');
}

std::string ParseDigits(Scanner& in) {
  std::string digits;
  while (IsDigit(in.Peek())) digits += in.Next();
  return digits;
}

/// A letter, with or without a preceding "&", and its number; or an S register and its value.
bool ParseBasic(Scanner& in, AtCommand& command) {
  if (in.Accept('&')) command.name = "&";
  if (!IsLetter(in.Peek())) return false;
  command.name += UpperCase(in.Next());
  if (command.name == "S") command.name += ParseDigits(in);
  if (command.name == "D") {  // dialling takes the rest of the line
    while (!in.AtEnd()) in.Next();
    return true;
  }
  if (in.Accept('?')) {
    command.form = CommandForm::kRead;
    return true;
  }
  in.Accept('=');
  if (std::string digits = ParseDigits(in); !digits.empty()) {
    command.form = CommandForm::kSet;
    command.parameters.push_back(std::move(digits));
  }
  in.Accept(';');
  return true;
}

bool IsNameCharacter(char c) {
  return IsLetter(c) || IsDigit(c) || c == '_' || c == '-';
}

bool ParseExtended(Scanner& in, AtCommand& command) {
  command.name = in.Next();
  while (IsNameCharacter(in.Peek())) command.name += UpperCase(in.Next());
  return command.name.size() > 1 && ParseExtendedForm(in, command);
}

}  // namespace

std::optional<int> AtCommand::Number(std::size_t index, std::optional<int> otherwise) const {
  if (index >= parameters.size() || parameters[index].empty()) return otherwise;
  const std::string& text = parameters[index];
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && value >= 0 && value <= 999999 ? std::optional(value) : std::nullopt;
}

std::optional<std::vector<AtCommand>> ParseCommands(std::string_view line) {
  std::vector<AtCommand> commands;
  Scanner in(line);
  while (!in.AtEnd()) {
    AtCommand command;
    const bool extended = kExtendedPrefixes.find(in.Peek()) != std::string_view::npos;
    if (!(extended ? ParseExtended(in, command) : ParseBasic(in, command))) return std::nullopt;
    commands.push_back(std::move(command));
  }
  return commands;
}

}  // namespace modem_simulator
