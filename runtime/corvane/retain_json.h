// SPDX-License-Identifier: MIT
// Retained values as they are in the file: JSON that people can read, with a checksum.
// Pure functions.
//
// A table is an array if its keys are 1..n, an object if they are texts, and otherwise
// {"$table": [[key, value], ...]}. A text that is not UTF-8 is {"$octets": "hexadecimal digits"},
// a number that JSON lacks {"$number": "nan"}, "inf" or "-inf"; the variables of a block are
// {"$block": "TON", "variables": {...}}.
#pragma once

#include <cstddef>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace corvane {

/// Takes values out of a snapshot, in the order in which they were added to it. The octets must
/// come from SnapshotWriter and outlive the reader.
class SnapshotReader {
 public:
  explicit SnapshotReader(std::string_view octets) : rest_(octets) {}

  [[nodiscard]] bool AtEnd() const { return rest_.empty(); }
  [[nodiscard]] std::string TakeString();
  [[nodiscard]] nlohmann::json TakeValue();

 private:
  [[nodiscard]] nlohmann::json TakeTable();
  template <class Number>
  [[nodiscard]] Number TakeNumber();

  std::string_view rest_;
};

/// Names of the special forms.
inline constexpr const char* kTableForm = "$table";
inline constexpr const char* kOctetsForm = "$octets";
inline constexpr const char* kNumberForm = "$number";
inline constexpr const char* kBlockForm = "$block";
inline constexpr const char* kBlockVariables = "variables";

/// The file's content, for an object with a value for each name.
[[nodiscard]] std::string RetainFileText(const nlohmann::json& values);

/// The object in a file's content. Throws std::runtime_error with what is wrong with it.
[[nodiscard]] nlohmann::json ReadRetainFileText(std::string_view text);

/// Calls `pair` with each key and value of a table in any of its forms. @return false if the value
/// is not a table
bool ForEachPair(
    const nlohmann::json& table,
    const std::function<void(const nlohmann::json& key, const nlohmann::json& value)>& pair);

/// The octets of a text in either form; null if the value is not one.
[[nodiscard]] bool ReadText(const nlohmann::json& value, std::string& text);
/// The number in either form. @return false if the value is not one
[[nodiscard]] bool ReadNumber(const nlohmann::json& value, double& number);

}  // namespace corvane
