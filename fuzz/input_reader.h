// SPDX-License-Identifier: MIT
// The input of a fuzz target as a sequence of values. Past its end every value is 0 or empty.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class InputReader {
 public:
  InputReader(const std::uint8_t* data, std::size_t size)
      : rest_(reinterpret_cast<const char*>(data), size) {}

  [[nodiscard]] bool AtEnd() const { return rest_.empty(); }
  std::uint8_t Octet() {
    const std::string octet = Take(1);
    return octet.empty() ? 0 : static_cast<std::uint8_t>(octet.front());
  }
  /// 0 to `count` - 1.
  std::size_t Below(std::size_t count) { return Octet() % count; }
  bool Flag() { return (Octet() & 1U) != 0; }
  /// Any number; most often a small one, or one next to a power of two.
  std::int64_t Number() {
    const std::uint8_t kind = Octet();
    if (kind < 128) return kind;
    if (kind >= 192) {
      std::uint64_t value = 0;
      for (const char octet : Take(8)) value = (value << 8U) | static_cast<unsigned char>(octet);
      return static_cast<std::int64_t>(value);
    }
    const std::uint64_t power = std::uint64_t{1} << (kind & 63U);
    return static_cast<std::int64_t>(power + static_cast<std::uint64_t>(Below(3)) - 1);
  }
  /// At most 255 octets, after their number.
  std::string Text() { return Take(Octet()); }
  std::string Rest() { return Take(rest_.size()); }

 private:
  std::string Take(std::size_t count) {
    std::string taken(rest_.substr(0, count));
    rest_.remove_prefix(taken.size());
    return taken;
  }

  std::string_view rest_;
};
