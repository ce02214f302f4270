// SPDX-License-Identifier: MIT
// Numbers in registers of 16 bits, and as the texts that control programs see. The Modbus
// Application Protocol (V1.1b3, clause 4.2) sends a register with its high octet first; how several
// registers make up one number is the custom of each device.
// Pure functions, independent of the locale.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace modbus {

/// Whether two names are the same but for upper and lower case (ASCII).
[[nodiscard]] bool IsSameName(std::string_view a, std::string_view b);

/// What registers hold.
struct NumberFormat {
  enum class Kind : std::uint8_t { kUnsigned, kSigned, kReal };

  const char* name;        ///< of IEC 61131-3
  const char* other_name;  ///< as data sheets have it
  Kind kind;
  std::size_t registers;  ///< for one number: 1, 2 or 4
};

/// UINT, INT, UDINT, DINT, REAL, ULINT, LINT, LREAL, or UINT16 ... FLOAT64; upper and lower case
/// are the same, and an empty name is UINT. @return null for any other name
[[nodiscard]] const NumberFormat* FindNumberFormat(std::string_view name);

/// The order of octets in the registers of one number.
struct NumberOrder {
  bool low_word_first = false;
  bool low_octet_first = false;  ///< in each register

  bool operator==(const NumberOrder&) const = default;
};

/// ABCD (A is the octet of most value; also for an empty name), CDAB, BADC, DCBA; upper and lower
/// case are the same. @return nothing for any other name
[[nodiscard]] std::optional<NumberOrder> FindNumberOrder(std::string_view name);

/// The numbers in decimal, separated by blanks. A REAL or LREAL has the fewest digits that give the
/// same number when read again; `nan`, `inf` and `-inf` are possible.
/// @param registers whole numbers only: a multiple of format.registers
[[nodiscard]] std::string NumbersAsText(std::span<const std::uint16_t> registers,
                                        const NumberFormat& format, NumberOrder order);
/// `0` and `1`, separated by blanks.
[[nodiscard]] std::string BitsAsText(std::span<const std::uint8_t> bits);

/// What a text has become.
template <class T>
struct FromText {
  std::vector<T> values;
  std::string problem;  ///< what is wrong with which number; empty: nothing
};

/// Reads numbers that are separated by white space or semicolons; hexadecimal ones begin with 0x.
/// No numbers at all are a problem, and so are more than fit into `limit` registers.
[[nodiscard]] FromText<std::uint16_t> NumbersFromText(std::string_view text,
                                                      const NumberFormat& format, NumberOrder order,
                                                      std::size_t limit);
/// The same for bits: 0, 1, true, false.
[[nodiscard]] FromText<std::uint8_t> BitsFromText(std::string_view text, std::size_t limit);

}  // namespace modbus
