// SPDX-License-Identifier: MIT
// National language tables of the GSM 7-bit alphabet (3GPP TS 23.038 clause 6.2.1.2, annex A).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace gsm {

/// National language identifier, as the user-data header has it (3GPP TS 23.040 clauses 9.2.3.24.15
/// and 9.2.3.24.16). Other values are reserved, and are read as kDefault.
enum class Language : std::uint8_t {
  kDefault,
  kTurkish,
  kSpanish,
  kPortuguese,
  kBengali,
  kGujarati,
  kHindi,
  kKannada,
  kMalayalam,
  kOriya,
  kPunjabi,
  kTamil,
  kTelugu,
  kUrdu,
};

constexpr std::size_t kCharactersOfATable = 128;

/// The locking shift table, which replaces the default alphabet: 128 characters. Empty where the
/// language has none (kDefault, kSpanish and reserved values).
[[nodiscard]] std::u32string_view NationalLockingTable(Language language) noexcept;

/// The single shift table, which replaces the extension table: 128 characters, a space for each one
/// that it does not define. Empty for kDefault and reserved values.
[[nodiscard]] std::u32string_view NationalSingleTable(Language language) noexcept;

}  // namespace gsm
