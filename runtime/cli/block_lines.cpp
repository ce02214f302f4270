// SPDX-License-Identifier: MIT
#include "runtime/cli/block_lines.h"

#include <algorithm>

#include "runtime/cli/screen_text.h"

namespace corvane::cli {
namespace {

constexpr std::size_t kNameCells = 12;
constexpr std::size_t kColumnCells = 40;  // desired width where there are several columns
constexpr std::size_t kMaximumColumns = 4;

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool Contains(std::string_view text, std::string_view piece) {
  const auto same = [](char a, char b) { return Lower(a) == Lower(b); };
  return std::search(text.begin(), text.end(), piece.begin(), piece.end(), same) != text.end();
}

std::string VariableText(const VariableState& variable) {
  return (variable.changed ? "* " : "  ") + Fit(ScreenText(variable.name), kNameCells) + " " +
         ScreenText(variable.value);
}

/// Fills rows from left to right.
class Rows {
 public:
  Rows(std::size_t width, std::vector<ScreenLine>& lines)
      : width_(width),
        columns_(std::clamp(width / kColumnCells, width < kColumnCells ? 1 : std::size_t{2},
                            kMaximumColumns)),
        lines_(lines) {}

  void Add(const std::string& text) {
    const std::size_t column = width_ / columns_;
    const std::size_t cells = Cells(text);
    if (cells >= column) {
      End();
      lines_.push_back({cells > width_ ? Fit(text, width_) : text});
      return;
    }
    row_ += Fit(text, column);
    if (++used_ == columns_) End();
  }

  void End() {
    if (used_ == 0) return;
    row_.erase(row_.find_last_not_of(' ') + 1);
    lines_.push_back({std::move(row_)});
    row_.clear();
    used_ = 0;
  }

 private:
  std::size_t width_;
  std::size_t columns_;
  std::vector<ScreenLine>& lines_;
  std::string row_;
  std::size_t used_ = 0;
};

}  // namespace

std::vector<BlockState> Matching(const std::vector<BlockState>& blocks, std::string_view text) {
  std::vector<BlockState> matching;
  for (const BlockState& block : blocks) {
    if (Contains(block.name, text) || Contains(block.type, text)) {
      matching.push_back(block);
      continue;
    }
    BlockState part{block.number, block.name, block.type, {}};
    std::copy_if(block.variables.begin(), block.variables.end(), std::back_inserter(part.variables),
                 [text](const auto& variable) { return Contains(variable.name, text); });
    if (!part.variables.empty()) matching.push_back(std::move(part));
  }
  return matching;
}

std::vector<ScreenLine> BlockLines(const std::vector<BlockState>& blocks, std::size_t width) {
  std::vector<ScreenLine> lines;
  for (const BlockState& block : blocks) {
    lines.push_back({Fit(ScreenText(block.name) + ": " + ScreenText(block.type), width),
                     ScreenLine::Style::kBold});
    Rows rows(width, lines);
    for (const VariableState& variable : block.variables) rows.Add(VariableText(variable));
    rows.End();
  }
  return lines;
}

}  // namespace corvane::cli
