// SPDX-License-Identifier: MIT
#include "libs/modbus/number_format.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

#include "libs/base/printable.h"

namespace modbus {
namespace {

using Kind = NumberFormat::Kind;

constexpr NumberFormat kFormats[] = {
    {"UINT", "UINT16", Kind::kUnsigned, 1},  {"INT", "INT16", Kind::kSigned, 1},
    {"UDINT", "UINT32", Kind::kUnsigned, 2}, {"DINT", "INT32", Kind::kSigned, 2},
    {"REAL", "FLOAT32", Kind::kReal, 2},     {"ULINT", "UINT64", Kind::kUnsigned, 4},
    {"LINT", "INT64", Kind::kSigned, 4},     {"LREAL", "FLOAT64", Kind::kReal, 4},
};

constexpr std::pair<const char*, NumberOrder> kOrders[] = {
    {"ABCD", {false, false}},
    {"CDAB", {true, false}},
    {"BADC", {false, true}},
    {"DCBA", {true, true}},
};

/// Octets of a number that a problem shows.
constexpr std::size_t kShownOctets = 40;

template <class T>
void Append(std::string& text, T number) {
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  if (!text.empty()) text += ' ';
  text.append(digits.data(), end);
}

unsigned BitsOf(const NumberFormat& format) {
  return static_cast<unsigned>(16 * format.registers);
}

/// The number's bits in the order of their value, from the registers of one number.
std::uint64_t Join(std::span<const std::uint16_t> registers, NumberOrder order) {
  std::uint64_t bits = 0;
  for (std::size_t i = 0; i < registers.size(); ++i) {
    unsigned word = registers[order.low_word_first ? registers.size() - 1 - i : i];
    if (order.low_octet_first) word = (word >> 8) | ((word & 0xFF) << 8);
    bits = (bits << 16) | word;
  }
  return bits;
}

/// The opposite of Join.
void Split(std::uint64_t bits, const NumberFormat& format, NumberOrder order,
           std::vector<std::uint16_t>& registers) {
  for (std::size_t i = 0; i < format.registers; ++i) {
    const std::size_t place = order.low_word_first ? i : format.registers - 1 - i;
    auto word = static_cast<unsigned>(bits >> (16 * place)) & 0xFFFF;
    if (order.low_octet_first) word = (word >> 8) | ((word & 0xFF) << 8);
    registers.push_back(static_cast<std::uint16_t>(word));
  }
}

void AppendNumber(std::string& text, std::uint64_t bits, const NumberFormat& format) {
  const unsigned unused = 64 - BitsOf(format);
  switch (format.kind) {
    case Kind::kUnsigned: Append(text, bits); return;
    case Kind::kSigned: Append(text, static_cast<std::int64_t>(bits << unused) >> unused); return;
    case Kind::kReal:
      if (format.registers == 2) {
        Append(text, std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
      } else {
        Append(text, std::bit_cast<double>(bits));
      }
  }
}

std::string Quoted(std::string_view word) {
  return "'" + corvane::PrintableBeginning(word, kShownOctets) + "'";
}

/// Reads the whole word, or nothing.
template <class T>
std::optional<T> Read(std::string_view word, int base) {
  T number{};
  const char* const end = word.data() + word.size();
  const auto result = std::from_chars(word.data(), end, number, base);
  return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

std::optional<double> ReadReal(std::string_view word) {
  double number = 0;
  const char* const end = word.data() + word.size();
  const auto result = std::from_chars(word.data(), end, number);
  return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

bool IsHexadecimal(std::string_view word) {
  return word.starts_with("0x") || word.starts_with("0X");
}

/// A whole number, also as 1e3 or 42.0, as two's complement; nothing if it is out of range.
std::optional<std::uint64_t> ReadWhole(std::string_view word, const NumberFormat& format) {
  const unsigned bits = BitsOf(format);
  const std::uint64_t most = std::numeric_limits<std::uint64_t>::max() >> (64 - bits);
  if (IsHexadecimal(word)) {  // the bits as they are in the registers
    const auto number = Read<std::uint64_t>(word.substr(2), 16);
    return number && *number <= most ? number : std::nullopt;
  }
  const bool is_signed = format.kind == Kind::kSigned;
  if (const auto number = Read<std::uint64_t>(word, 10)) {
    return *number <= (is_signed ? most >> 1 : most) ? number : std::nullopt;
  }
  if (const auto number = Read<std::int64_t>(word, 10)) {  // below 0
    if (!is_signed || *number < -static_cast<std::int64_t>(most >> 1) - 1) return std::nullopt;
    return static_cast<std::uint64_t>(*number) & most;
  }
  const auto real = ReadReal(word);
  constexpr double kExact = 9007199254740992.0;  // 2^53: up to here each whole number is a double
  if (!real || std::trunc(*real) != *real || std::fabs(*real) > kExact) return std::nullopt;
  return ReadWhole(std::to_string(static_cast<std::int64_t>(*real)), format);
}

std::optional<std::uint64_t> ReadRealBits(std::string_view word, const NumberFormat& format) {
  const auto number = ReadReal(word);
  if (!number) return std::nullopt;
  if (format.registers == 4) return std::bit_cast<std::uint64_t>(*number);
  const bool is_beyond =
      std::isfinite(*number) && std::fabs(*number) > double{std::numeric_limits<float>::max()};
  if (is_beyond) return std::nullopt;
  return std::bit_cast<std::uint32_t>(static_cast<float>(*number));
}

std::string ProblemOf(std::string_view word, const NumberFormat& format) {
  if (word.find(',') != std::string_view::npos) {
    return Quoted(word) +
           " is not a number; separate numbers by blanks, and write fractions with a point";
  }
  return Quoted(word) + " is not a number that fits into " + format.name;
}

/// Takes the next word off the text; empty: there is none.
std::string_view NextWord(std::string_view& text) {
  constexpr std::string_view kSeparators = " \t\r\n;";
  text.remove_prefix(std::min(text.find_first_not_of(kSeparators), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(kSeparators));
  text.remove_prefix(word.size());
  return word;
}

/// Goes through the words of a text. @param read appends the values of one word, or returns a
/// problem
template <class T, class ReadWord>
FromText<T> ReadWords(std::string_view text, std::size_t limit, const ReadWord& read) {
  FromText<T> result;
  for (std::string_view word = NextWord(text); !word.empty(); word = NextWord(text)) {
    result.problem = read(word.starts_with('+') ? word.substr(1) : word, result.values);
    if (result.values.size() > limit) {
      result.problem = "there are more numbers than one request can write, which is " +
                       std::to_string(limit) + (sizeof(T) == 1 ? " coils" : " registers");
    }
    if (!result.problem.empty()) return result;
  }
  if (result.values.empty()) result.problem = "there is no number to write";
  return result;
}

}  // namespace

bool IsSameName(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::toupper(static_cast<unsigned char>(x)) ==
           std::toupper(static_cast<unsigned char>(y));
  });
}

const NumberFormat* FindNumberFormat(std::string_view name) {
  if (name.empty()) return &kFormats[0];
  for (const NumberFormat& format : kFormats) {
    if (IsSameName(name, format.name) || IsSameName(name, format.other_name)) return &format;
  }
  return nullptr;
}

std::optional<NumberOrder> FindNumberOrder(std::string_view name) {
  if (name.empty()) return NumberOrder{};
  for (const auto& [known, order] : kOrders) {
    if (IsSameName(name, known)) return order;
  }
  return std::nullopt;
}

std::string NumbersAsText(std::span<const std::uint16_t> registers, const NumberFormat& format,
                          NumberOrder order) {
  std::string text;
  while (registers.size() >= format.registers) {
    AppendNumber(text, Join(registers.first(format.registers), order), format);
    registers = registers.subspan(format.registers);
  }
  return text;
}

std::string BitsAsText(std::span<const std::uint8_t> bits) {
  std::string text;
  for (const std::uint8_t bit : bits) Append(text, bit == 0 ? 0 : 1);
  return text;
}

FromText<std::uint16_t> NumbersFromText(std::string_view text, const NumberFormat& format,
                                        NumberOrder order, std::size_t limit) {
  return ReadWords<std::uint16_t>(text, limit, [&](std::string_view word, auto& registers) {
    const auto bits =
        format.kind == Kind::kReal ? ReadRealBits(word, format) : ReadWhole(word, format);
    if (!bits) return ProblemOf(word, format);
    Split(*bits, format, order, registers);
    return std::string();
  });
}

FromText<std::uint8_t> BitsFromText(std::string_view text, std::size_t limit) {
  return ReadWords<std::uint8_t>(text, limit, [](std::string_view word, auto& bits) {
    const bool is_true = word == "1" || IsSameName(word, "TRUE");
    if (!is_true && word != "0" && !IsSameName(word, "FALSE")) {
      return Quoted(word) +
             " is not a coil's state; write 0, 1, true or false, with blanks between";
    }
    bits.push_back(is_true ? 1 : 0);
    return std::string();
  });
}

}  // namespace modbus
