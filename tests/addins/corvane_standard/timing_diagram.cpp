// SPDX-License-Identifier: MIT
#include "tests/addins/corvane_standard/timing_diagram.h"

#include <cctype>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

namespace test_support {
namespace {

constexpr const char* kFalse = "▁";
constexpr const char* kTrue = "█";

/// The characters of a text in UTF-8.
std::vector<std::string> Characters(const std::string& text) {
  std::vector<std::string> characters;
  for (const char octet : text) {
    if ((static_cast<unsigned char>(octet) & 0xC0) != 0x80) characters.emplace_back();
    if (characters.empty()) throw std::invalid_argument("not UTF-8: " + text);
    characters.back() += octet;
  }
  return characters;
}

/// Numbers above the columns are where they say.
void CheckCount(const std::string& line, std::size_t first_column) {
  static const std::regex number("\\d+");
  for (std::sregex_iterator found(line.begin(), line.end(), number), end; found != end; ++found) {
    const auto column = static_cast<std::size_t>(found->position()) - first_column;
    if (std::stoul(found->str()) != column) {
      throw std::invalid_argument(found->str() + " is above column " + std::to_string(column));
    }
  }
}

std::string LuaValue(const std::string& cell) {
  if (cell == kFalse) return "false";
  if (cell == kTrue) return "true";
  if (cell.size() == 1 && std::isdigit(static_cast<unsigned char>(cell[0])) != 0) return cell;
  throw std::invalid_argument("not a cell: " + cell);
}

std::string Cell(const std::string& value) {
  if (value == "false") return kFalse;
  if (value == "true") return kTrue;
  return value.size() == 1 ? value : "(" + value + ")";
}

}  // namespace

TimingDiagram TimingDiagram::Read(const std::string& text) {
  static const std::regex title(R"(([A-Z_]+)((?:, \w+ = [^,;]+)*); a column is ([\d.]+) (m?s|h))");
  static const std::regex row(R"((\w+)( +)(\S+))");
  TimingDiagram diagram;
  diagram.text = text;
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);
  std::smatch found;
  if (!std::regex_match(line, found, title)) throw std::invalid_argument("not a title: " + line);
  diagram.type = found[1];
  const std::string initial = found[2];
  diagram.initial = "{" + (initial.empty() ? "" : initial.substr(2)) + "}";
  diagram.step = std::stod(found[3]) * (found[4] == "ms" ? 0.001 : found[4] == "h" ? 3600 : 1);
  std::string count;
  std::set<std::size_t> columns;
  std::set<std::size_t> begins;
  while (std::getline(lines, line)) {
    if (line.starts_with(' ')) {
      count = line;
    } else if (std::regex_match(line, found, row)) {
      diagram.rows.push_back({found[1], Characters(found[3])});
      columns.insert(diagram.rows.back().cells.size());
      begins.insert(static_cast<std::size_t>(found.position(3)));
    } else {
      throw std::invalid_argument("not a row: " + line);
    }
  }
  if (columns.size() != 1) throw std::invalid_argument("rows of different lengths: " + text);
  if (begins.size() != 1) throw std::invalid_argument("rows that are not aligned: " + text);
  CheckCount(count, *begins.begin());
  return diagram;
}

std::string Replay(LuaHost& host, const TimingDiagram& diagram, const SetTime& set_time) {
  const std::string initial = diagram.initial;
  host.Run("fb = " + diagram.type + ".new" + initial);
  std::vector<TimingDiagram::Row> seen = diagram.rows;
  std::set<std::string> outputs;
  for (const TimingDiagram::Row& row : diagram.rows) {
    const bool is_input =
        host.Eval("pcall(function() fb." + row.name + " = fb." + row.name + " end)") == "true";
    if (!is_input) outputs.insert(row.name);
  }
  for (std::size_t column = 0; column < diagram.rows.at(0).cells.size(); ++column) {
    set_time(static_cast<double>(column) * diagram.step);
    for (const TimingDiagram::Row& row : diagram.rows) {
      if (outputs.contains(row.name)) continue;
      host.Run("fb." + row.name + " = " + LuaValue(row.cells[column]));
    }
    host.Run("fb()");
    for (TimingDiagram::Row& row : seen) {
      std::string& cell = row.cells[column];
      if (outputs.contains(row.name) && cell != "?") cell = Cell(host.Eval("fb." + row.name));
    }
  }
  // As it was read, so that the two can be compared as texts.
  std::string result = diagram.text;
  for (std::size_t i = 0; i < seen.size(); ++i) {
    std::string before;
    std::string after;
    for (const std::string& cell : diagram.rows[i].cells) before += cell;
    for (const std::string& cell : seen[i].cells) after += cell;
    const std::size_t line = result.find("\n" + seen[i].name + " ") + 1;
    result.replace(result.find(before, line), before.size(), after);
  }
  return result;
}

std::vector<TimingDiagram> DiagramsOf(const std::string& page) {
  std::ifstream file(page);
  if (!file) throw std::invalid_argument("cannot read " + page);
  std::stringstream content;
  content << file.rdbuf();
  const std::string text = content.str();
  const std::string begin = "```timing\n";
  std::vector<TimingDiagram> diagrams;
  for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at + 1)) {
    const std::size_t first = at + begin.size();
    diagrams.push_back(TimingDiagram::Read(text.substr(first, text.find("```\n", first) - first)));
  }
  return diagrams;
}

}  // namespace test_support
