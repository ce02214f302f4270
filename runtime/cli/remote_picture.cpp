// SPDX-License-Identifier: MIT
#include "runtime/cli/remote_picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "runtime/cli/change_marks.h"
#include "runtime/cli/screen_text.h"
#include "runtime/corvane/duration.h"
#include "runtime/corvane/value_text.h"

namespace corvane::cli {
namespace {

using nlohmann::json;

constexpr std::size_t kMostSpans = 4000;  // ten minutes have 3000
constexpr double kSpanTime = 600;
constexpr std::size_t kMostModems = 64;
constexpr std::size_t kLongestName = 256;
constexpr std::size_t kLongestLine = 1000;

std::string TextOf(const json& object, const char* name, std::size_t longest) {
  return object.at(name).get_ref<const std::string&>().substr(0, longest);
}

/// Throws json::exception unless it is a whole number: to convert any other is undefined when the
/// result cannot hold it.
template <class Number>
Number WholeOf(const json& number) {
  return static_cast<Number>(number.get_ref<const json::number_integer_t&>());
}

std::string Seconds(double number) {
  constexpr double kYear = 366.0 * 86400;
  const std::chrono::duration<double> time(number >= 0 && number < kYear ? number : 0);
  return FormatDuration(std::chrono::duration_cast<Nanoseconds>(time));
}

std::string NumberText(const json& number, const std::string& type) {
  if (type == "DATE_AND_TIME") {
    if (auto date = DateText(number.get<double>())) return *std::move(date);
  }
  if (number.is_number_integer()) return number.dump();
  return fmt::format("{:.14g}", number.get<double>());  // as Lua writes it
}

/// A value as `corvane run --watch` shows it.
std::string ValueText(const json& value, const std::string& type) {
  if (value.is_boolean()) return value.get<bool>() ? "TRUE" : "FALSE";
  if (value.is_string()) return QuotedText(value.get_ref<const std::string&>());
  if (value.is_number()) return NumberText(value, type);
  if (!value.is_object()) return "-";
  if (value.contains("special")) return TextOf(value, "special", kLongestName);
  return QuotedText(TextOf(value, "text", kLongestValueText));
}

/// The least bound that 99 of 100 cycles do not exceed; the longest cycle if that is less.
double NinetyNinth(const json& histogram, double longest) {
  std::uint64_t total = 0;
  for (const json& row : histogram) total += WholeOf<std::uint64_t>(row.at(1));
  std::uint64_t seen = 0;
  for (const json& row : histogram) {
    seen += WholeOf<std::uint64_t>(row.at(1));
    if (seen < total - total / 100) continue;
    return row.at(0).is_null() ? longest : std::min(longest, row.at(0).get<double>());
  }
  return longest;
}

}  // namespace

void RemotePicture::Clear() {
  *this = RemotePicture(program_);
}

void RemotePicture::Take(const json& message, TimePoint now) {
  const auto& type = message.at("type").get_ref<const std::string&>();
  if (type == "variables") TakeVariables(message, now);
  if (type == "cycle") TakeCycle(message);
  if (type == "modem") TakeModem(message);
  if (type == "log") TakeLog(message);
}

void RemotePicture::TakeVariables(const json& message, TimePoint now) {
  truncated_ = message.contains("truncated") && message.at("truncated") == true;
  for (const json& id : message.at("remove")) nodes_.erase(WholeOf<int>(id));
  for (const json& node : message.at("add")) Add(node);
  for (const json& pair : message.at("set")) Set(WholeOf<int>(pair.at(0)), pair.at(1), now);
}

void RemotePicture::Add(const json& node) {
  if (nodes_.size() >= kMostNodes) {
    truncated_ = true;
    return;
  }
  Entry entry;
  entry.name = TextOf(node, "name", kLongestName);
  entry.type = TextOf(node, "type", kLongestName);
  entry.parent = WholeOf<int>(node.at("parent"));
  entry.is_value = node.at("kind") == "value";
  entry.is_secret = node.contains("secret") && node.at("secret") == true;
  const auto parent = nodes_.find(entry.parent);
  const std::string above = parent == nodes_.end() ? "" : parent->second.path;
  const bool is_joined = above.empty() || entry.name.starts_with('[');
  entry.path = (above + (is_joined ? "" : ".") + entry.name).substr(0, kLongestLine);
  nodes_[WholeOf<int>(node.at("id"))] = std::move(entry);
}

void RemotePicture::Set(int id, const json& value, TimePoint now) {
  const auto found = nodes_.find(id);
  if (found == nodes_.end()) return;
  Entry& entry = found->second;
  if (std::exchange(entry.is_known, true)) entry.changed = now;
  entry.value = ValueText(value, entry.type);
}

void RemotePicture::TakeCycle(const json& message) {
  for (const json& row : message.at("last")) {
    spans_.push_back({row.at(0).get<double>(), row.at(3).get<double>()});
    while (spans_.size() > kMostSpans || spans_.front().time < spans_.back().time - kSpanTime) {
      spans_.pop_front();
    }
  }
  double latest = 0;
  for (const Span& span : spans_) latest = std::max(latest, span.latest);
  const auto longest = message.at("longest").get<double>();
  const json& last = message.at("last");
  const std::string mean = last.empty() ? "-" : Seconds(last.back().at(1).get<double>());
  statistics_ = fmt::format(
      "{} cycles, {} overruns; cycle time now {} p99 {} max {}; started late at most {} in 10 min",
      WholeOf<std::uint64_t>(message.at("count")), WholeOf<std::uint64_t>(message.at("overruns")),
      mean, Seconds(NinetyNinth(message.at("histogram"), longest)), Seconds(longest),
      Seconds(latest));
}

void RemotePicture::TakeModem(const json& message) {
  const std::string port = TextOf(message, "port", kLongestName);
  if (modems_.size() >= kMostModems && !modems_.contains(port)) return;
  std::string line = fmt::format("modem {}: {}", port, TextOf(message, "status", kLongestLine));
  const std::string network = TextOf(message, "operator", kLongestName);
  if (!network.empty()) line += ", " + network;
  const json& signal = message.at("signal");
  if (signal.is_number_integer()) line += fmt::format(", {} dBm", WholeOf<int>(signal));
  modems_[port] = std::move(line);
}

void RemotePicture::TakeLog(const json& message) {
  for (const json& line : message.at("lines")) {
    const std::string level = TextOf(line, "level", kLongestName);
    log_.push_back(ScreenText(fmt::format("{:<7} {}", level, TextOf(line, "text", kLongestLine))));
    if (log_.size() > WatchPage::kOutputLines) log_.pop_front();
  }
}

std::vector<BlockState> RemotePicture::Blocks(TimePoint now) const {
  std::vector<BlockState> blocks{{0, program_, "variables", {}}};
  std::map<int, std::size_t> places{{0, 0}};
  for (const auto& [id, entry] : nodes_) {
    if (!entry.is_value) {
      places[id] = blocks.size();
      blocks.push_back({id, entry.path, entry.type, {}});
      continue;
    }
    const auto place = places.find(entry.parent);
    if (place == places.end()) continue;
    const bool changed =
        entry.changed != TimePoint::min() && now - entry.changed < ChangeMarks::kLately;
    blocks[place->second].variables.push_back(
        {entry.name, entry.is_secret ? kHiddenValue : entry.value, changed});
  }
  // Tables of blocks and tables have no variables of their own.
  std::erase_if(blocks, [](const BlockState& block) {
    return block.variables.empty() && (block.type == "table" || block.type == "variables");
  });
  return blocks;
}

std::shared_ptr<WatchPicture> RemotePicture::Get(TimePoint now) const {
  auto picture = std::make_shared<WatchPicture>();
  picture->statistics = statistics_;
  if (truncated_) picture->statistics += "; there are more variables than can be shown";
  for (const auto& [port, line] : modems_) picture->modems.push_back(line);
  picture->blocks = Blocks(now);
  picture->output.assign(log_.begin(), log_.end());
  return picture;
}

}  // namespace corvane::cli
