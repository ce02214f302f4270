// SPDX-License-Identifier: MIT
// Oddities of real modems that the simulator can imitate, so that a driver can be tested with them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace modem_simulator {

enum class Quirk : std::uint8_t {
  kEchoAlways,
  kNoEcho,
  kDoubleEcho,
  kPromptBare,
  kPromptCrLf,
  kNoPrompt,
  kNoBlank,
  kAlphaField,
  kNoAlphaField,
  kNewestFirst,
  kIndexFromZero,
  kDeleteEmptyOk,
  kFilledPdu,
  kOkOnFailure,
  kWideReference,
  kDeafWhileBusy,
};

struct QuirkRow {
  Quirk quirk;
  std::string_view name;     ///< as users write it
  std::string_view meaning;  ///< one line for --help
};

[[nodiscard]] std::span<const QuirkRow> QuirkTable();
[[nodiscard]] std::optional<Quirk> FindQuirk(std::string_view name);

class Quirks {
 public:
  void Add(Quirk quirk) { bits_ |= Bit(quirk); }
  [[nodiscard]] bool Has(Quirk quirk) const { return (bits_ & Bit(quirk)) != 0; }

 private:
  static std::uint32_t Bit(Quirk quirk) { return 1U << static_cast<unsigned>(quirk); }

  std::uint32_t bits_ = 0;
};

}  // namespace modem_simulator
