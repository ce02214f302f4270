// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/console.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <utility>

#include "libs/gsm/hexadecimal.h"
#include "runtime/corvane/duration.h"
#include "runtime/modem_simulator/readable.h"

namespace modem_simulator {
namespace {

using Action = Controls::Action;

std::string_view TrimLeft(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  return text;
}

/// Removes the first word; the rest begins with the next one.
std::string_view TakeWord(std::string_view& text) {
  const std::string_view word = text.substr(0, text.find_first_of(" \t"));
  text = TrimLeft(text.substr(word.size()));
  return word;
}

ConsoleLine Act(Action action) {
  return {std::move(action), {}};
}
ConsoleLine Wrong(std::string error) {
  return {nullptr, std::move(error)};
}

std::optional<int> Number(std::string_view text, int lowest, int highest) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool whole = error == std::errc() && end == text.data() + text.size();
  return whole && value >= lowest && value <= highest ? std::optional(value) : std::nullopt;
}

/// `action` with the duration that is all of `text`.
ConsoleLine WithDuration(std::string_view text,
                         std::function<void(Controls&, Controls::Duration)> action) {
  const auto duration = corvane::ParseDuration(text);
  if (!duration) {
    return Wrong(fmt::format("'{}' is not a duration; write one such as 500ms, 2s or 1min", text));
  }
  return Act(
      [duration, action = std::move(action)](Controls& controls) { action(controls, *duration); });
}

/// `action` with the bytes that `text` describes.
ConsoleLine WithText(std::string_view text,
                     std::function<void(Controls&, const std::string&)> action) {
  auto plain = Unescape(text);
  if (!plain) return Wrong("a backslash must begin \\r \\n \\t \\\\ or \\xNN");
  return Act([plain = std::move(*plain), action = std::move(action)](Controls& controls) {
    action(controls, plain);
  });
}

std::string WrongSender(std::string_view sender) {
  return fmt::format(
      "'{}' is not a sender; write a number such as +4915112345678, or a name of at most 11 "
      "letters",
      sender);
}

ConsoleLine Receive(std::string_view rest) {
  const std::string sender(TakeWord(rest));
  if (!gsm::IsAddress(sender)) return Wrong(WrongSender(sender));
  const auto text = Unescape(rest);
  if (text && !gsm::SplitText(*text, {0, true})) {
    return Wrong("the text is not valid UTF-8, or too long for 255 parts");
  }
  return WithText(rest, [sender](Controls& controls, const std::string& plain) {
    // Sender and text are valid: this was checked when the line was read.
    static_cast<void>(controls.modem().Receive(sender, plain));
  });
}

/// "3,1,2"; nullopt if it is anything else.
std::optional<std::vector<std::size_t>> OrderOf(std::string_view text) {
  std::vector<std::size_t> order;
  for (;;) {
    const std::size_t end = std::min(text.find(','), text.size());
    const auto number = Number(text.substr(0, end), 1, 255);
    if (!number || order.size() >= 255) return std::nullopt;
    order.push_back(static_cast<std::size_t>(*number));
    if (end == text.size()) return order;
    text.remove_prefix(end + 1);
  }
}

ConsoleLine Parts(std::string_view rest) {
  const auto order = OrderOf(TakeWord(rest));
  if (!order) return Wrong("write the numbers of the parts in the order in which they arrive: 3,1");
  const std::string sender(TakeWord(rest));
  if (!gsm::IsAddress(sender)) return Wrong(WrongSender(sender));
  return WithText(rest, [sender, order](Controls& controls, const std::string& plain) {
    if (!controls.modem().ReceiveInOrder(sender, plain, *order)) {
      controls.Print("parts: the text is not valid UTF-8, too long, or has fewer parts");
    }
  });
}

ConsoleLine Store(std::string_view rest) {
  struct Row {
    std::string_view name;
    MessageStatus status;
  };
  constexpr std::array kStates{
      Row{"unread", MessageStatus::kUnread}, Row{"read", MessageStatus::kRead},
      Row{"unsent", MessageStatus::kUnsent}, Row{"sent", MessageStatus::kSent}};
  const std::string_view state = TakeWord(rest);
  const auto row = std::find_if(kStates.begin(), kStates.end(),
                                [state](const Row& r) { return r.name == state; });
  if (row == kStates.end()) return Wrong("write unread, read, unsent or sent");
  const std::string number(TakeWord(rest));
  if (!gsm::IsAddress(number)) return Wrong(WrongSender(number));
  return WithText(
      rest, [number, status = row->status](Controls& controls, const std::string& plain) {
        if (!controls.modem().Store(status, number, plain)) {
          controls.Print("store: the store is full, or the text is not valid UTF-8 or too long");
        }
      });
}

ConsoleLine Fill(std::string_view) {
  return Act([](Controls& controls) { controls.modem().FillStore(); });
}

/// A status of a report (3GPP TS 23.040 clause 9.2.3.15): a word, or its number.
std::optional<std::uint8_t> ReportStatus(std::string_view word) {
  if (word == "delivered") return 0x00;
  if (word == "trying") return 0x21;  // "SME busy"; the service centre goes on
  if (word == "failed") return 0x46;  // "SM validity period expired"
  const auto number = Number(word, 0, 0xFF);
  return number ? std::optional(static_cast<std::uint8_t>(*number)) : std::nullopt;
}

ConsoleLine Reports(std::string_view rest) {
  ReportPlan plan;
  if (!rest.empty() && !rest.starts_with("after")) {
    const std::string_view word = TakeWord(rest);
    plan.status = ReportStatus(word);
    if (!plan.status && word != "never") {
      return Wrong("write delivered, failed, trying, never, or a status from 0 to 255");
    }
  }
  if (rest.empty()) return Act([plan](Controls& controls) { controls.modem().SetReports(plan); });
  if (TakeWord(rest) != "after") return Wrong("after the status comes after TIME, or nothing");
  return WithDuration(rest, [plan](Controls& controls, Controls::Duration delay) {
    controls.modem().SetReports({plan.status, delay});
  });
}

ConsoleLine ReceiveBinary(std::string_view rest) {
  const std::string sender(TakeWord(rest));
  if (!gsm::IsAddress(sender)) return Wrong(WrongSender(sender));
  const auto octets = gsm::FromHexadecimal(rest);
  if (!octets || !gsm::SplitOctets(*octets, {0, true})) {
    return Wrong("the data is not pairs of hexadecimal digits, or too long for 255 parts");
  }
  return Act([sender, octets = *octets](Controls& controls) {
    static_cast<void>(controls.modem().ReceiveOctets(sender, octets));
  });
}

ConsoleLine ReceivePdu(std::string_view rest) {
  const auto octets = gsm::FromHexadecimal(rest);
  if (!octets) return Wrong("the PDU is not pairs of hexadecimal digits");
  return Act([octets = *octets](Controls& controls) { controls.modem().ReceivePdu(octets); });
}

/// "321", "cme:14", "error".
std::optional<Result> FailureNamed(std::string_view text) {
  if (text == "error") return kError;
  const bool cme = text.starts_with("cme:");
  const auto number = Number(cme ? text.substr(4) : text, 0, 65535);
  if (!number) return std::nullopt;
  return cme ? Cme(*number) : Cms(*number);
}

/// A command as faults name it: in upper case, without AT and plus sign.
std::string FaultyCommand(std::string_view word) {
  std::string name(word);
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
  if (name.starts_with("AT+")) name.erase(0, 2);
  if (name.starts_with('+')) name.erase(0, 1);
  return name;
}

ConsoleLine Fail(std::string_view rest) {
  const auto failure = FailureNamed(TakeWord(rest));
  if (!failure) return Wrong("write the number of a +CMS ERROR, such as 321, or cme:14, or error");
  const std::string_view word = TakeWord(rest);
  const std::string command = word.empty() ? std::string(kAnyCommand) : FaultyCommand(word);
  constexpr std::array<std::string_view, 7> kTransfers{kAnyCommand, "CMGS", "CMSS", "CMGW",
                                                       "CMGL",      "CMGR", "CMGD"};
  if (std::find(kTransfers.begin(), kTransfers.end(), command) == kTransfers.end()) {
    return Wrong(
        fmt::format("'{}' cannot fail; write CMGS, CMSS, CMGW, CMGL, CMGR, CMGD or *", word));
  }
  const auto times = rest.empty() ? 1 : Number(rest, 1, 1000000);
  if (!times) return Wrong(fmt::format("'{}' is not a number of times", rest));
  return Act([failure, command, times](Controls& controls) {
    if (!controls.modem().faults().Fail(*failure, command, *times)) {
      controls.Print("too many faults are waiting");
    }
  });
}

ConsoleLine AnswerWith(std::string_view rest) {
  const std::string command = FaultyCommand(TakeWord(rest));
  if (command.empty()) return Wrong("write a command such as +CMGF, or PDU, or *, and a text");
  return WithText(rest, [command](Controls& controls, const std::string& bytes) {
    if (!controls.modem().faults().Answer(command, bytes)) {
      controls.Print("too many answers are waiting");
    }
  });
}

ConsoleLine Interrupt(std::string_view rest) {
  return WithText(rest, [](Controls& controls, const std::string& line) {
    controls.modem().faults().Interrupt(line);
  });
}

ConsoleLine Unsolicited(std::string_view rest) {
  return WithText(rest, [](Controls& controls, const std::string& line) {
    controls.modem().SendUnsolicited(line);
  });
}

ConsoleLine Garbage(std::string_view rest) {
  const auto count = rest.empty() ? 20 : Number(rest, 1, 1000000);
  if (!count) return Wrong(fmt::format("'{}' is not a number of bytes from 1 to 1000000", rest));
  return Act([count](Controls& controls) { controls.SendGarbage(*count); });
}

ConsoleLine Mute(std::string_view rest) {
  return WithDuration(rest, [](Controls& c, Controls::Duration duration) { c.Mute(duration); });
}

ConsoleLine Hold(std::string_view rest) {
  return WithDuration(rest, [](Controls& c, Controls::Duration duration) { c.Hold(duration); });
}

ConsoleLine Unplug(std::string_view rest) {
  return WithDuration(rest, [](Controls& c, Controls::Duration duration) { c.Unplug(duration); });
}

ConsoleLine Delay(std::string_view rest) {
  const std::string_view duration = TakeWord(rest);
  const DelayRow* row = FindDelay(rest.empty() ? "network" : rest);
  if (row == nullptr) {
    return Wrong(
        fmt::format("'{}' cannot be delayed; write network, prompt, list or delete", rest));
  }
  return WithDuration(duration, [field = row->field](Controls& controls, Controls::Duration time) {
    controls.modem().delays().*field = time;
  });
}

ConsoleLine Restart(std::string_view) {
  return Act([](Controls& controls) { controls.Restart(); });
}

ConsoleLine Signal(std::string_view rest) {
  const auto signal = Number(rest, 0, 99);
  if (!signal || (*signal > 31 && *signal != 99)) {
    return Wrong("write a signal from 0 to 31, or 99 for none");
  }
  return Act([signal](Controls& controls) { controls.modem().SetSignal(*signal); });
}

ConsoleLine Network(std::string_view rest) {
  if (rest != "on" && rest != "off") return Wrong("write network on or network off");
  return Act([on = rest == "on"](Controls& controls) { controls.modem().SetRegistered(on); });
}

ConsoleLine NoCoverage(std::string_view rest) {
  if (TakeWord(rest) != "coverage") return Wrong("write no coverage and a time");
  return WithDuration(rest, [](Controls& controls, Controls::Duration duration) {
    controls.modem().BeginCoverageGap();
    controls.After(duration, [](Controls& later) { later.modem().EndCoverageGap(); });
  });
}

ConsoleLine Sim(std::string_view rest) {
  if (rest != "in" && rest != "out") return Wrong("write sim out or sim in");
  return Act([in = rest == "in"](Controls& controls) { controls.modem().SetSimInserted(in); });
}

ConsoleLine Time(std::string_view rest) {
  if (rest == "now") return Act([](Controls& controls) { controls.SetTime(std::nullopt); });
  const auto time = gsm::ParseTimeStamp(rest);
  if (!time) {
    return Wrong(fmt::format("'{}' is not a time; write 2026-01-31T12:00:00+01:00 or now", rest));
  }
  return Act([time](Controls& controls) { controls.SetTime(time); });
}

ConsoleLine After(std::string_view rest) {
  const std::string_view word = TakeWord(rest);
  if (rest.starts_with("after")) return Wrong("a line can have only one after");
  auto inner = ParseConsoleLine(rest);
  if (!inner.error.empty()) return inner;
  if (!inner.action) return Wrong("write what to do after the time");
  return WithDuration(word, [action = inner.action](Controls& controls, Controls::Duration delay) {
    controls.After(delay, action);
  });
}

ConsoleLine List(std::string_view) {
  return Act([](Controls& controls) {
    for (const std::string& line : controls.modem().Describe()) controls.Print(line);
  });
}

ConsoleLine Help(std::string_view) {
  return Act([](Controls& controls) { controls.Print(ConsoleHelp()); });
}

ConsoleLine Quit(std::string_view) {
  return Act([](Controls& controls) { controls.Quit(); });
}

struct Command {
  std::string_view name;
  std::string_view usage;
  std::string_view meaning;
  ConsoleLine (*parse)(std::string_view rest);
};

constexpr std::array kConsoleCommands{
    Command{"receive", "NUMBER TEXT", "a message arrives; long ones in parts", Receive},
    Command{"binary", "NUMBER HEX", "8-bit data arrives", ReceiveBinary},
    Command{"pdu", "[HEX]", "a PDU arrives unchanged, valid or not", ReceivePdu},
    Command{"parts", "ORDER NUMBER TEXT", "its parts arrive in this order: 3,1,1", Parts},
    Command{"store", "STATE NUMBER TEXT", "is in the store: (un)read, (un)sent", Store},
    Command{"fill", "", "old messages fill the store", Fill},
    Command{"report", "[STATUS] [after TIME]", "delivered, failed, trying, never, N", Reports},
    Command{"list", "", "show the store", List},
    Command{"after", "TIME COMMAND", "carry out COMMAND later", After},
    Command{"fail", "N [CMGS] [TIMES]", "fail a transfer: +CMS ERROR: N (or cme:N, error)", Fail},
    Command{"mute", "TIME", "hear nothing and send nothing", Mute},
    Command{"hold", "TIME", "hold all output back, then send it", Hold},
    Command{"unplug", "TIME", "disappear, then return under the same name", Unplug},
    Command{"restart", "", "lose the settings, as after a reset", Restart},
    Command{"unsolicited", "TEXT", "send an unsolicited line at once", Unsolicited},
    Command{"interrupt", "TEXT", "send TEXT in the middle of the next listed PDU", Interrupt},
    Command{"garbage", "[COUNT]", "send random bytes at once", Garbage},
    Command{"answer", "COMMAND TEXT", "answer the next +COMMAND (PDU, *) with TEXT", AnswerWith},
    Command{"delay", "TIME [WHAT]", "set the delay of network, prompt, list or delete", Delay},
    Command{"network", "on|off", "registered with a network, or not", Network},
    Command{"no", "coverage TIME", "no network for this time", NoCoverage},
    Command{"sim", "out|in", "the SIM card is taken out, or put in", Sim},
    Command{"signal", "0..31|99", "the signal that AT+CSQ shows", Signal},
    Command{"time", "TIME|now", "the service centre's clock", Time},
    Command{"help", "", "this list", Help},
    Command{"quit", "", "end", Quit},
};

}  // namespace

ConsoleLine ParseConsoleLine(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  std::string_view rest = TrimLeft(line);
  if (rest.empty() || rest.starts_with('#')) return {};
  const std::string_view name = TakeWord(rest);
  const auto command = std::find_if(kConsoleCommands.begin(), kConsoleCommands.end(),
                                    [name](const Command& c) { return c.name == name; });
  if (command == kConsoleCommands.end()) {
    return Wrong(fmt::format("'{}' is not a command; help lists them all", Escape(name)));
  }
  if (command->usage.empty() && !rest.empty()) {
    return Wrong(fmt::format("{} takes no arguments", command->name));
  }
  ConsoleLine parsed = command->parse(rest);
  if (!parsed.error.empty() && command->parse != After) {
    parsed.error += fmt::format(" ({} {})", command->name, command->usage);
  }
  return parsed;
}

std::string ConsoleHelp() {
  std::string help;
  for (const Command& command : kConsoleCommands) {
    help += fmt::format("{}  {:<29}{}", help.empty() ? "" : "\n",
                        fmt::format("{} {}", command.name, command.usage), command.meaning);
  }
  return help;
}

}  // namespace modem_simulator
