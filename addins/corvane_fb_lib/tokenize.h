// SPDX-License-Identifier: MIT
// Splits text at single-character delimiters. No state.
#pragma once

#include <algorithm>
#include <string>

/// Appends the pieces of `str` between characters of `delimiters` to `tokens`. There is an empty
/// piece between two delimiters in a row, before one at the beginning and after one at the end, and
/// an empty `str` is one empty piece; `trimEmpty` leaves out all of them.
template <class ContainerT>
void tokenize(ContainerT& tokens, const std::string& str, const std::string& delimiters,
              bool trimEmpty) {
  for (std::string::size_type position = 0; position <= str.length();) {
    const auto end = std::min(str.find_first_of(delimiters, position), str.length());
    if (end != position || !trimEmpty) tokens.push_back(str.substr(position, end - position));
    position = end + 1;
  }
}
