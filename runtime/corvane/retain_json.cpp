// SPDX-License-Identifier: MIT
#include "runtime/corvane/retain_json.h"

#include <fmt/format.h>
#include <utf8.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "runtime/corvane/retain_snapshot.h"

namespace corvane {
namespace {

using nlohmann::json;
using Pair = std::pair<json, json>;

constexpr std::string_view kBeforeSum = "{\"checksum\":\"";
constexpr std::string_view kAfterSum = "\",\"values\":";
constexpr std::string_view kEndOfFile = "}\n";
constexpr std::size_t kSumDigits = 16;
constexpr int kDeepest =
    3 * static_cast<int>(kDeepestTable) + 10;  // a table has up to three levels

/// FNV-1a, 64 bits. It is for accidents, not for enemies: who can write the file can do this, too.
std::string Checksum(std::string_view text) {
  std::uint64_t sum = 0xcbf29ce484222325U;
  for (const char octet : text) {
    sum = (sum ^ static_cast<unsigned char>(octet)) * 0x100000001b3U;
  }
  return fmt::format("{:016x}", sum);
}

json NumberValue(double number) {
  constexpr double kExact = 9007199254740992;  // 2^53
  if (std::isnan(number)) return {{kNumberForm, "nan"}};
  if (std::isinf(number)) return {{kNumberForm, number > 0 ? "inf" : "-inf"}};
  const bool is_whole = std::abs(number) < kExact && number == std::trunc(number);
  if (is_whole && !(number == 0 && std::signbit(number))) return static_cast<std::int64_t>(number);
  return number;
}

std::string Hexadecimal(std::string_view octets) {
  std::string digits;
  digits.reserve(2 * octets.size());
  for (const char octet : octets) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(octet);
    digits.push_back(kDigits[value >> 4U]);
    digits.push_back(kDigits[value & 0xFU]);
  }
  return digits;
}

int DigitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

bool ReadHexadecimal(std::string_view digits, std::string& octets) {
  octets.clear();
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    const int high = DigitValue(digits[i]);
    const int low = DigitValue(digits[i + 1]);
    if (high < 0 || low < 0) return false;
    octets.push_back(static_cast<char>(16 * high + low));
  }
  return digits.size() % 2 == 0;
}

json TextValue(std::string text) {
  if (utf8::is_valid(text.begin(), text.end())) return text;
  return {{kOctetsForm, Hexadecimal(text)}};
}

/// Whether the keys are 1, 2, 3, ... in this order, as a traversal of a Lua sequence gives them.
bool IsSequence(const std::vector<Pair>& pairs) {
  std::int64_t next = 1;
  for (const auto& [key, value] : pairs) {
    if (!key.is_number_integer() || key.get<std::int64_t>() != next++) return false;
  }
  return true;
}

bool IsPlainKey(const json& key) {
  return key.is_string() && !key.get_ref<const std::string&>().starts_with('$');
}

json TableValue(std::vector<Pair> pairs) {
  if (IsSequence(pairs)) {
    json array = json::array();
    for (auto& [key, value] : pairs) array.push_back(std::move(value));
    return array;
  }
  const bool is_object = std::all_of(pairs.begin(), pairs.end(),
                                     [](const Pair& pair) { return IsPlainKey(pair.first); });
  if (is_object) {
    json object = json::object();
    for (auto& [key, value] : pairs) object[key.get_ref<const std::string&>()] = std::move(value);
    return object;
  }
  json list = json::array();
  for (auto& [key, value] : pairs) list.push_back(json::array({std::move(key), std::move(value)}));
  return {{kTableForm, std::move(list)}};
}

/// The value of an object with this one key, else null.
const json* Form(const json& value, const char* key) {
  if (!value.is_object() || value.size() != 1) return nullptr;
  const auto found = value.find(key);
  return found == value.end() ? nullptr : &*found;
}

}  // namespace

template <class Number>
Number SnapshotReader::TakeNumber() {
  Number number{};
  std::memcpy(&number, rest_.data(), sizeof number);
  rest_.remove_prefix(sizeof number);
  return number;
}

std::string SnapshotReader::TakeString() {
  rest_.remove_prefix(1);
  const auto length = TakeNumber<std::uint32_t>();
  std::string text(rest_.substr(0, length));
  rest_.remove_prefix(length);
  return text;
}

json SnapshotReader::TakeValue() {
  const auto mark = static_cast<SnapshotMark>(rest_.front());
  if (mark == SnapshotMark::kString) return TextValue(TakeString());
  rest_.remove_prefix(1);
  switch (mark) {
    case SnapshotMark::kFalse: return false;
    case SnapshotMark::kTrue: return true;
    case SnapshotMark::kNumber: return NumberValue(TakeNumber<double>());
    case SnapshotMark::kTable: return TakeTable();
    case SnapshotMark::kString:
    case SnapshotMark::kEnd: break;
  }
  throw std::logic_error("a snapshot that is not one");
}

json SnapshotReader::TakeTable() {
  std::vector<Pair> pairs;
  while (static_cast<SnapshotMark>(rest_.front()) != SnapshotMark::kEnd) {
    json key = TakeValue();
    json value = TakeValue();
    pairs.emplace_back(std::move(key), std::move(value));
  }
  rest_.remove_prefix(1);
  return TableValue(std::move(pairs));
}

std::string RetainFileText(const json& values) {
  const std::string text = values.dump();
  return fmt::format("{}{}{}{}{}", kBeforeSum, Checksum(text), kAfterSum, text, kEndOfFile);
}

json ReadRetainFileText(std::string_view text) {
  constexpr std::size_t kHead = kBeforeSum.size() + kSumDigits + kAfterSum.size();
  const bool has_frame = text.size() >= kHead + kEndOfFile.size() && text.starts_with(kBeforeSum) &&
                         text.ends_with(kEndOfFile) &&
                         text.substr(kHead - kAfterSum.size(), kAfterSum.size()) == kAfterSum;
  if (!has_frame) throw std::runtime_error("it is not whole");
  const std::string_view values = text.substr(kHead, text.size() - kHead - kEndOfFile.size());
  if (text.substr(kBeforeSum.size(), kSumDigits) != Checksum(values)) {
    throw std::runtime_error("its checksum is wrong");
  }
  // Deeper than any that we write: copying it would take too much of the stack.
  const json::parser_callback_t check = [](int depth, json::parse_event_t /*event*/, json&) {
    if (depth > kDeepest) throw std::runtime_error("it is nested too deeply");
    return true;
  };
  json object = json::parse(values, check, false);
  if (!object.is_object()) throw std::runtime_error("it has no values");
  return object;
}

bool ForEachPair(const json& table,
                 const std::function<void(const json& key, const json& value)>& pair) {
  if (table.is_array()) {
    for (std::size_t i = 0; i < table.size(); ++i) pair(i + 1, table[i]);
    return true;
  }
  if (const json* list = Form(table, kTableForm); list != nullptr && list->is_array()) {
    for (const json& each : *list) {
      if (each.is_array() && each.size() == 2) pair(each[0], each[1]);
    }
    return true;
  }
  if (!table.is_object() || Form(table, kOctetsForm) != nullptr ||
      Form(table, kNumberForm) != nullptr || table.contains(kBlockForm)) {
    return false;
  }
  for (const auto& [key, value] : table.items()) pair(key, value);
  return true;
}

bool ReadText(const json& value, std::string& text) {
  if (value.is_string()) {
    text = value.get<std::string>();
    return true;
  }
  const json* const octets = Form(value, kOctetsForm);
  return octets != nullptr && octets->is_string() &&
         ReadHexadecimal(octets->get_ref<const std::string&>(), text);
}

bool ReadNumber(const json& value, double& number) {
  if (value.is_number()) {
    number = value.get<double>();
    return true;
  }
  const json* const form = Form(value, kNumberForm);
  if (form == nullptr || !form->is_string()) return false;
  constexpr double kInfinite = std::numeric_limits<double>::infinity();
  const auto& name = form->get_ref<const std::string&>();
  if (name == "nan") {
    number = std::numeric_limits<double>::quiet_NaN();
  } else if (name == "inf" || name == "-inf") {
    number = name == "inf" ? kInfinite : -kInfinite;
  } else {
    return false;
  }
  return true;
}

}  // namespace corvane
