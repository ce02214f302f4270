// SPDX-License-Identifier: MIT
#include "runtime/modem_check/answer_fields.h"

#include <charconv>

#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/utf16.h"

namespace corvane::modem_check {
namespace {

std::string WithoutBlanks(std::string field) {
  const std::size_t end = field.find_last_not_of(' ');
  field.erase(end == field.npos ? 0 : end + 1);
  field.erase(0, field.find_first_not_of(' '));
  return field;
}

}  // namespace

std::vector<std::string> SplitFields(std::string_view parameters) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  int depth = 0;
  for (const char c : parameters) {
    if (c == '"') {
      quoted = !quoted;
      continue;
    }
    if (c == ',' && !quoted && depth <= 0) {
      fields.back() = WithoutBlanks(fields.back());
      fields.emplace_back();
      continue;
    }
    if (!quoted && c == '(') ++depth;
    if (!quoted && c == ')') --depth;
    fields.back() += c;
  }
  fields.back() = WithoutBlanks(fields.back());
  return fields;
}

std::optional<int> NumberAt(const std::vector<std::string>& fields, std::size_t index) {
  if (index >= fields.size()) return std::nullopt;
  const std::string& field = fields[index];
  int number = 0;
  const char* const end = field.data() + field.size();
  const auto [rest, error] = std::from_chars(field.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

std::string FromUcs2Digits(std::string_view text) {
  const auto octets = gsm::FromHexadecimal(text);
  if (!octets || octets->empty() || octets->size() % 2 != 0) return std::string(text);
  return gsm::DecodeUtf16(*octets);
}

}  // namespace corvane::modem_check
