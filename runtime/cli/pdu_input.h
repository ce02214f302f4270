// SPDX-License-Identifier: MIT
// PDUs as people paste them: digits alone, or with the lines that a modem printed around them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::cli {

inline constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";

/// A PDU's digits, and the header line before it in the modem's list.
struct GivenPdu {
  std::string hex;
  std::string header;                    ///< "+CMGL: 1,1,,24"; empty: none
  std::optional<std::size_t> announced;  ///< octets without the service centre, from the header
};

/// Collects PDUs from lines. Skips empty lines, "OK", and commands ("AT...").
class PduInput {
 public:
  /// @param line without its line end; a header line may have its PDU after a space
  void Add(std::string_view line);
  /// The PDUs collected since the last call. A header without a PDU waits for the next line.
  [[nodiscard]] std::vector<GivenPdu> Take();
  /// The header that still waits for its PDU; empty: none.
  [[nodiscard]] const std::string& waiting() const { return header_; }

 private:
  void AddPdu(std::string_view hex);

  std::string header_;
  std::vector<GivenPdu> pdus_;
};

/// The words of a command line as lines: a word that ends like the name of a header, "+CMGL:", is
/// joined with the next one; a word may have several lines, of which the empty ones are left out.
[[nodiscard]] std::vector<std::string> LinesOf(const std::vector<std::string>& words);

}  // namespace corvane::cli
